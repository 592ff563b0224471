#ifndef ZEFO_NETWORK_MONITOR_H_
#define ZEFO_NETWORK_MONITOR_H_

#include <cstdint>
#include <ostream>
#include <string>

#include "zefo/base_monitor.h"
#include "zefo/item_counters.h"
#include "zefo/zefo_export.h"

namespace zefo {

/// The sixteen counters of one interface's /proc/net/dev line, in the line's order. The
/// interface name is the key the sample is stored under. A plain value.
struct NetworkState {
  int64_t rx_bytes = 0;
  int64_t rx_packets = 0;
  int64_t rx_errs = 0;
  int64_t rx_drop = 0;
  int64_t rx_fifo = 0;
  int64_t rx_frame = 0;
  int64_t rx_compressed = 0;
  int64_t rx_multicast = 0;
  int64_t tx_bytes = 0;
  int64_t tx_packets = 0;
  int64_t tx_errs = 0;
  int64_t tx_drop = 0;
  int64_t tx_fifo = 0;
  int64_t tx_colls = 0;
  int64_t tx_carrier = 0;
  int64_t tx_compressed = 0;
};

/// The figures of one interface. Written by the sampling thread and read by hosts, both under
/// the aggregator's lock.
class ZEFO_EXPORT NetworkResourceItem : public ResourceItem {
 public:
  /// Writes the "Network Interface: " block.
  void PrintToStream(std::ostream& os) override;

  /// The interface name as /proc/net/dev writes it, trailing colon included ("eth0:").
  std::string name;
  /// Bytes transmitted per second.
  double tx_bandwidth = 0;
  /// Bytes received per second.
  double rx_bandwidth = 0;
  /// Extension (see item_counters.h): the interface's byte counters at the newest sample.
  NetworkCounters counters;
};

/// Turns two samples of an interface into its figures; used only by the network monitor on the
/// sampling thread.
class ZEFO_EXPORT NetworkResourceInfo : public ResourceInfo<NetworkState, NetworkResourceItem> {
 public:
  void DoUpdate(const std::string& name, NetworkResourceItem* item, const NetworkState& current,
                const NetworkState& previous, double elapsed_seconds) override;
};

/// Transmit and receive bandwidth of every interface in /proc/net/dev, one item per interface;
/// driven by the sampling thread under the aggregator's lock.
class ZEFO_EXPORT NetworkMonitor : public BaseMonitor {
 public:
  NetworkMonitor();
  explicit NetworkMonitor(const KernelPaths& paths);
  ~NetworkMonitor() override;

  /// One pass over /proc/net/dev; false only when the file gives fewer than its two header
  /// lines.
  bool DoMonitor() override;

 private:
  NetworkResourceInfo* info_;
  std::string text_;  // the file's text, its storage kept from pass to pass
  std::string name_;  // likewise the interface name of a line
};

}  // namespace zefo

#endif  // ZEFO_NETWORK_MONITOR_H_
