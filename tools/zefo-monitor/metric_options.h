// The words of --metrics-processes and --metrics-monitors, which choose what the exposition
// (/metrics, --format openmetrics or prometheus) carries.
#ifndef ZEFO_TOOLS_ZEFO_MONITOR_METRIC_OPTIONS_H_
#define ZEFO_TOOLS_ZEFO_MONITOR_METRIC_OPTIONS_H_

#include <cstddef>
#include <string>

#include "zefo/format/formats.h"

namespace zefo::cli {

// "none", "registered", "top:N" (N from 1 to 10000), "by-name" or "all" into `which` and `top`;
// "" or what is wrong.
std::string ParseProcessMetrics(const std::string& text, format::ProcessMetrics& which,
                                std::size_t& top);

// A comma-separated list of kind names ("cpu,memory,ddr"; "all" for every kind) into a set of
// bits, 1 << ResourceMonitorType; "" or what is wrong.
std::string ParseMonitorList(const std::string& text, unsigned& kinds);

}  // namespace zefo::cli

#endif  // ZEFO_TOOLS_ZEFO_MONITOR_METRIC_OPTIONS_H_
