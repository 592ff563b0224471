// /proc/<pid>/statm: the hand-written scanner against sscanf with the statm format.
#include "fuzz_support.h"
#include "proc_sscanf_reference.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace zefo;
  const std::string_view text = fuzz::AsText(data, size);
  ProcInfoStatm fast = reference::Marked().statm;
  ProcInfoStatm slow = fast;
  detail::ParseStatm(text, fast);
  reference::SscanfStatm(text, slow);
  const auto row = [](const ProcInfoStatm& s) {
    return std::make_tuple(s.size, s.resident, s.shared, s.text, s.lib, s.data, s.dt);
  };
  ZEFO_FUZZ_CHECK(row(fast) == row(slow), text);
  return 0;
}
