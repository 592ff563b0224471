#ifndef ZEFO_SRC_CORE_PATH_JOIN_H_
#define ZEFO_SRC_CORE_PATH_JOIN_H_

#include <string>
#include <string_view>

namespace zefo {
namespace detail {

// Writes KernelPaths::Join(base, rel) into `out`, reusing its storage: the per-process readers
// build thousands of paths a pass, and a path past the short-string size would otherwise cost a
// heap allocation each time.
void AssignJoined(std::string& out, std::string_view base, std::string_view rel);

}  // namespace detail
}  // namespace zefo

#endif  // ZEFO_SRC_CORE_PATH_JOIN_H_
