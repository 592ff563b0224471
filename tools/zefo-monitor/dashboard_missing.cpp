// The page "/" serves when zefo-monitor was built without the dashboard (no Node.js and npm at
// build time, or ZEFO_WITH_DASHBOARD=OFF).
#include "dashboard_page.h"

namespace zefo::cli {

std::string_view DashboardPage() {
  return "<!DOCTYPE html>\n"
         "<html lang=\"en\"><head><meta charset=\"utf-8\"><title>zefo-monitor</title></head>"
         "<body>\n<h1>zefo-monitor</h1>\n"
         "<p>The dashboard was not built into this zefo-monitor: building it needs Node.js and "
         "npm (it was left out, or ZEFO_WITH_DASHBOARD was OFF).</p>\n"
         "<p>The board's figures are still here: <a href=\"/metrics\">/metrics</a> (OpenMetrics "
         "or Prometheus text format), <a href=\"/api/latest\">/api/latest</a> (the newest pass as "
         "JSON) and <a href=\"/api/history?seconds=60\">/api/history?seconds=60</a> (the charted "
         "figures of the last minute).</p>\n</body></html>\n";
}

bool DashboardBuilt() {
  return false;
}

}  // namespace zefo::cli
