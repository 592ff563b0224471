#ifndef ZEFO_PROCINFO_MONITOR_H_
#define ZEFO_PROCINFO_MONITOR_H_

#include <set>
#include <string>

#include "zefo/base_monitor.h"
#include "zefo/zefo_export.h"

namespace zefo {

// TODO: not built yet; samples nothing.
class ZEFO_EXPORT ProcInfoMonitor : public BaseMonitor {
 public:
  ProcInfoMonitor();
  explicit ProcInfoMonitor(const KernelPaths& paths);
  explicit ProcInfoMonitor(const std::set<std::string>& procs);
  ProcInfoMonitor(const std::set<std::string>& procs, const KernelPaths& paths);
  bool DoMonitor() override;

 private:
  std::set<std::string> proc_set;
};

}  // namespace zefo

#endif  // ZEFO_PROCINFO_MONITOR_H_
