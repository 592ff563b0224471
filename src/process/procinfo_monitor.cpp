#include "zefo/procinfo_monitor.h"

namespace zefo {

ProcInfoMonitor::ProcInfoMonitor() : ProcInfoMonitor(KernelPaths()) {}

ProcInfoMonitor::ProcInfoMonitor(const KernelPaths& paths) : BaseMonitor(ProcInfo, paths) {}

ProcInfoMonitor::ProcInfoMonitor(const std::set<std::string>& procs)
    : ProcInfoMonitor(procs, KernelPaths()) {}

ProcInfoMonitor::ProcInfoMonitor(const std::set<std::string>& procs, const KernelPaths& paths)
    : BaseMonitor(ProcInfo, paths), proc_set(procs) {}

bool ProcInfoMonitor::DoMonitor() {
  return true;
}

}  // namespace zefo
