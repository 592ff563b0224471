#ifndef ZEFO_ITEM_COUNTERS_H_
#define ZEFO_ITEM_COUNTERS_H_

// An extension beside the item classes: the kernel's cumulative counters behind an item's
// rates, as they stood at the item's newest sample. The rates and the report are untouched;
// a host that wants totals (a metrics exporter whose server takes its own rates) reads these.
// Each item carries them as its `counters` member, written with the item by the sampling
// thread and read under the same lock. Values are the kernel's own: when its counter wraps,
// or a device, an interface or a process id is re-created, they drop, as counters do on a
// restart.

#include <cstdint>
#include <map>
#include <string>

namespace zefo {

/// One network interface's byte counters from /proc/net/dev.
struct NetworkCounters {
  int64_t rx_bytes = 0;
  int64_t tx_bytes = 0;
};

/// One block device's transfers from /proc/diskstats, in bytes (512 per counted sector).
struct DiskCounters {
  int64_t read_bytes = 0;
  int64_t written_bytes = 0;
};

/// One process's CPU time in clock ticks (utime, stime of /proc/PID/stat) and its storage I/O
/// in bytes (read_bytes, write_bytes of /proc/PID/io).
struct ProcInfoCounters {
  int64_t utime_ticks = 0;
  int64_t stime_ticks = 0;
  int64_t read_bytes = 0;
  int64_t write_bytes = 0;
};

/// The bytes one DDR monitor device has reported since the monitor opened it: the sum, over
/// every record read (not only the newest), of each record's figure times the sampling
/// interval the device was configured with. Unlike the other counters these are the
/// library's own, and start at 0 with the monitor.
struct QeltDdrCounters {
  struct Bytes {
    uint64_t read = 0;
    uint64_t write = 0;
  };
  std::map<std::string, Bytes> ports;
  /// The whole device's own figure (cmd_sum).
  Bytes cmd_sum;
  /// Records summed so far.
  uint64_t records = 0;
};

}  // namespace zefo

#endif  // ZEFO_ITEM_COUNTERS_H_
