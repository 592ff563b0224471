#include "zefo/zefo_resource_monitor.h"

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

void MonitorThread::do_run() {
  while (is_running()) {
    {
      ZefoSpinGuard guard(spin);
      for (auto& entry : *monitors) entry.second->DoMonitor();
      update_time = static_cast<uint64_t>(WallClockMs());
    }
    timer->start(static_cast<long>(period));
  }
}

void MonitorThread::do_stop() {
  timer->stop();
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

}  // namespace zefo
