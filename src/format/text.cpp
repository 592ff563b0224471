#include "format/text.h"
#include "zefo/format/formats.h"

#include <charconv>
#include <cmath>
#include <cstdlib>
#include <utility>

namespace zefo::format::detail {

namespace {

constexpr char kReplacement[] = "\xEF\xBF\xBD";  // U+FFFD

bool Continuation(unsigned char byte) {
  return (byte & 0xC0) == 0x80;
}

// Length of the well-formed sequence at the start of `text`, 0 if there is none. Overlong
// forms, surrogates and code points above U+10FFFF are not well-formed.
std::size_t SequenceLength(std::string_view text) {
  const auto at = [&text](std::size_t i) { return static_cast<unsigned char>(text[i]); };
  const unsigned char lead = at(0);
  if (lead < 0x80) return 1;
  std::size_t length = 0;
  unsigned char low = 0x80, high = 0xBF;  // the range of the second byte
  if (lead >= 0xC2 && lead <= 0xDF) {
    length = 2;
  } else if (lead >= 0xE0 && lead <= 0xEF) {
    length = 3;
    if (lead == 0xE0) low = 0xA0;
    if (lead == 0xED) high = 0x9F;
  } else if (lead >= 0xF0 && lead <= 0xF4) {
    length = 4;
    if (lead == 0xF0) low = 0x90;
    if (lead == 0xF4) high = 0x8F;
  } else {
    return 0;
  }
  if (text.size() < length || at(1) < low || at(1) > high) return 0;
  for (std::size_t i = 2; i < length; ++i) {
    if (!Continuation(at(i))) return 0;
  }
  return length;
}

}  // namespace

std::string ValidUtf8(std::string_view text) {
  std::string out;
  out.reserve(text.size());
  while (!text.empty()) {
    const std::size_t length = SequenceLength(text);
    if (length == 0) {
      out += kReplacement;
      text.remove_prefix(1);
    } else {
      out.append(text.substr(0, length));
      text.remove_prefix(length);
    }
  }
  return out;
}

std::string_view CutUtf8(std::string_view text, std::size_t max_bytes) {
  if (text.size() <= max_bytes) return text;
  // A character has at most three continuation bytes; further back it is not UTF-8 anyway.
  std::size_t end = max_bytes;
  while (end > 0 && max_bytes - end < 3 && Continuation(static_cast<unsigned char>(text[end]))) {
    --end;
  }
  // `end` starts the character that holds the byte at max_bytes, if that is UTF-8 at all; keep
  // the bytes up to max_bytes unless that character would be cut. Stray continuation bytes after
  // a whole character (an ASCII one, say) are no character of it.
  if (Continuation(static_cast<unsigned char>(text[end])) ||
      end + SequenceLength(text.substr(end)) <= max_bytes) {
    end = max_bytes;
  }
  return text.substr(0, end);
}

std::string EscapeControls(std::string_view text, bool keep_newlines) {
  static const char kHex[] = "0123456789abcdef";
  std::string out;
  out.reserve(text.size());
  const auto escape = [&out](const char* prefix, unsigned char value) {
    out += prefix;
    out += kHex[value >> 4];
    out += kHex[value & 0xF];
  };
  while (!text.empty()) {
    const auto byte = static_cast<unsigned char>(text[0]);
    const std::size_t length = SequenceLength(text);
    if (length == 0) {
      escape("\\x", byte);  // not UTF-8: raw C1 bytes such as 0x9b land here
    } else if (length == 2 && byte == 0xC2 && static_cast<unsigned char>(text[1]) < 0xA0) {
      escape("\\u00", static_cast<unsigned char>(text[1]));  // U+0080-U+009F
    } else if (byte == '\\') {
      out += "\\\\";
    } else if ((byte < 0x20 && !(keep_newlines && byte == '\n')) || byte == 0x7F) {
      escape("\\x", byte);
    } else {
      out.append(text.substr(0, length));
    }
    text.remove_prefix(length == 0 ? 1 : length);
  }
  return out;
}

std::string Number(double value) {
  if (std::isnan(value)) return "NaN";
  if (std::isinf(value)) return value > 0 ? "+Inf" : "-Inf";
  // Whole numbers up to 2^53 (every byte count a board has) print as integers.
  if (value == std::trunc(value) && std::fabs(value) < 9007199254740992.0) {
    return std::to_string(static_cast<long long>(value));
  }
  char buffer[32];
  const auto result = std::to_chars(buffer, buffer + sizeof buffer, value);
  return std::string(buffer, result.ptr);
}

}  // namespace zefo::format::detail

namespace zefo::format {

bool NaturalLess(const std::string& a, const std::string& b) {
  const auto split = [](const std::string& s) {
    std::size_t digits = s.size();
    while (digits > 0 && s[digits - 1] >= '0' && s[digits - 1] <= '9') --digits;
    const bool has_number = digits < s.size() && s.size() - digits < 19;
    return std::make_pair(s.substr(0, digits),
                          has_number ? std::strtoll(s.c_str() + digits, nullptr, 10) : -1LL);
  };
  return split(a) < split(b);
}

}  // namespace zefo::format
