#ifndef ZEFO_BASE_MONITOR_H_
#define ZEFO_BASE_MONITOR_H_

#include <cstddef>
#include <cstdint>
#include <functional>
#include <list>
#include <map>
#include <ostream>
#include <string>
#include <vector>

#include "zefo/kernel_paths.h"
#include "zefo/zefo_export.h"

namespace zefo {

/// The monitor kinds. Their values fix the order of sampling, of the callback sweep and of the
/// report.
enum ResourceMonitorType : int {
  Cpu = 1,
  Bpu = 2,
  Disk = 3,
  Memory = 4,
  Network = 5,
  Temperature = 6,
  QeltDdr = 7,
  ProcInfo = 8,
};

/// One printable record (one CPU, one disk, one process ...). Items are written by the sampling
/// thread and read by hosts, both under the aggregator's lock.
class ZEFO_EXPORT ResourceItem {
 public:
  ResourceItem() = default;
  virtual ~ResourceItem() = default;
  /// Writes this record's block of the text report.
  virtual void PrintToStream(std::ostream& os) = 0;

  /// Number of completed two-sample updates of this record.
  uint64_t count = 0;
  /// The `update_time` of the pass that last rewrote this record (0 before that pass ended). A
  /// record whose `update_time` equals the one `GetResourceInfo` reports was seen by the newest
  /// pass; any other record is what an earlier pass left of a name that has since gone.
  uint64_t update_time = 0;
};

/// A monitor's records by name, in byte-wise name order. Owns the items: they are deleted with
/// the container and never before. Not thread-safe on its own; guarded by the aggregator's lock.
class ZEFO_EXPORT ResourceItems {
 public:
  using Map = std::map<std::string, ResourceItem*>;

  ResourceItems() = default;
  ~ResourceItems();
  ResourceItems(const ResourceItems&) = delete;
  ResourceItems& operator=(const ResourceItems&) = delete;

  const Map& Items() const { return items_; }
  /// The item under `name`, or null.
  ResourceItem* Find(const std::string& name) const;
  /// Stores `item` under `name` and takes ownership; an earlier item of that name is deleted.
  void Insert(const std::string& name, ResourceItem* item);
  /// Deletes the item under `name`, if there is one.
  void Erase(const std::string& name);

  /// Notes that `item` (one of these items) was rewritten by the pass under way. Monitors that
  /// write their records themselves, rather than through ResourceInfo::Update, call it too.
  void Touch(ResourceItem* item) {
    // A pass touches each item about once. A list far longer than the items means passes that
    // nobody ended (a monitor driven without the aggregator): their marks are dropped.
    if (touched_.size() >= 2 * items_.size() + 64) touched_.clear();
    touched_.push_back(item);
  }
  /// Gives each item touched since the last call `update_time`, then empties the list.
  void StampTouched(uint64_t update_time);

 private:
  // Drops `item` from `touched_` before it is deleted (rare: a replaced or erased item).
  void Untouch(const ResourceItem* item);

  Map items_;
  // Items rewritten by the pass under way; its storage is kept from pass to pass.
  std::vector<ResourceItem*> touched_;
};

/// The sample remembered for one name, and when (wall-clock milliseconds; 0 = never stored).
template <typename State>
struct PrevState {
  State state{};
  int64_t timestamp = 0;
};

/// Wall-clock milliseconds since the Unix epoch, as `gettimeofday` gives them.
ZEFO_EXPORT int64_t WallClockMs();

/// A source of wall-clock milliseconds; monitors take one so tests can replay passes at chosen
/// times.
using ClockFn = int64_t (*)();

/// The samples a monitor keeps from pass to pass, as its opt-in retention trims them.
class SampleStore {
 public:
  virtual ~SampleStore() = default;
  /// Drops the stored sample and the item of every name whose newest sample was taken before
  /// `cutoff_ms` (on the clock the samples were stamped with); returns how many there were.
  virtual std::size_t ForgetOlderThan(ResourceItems* items, int64_t cutoff_ms) = 0;
};

/// Pairs each new sample of a name with the one stored at the previous pass and lets the kind's
/// `DoUpdate` turn the two into an item. Runs on the sampling thread under the aggregator's lock.
template <typename State, typename Item>
class ResourceInfo : public SampleStore {
 public:
  ResourceInfo() = default;
  virtual ~ResourceInfo() = default;

  /// Stores `current` as the sample of `name`; from the second sample of a name on, creates the
  /// name's item if needed, fills it through `DoUpdate` and marks it touched (see
  /// ResourceItems::Touch). Never removes anything.
  void Update(ResourceItems* items, const std::string& name, const State& current) {
    Update(items, name, current, WallClockMs());
  }

  /// As above, with the time of the sample given by the caller.
  void Update(ResourceItems* items, const std::string& name, const State& current, int64_t now_ms) {
    PrevState<State>& entry = states[name];
    if (entry.timestamp >= 1) {
      Item* item = nullptr;
      ResourceItem* existing = items->Find(name);
      if (existing == nullptr) {
        item = new Item();
        items->Insert(name, item);
      } else {
        item = dynamic_cast<Item*>(existing);
      }
      if (item != nullptr) {
        const double elapsed = static_cast<double>(now_ms - entry.timestamp) * 0.001;
        DoUpdate(name, item, current, entry.state, elapsed);
        ++item->count;
        items->Touch(item);
      }
    }
    entry.state = current;
    entry.timestamp = now_ms;
  }

  /// Update never calls it; it serves monitors asked to forget names that have gone
  /// (BaseMonitor::Forget).
  std::size_t ForgetOlderThan(ResourceItems* items, int64_t cutoff_ms) override {
    std::size_t forgotten = 0;
    for (auto it = states.begin(); it != states.end();) {
      if (it->second.timestamp < cutoff_ms) {
        items->Erase(it->first);
        it = states.erase(it);
        ++forgotten;
      } else {
        ++it;
      }
    }
    return forgotten;
  }

  /// Fills `item` from two samples of `name` taken `elapsed` seconds apart.
  virtual void DoUpdate(const std::string& name, Item* item, const State& current,
                        const State& previous, double elapsed) = 0;

  std::map<std::string, PrevState<State>> states;
};

/// Entries of `dir` (bare names, in directory order, hidden ones skipped) whose `lstat` mode
/// passes `filter`. Entries whose `lstat` fails are left out. Thread-safe.
ZEFO_EXPORT std::list<std::string> SubElement(const std::string& dir,
                                              std::function<bool(unsigned int)> filter);

/// Base of every monitor: its kind, its items and the readers it takes kernel files with.
/// A monitor is driven by one thread at a time (the sampling thread, under the aggregator's
/// lock); the readers are safe to call from any thread.
class ZEFO_EXPORT BaseMonitor {
 public:
  explicit BaseMonitor(ResourceMonitorType type);
  BaseMonitor(ResourceMonitorType type, const KernelPaths& paths);
  virtual ~BaseMonitor();
  BaseMonitor(const BaseMonitor&) = delete;
  BaseMonitor& operator=(const BaseMonitor&) = delete;

  /// One sampling pass.
  virtual bool DoMonitor() = 0;

  ResourceMonitorType Type() const { return type_; }
  const ResourceItems::Map& Items() const { return items_->Items(); }
  const KernelPaths& Paths() const { return paths_; }

  /// Ends a pass: the items rewritten in it take `update_time` (see ResourceItem::update_time).
  /// Called by the sampling thread, under the aggregator's lock, after every monitor's DoMonitor.
  void EndPass(uint64_t update_time) { items_->StampTouched(update_time); }

  /// Forgets every name whose newest sample is more than `max_age_ms` old on this monitor's
  /// clock: its stored sample and its item are deleted, so a name that comes back starts over
  /// with a first sample. Only the aggregator's opt-in retention calls it. A monitor that gave
  /// no SampleStore (SetSamples) forgets nothing, so one that keeps its own records keeps them
  /// all. Returns how many names were forgotten.
  virtual std::size_t Forget(int64_t max_age_ms) {
    return samples_ != nullptr ? samples_->ForgetOlderThan(items_, Now() - max_age_ms) : 0;
  }

  /// Replaces the wall clock used to time samples (tests and replays).
  void SetClock(ClockFn clock) { clock_ = clock; }

  /// Whether `path` names an existing object.
  bool IsExists(const std::string& path) const;

  /// Every line of a regular file, without the newlines; empty if the file is missing,
  /// unreadable or not a regular file. Never blocks; see file_reader for the limits.
  std::list<std::string> ReadFile(const std::string& path) const;
  /// As ReadFile, but a symbolic link at the last component counts as unreadable. For files
  /// under directories that other users can write to.
  std::list<std::string> ReadFileNoFollow(const std::string& path) const;

  /// Applies `format` (one conversion) to the first line of the file. False, with `out`
  /// untouched, when the file yields no line; true otherwise, matched or not.
  bool ReadValue(const std::string& path, const std::string& format, void* out) const;
  /// Presets -1, reads "%lld".
  bool ReadValue(const std::string& path, long long& out) const;
  /// Presets -1, reads "%ld".
  bool ReadValue(const std::string& path, long& out) const;
  /// Presets -1, reads "%d".
  bool ReadValue(const std::string& path, int& out) const;
  /// Presets 0, then reads with "%f": the parsed value lands as a float in the first four bytes
  /// of `out`, so `out` does not hold the number. Kept for compatibility; do not rely on it.
  bool ReadValue(const std::string& path, double& out) const;
  /// Reads the first blank-separated word into `out`, which must hold at least kWordSize bytes.
  bool ReadValue(const std::string& path, char* out) const;

  /// Size of the word buffers that the readers and parsers fill (255 characters and a NUL).
  static constexpr int kWordSize = 256;

  /// Subdirectories of `dir` (links are not followed).
  std::list<std::string> SubDirs(const std::string& dir) const;
  /// Regular files in `dir` (links are not followed).
  std::list<std::string> SubFiles(const std::string& dir) const;

  /// Bytes per unit word: "B" 1, "kB" 1024, "MB" 2^20, "GB" 2^30, anything else 1.
  static uint64_t UnitToBytes(const std::string& unit);
  /// Clock ticks to hundredths of a second.
  uint64_t LinuxProcessAdjustTime(unsigned long long ticks) const;

 protected:
  ResourceItems* MutableItems() { return items_; }
  /// The time to stamp a sample with.
  int64_t Now() const { return clock_(); }
  double ClockTicks() const { return clock_ticks_; }
  /// The store of the monitor's previous samples, which Forget trims; the monitor owns it.
  void SetSamples(SampleStore* samples) { samples_ = samples; }

 private:
  ResourceMonitorType type_;
  ResourceItems* items_;
  double clock_ticks_;
  KernelPaths paths_;
  ClockFn clock_ = &WallClockMs;
  SampleStore* samples_ = nullptr;
};

}  // namespace zefo

#endif  // ZEFO_BASE_MONITOR_H_
