#include "zefo/memory_monitor.h"

namespace zefo {

MemoryMonitor::MemoryMonitor() : MemoryMonitor(KernelPaths()) {}

MemoryMonitor::MemoryMonitor(const KernelPaths& paths) : BaseMonitor(Memory, paths) {}

bool MemoryMonitor::DoMonitor() {
  return true;
}

}  // namespace zefo
