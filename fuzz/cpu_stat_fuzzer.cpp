// /proc/stat as both monitors read it: the CPU monitor line by line, the process monitor's
// machine-wide sample against sscanf, and the CPU figures of successive lines taken as successive
// samples.
#include <cstring>
#include <sstream>

#include "core/counter_math.h"
#include "fuzz_support.h"
#include "monitors/cpu_parse.h"
#include "proc_sscanf_reference.h"
#include "zefo/cpu_monitor.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace zefo;
  const std::string_view text = fuzz::AsText(data, size);

  CpuResourceInfo info;
  ResourceItems items;
  std::string in_place(text);
  std::string word;
  int64_t now = 1;
  detail::ForEachLineInPlace(in_place, [&](const char* line) {
    CpuState state;
    state.user = 77;
    word = "keep";
    const bool taken = detail::ParseCpuStatLine(line, word, state);
    if (!taken) {
      ZEFO_FUZZ_CHECK(state.user == 77 && word == "keep", text);
      return;
    }
    ZEFO_FUZZ_CHECK(word.size() <= 255 && word.compare(0, 3, "cpu") == 0, text);
    long long sum = 0;
    for (long long c : {state.user, state.nice, state.system, state.idle, state.iowait, state.irq,
                        state.softirq, state.steal, state.guest, state.guest_nice}) {
      sum = detail::WrappingAdd(sum, c);
    }
    ZEFO_FUZZ_CHECK(state.total == sum, text);
    // Every CPU line is a sample of one item: figures of arbitrary pairs must stay defined.
    info.Update(&items, "cpu", state, now++);
  });
  std::ostringstream report;
  for (const auto& entry : items.Items()) entry.second->PrintToStream(report);

  ProcInfoCpuState fast{-1, -1};
  ProcInfoCpuState slow{-1, -1};
  const bool fast_read = detail::ParseCpuTotal(text, fast);
  const bool slow_read = reference::SscanfCpuTotal(text, slow);
  ZEFO_FUZZ_CHECK(fast_read == slow_read, text);
  ZEFO_FUZZ_CHECK(fast.total == slow.total && fast.cores == slow.cores, text);
  return 0;
}
