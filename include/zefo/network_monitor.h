#ifndef ZEFO_NETWORK_MONITOR_H_
#define ZEFO_NETWORK_MONITOR_H_

#include "zefo/base_monitor.h"
#include "zefo/zefo_export.h"

namespace zefo {

// TODO: not built yet; samples nothing.
class ZEFO_EXPORT NetworkMonitor : public BaseMonitor {
 public:
  NetworkMonitor();
  explicit NetworkMonitor(const KernelPaths& paths);
  bool DoMonitor() override;
};

}  // namespace zefo

#endif  // ZEFO_NETWORK_MONITOR_H_
