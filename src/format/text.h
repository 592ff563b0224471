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

// At most `max_bytes` of valid UTF-8 `text`, cut before a character that would not fit whole.
std::string_view CutUtf8(std::string_view text, std::size_t max_bytes);

// The shortest decimal that reads back as `value`, whole numbers without a fraction ("42",
// "0.25", "1e+20"); "NaN", "+Inf" and "-Inf" for the rest, as the exposition formats spell them.
std::string Number(double value);

}  // namespace zefo::format::detail

#endif  // ZEFO_SRC_FORMAT_TEXT_H_
