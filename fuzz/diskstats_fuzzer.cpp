// /proc/diskstats line by line: the device key and the counters, then the disk figures of
// successive lines taken as successive samples of one mount.
#include <sstream>

#include "fuzz_support.h"
#include "monitors/disk_parse.h"
#include "zefo/disk_monitor.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace zefo;
  const std::string_view text = fuzz::AsText(data, size);
  DiskResourceInfo info;
  ResourceItems items;
  int64_t now = 1;
  std::string copy(text);
  detail::ForEachLineInPlace(copy, [&](const char* line) {
    uint64_t key = 12345;
    const bool keyed = detail::ParseDiskstatsKey(line, key);
    if (!keyed) ZEFO_FUZZ_CHECK(key == 12345, text);
    DiskState state;
    state.name = "keep";
    const bool parsed = detail::ParseDiskstatsLine(line, state);
    if (!parsed) {
      ZEFO_FUZZ_CHECK(state.name == "keep", text);
      return;
    }
    // A line the counters read from starts with two numbers, so it has a key too.
    ZEFO_FUZZ_CHECK(keyed && state.name.size() <= 255, text);
    info.Update(&items, "/", state, now);
    now += (state.minor & 3);  // equal stamps too: a zero interval must stay defined
  });
  std::ostringstream report;
  for (const auto& entry : items.Items()) entry.second->PrintToStream(report);
  return 0;
}
