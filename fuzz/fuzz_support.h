#ifndef ZEFO_FUZZ_FUZZ_SUPPORT_H_
#define ZEFO_FUZZ_FUZZ_SUPPORT_H_

// Small helpers shared by the fuzz targets: a failed check aborts with the input's text, which
// libFuzzer then keeps as a crash artifact.

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <list>
#include <string>
#include <string_view>

#include "core/file_reader.h"

namespace zefo::fuzz {

[[noreturn]] inline void Fail(const char* what, std::string_view input) {
  std::fprintf(stderr, "fuzz check failed: %s\ninput (%zu bytes): ", what, input.size());
  for (unsigned char c : input.substr(0, 512)) {
    if (c >= 0x20 && c < 0x7f && c != '\\') {
      std::fputc(c, stderr);
    } else {
      std::fprintf(stderr, "\\x%02x", c);
    }
  }
  std::fputc('\n', stderr);
  std::abort();
}

#define ZEFO_FUZZ_CHECK(cond, input)               \
  do {                                             \
    if (!(cond)) ::zefo::fuzz::Fail(#cond, input); \
  } while (0)

inline std::string_view AsText(const uint8_t* data, std::size_t size) {
  return std::string_view(reinterpret_cast<const char*>(data), size);
}

// The lines a line reader gives (as BaseMonitor::ReadFile does).
inline std::list<std::string> Lines(std::string_view text) {
  std::list<std::string> lines;
  detail::SplitLines(text, lines);
  return lines;
}

// What a scanf-style parser sees of a line: the bytes up to its first NUL.
inline std::string CPrefix(const std::string& line) {
  return std::string(line.c_str());
}

// Splits the input into up to `n` parts at the byte 0xff, for targets that take several files.
template <std::size_t N>
void SplitParts(std::string_view input, std::string (&parts)[N]) {
  std::size_t part = 0;
  std::size_t start = 0;
  for (std::size_t i = 0; i <= input.size() && part < N; ++i) {
    if (i == input.size() || static_cast<unsigned char>(input[i]) == 0xff) {
      parts[part++].assign(input.substr(start, i - start));
      start = i + 1;
    }
  }
}

}  // namespace zefo::fuzz

#endif  // ZEFO_FUZZ_FUZZ_SUPPORT_H_
