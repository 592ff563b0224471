#ifndef ZEFO_SRC_CORE_FILE_READER_H_
#define ZEFO_SRC_CORE_FILE_READER_H_

#include <cstddef>
#include <list>
#include <string>
#include <string_view>

namespace zefo {
namespace detail {

/// The most one file may contribute. Larger than any real proc or sys file the monitors read
/// (a /proc/mounts with thousands of mounts is well under 1 MiB); a file past it — a huge or
/// endless one planted where a kernel file should be — is cut at its last whole line within it.
constexpr std::size_t kMaxFileBytes = 4u << 20;

/// Why a read gave nothing, sorted by kind so tools can tell a missing source from a broken one.
enum class ReadStatus {
  kOk,
  kTruncated,   // the file was longer than kMaxFileBytes; whole lines up to the cap were kept
  kMissing,     // no such file (or a component of the path is missing)
  kDenied,      // no permission
  kNotRegular,  // a FIFO, device, socket, directory, or a link where none is allowed
  kError,       // any other failure of open or read
};

enum class FollowLinks { kYes, kNo };

/// Reads a whole regular file into `out` (replacing its contents). Opens non-blocking and
/// close-on-exec, refuses anything but a regular file, loops over short reads and EINTR until
/// end of file, and stops at kMaxFileBytes. With FollowLinks::kNo a symbolic link at the last
/// component is refused.
ReadStatus ReadWholeFile(const std::string& path, std::string& out,
                         FollowLinks follow = FollowLinks::kYes);

/// Splits text into lines as a line reader would: newlines removed, an empty line kept as an
/// empty string, a last line without a newline kept, nothing for the empty rest after a final
/// newline. Appends to `lines`.
void SplitLines(std::string_view text, std::list<std::string>& lines);

}  // namespace detail
}  // namespace zefo

#endif  // ZEFO_SRC_CORE_FILE_READER_H_
