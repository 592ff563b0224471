// /proc/meminfo: the parser over the text cut in place, then the memory figures from the sample.
#include <sstream>

#include "fuzz_support.h"
#include "monitors/memory_parse.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace zefo;
  const std::string_view text = fuzz::AsText(data, size);
  MemoryState in_place;
  std::string copy(text);
  detail::ParseMeminfoInPlace(copy, in_place);

  MemoryResourceInfo info;
  ResourceItems items;
  info.Update(&items, "", in_place, 1);
  info.Update(&items, "", in_place, 2);
  std::ostringstream report;
  items.Items().begin()->second->PrintToStream(report);
  return 0;
}
