#include "zefo/format/snapshot.h"

#include <climits>
#include <iterator>
#include <type_traits>

#include "format/item_fields.h"
#include "format/text.h"
#include "zefo/zefo_resource_monitor.h"

namespace zefo::format {

namespace {

// Keeps every item, or only those the pass ending at `live` rewrote.
struct Keep {
  bool all = true;
  unsigned long live = 0;
  bool operator()(const ResourceItem& item) const {
    return all || static_cast<unsigned long>(item.update_time) == live;
  }
};

// A process's registered name and command line come from files other users write; a copy is
// cut to a bounded size so that no output grows with them.
void Cut(std::string& text, std::size_t max_bytes) {
  if (text.size() > max_bytes) std::string(detail::CutUtf8(text, max_bytes)).swap(text);
}

template <typename Item>
void CopyItems(const std::map<std::string, ResourceItem*>& items, Keep keep,
               std::map<std::string, Item>& into) {
  for (const auto& [name, item] : items) {
    const auto* typed = dynamic_cast<const Item*>(item);
    if (typed == nullptr || !keep(*typed)) continue;
    Item& copy = into.insert_or_assign(name, *typed).first->second;
    if constexpr (std::is_same_v<Item, ProcInfoResourceItem>) {
      Cut(copy.zefo_name, kMaxRegisteredNameBytes);
      Cut(copy.cmd_line, kMaxCommandLineBytes);
    }
  }
}

void AddItems(Snapshot& pass, ResourceMonitorType type,
              const std::map<std::string, ResourceItem*>& items, Keep keep) {
  pass.kinds.push_back(type);
  detail::ForKind(type, [&](auto member) { CopyItems(items, keep, pass.*member); });
}

template <typename Item>
void DropStaleItems(uint64_t live, std::map<std::string, Item>& items) {
  for (auto it = items.begin(); it != items.end();) {
    it = it->second.update_time == live ? std::next(it) : items.erase(it);
  }
}

template <typename Monitor>
Snapshot Take(Monitor& monitor, SnapshotScope scope) {
  Snapshot pass;
  unsigned long update_time = 0;
  // The callbacks run after `update_time` is set, inside the same sweep.
  monitor.GetResourceInfo(
      update_time, [&pass, &update_time, scope](ResourceMonitorType type,
                                                const std::map<std::string, ResourceItem*>& items) {
        AddItems(pass, type, items, Keep{scope == SnapshotScope::kAll, update_time});
      });
  monitor.GetPassCosts(pass.costs);
  // Where `unsigned long` has 32 bits it carries only the low bits of the time; the 64-bit
  // clock read just after supplies the rest (the two lie far less than 2^32 ms apart).
  const uint64_t whole = monitor.GetUpdateTime();
  uint64_t time = (whole & ~static_cast<uint64_t>(ULONG_MAX)) | update_time;
  if (time > whole) time -= static_cast<uint64_t>(ULONG_MAX) + 1;
  pass.update_time = time;
  return pass;
}

}  // namespace

void Snapshot::Add(ResourceMonitorType type, const std::map<std::string, ResourceItem*>& items) {
  AddItems(*this, type, items, Keep{});
}

void Snapshot::AddLive(ResourceMonitorType type, const std::map<std::string, ResourceItem*>& items,
                       unsigned long live_time) {
  AddItems(*this, type, items, Keep{false, live_time});
}

Snapshot TakeSnapshot(ZefoResourceMonitorApi& monitor, SnapshotScope scope) {
  return Take(monitor, scope);
}

Snapshot TakeSnapshot(ZefoResourceMonitor& monitor, SnapshotScope scope) {
  return Take(monitor, scope);
}

void DropStale(Snapshot& pass) {
  detail::ForEachKind([&pass](ResourceMonitorType, const char*, auto member) {
    DropStaleItems(pass.update_time, pass.*member);
  });
}

const char* KindName(ResourceMonitorType type) {
  const char* name = "unknown";
  detail::ForEachKind([&](ResourceMonitorType kind, const char* kind_name, auto) {
    if (kind == type) name = kind_name;
  });
  return name;
}

}  // namespace zefo::format
