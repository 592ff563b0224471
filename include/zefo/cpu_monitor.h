#ifndef ZEFO_CPU_MONITOR_H_
#define ZEFO_CPU_MONITOR_H_

#include <ostream>
#include <string>

#include "zefo/base_monitor.h"
#include "zefo/zefo_export.h"

namespace zefo {

/// One sample of one "cpu" line of /proc/stat plus that CPU's frequency limits. A plain value,
/// filled on the sampling thread; copies may go anywhere.
struct ZEFO_EXPORT CpuState {
  /// The line's ten cumulative counters, in clock ticks.
  long long user = 0;
  long long nice = 0;
  long long system = 0;
  long long idle = 0;
  long long iowait = 0;
  long long irq = 0;
  long long softirq = 0;
  long long steal = 0;
  long long guest = 0;
  long long guest_nice = 0;
  /// Sum of the ten counters.
  long long total = 0;
  /// cpuinfo_min_freq, cpuinfo_max_freq and cpuinfo_cur_freq in kHz; -1 when unreadable.
  long long min_freq = 0;
  long long max_freq = 0;
  long long cur_freq = 0;
};

/// The time shares of one CPU ("cpu0", "cpu1", ...) or of the whole machine ("total") between
/// two passes, in percent, and the CPU's frequencies. Written by the sampling thread and read by
/// hosts, both under the aggregator's lock.
class ZEFO_EXPORT CpuResourceItem : public ResourceItem {
 public:
  CpuResourceItem() = default;
  /// Writes the "Cpu Label: " block; leaves the stream in fixed notation with two decimals.
  void PrintToStream(std::ostream& os) override;

  std::string label;
  double user = 0;
  double nice = 0;
  double system = 0;
  double idle = 0;
  double iowait = 0;
  double irq = 0;
  double softirq = 0;
  double steal = 0;
  double guest = 0;
  double guest_nice = 0;
  long long min_freq = 0;
  long long max_freq = 0;
  long long cur_freq = 0;
  /// Extension (see item_counters.h): the newest sample's cumulative counters, in clock ticks.
  CpuState counters;
};

/// Turns two samples of one CPU into its shares. Used by CpuMonitor on the sampling thread only.
class ZEFO_EXPORT CpuResourceInfo : public ResourceInfo<CpuState, CpuResourceItem> {
 public:
  /// Each counter's growth over the growth of the eight non-guest counters (guest time is
  /// already inside user and nice), times 100. Unguarded: identical samples give NaN, counters
  /// that went backwards give negative shares. `elapsed` is not used.
  void DoUpdate(const std::string& name, CpuResourceItem* item, const CpuState& current,
                const CpuState& previous, double elapsed) override;
};

/// Samples /proc/stat and each CPU's cpufreq files. Driven by the sampling thread under the
/// aggregator's lock; nothing here may be called concurrently.
class ZEFO_EXPORT CpuMonitor : public BaseMonitor {
 public:
  CpuMonitor();
  explicit CpuMonitor(const KernelPaths& paths);
  ~CpuMonitor() override;

  /// One pass: one sample per "cpu" line (the aggregate line under "total"). Always true.
  bool DoMonitor() override;
  /// Fills the three frequencies of `state` from the cpufreq directory of CPU `name`; -1 for
  /// each file that is missing or unreadable (always for "total").
  void GetCpuFreq(const std::string& name, CpuState& state) const;

 private:
  CpuResourceInfo* info_;
  // Storage kept from pass to pass: the stat text, the name of the line, and (for GetCpuFreq)
  // the path and text of a frequency file.
  std::string text_;
  std::string word_;
  std::string name_;
  mutable std::string path_;
  mutable std::string value_text_;
};

}  // namespace zefo

#endif  // ZEFO_CPU_MONITOR_H_
