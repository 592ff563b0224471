// /proc/<pid>/status: the hand-written scanner against sscanf with the status format, line by
// line, the unit carried over from line to line.
#include "fuzz_support.h"
#include "proc_sscanf_reference.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace zefo;
  const std::string_view text = fuzz::AsText(data, size);
  ProcInfoState fast = reference::Marked();
  ProcInfoState slow = reference::Marked();
  detail::ParseStatus(text, fast);
  reference::SscanfStatus(text, slow);
  ZEFO_FUZZ_CHECK(reference::SameNumbers(fast, slow), text);
  return 0;
}
