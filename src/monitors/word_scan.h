#ifndef ZEFO_SRC_MONITORS_WORD_SCAN_H_
#define ZEFO_SRC_MONITORS_WORD_SCAN_H_

namespace zefo {
namespace detail {

// After sscanf has put a "%255s" word into a buffer and recorded with "%n" the offset `end`
// that it stopped at: whether the whole word fit. A longer word stops the conversion in its
// middle, before a character that is not white space. `end` is -1 when the conversion did not
// happen.
inline bool WordFits(const char* text, int end) {
  if (end < 0) return false;
  const char next = text[end];
  return next == '\0' || next == ' ' || next == '\t' || next == '\n' || next == '\r' ||
         next == '\v' || next == '\f';
}

}  // namespace detail
}  // namespace zefo

#endif  // ZEFO_SRC_MONITORS_WORD_SCAN_H_
