#ifndef ZEFO_CPU_MONITOR_H_
#define ZEFO_CPU_MONITOR_H_

#include "zefo/base_monitor.h"
#include "zefo/zefo_export.h"

namespace zefo {

// TODO: not built yet; samples nothing.
class ZEFO_EXPORT CpuMonitor : public BaseMonitor {
 public:
  CpuMonitor();
  explicit CpuMonitor(const KernelPaths& paths);
  bool DoMonitor() override;
};

}  // namespace zefo

#endif  // ZEFO_CPU_MONITOR_H_
