#include "safe_file.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstring>

namespace zefo::tools {

namespace {

// How often a fresh random name is tried when the last one was taken.
constexpr int kNameAttempts = 16;

std::string Reason(const std::string& what, int err) {
  return what + ": " + std::strerror(err);
}

// 16 hex digits from the kernel's random pool. Even a guessed name gains an attacker nothing
// (creation is exclusive); unpredictable names only keep them from making us retry.
std::string RandomSuffix() {
  uint64_t bits = 0;
  if (getrandom(&bits, sizeof bits, GRND_NONBLOCK) != static_cast<ssize_t>(sizeof bits)) {
    struct timespec now {};
    clock_gettime(CLOCK_MONOTONIC, &now);
    static uint64_t counter = 0;
    bits = (static_cast<uint64_t>(now.tv_nsec) << 20) ^ static_cast<uint64_t>(getpid()) ^
           (++counter * 0x9E3779B97F4A7C15ULL);
  }
  static const char kHex[] = "0123456789abcdef";
  std::string out(16, '0');
  for (char& c : out) {
    c = kHex[bits & 0xF];
    bits >>= 4;
  }
  return out;
}

int CloseKeepingErrno(int fd) {
  const int saved = errno;
  close(fd);
  errno = saved;
  return -1;
}

// Gives the unnamed file `fd` the name `name` in `dir_fd`. AT_EMPTY_PATH needs a capability
// most processes lack; the /proc/self/fd form works for any process that owns the descriptor.
bool LinkUnnamed(int fd, int dir_fd, const std::string& name) {
  if (linkat(fd, "", dir_fd, name.c_str(), AT_EMPTY_PATH) == 0) return true;
  if (errno == EEXIST) return false;
  const std::string self = "/proc/self/fd/" + std::to_string(fd);
  return linkat(AT_FDCWD, self.c_str(), dir_fd, name.c_str(), AT_SYMLINK_FOLLOW) == 0;
}

bool WriteAll(int fd, std::string_view text) {
  while (!text.empty()) {
    const ssize_t n = write(fd, text.data(), text.size());
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) {
      if (n == 0) errno = EIO;
      return false;
    }
    text.remove_prefix(static_cast<std::size_t>(n));
  }
  return true;
}

}  // namespace

void SplitPath(const std::string& path, std::string& dir, std::string& name) {
  const std::size_t slash = path.rfind('/');
  if (slash == std::string::npos) {
    dir.clear();
    name = path;
    return;
  }
  dir = slash == 0 ? "/" : path.substr(0, slash);
  name = path.substr(slash + 1);
}

SafeDir::~SafeDir() {
  if (fd_ >= 0) close(fd_);
}

SafeDir::SafeDir(SafeDir&& other) noexcept
    : fd_(other.fd_),
      path_(std::move(other.path_)),
      shared_(other.shared_),
      unnamed_temps_(other.unnamed_temps_) {
  other.fd_ = -1;
}

SafeDir& SafeDir::operator=(SafeDir&& other) noexcept {
  if (this != &other) {
    if (fd_ >= 0) close(fd_);
    fd_ = other.fd_;
    path_ = std::move(other.path_);
    shared_ = other.shared_;
    unnamed_temps_ = other.unnamed_temps_;
    other.fd_ = -1;
  }
  return *this;
}

std::string SafeDir::TempPrefix(const std::string& name) {
  return "." + name + ".tmp-";
}

std::string SafeDir::Shown(std::string_view name) const {
  if (name.empty()) return path_.empty() ? "." : path_;
  if (path_.empty()) return std::string(name);
  return path_ + (path_.back() == '/' ? "" : "/") + std::string(name);
}

std::string SafeDir::Open(const std::string& path) {
  if (fd_ >= 0) close(fd_);
  path_ = path;
  const std::string shown = path.empty() ? "." : path;
  fd_ = open(shown.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (fd_ < 0) return Reason("cannot create files in " + shown, errno);
  struct stat st {};
  if (fstat(fd_, &st) != 0) return Reason("cannot examine " + shown, errno);
  // Others may add and remove names when they can write here, or when the directory is theirs.
  shared_ = (st.st_mode & (S_IWGRP | S_IWOTH)) != 0 || (st.st_uid != geteuid() && st.st_uid != 0);

  // An unnamed temporary vanishes with the process however it ends; use one where the file
  // system has them and we can give them a name.
  unnamed_temps_ = false;
  const int probe = openat(fd_, ".", O_TMPFILE | O_WRONLY | O_CLOEXEC, 0600);
  if (probe >= 0) {
    const std::string name = ".zefo-probe-" + RandomSuffix();
    if (LinkUnnamed(probe, fd_, name)) {
      unlinkat(fd_, name.c_str(), 0);
      unnamed_temps_ = true;
    }
    close(probe);
    if (unnamed_temps_) return std::string();
  } else if (errno == EACCES || errno == EROFS || errno == EPERM) {
    return Reason("cannot create files in " + shown, errno);
  }
  std::string error;
  const std::string name = TempPrefix("zefo-probe") + RandomSuffix();
  const int fd = CreateExclusive(name, 0600, error);
  if (fd < 0) return "cannot create files in " + shown + ": " + error;
  close(fd);
  unlinkat(fd_, name.c_str(), 0);
  return std::string();
}

int SafeDir::CreateExclusive(const std::string& name, mode_t mode, std::string& error) const {
  const int fd =
      openat(fd_, name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, mode);
  if (fd < 0) error = std::strerror(errno);
  return fd;
}

int SafeDir::OpenOwned(const std::string& name, int flags, mode_t mode, std::string& error) const {
  // O_TRUNC waits until the file is known to be ours; O_NONBLOCK keeps a planted FIFO from
  // holding the open.
  const bool truncate = (flags & O_TRUNC) != 0;
  const int fd = openat(fd_, name.c_str(),
                        (flags & ~O_TRUNC) | O_NOFOLLOW | O_CLOEXEC | O_NOCTTY | O_NONBLOCK, mode);
  if (fd < 0) {
    error = Reason("cannot open " + Shown(name), errno);
    return -1;
  }
  struct stat st {};
  if (fstat(fd, &st) != 0) {
    error = Reason("cannot examine " + Shown(name), errno);
    return CloseKeepingErrno(fd);
  }
  if (!S_ISREG(st.st_mode)) {
    error = Shown(name) + " is not a regular file";
    return CloseKeepingErrno(fd);
  }
  // In a shared directory, a file someone else made (or a second name of a file elsewhere)
  // may be bait: writing to it would write where they chose.
  if (shared_ && (st.st_uid != geteuid() || st.st_nlink != 1)) {
    error = "refusing to use " + Shown(name) +
            ": it belongs to another user or has other names, in a directory others can write to";
    return CloseKeepingErrno(fd);
  }
  fcntl(fd, F_SETFL, fcntl(fd, F_GETFL) & ~O_NONBLOCK);
  if (truncate && ftruncate(fd, 0) != 0) {
    error = Reason("cannot truncate " + Shown(name), errno);
    return CloseKeepingErrno(fd);
  }
  return fd;
}

std::string SafeDir::CheckReplaceable(const std::string& name) const {
  struct stat st {};
  if (fstatat(fd_, name.c_str(), &st, AT_SYMLINK_NOFOLLOW) != 0) return std::string();
  if (S_ISDIR(st.st_mode)) return Shown(name) + " is a directory";
  if (!shared_) return std::string();
  if (S_ISLNK(st.st_mode)) {
    return "refusing to replace " + Shown(name) +
           ": it is a symbolic link, in a directory other users can write to";
  }
  if (st.st_uid != geteuid()) {
    return "refusing to replace " + Shown(name) + ": it belongs to another user (uid " +
           std::to_string(st.st_uid) + "), in a directory other users can write to";
  }
  return std::string();
}

int SafeDir::CreateTemp(const std::string& name, mode_t mode, std::string& temp,
                        std::string& error) const {
  temp.clear();
  if (unnamed_temps_) {
    const int fd = openat(fd_, ".", O_TMPFILE | O_WRONLY | O_CLOEXEC, mode);
    if (fd >= 0) return fd;
    // Fall through to a named one: the file system may have changed under us.
  }
  for (int attempt = 0; attempt < kNameAttempts; ++attempt) {
    temp = TempPrefix(name) + RandomSuffix();
    const int fd = CreateExclusive(temp, mode, error);
    if (fd >= 0 || errno != EEXIST) return fd;
  }
  return -1;
}

std::string SafeDir::Replace(const std::string& name, std::string_view text, mode_t mode) const {
  std::string temp, error;
  const int fd = CreateTemp(name, mode, temp, error);
  if (fd < 0) return "cannot create a temporary file in " + Shown("") + ": " + error;
  if (!WriteAll(fd, text)) {
    error = Reason("cannot write " + Shown(name), errno);
  } else if (temp.empty()) {
    // Unnamed: it gets a random name for the moment between the link and the rename.
    for (int attempt = 0; attempt < kNameAttempts && temp.empty(); ++attempt) {
      const std::string candidate = TempPrefix(name) + RandomSuffix();
      if (LinkUnnamed(fd, fd_, candidate)) {
        temp = candidate;
      } else if (errno != EEXIST) {
        error = Reason("cannot link a temporary file in " + Shown(""), errno);
        break;
      }
    }
    if (temp.empty() && error.empty()) error = "cannot name a temporary file in " + Shown("");
  }
  if (close(fd) != 0 && error.empty()) error = Reason("cannot write " + Shown(name), errno);
  if (error.empty()) error = CheckReplaceable(name);
  if (error.empty() && renameat(fd_, temp.c_str(), fd_, name.c_str()) != 0) {
    error = Reason("cannot rename a temporary file to " + Shown(name), errno);
  }
  if (!error.empty() && !temp.empty()) unlinkat(fd_, temp.c_str(), 0);
  return error;
}

void SafeDir::RemoveStaleTemporaries(const std::string& name, std::chrono::seconds age) const {
  const int fd = dup(fd_);
  if (fd < 0) return;
  DIR* dir = fdopendir(fd);
  if (dir == nullptr) {
    close(fd);
    return;
  }
  rewinddir(dir);
  const std::string prefix = TempPrefix(name);
  const time_t now = time(nullptr);
  while (const struct dirent* entry = readdir(dir)) {
    if (std::strncmp(entry->d_name, prefix.c_str(), prefix.size()) != 0) continue;
    struct stat st {};
    if (fstatat(fd_, entry->d_name, &st, AT_SYMLINK_NOFOLLOW) != 0) continue;
    if (S_ISREG(st.st_mode) && st.st_uid == geteuid() && now - st.st_mtime > age.count()) {
      unlinkat(fd_, entry->d_name, 0);
    }
  }
  closedir(dir);
}

}  // namespace zefo::tools
