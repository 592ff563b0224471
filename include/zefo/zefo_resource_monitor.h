#ifndef ZEFO_ZEFO_RESOURCE_MONITOR_H_
#define ZEFO_ZEFO_RESOURCE_MONITOR_H_

#include <condition_variable>
#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <ostream>
#include <set>
#include <string>
#include <vector>

#include "zefo/base_monitor.h"
#include "zefo/kernel_paths.h"
#include "zefo/zefo_export.h"
#include "zefo/zefo_thread.h"
#include "zefo/zefo_timer.h"

namespace zefo {

/// What a host's `GetResourceInfo` callback receives: one monitor's items by name.
using ResourceInfoCallback =
    std::function<void(ResourceMonitorType, const std::map<std::string, ResourceItem*>&)>;

/// What one monitor's share of a sampling pass cost: the time it took on the monotonic clock
/// and the sampling thread's CPU time in it, in seconds (its DoMonitor, and its retention sweep
/// when retention is on). A plain value.
struct ZEFO_EXPORT MonitorPassCost {
  ResourceMonitorType type = Cpu;
  double wall_seconds = 0;
  double cpu_seconds = 0;
};

/// The sampling thread "res_monitor": runs every monitor once per period under the library's
/// single lock. Owned and driven by `ZefoResourceMonitor`.
class ZEFO_EXPORT MonitorThread : public ZefoThread {
 public:
  MonitorThread(int period, std::map<ResourceMonitorType, BaseMonitor*>* monitors);
  ~MonitorThread() override;

  /// The lock that guards every monitor's items and `update_time`.
  ZefoThreadSpin* Spin() const { return spin; }
  /// End time of the latest pass in wall-clock milliseconds, 0 before the first; read it
  /// under `Spin()`.
  uint64_t UpdateTime() const { return update_time; }

  /// With `max_age_ms` > 0, after each pass every monitor forgets the names it has not sampled
  /// for that long (BaseMonitor::Forget); 0, the default, keeps everything. Takes the lock.
  void SetForgetAfter(int64_t max_age_ms);
  /// What each monitor cost in the latest pass, in type order (empty before the first pass);
  /// read it under `Spin()`.
  const std::vector<MonitorPassCost>& PassCosts() const { return costs; }
  /// Blocks until a pass ends whose time differs from `after`, `timeout_ms` passes, or
  /// StopWaiting was called; returns the time of the latest pass then (0 before the first).
  uint64_t WaitForUpdate(uint64_t after, int timeout_ms);
  /// Makes every WaitForUpdate, waiting now or called later, return at once.
  void StopWaiting();

 protected:
  void do_run() override;
  /// Cuts the wait between passes short, so stopping waits only for the pass in progress.
  void do_stop() override;

 private:
  int period;
  ZefoTimer* timer;
  ZefoThreadSpin* spin;
  uint64_t update_time;
  std::map<ResourceMonitorType, BaseMonitor*>* monitors;
  int64_t forget_after_ms = 0;         // guarded by `spin`
  std::vector<MonitorPassCost> costs;  // guarded by `spin`
  std::mutex wait_mutex;               // guards the two below
  std::condition_variable pass_ended;
  uint64_t published_time = 0;  // update_time, as the waiters see it
  bool stop_waiting = false;
};

/// The aggregator: creates the monitors, runs the sampling thread and answers the host.
/// Construction and destruction belong to one thread; `GetResourceInfo`, `GetResourceItem`,
/// `PrintToStream` and `Print` may be called from any number of host threads at once.
class ZEFO_EXPORT ZefoResourceMonitor {
 public:
  /// Samples all eight kinds every `period` milliseconds.
  explicit ZefoResourceMonitor(int period);
  /// Samples only the given processes (decimal ids) every `period` milliseconds.
  ZefoResourceMonitor(int period, const std::set<std::string>& procs);
  /// As the first form, with the kernel's files found under `paths`.
  ZefoResourceMonitor(int period, const KernelPaths& paths);
  /// As the second form, with the kernel's files found under `paths`.
  ZefoResourceMonitor(int period, const std::set<std::string>& procs, const KernelPaths& paths);
  /// Runs exactly the given monitors (taking ownership; a later one of a kind replaces an
  /// earlier one). For hosts that pick their own monitors, and for tests.
  ZefoResourceMonitor(const std::vector<BaseMonitor*>& monitors, int period);
  ~ZefoResourceMonitor();

  ZefoResourceMonitor(const ZefoResourceMonitor&) = delete;
  ZefoResourceMonitor& operator=(const ZefoResourceMonitor&) = delete;

  /// Registers `monitor` under its type, deleting any earlier monitor of that type. Only for
  /// use before sampling starts (that is, from the constructors).
  void AppendMonitor(BaseMonitor* monitor);

  /// Retention, off by default: with `max_age_ms` > 0, a name that no pass has sampled for that
  /// long loses its stored sample and its item after the next pass (a name that comes back then
  /// starts over and has an item again from its second sample). With retention on, a pointer
  /// from GetResourceItem stays valid only until its name is forgotten: a host that keeps one
  /// must not use it after its name may have gone; reading items inside GetResourceInfo is
  /// always safe. 0 keeps everything. May be called at any time, from any host thread.
  void SetForgetAfter(int64_t max_age_ms);
  /// Blocks until a pass ends whose update time differs from `after`, `timeout_ms`
  /// milliseconds go by, or StopWaiting is called; returns the update time of the latest pass
  /// (0 before the first). A host that passes the time it last read waits for the next pass.
  uint64_t WaitForUpdate(uint64_t after, int timeout_ms);
  /// Makes every WaitForUpdate, waiting now or called later, return at once (a host shutting
  /// down wakes its waiting thread with it).
  void StopWaiting();
  /// Copies what each monitor cost in the latest pass into `costs`, in type order (empty before
  /// the first pass), and returns that pass's update time.
  uint64_t GetPassCosts(std::vector<MonitorPassCost>& costs);

  /// Calls `callback` once per monitor, in type order, with its items, while holding the lock:
  /// the callback sees one whole pass and must not call back into the library. `update_time`
  /// receives the end of the latest pass (ms since the epoch, 0 before the first); where
  /// `unsigned long` has 32 bits (armhf) it holds that time modulo 2^32 only. An empty callback is
  /// not called.
  void GetResourceInfo(unsigned long& update_time, ResourceInfoCallback callback);
  /// The end of the latest pass in ms since the epoch, 0 before the first; whole on every target.
  uint64_t GetUpdateTime();
  /// The item `name` of the monitor of `type`, or null. The item stays owned by the library and
  /// is rewritten in place by later passes.
  ResourceItem* GetResourceItem(ResourceMonitorType type, const std::string& name);
  /// Writes the text report: "update time: ", every item's block, a separator per monitor and a
  /// closing empty line. Leaves the stream in fixed notation with two decimals.
  void PrintToStream(std::ostream& os);
  /// `PrintToStream(std::cout)`.
  void Print();

 private:
  void AppendSystemMonitors(const KernelPaths& paths);

  MonitorThread* thread;
  std::map<ResourceMonitorType, BaseMonitor*> monitors;
};

/// The library's entry point: owns one `ZefoResourceMonitor` and forwards to it. Thread rules
/// are those of `ZefoResourceMonitor`.
class ZEFO_EXPORT ZefoResourceMonitorApi {
 public:
  /// All eight kinds, every 2000 ms.
  ZefoResourceMonitorApi();
  /// All eight kinds, every `period` ms.
  explicit ZefoResourceMonitorApi(int period);
  /// Only the given processes (decimal ids), every `period` ms.
  ZefoResourceMonitorApi(int period, const std::set<std::string>& procs);
  /// All eight kinds, with the kernel's files found under `paths` (tests, replays, chroots).
  ZefoResourceMonitorApi(int period, const KernelPaths& paths);
  /// Only the given processes, with the kernel's files found under `paths`.
  ZefoResourceMonitorApi(int period, const std::set<std::string>& procs, const KernelPaths& paths);
  ~ZefoResourceMonitorApi();

  ZefoResourceMonitorApi(const ZefoResourceMonitorApi&) = delete;
  ZefoResourceMonitorApi& operator=(const ZefoResourceMonitorApi&) = delete;

  /// `update_time` is cut to 32 bits where `unsigned long` has 32 bits; see GetUpdateTime().
  void GetResourceInfo(unsigned long& update_time, ResourceInfoCallback callback);
  /// The end of the latest pass in ms since the epoch (0 before the first), on every target.
  uint64_t GetUpdateTime();
  ResourceItem* GetResourceItem(ResourceMonitorType type, const std::string& name);
  void PrintToStream(std::ostream& os);
  void Print();

  /// Retention, waiting for passes and the cost of a pass: see ZefoResourceMonitor.
  void SetForgetAfter(int64_t max_age_ms);
  uint64_t WaitForUpdate(uint64_t after, int timeout_ms);
  void StopWaiting();
  uint64_t GetPassCosts(std::vector<MonitorPassCost>& costs);

 private:
  ZefoResourceMonitor* impl;
};

}  // namespace zefo

#endif  // ZEFO_ZEFO_RESOURCE_MONITOR_H_
