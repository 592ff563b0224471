#include "monitors/memory_parse.h"

#include <cstdio>
#include <cstring>

#include "core/counter_math.h"
#include "core/file_reader.h"
#include "core/scan_cursor.h"
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

// The state of one pass over the file: the number and the unit carry over from line to line.
class MeminfoLines {
 public:
  MeminfoLines() {
    for (const MeminfoKey& entry : kMeminfoKeys) state_.*entry.field = -1;
  }

  void Line(const char* line) {
    static_assert(BaseMonitor::kWordSize == 256, "the format below bounds each word to 255 bytes");
    std::sscanf(line, "%255s %lld %255s", name_, &number_, unit_);
    for (const MeminfoKey& entry : kMeminfoKeys) {
      if (std::strcmp(name_, entry.key) != 0) continue;
      // Unsigned arithmetic: a hostile number times the unit wraps instead of overflowing.
      state_.*entry.field = WrappingMul(number_, UnitMultiplier(unit_));
      break;
    }
  }

  const MemoryState& State() const { return state_; }

 private:
  MemoryState state_;
  char name_[BaseMonitor::kWordSize] = {};
  char unit_[BaseMonitor::kWordSize] = {};
  long long number_ = 0;
};

}  // namespace

void ParseMeminfoInPlace(std::string& text, MemoryState& out) {
  MeminfoLines parser;
  ForEachLineInPlace(text, [&parser](const char* line) { parser.Line(line); });
  out = parser.State();
}

}  // namespace detail
}  // namespace zefo
