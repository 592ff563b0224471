#ifndef ZEFO_SRC_CORE_SCAN_CURSOR_H_
#define ZEFO_SRC_CORE_SCAN_CURSOR_H_

#include <climits>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

namespace zefo {
namespace detail {

// A hand-written stand-in for sscanf over one line of kernel text, for the hot paths where a
// whole pass parses thousands of lines. Each step does what the scanf directive named beside it
// does with glibc in the C locale, so a chain of steps gives the same targets as the format
// would, including on odd input: a step that fails leaves its target alone and the caller stops
// there, as scanf stops at the first mismatch.
//
// The text ends at its first NUL byte, as a C string would. A parser that has checked a whole
// file for NUL bytes once may say so and spare every line the search.
class ScanCursor {
 public:
  enum Nul { kMayHoldNul, kHasNoNul };

  explicit ScanCursor(std::string_view text, Nul nul = kMayHoldNul)
      : p_(text.data()), end_(text.data() + text.size()) {
    if (nul == kMayHoldNul) {
      const void* first = std::memchr(p_, '\0', text.size());
      if (first != nullptr) end_ = static_cast<const char*>(first);
    }
  }

  // The white space of scanf ("%s" stops at it, " " skips it): blank, and \t \n \v \f \r.
  static bool IsSpace(char c) { return c == ' ' || static_cast<unsigned char>(c - '\t') < 5; }
  static bool IsDigit(char c) { return static_cast<unsigned char>(c - '0') < 10; }

  // " ": skips any white space, none included.
  void SkipSpace() {
    while (p_ < end_ && IsSpace(*p_)) ++p_;
  }

  // An ordinary character of the format: must come next.
  bool Literal(char c) {
    if (p_ == end_ || *p_ != c) return false;
    ++p_;
    return true;
  }

  // "%lld": white space, an optional sign, at least one decimal digit. Out of range, the value
  // is clamped to the type's limits, as strtoll does.
  bool Number(long long& out) { return Signed(LLONG_MIN, LLONG_MAX, out); }

  // "%*lld": the same, nothing stored.
  bool SkipNumber() {
    long long ignored;
    return Signed(LLONG_MIN, LLONG_MAX, ignored);
  }

  // "%d": glibc converts with strtol and truncates the long to int.
  bool Int(int& out) {
    long long value;
    if (!Signed(LONG_MIN, LONG_MAX, value)) return false;
    out = static_cast<int>(value);
    return true;
  }

  // "%<width>s": white space, then 1 to `width` bytes up to the next white space.
  bool Word(std::size_t width, std::string_view& out) {
    SkipSpace();
    const char* start = p_;
    const char* stop = end_ - start > static_cast<std::ptrdiff_t>(width) ? start + width : end_;
    while (p_ < stop && !IsSpace(*p_)) ++p_;
    if (p_ == start) return false;
    out = std::string_view(start, static_cast<std::size_t>(p_ - start));
    return true;
  }

  // "%<width>[^c]": no white space skipped, then 1 to `width` bytes other than `c`.
  bool Until(char c, std::size_t width, std::string_view& out) {
    const char* start = p_;
    const char* stop = end_ - start > static_cast<std::ptrdiff_t>(width) ? start + width : end_;
    while (p_ < stop && *p_ != c) ++p_;
    if (p_ == start) return false;
    out = std::string_view(start, static_cast<std::size_t>(p_ - start));
    return true;
  }

  // What is left of the text.
  std::string_view Rest() const {
    return std::string_view(p_, static_cast<std::size_t>(end_ - p_));
  }

 private:
  bool Signed(long long min, long long max, long long& out) {
    SkipSpace();
    const char* q = p_;
    bool negative = false;
    if (q < end_ && (*q == '-' || *q == '+')) {
      negative = *q == '-';
      ++q;
    }
    if (q == end_ || !IsDigit(*q)) return false;
    const unsigned long long limit = negative ? static_cast<unsigned long long>(-(min + 1)) + 1
                                              : static_cast<unsigned long long>(max);
    // Eighteen digits cannot overflow the accumulator; only a longer number needs the checked
    // loop. Past the limit the remaining digits are consumed and the value is clamped.
    unsigned long long magnitude = 0;
    const char* quick_end = end_ - q > 18 ? q + 18 : end_;
    for (; q < quick_end && IsDigit(*q); ++q) {
      magnitude = magnitude * 10 + static_cast<unsigned>(*q - '0');
    }
    bool overflow = magnitude > limit;
    for (; q < end_ && IsDigit(*q); ++q) {
      const unsigned digit = static_cast<unsigned>(*q - '0');
      if (!overflow && magnitude > (limit - digit) / 10) overflow = true;
      if (!overflow) magnitude = magnitude * 10 + digit;
    }
    p_ = q;
    if (overflow) {
      out = negative ? min : max;
    } else if (negative) {
      out = magnitude == 0 ? 0 : -static_cast<long long>(magnitude - 1) - 1;
    } else {
      out = static_cast<long long>(magnitude);
    }
    return true;
  }

  const char* p_;
  const char* end_;
};

// Bytes per unit word of the kernel's "kB"-style figures: "kB" 1024, "MB" 2^20, "GB" 2^30,
// anything else (including "B" and the empty word) 1. BaseMonitor::UnitToBytes is this.
inline uint64_t UnitMultiplier(std::string_view unit) {
  if (unit.size() != 2 || unit[1] != 'B') return 1;
  switch (unit[0]) {
    case 'k':
      return 1024ULL;
    case 'M':
      return 1048576ULL;
    case 'G':
      return 1073741824ULL;
    default:
      return 1;
  }
}

}  // namespace detail
}  // namespace zefo

#endif  // ZEFO_SRC_CORE_SCAN_CURSOR_H_
