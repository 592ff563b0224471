#include "monitors/memory_parse.h"

#include <cstdio>
#include <cstring>

#include "zefo/base_monitor.h"

namespace zefo {
namespace detail {

namespace {

struct MeminfoKey {
  const char* key;
  long long MemoryState::*field;
};

constexpr MeminfoKey kMeminfoKeys[] = {
    {"MemTotal:", &MemoryState::total},
    {"MemFree:", &MemoryState::free},
    {"MemShared:", &MemoryState::shared},
    {"Buffers:", &MemoryState::buffers},
    {"Cached:", &MemoryState::cached},
    {"Shmem:", &MemoryState::shmem},
    {"SReclaimable:", &MemoryState::sreclaimable},
    {"SwapTotal:", &MemoryState::swap_total},
    {"SwapFree:", &MemoryState::swap_free},
};

}  // namespace

void ParseMeminfo(const std::list<std::string>& lines, MemoryState& out) {
  static_assert(BaseMonitor::kWordSize == 256, "the format below bounds each word to 255 bytes");
  MemoryState state;
  for (const MeminfoKey& entry : kMeminfoKeys) state.*entry.field = -1;

  char name[BaseMonitor::kWordSize] = {};
  char unit[BaseMonitor::kWordSize] = {};
  long long number = 0;
  for (const std::string& line : lines) {
    std::sscanf(line.c_str(), "%255s %lld %255s", name, &number, unit);
    for (const MeminfoKey& entry : kMeminfoKeys) {
      if (std::strcmp(name, entry.key) != 0) continue;
      // Unsigned arithmetic: a hostile number times the unit wraps instead of overflowing.
      state.*entry.field = static_cast<long long>(static_cast<unsigned long long>(number) *
                                                  BaseMonitor::UnitToBytes(unit));
      break;
    }
  }
  out = state;
}

}  // namespace detail
}  // namespace zefo
