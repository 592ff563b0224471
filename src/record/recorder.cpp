#include "zefo/record/recorder.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <optional>

#include "record/pass_codec.h"
#include "record/segment.h"
#include "record/store_dir.h"

namespace zefo::record {

namespace {

constexpr char kLockName[] = "lock";

uint64_t NowMs() {
  struct timespec now;
  clock_gettime(CLOCK_REALTIME, &now);
  return static_cast<uint64_t>(now.tv_sec) * 1000 + static_cast<uint64_t>(now.tv_nsec) / 1000000;
}

uint64_t MonotonicMs() {
  struct timespec now;
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<uint64_t>(now.tv_sec) * 1000 + static_cast<uint64_t>(now.tv_nsec) / 1000000;
}

std::string Errno(const std::string& what) {
  return what + ": " + std::strerror(errno);
}

// Writes all of `bytes` with as few write(2) calls as the kernel allows.
bool WriteAll(int fd, std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t n = write(fd, bytes.data(), bytes.size());
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return false;
    bytes.remove_prefix(static_cast<std::size_t>(n));
  }
  return true;
}

}  // namespace

struct Recorder::State {
  RecorderOptions options;
  std::string dir;
  int dir_fd = -1;
  int lock_fd = -1;
  // The segment being written.
  int segment_fd = -1;
  std::string segment_name;
  uint64_t segment_bytes = 0;
  uint64_t segment_started = 0;  // monotonic ms
  uint64_t last_sync = 0;        // monotonic ms
  // Bytes of the closed segments, by name (oldest first), and of the open one.
  uint64_t closed_bytes = 0;
  // The pass the next delta is taken against; none: the next record is a key frame.
  std::optional<format::Snapshot> previous;
  uint32_t since_key = 0;
  std::string raw;

  // A segment is closed at an eighth of the size or age bound, so that removing the oldest
  // one frees at most an eighth of the store.
  uint64_t SegmentBytesLimit() const {
    return std::clamp<uint64_t>(options.max_bytes / 8, 64 << 10, 8 << 20);
  }
  uint64_t SegmentAgeLimit() const { return std::max<uint64_t>(options.max_age_ms / 8, 1000); }

  void CloseSegment() {
    if (segment_fd < 0) return;
    fdatasync(segment_fd);
    close(segment_fd);
    segment_fd = -1;
    closed_bytes += segment_bytes;
    segment_bytes = 0;
    previous.reset();
  }

  // Removes the oldest closed segments while the store is over its size, and those last
  // written before the age bound.
  void Prune() {
    const std::vector<std::string> names = detail::ListSegments(dir_fd);
    uint64_t total = segment_bytes;
    struct Entry {
      std::string name;
      uint64_t bytes;
      int64_t mtime;
    };
    std::vector<Entry> closed;
    for (const std::string& name : names) {
      if (name == segment_name && segment_fd >= 0) continue;
      struct stat st;
      if (fstatat(dir_fd, name.c_str(), &st, AT_SYMLINK_NOFOLLOW) != 0) continue;
      closed.push_back({name, static_cast<uint64_t>(st.st_size), st.st_mtime});
      total += static_cast<uint64_t>(st.st_size);
    }
    const int64_t oldest_kept =
        static_cast<int64_t>(NowMs() / 1000) - static_cast<int64_t>(options.max_age_ms / 1000);
    for (const Entry& entry : closed) {
      if (total <= options.max_bytes && entry.mtime >= oldest_kept) break;
      if (unlinkat(dir_fd, entry.name.c_str(), 0) == 0) total -= entry.bytes;
    }
    closed_bytes = total - segment_bytes;
  }

  std::string OpenSegment() {
    // Named after the wall clock; a name taken already (a clock set back) moves on by a ms.
    for (uint64_t started = NowMs(), tries = 0; tries < 1000; ++started, ++tries) {
      const std::string name = detail::SegmentName(started);
      const int fd = openat(dir_fd, name.c_str(),
                            O_WRONLY | O_CREAT | O_EXCL | O_APPEND | O_NOFOLLOW | O_CLOEXEC, 0640);
      if (fd < 0 && errno == EEXIST) continue;
      if (fd < 0) return Errno("cannot create a segment in " + dir);
      const std::string header = detail::SegmentHeader(started, detail::CurrentLayout());
      if (!WriteAll(fd, header)) {
        const std::string error = Errno("cannot write " + dir + "/" + name);
        close(fd);
        unlinkat(dir_fd, name.c_str(), 0);
        return error;
      }
      segment_fd = fd;
      segment_name = name;
      segment_bytes = header.size();
      segment_started = MonotonicMs();
      previous.reset();
      Prune();
      return std::string();
    }
    return "cannot create a segment in " + dir + ": every name is taken";
  }
};

Recorder::Recorder(const RecorderOptions& options) : state_(std::make_unique<State>()) {
  state_->options = options;
}

Recorder::~Recorder() {
  Close();
}

std::string Recorder::Open(const std::string& dir) {
  Close();
  State& s = *state_;
  s.dir = dir;
  if (mkdir(dir.c_str(), 0750) != 0 && errno != EEXIST) return Errno("cannot create " + dir);
  // DIR itself may be a link (systemd's StateDirectory with DynamicUser is one); what is in it
  // is opened relative to it, never through a link.
  s.dir_fd = open(dir.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (s.dir_fd < 0) return Errno("cannot open " + dir);
  // The lock file is never followed through a link another user could have planted.
  s.lock_fd = openat(s.dir_fd, kLockName, O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0640);
  if (s.lock_fd < 0) {
    const std::string error = Errno("cannot open " + dir + "/" + kLockName);
    Close();
    return error;
  }
  if (flock(s.lock_fd, LOCK_EX | LOCK_NB) != 0) {
    const bool held = errno == EWOULDBLOCK;
    const std::string error =
        held ? "another recorder is writing to " + dir : Errno("cannot lock " + dir);
    Close();
    return error;
  }
  s.Prune();
  return std::string();
}

std::string Recorder::Append(const format::Snapshot& pass) {
  State& s = *state_;
  if (s.lock_fd < 0) return "the recorder is not open";
  const uint64_t now = MonotonicMs();
  if (s.segment_fd >= 0 && (s.segment_bytes >= s.SegmentBytesLimit() ||
                            now - s.segment_started >= s.SegmentAgeLimit())) {
    s.CloseSegment();
  }
  if (s.segment_fd < 0) {
    const std::string error = s.OpenSegment();
    if (!error.empty()) return error;
  }
  const bool key = !s.previous || s.since_key + 1 >= s.options.key_frame_interval;
  s.raw.clear();
  detail::EncodePass(key ? nullptr : &*s.previous, pass, s.raw);
  const std::string record = detail::FrameRecord(
      key ? detail::kKeyFrame : 0, detail::Compress(s.raw, s.options.compression_level));
  if (!WriteAll(s.segment_fd, record)) {
    // What reached the file is a torn record the replayer skips; start afresh with a key frame.
    const std::string error = Errno("cannot write " + s.dir + "/" + s.segment_name);
    s.previous.reset();
    return error;
  }
  s.segment_bytes += record.size();
  s.since_key = key ? 0 : s.since_key + 1;
  s.previous = pass;
  if (now - s.last_sync >= s.options.sync_interval_ms) {
    fdatasync(s.segment_fd);
    s.last_sync = now;
  }
  if (s.closed_bytes + s.segment_bytes > s.options.max_bytes) s.Prune();
  return std::string();
}

void Recorder::Close() {
  State& s = *state_;
  s.CloseSegment();
  s.segment_name.clear();
  if (s.lock_fd >= 0) close(s.lock_fd);
  if (s.dir_fd >= 0) close(s.dir_fd);
  s.lock_fd = s.dir_fd = -1;
  s.closed_bytes = 0;
}

uint64_t Recorder::StoreBytes() const {
  return state_->closed_bytes + state_->segment_bytes;
}

}  // namespace zefo::record
