#include "zefo/bpu_monitor.h"

namespace zefo {

BpuMonitor::BpuMonitor() : BpuMonitor(KernelPaths()) {}

BpuMonitor::BpuMonitor(const KernelPaths& paths) : BaseMonitor(Bpu, paths) {}

bool BpuMonitor::DoMonitor() {
  return true;
}

}  // namespace zefo
