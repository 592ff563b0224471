#include "zefo/network_monitor.h"

namespace zefo {

NetworkMonitor::NetworkMonitor() : NetworkMonitor(KernelPaths()) {}

NetworkMonitor::NetworkMonitor(const KernelPaths& paths) : BaseMonitor(Network, paths) {}

bool NetworkMonitor::DoMonitor() {
  return true;
}

}  // namespace zefo
