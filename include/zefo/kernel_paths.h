#ifndef ZEFO_KERNEL_PATHS_H_
#define ZEFO_KERNEL_PATHS_H_

#include <string>
#include <string_view>

#include "zefo/zefo_export.h"

namespace zefo {

/// Where the monitors find the kernel's files. Every file, directory and device they touch is
/// reached through one of these five roots, so a test or a replay tool can point them at a
/// fixture tree. A plain value: copy it freely, share it between threads read-only.
struct ZEFO_EXPORT KernelPaths {
  std::string procfs = "/proc";
  std::string sysfs = "/sys";
  std::string devfs = "/dev";
  /// Where other software registers process names: <regdir>/<pid>/{name,pid}.
  std::string regdir = "/tmp/zefo/proc";
  /// Prefixed to every mount point of the mount table before it is queried.
  std::string rootfs = "/";

  /// All five roots under one directory: <root>/proc, <root>/sys, <root>/dev, <root>/reg and
  /// <root>/rootfs.
  static KernelPaths UnderRoot(const std::string& root);

  /// Proc("stat") is "/proc/stat"; Proc("") is "/proc". Likewise for the other roots.
  std::string Proc(std::string_view rel) const { return Join(procfs, rel); }
  std::string Sys(std::string_view rel) const { return Join(sysfs, rel); }
  std::string Dev(std::string_view rel) const { return Join(devfs, rel); }
  std::string Reg(std::string_view rel) const { return Join(regdir, rel); }
  /// A mount point as the mount table gives it ("/boot"), seen under `rootfs`.
  std::string Root(std::string_view mount_point) const { return Join(rootfs, mount_point); }

  /// `base` + "/" + `rel`, with exactly one slash between them and none added for an empty `rel`.
  static std::string Join(std::string_view base, std::string_view rel);
};

}  // namespace zefo

#endif  // ZEFO_KERNEL_PATHS_H_
