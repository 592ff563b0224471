#include "monitors/cpu_parse.h"

#include <cstdio>
#include <cstring>

#include "core/counter_math.h"
#include "zefo/base_monitor.h"

namespace zefo {
namespace detail {

bool ParseCpuStatLine(const char* line, std::string& word, CpuState& out) {
  static_assert(BaseMonitor::kWordSize == 256, "the formats below bound the word to 255 bytes");
  char first[BaseMonitor::kWordSize] = {};
  if (std::sscanf(line, "%255s", first) != 1) return false;
  if (std::strncmp(first, "cpu", 3) != 0) return false;

  CpuState state;
  std::sscanf(line, "%255s %lld %lld %lld %lld %lld %lld %lld %lld %lld %lld", first, &state.user,
              &state.nice, &state.system, &state.idle, &state.iowait, &state.irq, &state.softirq,
              &state.steal, &state.guest, &state.guest_nice);
  for (long long counter : {state.user, state.nice, state.system, state.idle, state.iowait,
                            state.irq, state.softirq, state.steal, state.guest, state.guest_nice}) {
    state.total = WrappingAdd(state.total, counter);
  }
  word = first;
  out = state;
  return true;
}

}  // namespace detail
}  // namespace zefo
