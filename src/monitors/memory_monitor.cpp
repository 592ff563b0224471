#include "zefo/memory_monitor.h"

#include <iomanip>
#include <list>

#include "core/counter_math.h"
#include "core/file_reader.h"
#include "monitors/memory_parse.h"

namespace zefo {

void MemoryResourceItem::PrintToStream(std::ostream& os) {
  os << "MemoryResourceInfo::Print" << std::endl;
  os << "total               : " << std::fixed << std::setprecision(2) << total << std::endl;
  os << "free                : " << std::fixed << std::setprecision(2) << free << std::endl;
  os << "shared              : " << std::fixed << std::setprecision(2) << shared << std::endl;
  os << "buffers             : " << std::fixed << std::setprecision(2) << buffers << std::endl;
  os << "cached              : " << std::fixed << std::setprecision(2) << cached << std::endl;
  os << "shmem               : " << std::fixed << std::setprecision(2) << shmem << std::endl;
  os << "sreclaimable        : " << std::fixed << std::setprecision(2) << sreclaimable << std::endl;
  os << "swap total          : " << std::fixed << std::setprecision(2) << swap_total << std::endl;
  os << "swap free           : " << std::fixed << std::setprecision(2) << swap_free << std::endl;
  os << "used_percent        : " << std::fixed << std::setprecision(2) << used_percent << std::endl;
}

void MemoryResourceInfo::DoUpdate(const std::string& /*name*/, MemoryResourceItem* item,
                                  const MemoryState& current, const MemoryState& /*previous*/,
                                  double /*elapsed*/) {
  item->total = current.total;
  item->free = current.free;
  item->shared = current.shared;
  item->buffers = current.buffers;
  item->cached = current.cached;
  item->shmem = current.shmem;
  item->sreclaimable = current.sreclaimable;
  item->swap_total = current.swap_total;
  item->swap_free = current.swap_free;
  // No guard: an unreadable meminfo (every figure -1) gives (-1 + 1 + 1 + 1) / -1 = -200 %.
  const long long used = detail::WrappingSub(
      detail::WrappingSub(detail::WrappingSub(current.total, current.free), current.buffers),
      current.cached);
  item->used_percent = static_cast<double>(used) * 100.0 / static_cast<double>(current.total);
}

MemoryMonitor::MemoryMonitor() : MemoryMonitor(KernelPaths()) {}

MemoryMonitor::MemoryMonitor(const KernelPaths& paths)
    : BaseMonitor(Memory, paths), info_(new MemoryResourceInfo()) {
  SetSamples(info_);
}

MemoryMonitor::~MemoryMonitor() {
  delete info_;
}

bool MemoryMonitor::DoMonitor() {
  MemoryState state;
  detail::ReadWholeFile(Paths().Proc("meminfo"), text_);
  detail::ParseMeminfoInPlace(text_, state);
  // There is one memory item; it and its stored sample go under the empty name.
  info_->Update(MutableItems(), "", state, Now());
  return true;
}

}  // namespace zefo
