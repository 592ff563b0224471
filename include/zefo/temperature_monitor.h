#ifndef ZEFO_TEMPERATURE_MONITOR_H_
#define ZEFO_TEMPERATURE_MONITOR_H_

#include "zefo/base_monitor.h"
#include "zefo/zefo_export.h"

namespace zefo {

// TODO: not built yet; samples nothing.
class ZEFO_EXPORT TemperatureMonitor : public BaseMonitor {
 public:
  TemperatureMonitor();
  explicit TemperatureMonitor(const KernelPaths& paths);
  bool DoMonitor() override;
};

}  // namespace zefo

#endif  // ZEFO_TEMPERATURE_MONITOR_H_
