#include "zefo/cpu_monitor.h"

namespace zefo {

CpuMonitor::CpuMonitor() : CpuMonitor(KernelPaths()) {}

CpuMonitor::CpuMonitor(const KernelPaths& paths) : BaseMonitor(Cpu, paths) {}

bool CpuMonitor::DoMonitor() {
  return true;
}

}  // namespace zefo
