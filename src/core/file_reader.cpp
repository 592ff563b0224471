#include "core/file_reader.h"

#include <fcntl.h>
#include <linux/magic.h>
#include <sys/stat.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

namespace zefo {
namespace detail {

namespace {

ReadStatus StatusOfErrno(int err) {
  switch (err) {
    case ENOENT:
    case ENOTDIR:
      return ReadStatus::kMissing;
    case EACCES:
    case EPERM:
      return ReadStatus::kDenied;
    case ELOOP:  // O_NOFOLLOW met a link
    case ENXIO:  // a socket or a device without a driver
    case EISDIR:
      return ReadStatus::kNotRegular;
    default:
      return ReadStatus::kError;
  }
}

class Descriptor {
 public:
  explicit Descriptor(int fd) : fd_(fd) {}
  ~Descriptor() {
    if (fd_ >= 0) ::close(fd_);
  }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  int get() const { return fd_; }

 private:
  int fd_;
};

// Most kernel files fit in one page; read in page-sized steps.
constexpr std::size_t kChunk = 4096;

}  // namespace

ReadStatus ReadWholeFile(const std::string& path, std::string& out, FollowLinks follow,
                         FileKind kind, std::size_t max_bytes) {
  out.clear();
  int flags = O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY;
  if (follow == FollowLinks::kNo) flags |= O_NOFOLLOW;
  int fd;
  do {
    fd = ::open(path.c_str(), flags);
  } while (fd < 0 && errno == EINTR);
  if (fd < 0) return StatusOfErrno(errno);
  Descriptor file(fd);

  if (kind == FileKind::kCheckRegular) {
    struct stat st;
    if (::fstat(file.get(), &st) != 0) return ReadStatus::kError;
    if (!S_ISREG(st.st_mode)) return ReadStatus::kNotRegular;
  }

  // Read through a stack chunk and append: the string keeps its capacity from file to file and
  // is never zero-filled ahead of the read (growing a string with resize() would write every
  // byte twice).
  char chunk[kChunk];
  std::size_t length = 0;
  while (length < max_bytes) {
    const std::size_t want = std::min(kChunk, max_bytes - length);
    const ssize_t got = ::read(file.get(), chunk, want);
    if (got < 0) {
      if (errno == EINTR) continue;
      // A read that fails part-way leaves no text worth trusting: give the file up.
      out.clear();
      return ReadStatus::kError;
    }
    if (got == 0) return ReadStatus::kOk;
    out.append(chunk, static_cast<std::size_t>(got));
    length += static_cast<std::size_t>(got);
  }
  // At the cap: one more byte tells whether the file really goes on.
  char probe;
  ssize_t more;
  do {
    more = ::read(file.get(), &probe, 1);
  } while (more < 0 && errno == EINTR);
  if (more <= 0) return ReadStatus::kOk;
  const std::size_t last_newline = out.rfind('\n');
  out.resize(last_newline == std::string::npos ? 0 : last_newline + 1);
  return ReadStatus::kTruncated;
}

bool IsProcfsMount(const std::string& dir) {
  struct statfs fs;
  return ::statfs(dir.c_str(), &fs) == 0 && fs.f_type == PROC_SUPER_MAGIC;
}

}  // namespace detail
}  // namespace zefo
