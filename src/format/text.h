// Small text helpers shared by the formatters.
#ifndef ZEFO_SRC_FORMAT_TEXT_H_
#define ZEFO_SRC_FORMAT_TEXT_H_

#include <cstddef>
#include <string>
#include <string_view>

namespace zefo::format::detail {

// `text` with every byte that does not belong to a well-formed UTF-8 sequence replaced by
// U+FFFD (one per byte). Kernel strings (process names, command lines, mount points) are bytes,
// not text.
std::string ValidUtf8(std::string_view text);

// At most `max_bytes` of `text`, cut before a UTF-8 character that would not fit whole (bytes
// that are not UTF-8 are cut where the limit falls).
std::string_view CutUtf8(std::string_view text, std::size_t max_bytes);

// `text` as a terminal may show it: every control character (C0, DEL, and C1 whether encoded
// as UTF-8 or as a raw byte) and every byte outside well-formed UTF-8 written as an escape
// ("\x1b", "\u009b", "\xff"), and a backslash as "\\", so that no name a process gives
// itself can move the cursor, retitle the window or hide text. Newlines stay when
// `keep_newlines` is set (a report's own line breaks).
std::string EscapeControls(std::string_view text, bool keep_newlines);

// The shortest decimal that reads back as `value`, whole numbers without a fraction ("42",
// "0.25", "1e+20"); "NaN", "+Inf" and "-Inf" for the rest, as the exposition formats spell them.
std::string Number(double value);

}  // namespace zefo::format::detail

#endif  // ZEFO_SRC_FORMAT_TEXT_H_
