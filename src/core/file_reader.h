#ifndef ZEFO_SRC_CORE_FILE_READER_H_
#define ZEFO_SRC_CORE_FILE_READER_H_

#include <cstddef>
#include <list>
#include <string>
#include <string_view>

#include "core/lines.h"

namespace zefo {
namespace detail {

/// The most one file may contribute. Larger than any real proc or sys file the monitors read
/// (a /proc/mounts with thousands of mounts is well under 1 MiB); a file past it — a huge or
/// endless one planted where a kernel file should be — is cut at its last whole line within it.
constexpr std::size_t kMaxFileBytes = 4u << 20;

/// The most a process registration file (its name or its pid) may hold. Anyone may write
/// there, for any process; a longer file is no registration.
constexpr std::size_t kMaxRegistrationFileBytes = 4096;

/// Why a read gave nothing, sorted by kind so tools can tell a missing source from a broken one.
enum class ReadStatus {
  kOk,
  kTruncated,   // the file was longer than the cap; whole lines up to the cap were kept
  kMissing,     // no such file (or a component of the path is missing)
  kDenied,      // no permission
  kNotRegular,  // a FIFO, device, socket, directory, or a link where none is allowed
  kError,       // any other failure of open or read
};

enum class FollowLinks { kYes, kNo };

/// How a file's type is made sure of before it is read.
enum class FileKind {
  /// fstat after the open; anything but a regular file (a FIFO, a device) is refused.
  kCheckRegular,
  /// No fstat: the caller has made sure that the path is a per-process file (stat, status ...)
  /// of a real procfs mount (see IsProcfsMount), where the kernel makes every such file a
  /// regular file and nobody without privilege can put anything else in its place. Saves one
  /// system call per file on the hottest path.
  kProcfsFile,
};

/// Reads a whole regular file into `out` (replacing its contents). Opens non-blocking and
/// close-on-exec, refuses anything but a regular file, loops over short reads and EINTR until
/// end of file, and stops at `max_bytes` (kMaxFileBytes unless the caller knows its file is
/// smaller). With FollowLinks::kNo a symbolic link at the last component is refused.
ReadStatus ReadWholeFile(const std::string& path, std::string& out,
                         FollowLinks follow = FollowLinks::kYes,
                         FileKind kind = FileKind::kCheckRegular,
                         std::size_t max_bytes = kMaxFileBytes);

/// Whether `dir` is the root of a procfs mount (statfs says so; symbolic links followed).
bool IsProcfsMount(const std::string& dir);

}  // namespace detail
}  // namespace zefo

#endif  // ZEFO_SRC_CORE_FILE_READER_H_
