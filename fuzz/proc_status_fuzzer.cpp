// /proc/<pid>/status: the hand-written scanner against sscanf with the status format, line by
// line, the unit carried over from line to line.
#include "proc_reference.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace zefo;
  const std::string_view text = fuzz::AsText(data, size);
  ProcInfoState fast = fuzz::Marked();
  ProcInfoState slow = fuzz::Marked();
  detail::ParseStatus(text, fast);
  fuzz::SscanfStatus(text, slow);
  ZEFO_FUZZ_CHECK(fuzz::SameNumbers(fast, slow), text);
  return 0;
}
