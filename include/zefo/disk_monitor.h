#ifndef ZEFO_DISK_MONITOR_H_
#define ZEFO_DISK_MONITOR_H_

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

/// One mounted file system as the mount table names it, with its sizes. A plain value.
struct Mount {
  /// The mounted device (a /dev path or a pseudo name), as written in the mount table.
  std::string file_system;
  /// The mount point as written in the mount table (octal escapes are not decoded).
  std::string mount_point;
  /// f_blocks × f_bsize, in bytes.
  int64_t total_size = 0;
  /// f_bavail × f_bsize, in bytes.
  int64_t available_size = 0;
};

/// Mounts by the st_dev of their mount point; mounts of one device share a list, in mount-table
/// order.
using MountTable = std::map<uint64_t, std::list<Mount>>;

/// One sample of one mount point: its mount and the counters of its device's /proc/diskstats
/// line. A plain value.
struct DiskState {
  std::string file_system;
  std::string mount_point;
  int64_t total_size = 0;
  int64_t available_size = 0;
  int64_t major = 0;
  int64_t minor = 0;
  /// The kernel's device name.
  std::string name;
  int64_t reads_completed = 0;
  int64_t reads_merged = 0;
  int64_t sectors_read = 0;
  int64_t read_time_ms = 0;
  int64_t writes_completed = 0;
  int64_t writes_merged = 0;
  int64_t sectors_written = 0;
  int64_t write_time_ms = 0;
  int64_t io_in_progress = 0;
  int64_t io_time_ms = 0;
  int64_t weighted_io_time_ms = 0;
};

/// The figures of one mount point. Written by the sampling thread and read by hosts, both under
/// the aggregator's lock.
class ZEFO_EXPORT DiskResourceItem : public ResourceItem {
 public:
  /// Writes the "Mounted on: " block.
  void PrintToStream(std::ostream& os) override;

  /// The kernel device name.
  std::string name;
  std::string file_system;
  std::string mount_point;
  /// Bytes.
  int64_t total_size = 0;
  /// Bytes.
  int64_t available_size = 0;
  /// Bytes per second read from the device.
  double read_bandwidth = 0;
  /// Bytes per second written to the device.
  double written_bandwidth = 0;
  /// Extension (see item_counters.h): the device's transfers at the newest sample.
  DiskCounters counters;
};

/// Turns two samples of a mount point into its figures; used only by the disk monitor on the
/// sampling thread.
class ZEFO_EXPORT DiskResourceInfo : public ResourceInfo<DiskState, DiskResourceItem> {
 public:
  void DoUpdate(const std::string& name, DiskResourceItem* item, const DiskState& current,
                const DiskState& previous, double elapsed_seconds) override;
};

/// Size and bandwidth of every mounted file system that lives on a disk listed in
/// /proc/diskstats, one item per mount point; driven by the sampling thread under the
/// aggregator's lock.
class ZEFO_EXPORT DiskMonitor : public BaseMonitor {
 public:
  DiskMonitor();
  explicit DiskMonitor(const KernelPaths& paths);
  ~DiskMonitor() override;

  /// Reads the mount table and queries every mount point (under the root file system path) with
  /// statvfs and stat; a mount point either call fails on is left out. Built anew on each call.
  MountTable GetMounts() const;
  /// One pass over /proc/diskstats; always true.
  bool DoMonitor() override;

 private:
  DiskResourceInfo* info_;
  // Storage kept from pass to pass, so that a steady pass allocates nothing: the mounts of the
  // pass with their devices, the file texts, a path, the words of a mount line, the sample.
  struct QueriedMount {
    uint64_t device = 0;
    Mount mount;
  };
  std::vector<QueriedMount> mounts_;
  std::string text_;
  std::string path_;
  std::string file_system_;
  std::string mount_point_;
  DiskState state_;
};

}  // namespace zefo

#endif  // ZEFO_DISK_MONITOR_H_
