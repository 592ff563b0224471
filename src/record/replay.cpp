#include "zefo/record/replay.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <optional>

#include "record/pass_codec.h"
#include "record/segment.h"
#include "record/store_dir.h"

namespace zefo::record {

namespace {

// The whole file; segments are a few MiB at most.
bool ReadFile(int dir_fd, const std::string& name, std::string& out) {
  const int fd = openat(dir_fd, name.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC);
  if (fd < 0) return false;
  out.clear();
  char buffer[1 << 16];
  for (;;) {
    const ssize_t n = read(fd, buffer, sizeof buffer);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) {
      close(fd);
      return false;
    }
    if (n == 0) break;
    out.append(buffer, static_cast<std::size_t>(n));
  }
  close(fd);
  return true;
}

}  // namespace

ReplaySummary Replay(const std::string& dir, const ReplayRange& range,
                     const std::function<bool(const format::Snapshot&)>& on_pass,
                     const std::function<void(const std::string&)>& on_problem) {
  ReplaySummary summary;
  const int dir_fd = open(dir.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (dir_fd < 0) {
    summary.error = "cannot open " + dir + ": " + std::strerror(errno);
    return summary;
  }
  const std::vector<std::string> names = detail::ListSegments(dir_fd);
  if (names.empty()) summary.error = dir + " holds no recording";
  std::string file, raw;
  format::Snapshot pass;
  bool stop = false;
  for (const std::string& name : names) {
    if (stop) break;
    const std::string path = dir + "/" + name;
    if (!ReadFile(dir_fd, name, file)) {
      on_problem(path + ": " + std::strerror(errno) + "; skipped");
      ++summary.damaged;
      continue;
    }
    detail::SegmentInfo info;
    switch (detail::ParseSegmentHeader(file, info)) {
      case detail::HeaderStatus::kOk:
        break;
      case detail::HeaderStatus::kNewer:
        summary.error = path + " was recorded in store version " + std::to_string(info.version) +
                        ", newer than this build reads (up to " +
                        std::to_string(detail::kStoreVersion) +
                        "); replay it with a newer zefo-monitor";
        stop = true;
        continue;
      case detail::HeaderStatus::kTorn:
        // An empty file: a recorder stopped right after creating it; nothing was lost.
        if (file.empty()) continue;
        [[fallthrough]];
      default:
        on_problem(path + ": damaged segment header; segment skipped");
        ++summary.damaged;
        continue;
    }
    const detail::LayoutMap map = detail::MapLayout(info.layout);
    std::optional<format::Snapshot> previous;
    std::size_t pos = info.header_bytes;
    detail::RecordView record;
    for (;;) {
      const std::size_t at = pos;
      const detail::RecordStatus status = detail::NextRecord(file, pos, record);
      if (status == detail::RecordStatus::kEnd) break;
      if (status == detail::RecordStatus::kTorn) {
        on_problem(path + ": record at byte " + std::to_string(at) +
                   " was cut short (the recorder stopped while writing it); skipped");
        ++summary.damaged;
        break;
      }
      const bool key = (record.flags & detail::kKeyFrame) != 0;
      if (status == detail::RecordStatus::kOk && !key && !previous)
        continue;  // lost with a damaged one
      if (status == detail::RecordStatus::kOk && detail::Decompress(record.payload, raw) &&
          detail::DecodePass(raw, map, key ? nullptr : &*previous, pass)) {
        previous = pass;
        ++summary.readable;
        if (pass.update_time < range.from_ms || pass.update_time > range.to_ms) continue;
        ++summary.passes;
        if (!on_pass(pass)) {
          stop = true;
          break;
        }
        continue;
      }
      on_problem(path + ": damaged record at byte " + std::to_string(at) +
                 "; skipped with the passes after it up to the next key frame");
      ++summary.damaged;
      previous.reset();
    }
  }
  close(dir_fd);
  return summary;
}

}  // namespace zefo::record
