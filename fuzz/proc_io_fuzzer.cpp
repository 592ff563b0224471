// /proc/<pid>/io: the hand-written scanner against sscanf with the io format.
#include "proc_reference.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace zefo;
  const std::string_view text = fuzz::AsText(data, size);
  ProcInfoState fast = fuzz::Marked();
  ProcInfoState slow = fuzz::Marked();
  detail::ParseIo(text, fast);
  fuzz::SscanfIo(text, slow);
  ZEFO_FUZZ_CHECK(fuzz::SameNumbers(fast, slow), text);
  return 0;
}
