#ifndef ZEFO_SRC_CORE_LINES_H_
#define ZEFO_SRC_CORE_LINES_H_

// Lines of a kernel file's text, split as a line reader splits them: newlines removed, an empty
// line kept as an empty string, a last line without a newline kept, nothing for the empty rest
// after a final newline. Every reader of line-based files goes through these.

#include <cstddef>
#include <list>
#include <string>
#include <string_view>

namespace zefo {
namespace detail {

// The text up to (not including) its first newline: the line a line reader gives first.
inline std::string_view FirstLine(std::string_view text) {
  return text.substr(0, text.find('\n'));
}

// Cuts `text` at its first newline: what is left is the first line, as a C string.
inline const char* FirstLineInPlace(std::string& text) {
  const std::size_t end = text.find('\n');
  if (end != std::string::npos) text[end] = '\0';
  return text.c_str();
}

// Appends the lines of `text` to `lines`.
inline void SplitLines(std::string_view text, std::list<std::string>& lines) {
  std::size_t start = 0;
  while (start < text.size()) {
    const std::size_t end = text.find('\n', start);
    if (end == std::string_view::npos) {
      lines.emplace_back(text.substr(start));
      return;
    }
    lines.emplace_back(text.substr(start, end - start));
    start = end + 1;
  }
}

// Walks the lines of `text` without copying them; sscanf needs C strings, so a line is copied
// into one reused buffer, and only when asked for.
class LineWalker {
 public:
  explicit LineWalker(std::string_view text) : text_(text) {}

  bool Next() {
    if (pos_ >= text_.size()) return false;
    const std::size_t end = text_.find('\n', pos_);
    const std::size_t stop = end == std::string_view::npos ? text_.size() : end;
    line_ = text_.substr(pos_, stop - pos_);
    pos_ = end == std::string_view::npos ? text_.size() : end + 1;
    return true;
  }
  std::string_view View() const { return line_; }
  const char* CStr() {
    buffer_.assign(line_.data(), line_.size());
    return buffer_.c_str();
  }

 private:
  std::string_view text_;
  std::size_t pos_ = 0;
  std::string_view line_;
  std::string buffer_;
};

// Cuts `text` into lines in place, each newline becoming a NUL, and calls fn(const char* line)
// for each line. The lines are C strings inside `text`, so the scanf-style parsers read them
// where they lie: nothing is copied or allocated. A line holding a NUL of its own ends there for
// such a parser, as it would in a copy.
template <typename Fn>
void ForEachLineInPlace(std::string& text, Fn&& fn) {
  std::size_t start = 0;
  while (start < text.size()) {
    std::size_t end = text.find('\n', start);
    if (end == std::string::npos) {
      end = text.size();  // the string's own terminating NUL ends the last line
    } else {
      text[end] = '\0';
    }
    fn(static_cast<const char*>(text.c_str() + start));
    start = end + 1;
  }
}

}  // namespace detail
}  // namespace zefo

#endif  // ZEFO_SRC_CORE_LINES_H_
