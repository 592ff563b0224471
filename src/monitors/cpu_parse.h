#ifndef ZEFO_SRC_MONITORS_CPU_PARSE_H_
#define ZEFO_SRC_MONITORS_CPU_PARSE_H_

#include <string>

#include "zefo/cpu_monitor.h"

namespace zefo {
namespace detail {

// One line of /proc/stat whose first word begins with "cpu": the aggregate line "cpu" or one
// CPU's line "cpuN".
//
// "cpu0 2684811 115236 1094082 54162041 10674 0 890071 0 0 0"
//  name user    nice   system  idle     iowait irq softirq steal guest guest_nice
//
// Returns false, leaving `word` and `out` alone, for any other line (including an empty one).
// Otherwise sets `word` to the first word as it stands (at most 255 bytes; the aggregate stays
// "cpu"), resets all of `out` to zero, reads as many of the ten counters as the line holds (older
// kernels write fewer; the rest stay 0), sets `out.total` to their sum and returns true. The
// frequency fields are left at 0 for the caller to fill.
bool ParseCpuStatLine(const char* line, std::string& word, CpuState& out);

}  // namespace detail
}  // namespace zefo

#endif  // ZEFO_SRC_MONITORS_CPU_PARSE_H_
