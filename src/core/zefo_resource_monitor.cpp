#include "zefo/zefo_resource_monitor.h"

#include <time.h>
#if defined(__GLIBC__)
#include <malloc.h>
#endif

#include <chrono>
#include <cmath>
#include <iostream>

#include "core/report_frame.h"
#include "zefo/bpu_monitor.h"
#include "zefo/cpu_monitor.h"
#include "zefo/disk_monitor.h"
#include "zefo/memory_monitor.h"
#include "zefo/network_monitor.h"
#include "zefo/procinfo_monitor.h"
#include "zefo/qeltddr_monitor.h"
#include "zefo/temperature_monitor.h"

namespace zefo {

MonitorThread::MonitorThread(int period, std::map<ResourceMonitorType, BaseMonitor*>* monitors)
    : ZefoThread("res_monitor"),
      period(period),
      timer(new ZefoTimer()),
      spin(new ZefoThreadSpin()),
      update_time(0),
      monitors(monitors) {}

MonitorThread::~MonitorThread() {
  stop();
  delete timer;
  delete spin;
}

namespace {

double Seconds(clockid_t clock) {
  struct timespec now;
  clock_gettime(clock, &now);
  return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

// A pass that forgot at least this many names hands the freed memory back to the system.
constexpr std::size_t kForgottenBeforeTrim = 64;

// The C library keeps freed memory for reuse, so after many short-lived processes are forgotten
// the monitor would stay at the size of its busiest minute; glibc can return the free pages.
void ReturnFreedMemory() {
#if defined(__GLIBC__)
  malloc_trim(0);
#endif
}

// Adds the time and the CPU time since `wall`/`cpu` to `cost`.
void Charge(MonitorPassCost& cost, double wall, double cpu) {
  cost.wall_seconds += Seconds(CLOCK_MONOTONIC) - wall;
  cost.cpu_seconds += Seconds(CLOCK_THREAD_CPUTIME_ID) - cpu;
}

}  // namespace

void MonitorThread::do_run() {
  while (is_running()) {
    uint64_t ended = 0;
    std::size_t forgotten = 0;
    {
      ZefoSpinGuard guard(spin);
      // The monitors are fixed once sampling runs: the list is sized by the first pass only.
      costs.resize(monitors->size());
      std::size_t index = 0;
      for (auto& entry : *monitors) {
        MonitorPassCost& cost = costs[index++];
        cost = MonitorPassCost{entry.first, 0, 0};
        const double wall = Seconds(CLOCK_MONOTONIC);
        const double cpu = Seconds(CLOCK_THREAD_CPUTIME_ID);
        entry.second->DoMonitor();
        Charge(cost, wall, cpu);
      }
      update_time = static_cast<uint64_t>(WallClockMs());
      index = 0;
      for (auto& entry : *monitors) {
        entry.second->EndPass(update_time);
        if (forget_after_ms > 0) {
          const double wall = Seconds(CLOCK_MONOTONIC);
          const double cpu = Seconds(CLOCK_THREAD_CPUTIME_ID);
          forgotten += entry.second->Forget(forget_after_ms);
          Charge(costs[index], wall, cpu);
        }
        ++index;
      }
      // Microseconds are as fine as a pass's cost is worth showing, and keep its text short.
      for (MonitorPassCost& cost : costs) {
        cost.wall_seconds = std::round(cost.wall_seconds * 1e6) / 1e6;
        cost.cpu_seconds = std::round(cost.cpu_seconds * 1e6) / 1e6;
      }
      ended = update_time;
    }
    if (forgotten >= kForgottenBeforeTrim) ReturnFreedMemory();
    {
      std::lock_guard<std::mutex> lock(wait_mutex);
      published_time = ended;
    }
    pass_ended.notify_all();
    timer->start(static_cast<long>(period));
  }
}

void MonitorThread::do_stop() {
  timer->stop();
}

void MonitorThread::SetForgetAfter(int64_t max_age_ms) {
  ZefoSpinGuard guard(spin);
  forget_after_ms = max_age_ms > 0 ? max_age_ms : 0;
}

uint64_t MonitorThread::WaitForUpdate(uint64_t after, int timeout_ms) {
  std::unique_lock<std::mutex> lock(wait_mutex);
  pass_ended.wait_for(lock, std::chrono::milliseconds(timeout_ms > 0 ? timeout_ms : 0),
                      [&] { return stop_waiting || published_time != after; });
  return published_time;
}

void MonitorThread::StopWaiting() {
  {
    std::lock_guard<std::mutex> lock(wait_mutex);
    stop_waiting = true;
  }
  pass_ended.notify_all();
}

ZefoResourceMonitor::ZefoResourceMonitor(int period) : ZefoResourceMonitor(period, KernelPaths()) {}

ZefoResourceMonitor::ZefoResourceMonitor(int period, const std::set<std::string>& procs)
    : ZefoResourceMonitor(period, procs, KernelPaths()) {}

ZefoResourceMonitor::ZefoResourceMonitor(int period, const KernelPaths& paths)
    : thread(new MonitorThread(period, &monitors)) {
  AppendSystemMonitors(paths);
  AppendMonitor(new ProcInfoMonitor(paths));
  thread->start();
}

ZefoResourceMonitor::ZefoResourceMonitor(int period, const std::set<std::string>& procs,
                                         const KernelPaths& paths)
    : thread(new MonitorThread(period, &monitors)) {
  AppendMonitor(new ProcInfoMonitor(procs, paths));
  thread->start();
}

ZefoResourceMonitor::ZefoResourceMonitor(const std::vector<BaseMonitor*>& given, int period)
    : thread(new MonitorThread(period, &monitors)) {
  for (BaseMonitor* monitor : given) AppendMonitor(monitor);
  thread->start();
}

void ZefoResourceMonitor::AppendSystemMonitors(const KernelPaths& paths) {
  AppendMonitor(new CpuMonitor(paths));
  AppendMonitor(new BpuMonitor(paths));
  AppendMonitor(new DiskMonitor(paths));
  AppendMonitor(new MemoryMonitor(paths));
  AppendMonitor(new NetworkMonitor(paths));
  AppendMonitor(new TemperatureMonitor(paths));
  AppendMonitor(new QeltDdrMonitor(paths));
}

ZefoResourceMonitor::~ZefoResourceMonitor() {
  thread->stop();
  delete thread;
  for (auto& entry : monitors) delete entry.second;
}

void ZefoResourceMonitor::AppendMonitor(BaseMonitor* monitor) {
  if (monitor == nullptr) return;
  BaseMonitor*& slot = monitors[monitor->Type()];
  if (slot != monitor) delete slot;
  slot = monitor;
}

void ZefoResourceMonitor::GetResourceInfo(unsigned long& update_time,
                                          ResourceInfoCallback callback) {
  ZefoSpinGuard guard(thread->Spin());
  update_time = static_cast<unsigned long>(thread->UpdateTime());
  if (!callback) return;
  for (auto& entry : monitors) callback(entry.first, entry.second->Items());
}

uint64_t ZefoResourceMonitor::GetUpdateTime() {
  ZefoSpinGuard guard(thread->Spin());
  return thread->UpdateTime();
}

ResourceItem* ZefoResourceMonitor::GetResourceItem(ResourceMonitorType type,
                                                   const std::string& name) {
  ZefoSpinGuard guard(thread->Spin());
  auto monitor = monitors.find(type);
  if (monitor == monitors.end() || monitor->second == nullptr) return nullptr;
  auto item = monitor->second->Items().find(name);
  return item == monitor->second->Items().end() ? nullptr : item->second;
}

void ZefoResourceMonitor::SetForgetAfter(int64_t max_age_ms) {
  thread->SetForgetAfter(max_age_ms);
}

uint64_t ZefoResourceMonitor::WaitForUpdate(uint64_t after, int timeout_ms) {
  return thread->WaitForUpdate(after, timeout_ms);
}

void ZefoResourceMonitor::StopWaiting() {
  thread->StopWaiting();
}

uint64_t ZefoResourceMonitor::GetPassCosts(std::vector<MonitorPassCost>& costs) {
  ZefoSpinGuard guard(thread->Spin());
  costs = thread->PassCosts();
  return thread->UpdateTime();
}

void ZefoResourceMonitor::PrintToStream(std::ostream& os) {
  {
    ZefoSpinGuard guard(thread->Spin());
    detail::WriteReportFrame(os, thread->UpdateTime(), monitors, [&os](const auto& entry) {
      for (auto& item : entry.second->Items()) item.second->PrintToStream(os);
    });
  }
  os << std::endl;
}

void ZefoResourceMonitor::Print() {
  PrintToStream(std::cout);
}

ZefoResourceMonitorApi::ZefoResourceMonitorApi() : ZefoResourceMonitorApi(2000) {}

ZefoResourceMonitorApi::ZefoResourceMonitorApi(int period)
    : impl(new ZefoResourceMonitor(period)) {}

ZefoResourceMonitorApi::ZefoResourceMonitorApi(int period, const std::set<std::string>& procs)
    : impl(new ZefoResourceMonitor(period, procs)) {}

ZefoResourceMonitorApi::ZefoResourceMonitorApi(int period, const KernelPaths& paths)
    : impl(new ZefoResourceMonitor(period, paths)) {}

ZefoResourceMonitorApi::ZefoResourceMonitorApi(int period, const std::set<std::string>& procs,
                                               const KernelPaths& paths)
    : impl(new ZefoResourceMonitor(period, procs, paths)) {}

ZefoResourceMonitorApi::~ZefoResourceMonitorApi() {
  delete impl;
}

void ZefoResourceMonitorApi::GetResourceInfo(unsigned long& update_time,
                                             ResourceInfoCallback callback) {
  impl->GetResourceInfo(update_time, callback);
}

uint64_t ZefoResourceMonitorApi::GetUpdateTime() {
  return impl->GetUpdateTime();
}

ResourceItem* ZefoResourceMonitorApi::GetResourceItem(ResourceMonitorType type,
                                                      const std::string& name) {
  return impl->GetResourceItem(type, name);
}

void ZefoResourceMonitorApi::PrintToStream(std::ostream& os) {
  impl->PrintToStream(os);
}

void ZefoResourceMonitorApi::Print() {
  impl->Print();
}

void ZefoResourceMonitorApi::SetForgetAfter(int64_t max_age_ms) {
  impl->SetForgetAfter(max_age_ms);
}

uint64_t ZefoResourceMonitorApi::WaitForUpdate(uint64_t after, int timeout_ms) {
  return impl->WaitForUpdate(after, timeout_ms);
}

void ZefoResourceMonitorApi::StopWaiting() {
  impl->StopWaiting();
}

uint64_t ZefoResourceMonitorApi::GetPassCosts(std::vector<MonitorPassCost>& costs) {
  return impl->GetPassCosts(costs);
}

}  // namespace zefo
