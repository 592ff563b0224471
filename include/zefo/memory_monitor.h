#ifndef ZEFO_MEMORY_MONITOR_H_
#define ZEFO_MEMORY_MONITOR_H_

#include <ostream>
#include <string>

#include "zefo/base_monitor.h"
#include "zefo/zefo_export.h"

namespace zefo {

/// One sample of /proc/meminfo, in bytes; -1 for a figure whose line the kernel did not write.
/// A plain value, filled on the sampling thread; copies may go anywhere.
struct ZEFO_EXPORT MemoryState {
  long long total = 0;
  long long free = 0;
  /// From "MemShared:", which current kernels no longer write: then always -1.
  long long shared = 0;
  long long buffers = 0;
  long long cached = 0;
  long long shmem = 0;
  long long sreclaimable = 0;
  long long swap_total = 0;
  long long swap_free = 0;
};

/// The machine's memory figures (bytes) and the share in use, kept under the name "". Written
/// by the sampling thread and read by hosts, both under the aggregator's lock.
class ZEFO_EXPORT MemoryResourceItem : public ResourceItem {
 public:
  MemoryResourceItem() = default;
  /// Writes the "MemoryResourceInfo::Print" block; leaves the stream in fixed notation with two
  /// decimals.
  void PrintToStream(std::ostream& os) override;

  long long total = 0;
  long long free = 0;
  long long shared = 0;
  long long buffers = 0;
  long long cached = 0;
  long long shmem = 0;
  long long sreclaimable = 0;
  long long swap_total = 0;
  long long swap_free = 0;
  /// (total - free - buffers - cached) / total, in percent; unguarded against a total <= 0.
  double used_percent = 0;
};

/// Copies the newest memory sample into the item. Used by MemoryMonitor on the sampling thread
/// only.
class ZEFO_EXPORT MemoryResourceInfo : public ResourceInfo<MemoryState, MemoryResourceItem> {
 public:
  /// Uses `current` alone; `previous` and `elapsed` are not needed.
  void DoUpdate(const std::string& name, MemoryResourceItem* item, const MemoryState& current,
                const MemoryState& previous, double elapsed) override;
};

/// Samples /proc/meminfo. Driven by the sampling thread under the aggregator's lock; nothing here
/// may be called concurrently.
class ZEFO_EXPORT MemoryMonitor : public BaseMonitor {
 public:
  MemoryMonitor();
  explicit MemoryMonitor(const KernelPaths& paths);
  ~MemoryMonitor() override;

  /// One pass; always true, also when /proc/meminfo could not be read (every figure is then -1).
  bool DoMonitor() override;

 private:
  MemoryResourceInfo* info_;
  std::string text_;  // the file's text, its storage kept from pass to pass
};

}  // namespace zefo

#endif  // ZEFO_MEMORY_MONITOR_H_
