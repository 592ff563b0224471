#ifndef ZEFO_ZEFO_UTILS_H_
#define ZEFO_ZEFO_UTILS_H_

#include <string>

#include "zefo/zefo_export.h"

namespace zefo {
namespace common {
namespace util {

/// True if `path` names an existing file system object (a dangling link does not count).
/// Thread-safe.
ZEFO_EXPORT bool PathExists(const std::string& path);

/// True if `text` is a non-empty run of the decimal digits 0-9. Thread-safe.
ZEFO_EXPORT bool IsNumeric(const std::string& text);

}  // namespace util
}  // namespace common
}  // namespace zefo

#endif  // ZEFO_ZEFO_UTILS_H_
