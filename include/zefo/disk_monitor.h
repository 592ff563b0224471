#ifndef ZEFO_DISK_MONITOR_H_
#define ZEFO_DISK_MONITOR_H_

#include "zefo/base_monitor.h"
#include "zefo/zefo_export.h"

namespace zefo {

// TODO: not built yet; samples nothing.
class ZEFO_EXPORT DiskMonitor : public BaseMonitor {
 public:
  DiskMonitor();
  explicit DiskMonitor(const KernelPaths& paths);
  bool DoMonitor() override;
};

}  // namespace zefo

#endif  // ZEFO_DISK_MONITOR_H_
