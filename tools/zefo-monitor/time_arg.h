#ifndef ZEFO_TOOLS_ZEFO_MONITOR_TIME_ARG_H_
#define ZEFO_TOOLS_ZEFO_MONITOR_TIME_ARG_H_

#include <cstdint>
#include <string>

namespace zefo::cli {

// A point in time as milliseconds since the epoch: Unix seconds ("1714589462", "1714589462.5")
// or ISO 8601 ("2024-05-01T18:51:02", a blank for the T, seconds and fraction optional), in local
// time unless it ends in "Z" or an offset ("+02:00", "+0200", "-05"). "" or what is wrong.
std::string ParseTime(const std::string& text, uint64_t& ms);

// A size in bytes: a whole number with an optional K, M or G (powers of 1024, "MiB" and "MB"
// alike). "" or what is wrong.
std::string ParseSize(const std::string& text, uint64_t& bytes);

// A duration in milliseconds: whole seconds, or a number followed by s, m, h or d. "" or what is
// wrong.
std::string ParseDuration(const std::string& text, uint64_t& ms);

}  // namespace zefo::cli

#endif  // ZEFO_TOOLS_ZEFO_MONITOR_TIME_ARG_H_
