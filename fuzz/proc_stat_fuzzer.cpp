// /proc/<pid>/stat: the hand-written scanner against sscanf with the stat format, then the
// figures of two such samples.
#include <sstream>

#include "fuzz_support.h"
#include "proc_sscanf_reference.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace zefo;
  const std::string_view text = fuzz::AsText(data, size);
  ProcInfoState fast = reference::Marked();
  ProcInfoState slow = reference::Marked();
  detail::ParseProcStat(text, fast);
  reference::SscanfStat(text, slow);
  ZEFO_FUZZ_CHECK(reference::SameNumbers(fast, slow), text);
  ZEFO_FUZZ_CHECK(fast.name == slow.name && fast.state == slow.state, text);

  // The figures of a process from this sample and a marked one, in both orders: nothing the
  // file holds may make the arithmetic undefined.
  ProcInfoResourceInfo info(4096);
  ResourceItems items;
  fast.cpu = {static_cast<int64_t>(fast.utime), static_cast<int32_t>(fast.processor)};
  info.Update(&items, "1", slow, 1000);
  info.Update(&items, "1", fast, 1000 + (fast.pid & 0xffff));
  info.Update(&items, "1", slow, 1000);
  std::ostringstream report;
  for (const auto& entry : items.Items()) entry.second->PrintToStream(report);
  return 0;
}
