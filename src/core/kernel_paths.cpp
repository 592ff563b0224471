#include "zefo/kernel_paths.h"

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
  while (!rel.empty() && rel.front() == '/') rel.remove_prefix(1);
  std::string joined(base);
  if (rel.empty()) return joined.empty() ? "/" : joined;
  if (joined.empty() || joined.back() != '/') joined += '/';
  joined.append(rel);
  return joined;
}

}  // namespace zefo
