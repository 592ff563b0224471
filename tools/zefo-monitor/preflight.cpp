#include "preflight.h"

#include <sys/stat.h>
#include <sys/vfs.h>

namespace zefo::cli {

namespace {

// The f_type values statfs gives for the file systems a running board mounts at these roots
// (linux/magic.h); /dev is devtmpfs, which reports itself as tmpfs, or ramfs without tmpfs.
constexpr long kProcMagic = 0x9fa0;
constexpr long kSysfsMagic = 0x62656572;
constexpr long kTmpfsMagic = 0x01021994;
constexpr long kRamfsMagic = 0x858458f6;

struct Root {
  const char* flag;
  const std::string* dir;
  const char* file_system;
  long magic;
  long other_magic;
};

void CheckRoot(const Root& root, std::vector<std::string>& notes) {
  const std::string where = std::string(root.flag) + " " + *root.dir;
  struct stat st;
  if (stat(root.dir->c_str(), &st) != 0 || !S_ISDIR(st.st_mode)) {
    notes.push_back(where + ": no such directory; the figures read from it will be missing");
    return;
  }
  struct statfs fs;
  if (statfs(root.dir->c_str(), &fs) != 0) return;
  const long type = static_cast<long>(fs.f_type);
  if (type != root.magic && type != root.other_magic) {
    notes.push_back(where + ": not a " + root.file_system +
                    " file system; reading it as a saved tree");
  }
}

}  // namespace

std::vector<std::string> MissingDataNotes(const Options& options) {
  std::vector<std::string> notes;
  const KernelPaths& paths = options.paths;
  CheckRoot({"--procfs", &paths.procfs, "proc", kProcMagic, kProcMagic}, notes);
  if (options.pids.empty()) {
    // Only the process monitor runs with --pid; it reads nothing but the proc root.
    CheckRoot({"--sysfs", &paths.sysfs, "sysfs", kSysfsMagic, kSysfsMagic}, notes);
    CheckRoot({"--devfs", &paths.devfs, "devtmpfs", kTmpfsMagic, kRamfsMagic}, notes);
  }
  for (const std::string& pid : options.pids) {
    struct stat st;
    if (stat(paths.Proc(pid).c_str(), &st) != 0) {
      notes.push_back("--pid " + pid + ": no such process; it has no figures until one appears");
    }
  }
  return notes;
}

}  // namespace zefo::cli
