#include "zefo/format/snapshot.h"

#include <climits>

#include "format/text.h"
#include "zefo/zefo_resource_monitor.h"

namespace zefo::format {

namespace {

template <typename Item>
void CopyItems(const std::map<std::string, ResourceItem*>& items,
               std::map<std::string, Item>& into) {
  for (const auto& [name, item] : items) {
    if (const auto* typed = dynamic_cast<const Item*>(item)) into.insert_or_assign(name, *typed);
  }
}

template <typename Monitor>
Snapshot Take(Monitor& monitor) {
  Snapshot pass;
  unsigned long update_time = 0;
  monitor.GetResourceInfo(update_time, [&pass](ResourceMonitorType type,
                                               const std::map<std::string, ResourceItem*>& items) {
    pass.Add(type, items);
  });
  // Where `unsigned long` has 32 bits it carries only the low bits of the time; the 64-bit
  // clock read just after supplies the rest (the two lie far less than 2^32 ms apart).
  const uint64_t whole = monitor.GetUpdateTime();
  uint64_t time = (whole & ~static_cast<uint64_t>(ULONG_MAX)) | update_time;
  if (time > whole) time -= static_cast<uint64_t>(ULONG_MAX) + 1;
  pass.update_time = time;
  return pass;
}

void Cut(std::string& text, std::size_t max_bytes) {
  if (text.size() > max_bytes) std::string(detail::CutUtf8(text, max_bytes)).swap(text);
}

void CopyProcesses(const std::map<std::string, ResourceItem*>& items,
                   std::map<std::string, ProcInfoResourceItem>& into) {
  for (const auto& [name, item] : items) {
    const auto* typed = dynamic_cast<const ProcInfoResourceItem*>(item);
    if (typed == nullptr) continue;
    ProcInfoResourceItem& copy = into.insert_or_assign(name, *typed).first->second;
    Cut(copy.zefo_name, kMaxRegisteredNameBytes);
    Cut(copy.cmd_line, kMaxCommandLineBytes);
  }
}

}  // namespace

void Snapshot::Add(ResourceMonitorType type, const std::map<std::string, ResourceItem*>& items) {
  kinds.push_back(type);
  switch (type) {
    case Cpu:
      CopyItems(items, cpu);
      break;
    case Bpu:
      CopyItems(items, bpu);
      break;
    case Disk:
      CopyItems(items, disk);
      break;
    case Memory:
      CopyItems(items, memory);
      break;
    case Network:
      CopyItems(items, network);
      break;
    case Temperature:
      CopyItems(items, temperature);
      break;
    case QeltDdr:
      CopyItems(items, ddr);
      break;
    case ProcInfo:
      CopyProcesses(items, process);
      break;
  }
}

Snapshot TakeSnapshot(ZefoResourceMonitorApi& monitor) {
  return Take(monitor);
}

Snapshot TakeSnapshot(ZefoResourceMonitor& monitor) {
  return Take(monitor);
}

const char* KindName(ResourceMonitorType type) {
  switch (type) {
    case Cpu:
      return "cpu";
    case Bpu:
      return "bpu";
    case Disk:
      return "disk";
    case Memory:
      return "memory";
    case Network:
      return "network";
    case Temperature:
      return "temperature";
    case QeltDdr:
      return "ddr";
    case ProcInfo:
      return "process";
  }
  return "unknown";
}

}  // namespace zefo::format
