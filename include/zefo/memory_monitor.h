#ifndef ZEFO_MEMORY_MONITOR_H_
#define ZEFO_MEMORY_MONITOR_H_

#include "zefo/base_monitor.h"
#include "zefo/zefo_export.h"

namespace zefo {

// TODO: not built yet; samples nothing.
class ZEFO_EXPORT MemoryMonitor : public BaseMonitor {
 public:
  MemoryMonitor();
  explicit MemoryMonitor(const KernelPaths& paths);
  bool DoMonitor() override;
};

}  // namespace zefo

#endif  // ZEFO_MEMORY_MONITOR_H_
