// /proc/uptime.
#include "fuzz_support.h"
#include "proc_sscanf_reference.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace zefo;
  const std::string_view text = fuzz::AsText(data, size);
  ProcInfoUptimeState uptime{-7, -7};
  const bool read = detail::ParseUptime(text, uptime);
  ZEFO_FUZZ_CHECK(read == !text.empty(), text);
  if (!read) ZEFO_FUZZ_CHECK(uptime.uptime == -7 && uptime.idle == -7, text);
  return 0;
}
