#ifndef ZEFO_FORMAT_SNAPSHOT_H_
#define ZEFO_FORMAT_SNAPSHOT_H_

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "zefo/base_monitor.h"
#include "zefo/bpu_monitor.h"
#include "zefo/cpu_monitor.h"
#include "zefo/disk_monitor.h"
#include "zefo/memory_monitor.h"
#include "zefo/network_monitor.h"
#include "zefo/procinfo_monitor.h"
#include "zefo/qeltddr_monitor.h"
#include "zefo/temperature_monitor.h"
#include "zefo/zefo_export.h"
#include "zefo/zefo_resource_monitor.h"

namespace zefo {

class ZefoResourceMonitor;
class ZefoResourceMonitorApi;

namespace format {

/// The longest registered name a snapshot keeps, in bytes (a longer one is cut at a UTF-8
/// character boundary). Any local user can register a name for any process.
constexpr std::size_t kMaxRegisteredNameBytes = 255;
/// The longest command line a snapshot keeps, in bytes (cut likewise; the library itself keeps
/// the whole line). Any process can give itself a command line of megabytes.
constexpr std::size_t kMaxCommandLineBytes = 4096;

/// A copy of one sampling pass: every monitor's items by value, so that a pass can be formatted,
/// kept or handed to another thread without holding the library's lock. Fill it inside a
/// `GetResourceInfo` callback (`Add`, one call per monitor) or with `TakeSnapshot`; after that it
/// is a plain value, owned by whoever holds it.
struct ZEFO_EXPORT Snapshot {
  /// End of the pass, wall-clock milliseconds since the epoch; 0 before the first pass.
  uint64_t update_time = 0;
  /// The monitors the pass came from, in type order (also those that had no items yet).
  std::vector<ResourceMonitorType> kinds;

  std::map<std::string, CpuResourceItem> cpu;
  std::map<std::string, BpuResourceItem> bpu;
  std::map<std::string, DiskResourceItem> disk;
  std::map<std::string, MemoryResourceItem> memory;
  std::map<std::string, NetworkResourceItem> network;
  std::map<std::string, TemperatureResourceItem> temperature;
  std::map<std::string, QeltDdrResourceItem> ddr;
  std::map<std::string, ProcInfoResourceItem> process;

  /// What each monitor cost in the pass (TakeSnapshot fills it; empty otherwise).
  std::vector<MonitorPassCost> costs;

  /// Copies the items of one monitor of kind `type`, as a `GetResourceInfo` callback receives
  /// them. Items that are not of the kind's item class are left out. Registered names and
  /// command lines are cut at kMaxRegisteredNameBytes and kMaxCommandLineBytes, so that what
  /// other users control cannot make a copy, or anything written from it, grow without bound.
  void Add(ResourceMonitorType type, const std::map<std::string, ResourceItem*>& items);
  /// As Add, copying only the items whose `update_time` is `live_time` (its low bits where
  /// `unsigned long` has 32), that is those the pass that ended at `live_time` rewrote.
  void AddLive(ResourceMonitorType type, const std::map<std::string, ResourceItem*>& items,
               unsigned long live_time);
};

/// Which items TakeSnapshot copies.
enum class SnapshotScope {
  /// Every item the library holds, also those of names the newest pass did not see.
  kAll,
  /// Only the items the newest pass rewrote: what is there now.
  kLive,
};

/// Copies the latest pass of `monitor` (one `GetResourceInfo` sweep: the lock is held only
/// while copying) and what each monitor cost in it. Thread rules are those of
/// `GetResourceInfo`.
ZEFO_EXPORT Snapshot TakeSnapshot(ZefoResourceMonitorApi& monitor,
                                  SnapshotScope scope = SnapshotScope::kAll);
ZEFO_EXPORT Snapshot TakeSnapshot(ZefoResourceMonitor& monitor,
                                  SnapshotScope scope = SnapshotScope::kAll);
/// Removes from `pass` the items that its pass did not rewrite (`update_time` differs from the
/// snapshot's): what remains is what TakeSnapshot with SnapshotScope::kLive would have copied.
ZEFO_EXPORT void DropStale(Snapshot& pass);

/// A short lower-case name for each kind: "cpu", "bpu", "disk", "memory", "network",
/// "temperature", "ddr", "process"; "unknown" for other values.
ZEFO_EXPORT const char* KindName(ResourceMonitorType type);

}  // namespace format
}  // namespace zefo

#endif  // ZEFO_FORMAT_SNAPSHOT_H_
