// /proc/meminfo: the parser over a line list and over the text cut in place must agree; then
// the memory figures from the sample.
#include <sstream>
#include <tuple>

#include "fuzz_support.h"
#include "monitors/memory_parse.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace zefo;
  const std::string_view text = fuzz::AsText(data, size);
  MemoryState from_lines;
  detail::ParseMeminfo(fuzz::Lines(text), from_lines);
  MemoryState in_place;
  std::string copy(text);
  detail::ParseMeminfoInPlace(copy, in_place);
  const auto row = [](const MemoryState& s) {
    return std::make_tuple(s.total, s.free, s.shared, s.buffers, s.cached, s.shmem, s.sreclaimable,
                           s.swap_total, s.swap_free);
  };
  ZEFO_FUZZ_CHECK(row(from_lines) == row(in_place), text);

  MemoryResourceInfo info;
  ResourceItems items;
  info.Update(&items, "", from_lines, 1);
  info.Update(&items, "", from_lines, 2);
  std::ostringstream report;
  items.Items().begin()->second->PrintToStream(report);
  return 0;
}
