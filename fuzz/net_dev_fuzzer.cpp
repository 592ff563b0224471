// /proc/net/dev as the network monitor reads it (interface lines after the two headers), and as
// the process monitor reads a process's net/dev with its own format.
#include <map>
#include <sstream>

#include "fuzz_support.h"
#include "monitors/network_parse.h"
#include "proc_sscanf_reference.h"
#include "zefo/network_monitor.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace zefo;
  const std::string_view text = fuzz::AsText(data, size);
  NetworkResourceInfo info;
  ResourceItems items;
  int64_t now = 1;
  int line_number = 0;
  std::string name;
  std::string copy(text);
  detail::ForEachLineInPlace(copy, [&](const char* line) {
    if (++line_number <= 2) return;
    NetworkState state;
    name = "keep";
    if (!detail::ParseNetDevLine(line, name, state)) {
      ZEFO_FUZZ_CHECK(name == "keep", text);
      return;
    }
    ZEFO_FUZZ_CHECK(!name.empty() && name.size() <= 255, text);
    // Every line as a sample of one interface, so counters jump back and forth.
    info.Update(&items, "eth0", state, now);
    now += line_number & 1;
  });
  std::ostringstream report;
  for (const auto& entry : items.Items()) entry.second->PrintToStream(report);

  std::map<std::string, ProcInfoNetState> per_process;
  detail::ParseNetDev(text, per_process);
  for (const auto& entry : per_process) ZEFO_FUZZ_CHECK(entry.first.size() <= 255, text);
  return 0;
}
