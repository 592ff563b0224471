// Counting a process's open descriptors cheaply: since Linux 6.2 the kernel gives the count as
// the size of /proc/<pid>/fd, so one stat() replaces listing the directory.
#ifndef ZEFO_SRC_PROCESS_FD_COUNT_H_
#define ZEFO_SRC_PROCESS_FD_COUNT_H_

#include <sys/types.h>

#include <string>

namespace zefo::detail {

// Whether a kernel release string ("6.2.0-rc1", "5.10.110-rt63") is `major`.`minor` or later.
bool ReleaseAtLeast(const char* release, int major, int minor);

// What one process may learn from the size of fd directories under a real procfs root.
struct FdSizeRule {
  // The running kernel gives the count as the size.
  bool size_is_count = false;
  // This process may list every process's fd directory (root with the capability to bypass
  // directory permissions); otherwise only those owned by `euid`.
  bool lists_any = false;
  uid_t euid = 0;
};

// Asks the kernel once: its release, this process's effective capabilities, and the size of
// `procfs`/self/fd (which must be non-zero: this process has descriptors open).
FdSizeRule DetectFdSizeRule(const std::string& procfs);

// The entries of fd directory `dir` other than "." and "..", 0 if it cannot be listed.
long long ListFdCount(const std::string& dir);

// The same figure as ListFdCount, from one stat() where `rule` allows it: the size counts the
// descriptors, and the directory is one this process may list (another user's process, whose
// directory cannot be listed, counts 0 either way). This process's own directory (`own`) is
// always listed: listing it counts the descriptor it is listed with.
long long FdCount(const std::string& dir, const FdSizeRule& rule, bool own);

}  // namespace zefo::detail

#endif  // ZEFO_SRC_PROCESS_FD_COUNT_H_
