#ifndef ZEFO_SRC_CORE_COUNTER_MATH_H_
#define ZEFO_SRC_CORE_COUNTER_MATH_H_

namespace zefo {
namespace detail {

// Kernel counters are read as signed 64-bit values, but a damaged or hostile file can hold
// numbers whose sums and differences leave that range. These wrap modulo 2^64, as the unsigned
// counters underneath do, instead of overflowing a signed type.
inline long long WrappingAdd(long long a, long long b) {
  return static_cast<long long>(static_cast<unsigned long long>(a) +
                                static_cast<unsigned long long>(b));
}

inline long long WrappingSub(long long a, long long b) {
  return static_cast<long long>(static_cast<unsigned long long>(a) -
                                static_cast<unsigned long long>(b));
}

// A count times a unit (pages times the page size, kB times 1024).
inline long long WrappingMul(long long value, unsigned long long factor) {
  return static_cast<long long>(static_cast<unsigned long long>(value) * factor);
}

}  // namespace detail
}  // namespace zefo

#endif  // ZEFO_SRC_CORE_COUNTER_MATH_H_
