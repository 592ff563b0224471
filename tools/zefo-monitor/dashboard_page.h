#ifndef ZEFO_TOOLS_ZEFO_MONITOR_DASHBOARD_PAGE_H_
#define ZEFO_TOOLS_ZEFO_MONITOR_DASHBOARD_PAGE_H_

#include <string_view>

namespace zefo::cli {

// The dashboard: one HTML page with its script and styles inline, built from web/ and compiled
// into the binary (a generated source), or, in a build without Node.js, a short page that says
// so. Immutable; any thread may call these.
std::string_view DashboardPage();
bool DashboardBuilt();

}  // namespace zefo::cli

#endif  // ZEFO_TOOLS_ZEFO_MONITOR_DASHBOARD_PAGE_H_
