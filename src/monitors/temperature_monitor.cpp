#include "zefo/temperature_monitor.h"

namespace zefo {

TemperatureMonitor::TemperatureMonitor() : TemperatureMonitor(KernelPaths()) {}

TemperatureMonitor::TemperatureMonitor(const KernelPaths& paths)
    : BaseMonitor(Temperature, paths) {}

bool TemperatureMonitor::DoMonitor() {
  return true;
}

}  // namespace zefo
