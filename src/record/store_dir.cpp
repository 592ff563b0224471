#include "record/store_dir.h"

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>

namespace zefo::record::detail {

namespace {
constexpr char kPrefix[] = "segment-";
constexpr char kSuffix[] = ".zrec";
constexpr std::size_t kDigits = 20;
}  // namespace

std::string SegmentName(uint64_t started_ms) {
  char digits[kDigits + 1];
  std::snprintf(digits, sizeof digits, "%020llu", static_cast<unsigned long long>(started_ms));
  return kPrefix + std::string(digits) + kSuffix;
}

bool IsSegmentName(const std::string& name) {
  const std::size_t prefix = sizeof kPrefix - 1, suffix = sizeof kSuffix - 1;
  if (name.size() != prefix + kDigits + suffix) return false;
  if (name.compare(0, prefix, kPrefix) != 0 ||
      name.compare(prefix + kDigits, suffix, kSuffix) != 0) {
    return false;
  }
  return std::all_of(name.begin() + prefix, name.begin() + prefix + kDigits,
                     [](char c) { return c >= '0' && c <= '9'; });
}

std::vector<std::string> ListSegments(int dir_fd) {
  std::vector<std::string> names;
  const int fd = openat(dir_fd, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (fd < 0) return names;
  DIR* dir = fdopendir(fd);
  if (dir == nullptr) {
    close(fd);
    return names;
  }
  while (const dirent* entry = readdir(dir)) {
    if (IsSegmentName(entry->d_name)) names.emplace_back(entry->d_name);
  }
  closedir(dir);
  std::sort(names.begin(), names.end());
  return names;
}

}  // namespace zefo::record::detail
