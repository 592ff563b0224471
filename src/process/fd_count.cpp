#include "process/fd_count.h"

#include <dirent.h>
#include <sys/stat.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "core/file_reader.h"

namespace zefo::detail {

namespace {

// Bits of CapEff: CAP_DAC_OVERRIDE (1) and CAP_DAC_READ_SEARCH (2) each let a process list a
// directory whatever its permissions.
constexpr unsigned long long kDacCapabilities = (1ULL << 1) | (1ULL << 2);

bool MayBypassDirectoryPermissions(const std::string& procfs) {
  std::string status;
  ReadWholeFile(procfs + "/self/status", status);
  const char* line = std::strstr(status.c_str(), "\nCapEff:");
  if (line == nullptr) return false;
  unsigned long long effective = 0;
  if (std::sscanf(line, "\nCapEff: %llx", &effective) != 1) return false;
  return (effective & kDacCapabilities) != 0;
}

}  // namespace

bool ReleaseAtLeast(const char* release, int major, int minor) {
  int have_major = 0;
  int have_minor = 0;
  if (std::sscanf(release, "%d.%d", &have_major, &have_minor) != 2) return false;
  return have_major > major || (have_major == major && have_minor >= minor);
}

FdSizeRule DetectFdSizeRule(const std::string& procfs) {
  FdSizeRule rule;
  rule.euid = geteuid();
  struct utsname name;
  if (uname(&name) != 0 || !ReleaseAtLeast(name.release, 6, 2)) return rule;
  struct stat st;
  const std::string self = procfs + "/self/fd";
  if (stat(self.c_str(), &st) != 0 || st.st_size <= 0) return rule;
  rule.size_is_count = true;
  rule.lists_any = rule.euid == 0 && MayBypassDirectoryPermissions(procfs);
  return rule;
}

long long ListFdCount(const std::string& dir) {
  long long count = 0;
  DIR* handle = opendir(dir.c_str());
  if (handle == nullptr) return 0;
  while (const struct dirent* entry = readdir(handle)) {
    if (entry->d_name[0] != '.') ++count;
  }
  closedir(handle);
  return count;
}

long long FdCount(const std::string& dir, const FdSizeRule& rule, bool own) {
  if (!rule.size_is_count || own) return ListFdCount(dir);
  struct stat st;
  // Gone since its other files were read: listing would fail too.
  if (stat(dir.c_str(), &st) != 0) return 0;
  // The directory's owner may list it (its mode is r-x for the owner only); a process that is
  // not dumpable has root as the owner.
  if (rule.lists_any || st.st_uid == rule.euid) return static_cast<long long>(st.st_size);
  return ListFdCount(dir);
}

}  // namespace zefo::detail
