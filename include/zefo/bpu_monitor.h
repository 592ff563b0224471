#ifndef ZEFO_BPU_MONITOR_H_
#define ZEFO_BPU_MONITOR_H_

#include <cstdint>
#include <ostream>
#include <string>

#include "zefo/base_monitor.h"
#include "zefo/zefo_export.h"

namespace zefo {

/// One reading of one BPU core, as the driver gives it (no unit conversion). A plain value.
struct ZEFO_EXPORT BpuState {
  /// The first word of the core's frequency-scaling device's "name" file.
  std::string name;
  int64_t min_freq = 0;
  int64_t max_freq = 0;
  int64_t cur_freq = 0;
  /// The driver's load figure for the core.
  int64_t ratio = 0;
};

/// The latest reading of one BPU core. Written by the sampling thread; hosts read it under the
/// aggregator's lock or through the pointer `GetResourceItem` hands out.
class ZEFO_EXPORT BpuResourceItem : public ResourceItem {
 public:
  /// Writes the "Bpu Label: " block of the report.
  void PrintToStream(std::ostream& os) override;

  /// The item's key: "bpu" and the core number.
  std::string name;
  /// The name of the core's frequency-scaling device.
  std::string devfreq_name;
  int64_t min_freq = 0;
  int64_t max_freq = 0;
  int64_t cur_freq = 0;
  int64_t ratio = 0;
};

/// Copies each core's newest reading into its item; nothing is computed from two readings.
/// Used only by its BpuMonitor, on the sampling thread.
class ZEFO_EXPORT BpuResourceInfo : public ResourceInfo<BpuState, BpuResourceItem> {
 public:
  void DoUpdate(const std::string& name, BpuResourceItem* item, const BpuState& current,
                const BpuState& previous, double elapsed_seconds) override;
};

/// Reports the frequency-scaling device and load of every BPU core found under
/// <sysfs>/devices/system/bpu/bpu0, bpu1, ... (the scan stops at the first missing number).
/// Driven by the sampling thread only; the getters may be called from any one thread at a time.
class ZEFO_EXPORT BpuMonitor : public BaseMonitor {
 public:
  BpuMonitor();
  explicit BpuMonitor(const KernelPaths& paths);
  ~BpuMonitor() override;

  /// Sets `path` to the directory of core `id` and tells whether it exists.
  bool GetBpuPath(int id, std::string& path) const;
  /// Reads the core at `path`. True when a frequency-scaling device with a readable name was
  /// found; a figure whose file is missing keeps the value `state` held.
  bool GetBpuState(const std::string& path, BpuState& state) const;
  /// One pass over the cores; always true.
  bool DoMonitor() override;

 private:
  BpuResourceInfo* info_;
  std::string path_;  // a core's directory, its storage kept from pass to pass
};

}  // namespace zefo

#endif  // ZEFO_BPU_MONITOR_H_
