#ifndef ZEFO_BPU_MONITOR_H_
#define ZEFO_BPU_MONITOR_H_

#include "zefo/base_monitor.h"
#include "zefo/zefo_export.h"

namespace zefo {

// TODO: not built yet; samples nothing.
class ZEFO_EXPORT BpuMonitor : public BaseMonitor {
 public:
  BpuMonitor();
  explicit BpuMonitor(const KernelPaths& paths);
  bool DoMonitor() override;
};

}  // namespace zefo

#endif  // ZEFO_BPU_MONITOR_H_
