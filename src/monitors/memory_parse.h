#ifndef ZEFO_SRC_MONITORS_MEMORY_PARSE_H_
#define ZEFO_SRC_MONITORS_MEMORY_PARSE_H_

#include <string>

#include "zefo/memory_monitor.h"

namespace zefo {
namespace detail {

// The whole text of /proc/meminfo, cut into lines in place (its newlines become NULs):
//
// "MemTotal:       24684092 kB"
//  key             number   unit
//
// Sets every field of `out` to -1, then, for each line whose key is one of "MemTotal:",
// "MemFree:", "MemShared:", "Buffers:", "Cached:", "Shmem:", "SReclaimable:", "SwapTotal:" and
// "SwapFree:", stores the number times BaseMonitor::UnitToBytes(unit) in its field; a later line
// with the same key wins. "MemShared:" is no longer written by current kernels, so `shared`
// normally stays -1. One number and one unit buffer serve the whole file, so they carry over from
// line to line: a known key with no number of its own takes the last number read, and a number
// without a unit the last unit.
void ParseMeminfoInPlace(std::string& text, MemoryState& out);

}  // namespace detail
}  // namespace zefo

#endif  // ZEFO_SRC_MONITORS_MEMORY_PARSE_H_
