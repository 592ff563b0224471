// What the exposition adds and leaves out for a fleet: counters for the server to take rates of,
// the processes chosen, and processes grouped by name.
#ifndef ZEFO_SRC_FORMAT_FLEET_METRICS_H_
#define ZEFO_SRC_FORMAT_FLEET_METRICS_H_

#include <string>
#include <utility>
#include <vector>

#include "format/exposition.h"

namespace zefo::format::detail {

using ProcessEntry = std::pair<const std::string, ProcInfoResourceItem>;

// Whether `options` exports kind `type`.
bool Exported(const FormatOptions& options, ResourceMonitorType type);

// The processes whose own series `options` asks for, in the pass's order (none for kNone and
// kByName).
std::vector<const ProcessEntry*> SelectProcesses(const Snapshot& pass,
                                                 const FormatOptions& options);

// The counter families of the exported kinds, in kind order.
std::vector<Family> CounterFamilies(const Snapshot& pass, const FormatOptions& options);

// One series set per process name: how many there are and their figures summed.
std::vector<Family> ProcessGroupFamilies(const Snapshot& pass);

}  // namespace zefo::format::detail

#endif  // ZEFO_SRC_FORMAT_FLEET_METRICS_H_
