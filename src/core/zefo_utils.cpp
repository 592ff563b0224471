#include "zefo/zefo_utils.h"

#include <sys/stat.h>

namespace zefo {
namespace common {
namespace util {

bool PathExists(const std::string& path) {
  struct stat st;
  return !path.empty() && ::stat(path.c_str(), &st) == 0;
}

bool IsNumeric(const std::string& text) {
  if (text.empty()) return false;
  for (char c : text) {
    if (c < '0' || c > '9') return false;
  }
  return true;
}

}  // namespace util
}  // namespace common
}  // namespace zefo
