#ifndef ZEFO_QELTDDR_MONITOR_H_
#define ZEFO_QELTDDR_MONITOR_H_

#include <cstddef>
#include <cstdint>
#include <list>
#include <map>
#include <ostream>
#include <string>
#include <vector>

#include "zefo/base_monitor.h"
#include "zefo/item_counters.h"
#include "zefo/zefo_export.h"

namespace zefo {

/// One decoded sample of one DDR monitor device, in bytes. A plain value.
struct ZEFO_EXPORT QeltDdrState {
  struct BandWidth {
    int64_t read = 0;
    int64_t write = 0;
  };
  /// Per port name ("APV", "BPU", "CAM", "CPU", "CV").
  std::map<std::string, BandWidth> bandwidth;
  /// The device's own whole-device figures.
  int64_t cmd_sum_read = 0;
  int64_t cmd_sum_write = 0;
};

/// The latest figures of one DDR monitor device, in bytes. Written by the sampling thread; hosts
/// read it under the aggregator's lock or through the pointer `GetResourceItem` hands out.
class ZEFO_EXPORT QeltDdrResourceItem : public ResourceItem {
 public:
  struct BandWidth {
    double read = 0;
    double write = 0;
  };

  /// Writes the "DDR Device Name: " block of the report, ports in name order.
  void PrintToStream(std::ostream& os) override;

  /// The item's key: "ddr" and the device number.
  std::string name;
  std::map<std::string, BandWidth> bandwidth;
  /// The device's whole-device figures; need not equal the totals.
  double cmd_sum_read = 0;
  double cmd_sum_write = 0;
  /// Sums over the ports.
  double total_read = 0;
  double total_write = 0;
  /// Extension (see item_counters.h): the bytes the device reported since it was opened.
  QeltDdrCounters counters;
};

/// Copies each device's newest sample into its item and sums the ports; nothing is computed
/// from two samples. Used only by its QeltDdrMonitor, on the sampling thread.
class ZEFO_EXPORT QeltDdrResourceInfo : public ResourceInfo<QeltDdrState, QeltDdrResourceItem> {
 public:
  void DoUpdate(const std::string& name, QeltDdrResourceItem* item, const QeltDdrState& current,
                const QeltDdrState& previous, double elapsed) override;
};

/// Reports DDR bandwidth per port from the devices <devfs>/ddrmonitor0, 1, ... It finds, opens
/// and configures the devices once, in the constructor (numbers contiguous from 0), keeps them
/// open until it is destroyed, and reads each once per pass. Driven by the sampling thread only.
class ZEFO_EXPORT QeltDdrMonitor : public BaseMonitor {
 public:
  /// One sample record as the device delivers it: 376 bytes, unsigned 32-bit words in host
  /// byte order. Port i's block starts at 12 + 64 i with its read figure, its write figure
  /// 32 bytes further on; the last port's block is cut short by the whole-device figures at
  /// 328 and 332. Bytes not named here carry counters the monitor does not use.
  struct MonitorData {
    struct PortBlock {
      uint32_t read;
      uint32_t read_reserved[7];
      uint32_t write;
      uint32_t write_reserved[7];
    };
    struct LastPortBlock {
      uint32_t read;
      uint32_t read_reserved[7];
      uint32_t write;
      uint32_t write_reserved[6];
    };
    static constexpr std::size_t kSize = 376;
    static constexpr std::size_t kPorts = 5;

    uint32_t header[3];
    PortBlock port[kPorts - 1];
    LastPortBlock last_port;
    uint32_t cmd_sum_read;
    uint32_t cmd_sum_write;
    uint32_t trailer[10];

    /// Raw read / write figure of port `i` (0 to kPorts - 1).
    uint32_t PortRead(std::size_t i) const {
      return i + 1 < kPorts ? port[i].read : last_port.read;
    }
    uint32_t PortWrite(std::size_t i) const {
      return i + 1 < kPorts ? port[i].write : last_port.write;
    }
  };

  /// One opened device with its configuration and its read buffer. Owns the descriptor and the
  /// buffer; not copyable.
  struct DdrMonitorInfo {
    /// Opens `path` (read-write, non-blocking, close-on-exec) and sends the configuration.
    DdrMonitorInfo(int id, const std::string& path);
    ~DdrMonitorInfo();
    DdrMonitorInfo(const DdrMonitorInfo&) = delete;
    DdrMonitorInfo& operator=(const DdrMonitorInfo&) = delete;

    std::string name;
    std::string path;
    /// Sent once with the configuration ioctl: 1000000, then 1.
    uint32_t config[2] = {1000000, 1};
    int fd = -1;
    /// Room for 400 records.
    uint32_t buffer_size = 400 * MonitorData::kSize;
    unsigned char* buffer = nullptr;
  };

  QeltDdrMonitor();
  explicit QeltDdrMonitor(const KernelPaths& paths);
  ~QeltDdrMonitor() override;

  /// Opens device `id` at `path` and keeps it when its descriptor and buffer are usable.
  bool AppendMonitorInfo(int id, const std::string& path);
  /// A raw figure in bytes: its upper 16 bits, in MiB.
  static uint64_t GetValue(unsigned int raw);
  /// Decodes one record into `state`, one entry per port name.
  void GetDdrData(const MonitorData& data, QeltDdrState& state) const;
  /// Reads every device once; false when there is no device.
  bool DoMonitor() override;

  /// The port names, in record order: "CPU", "BPU", "CV", "APV", "CAM".
  const std::vector<std::string>& Ports() const { return ports_; }
  /// The opened devices, in device-number order.
  const std::list<DdrMonitorInfo*>& Infos() const { return infos_; }

 private:
  std::vector<std::string> ports_;
  std::list<DdrMonitorInfo*> infos_;
  QeltDdrResourceInfo* info_;
  // What each device reported since it was opened, by item name (the items' `counters`).
  std::map<std::string, QeltDdrCounters> counters_;
};

}  // namespace zefo

#endif  // ZEFO_QELTDDR_MONITOR_H_
