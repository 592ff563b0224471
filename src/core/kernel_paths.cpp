#include "zefo/kernel_paths.h"

#include "core/path_join.h"

namespace zefo {

KernelPaths KernelPaths::UnderRoot(const std::string& root) {
  KernelPaths paths;
  paths.procfs = Join(root, "proc");
  paths.sysfs = Join(root, "sys");
  paths.devfs = Join(root, "dev");
  paths.regdir = Join(root, "reg");
  paths.rootfs = Join(root, "rootfs");
  return paths;
}

std::string KernelPaths::Join(std::string_view base, std::string_view rel) {
  std::string joined;
  detail::AssignJoined(joined, base, rel);
  return joined;
}

namespace detail {

void AssignJoined(std::string& out, std::string_view base, std::string_view rel) {
  while (!rel.empty() && rel.front() == '/') rel.remove_prefix(1);
  out.assign(base);
  if (rel.empty()) {
    if (out.empty()) out = "/";
    return;
  }
  if (out.empty() || out.back() != '/') out += '/';
  out.append(rel);
}

}  // namespace detail
}  // namespace zefo
