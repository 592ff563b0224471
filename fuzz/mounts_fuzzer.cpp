// /proc/mounts line by line: the two words the disk monitor takes, carried over from line to
// line as the monitor carries them.

#include "fuzz_support.h"
#include "monitors/disk_parse.h"

namespace {

bool IsBlank(char c) {
  return c == ' ' || c == '\t' || c == '\n' || c == '\v' || c == '\f' || c == '\r';
}

bool IsWord(const std::string& word) {
  if (word.empty() || word.size() > 255) return false;
  for (char c : word) {
    if (IsBlank(c) || c == '\0') return false;
  }
  return true;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace zefo;
  const std::string_view text = fuzz::AsText(data, size);
  std::string file_system = "fs";
  std::string mount_point = "/mnt";
  std::string copy(text);
  detail::ForEachLineInPlace(copy, [&](const char* line) {
    const std::string before_fs = file_system;
    const std::string before_mp = mount_point;
    const int words = detail::ParseMountLine(line, file_system, mount_point);
    ZEFO_FUZZ_CHECK(words >= -1 && words <= 2, text);
    if (words <= 0) {
      ZEFO_FUZZ_CHECK(file_system == before_fs && mount_point == before_mp, text);
      return;
    }
    ZEFO_FUZZ_CHECK(IsWord(file_system), text);
    if (words == 2) ZEFO_FUZZ_CHECK(IsWord(mount_point), text);
    if (words == 1) ZEFO_FUZZ_CHECK(mount_point == before_mp, text);
  });
  return 0;
}
