#include "zefo/disk_monitor.h"

namespace zefo {

DiskMonitor::DiskMonitor() : DiskMonitor(KernelPaths()) {}

DiskMonitor::DiskMonitor(const KernelPaths& paths) : BaseMonitor(Disk, paths) {}

bool DiskMonitor::DoMonitor() {
  return true;
}

}  // namespace zefo
