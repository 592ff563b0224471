#ifndef ZEFO_RECORD_RECORDER_H_
#define ZEFO_RECORD_RECORDER_H_

#include <cstdint>
#include <memory>
#include <string>

#include "zefo/format/snapshot.h"
#include "zefo/zefo_export.h"

namespace zefo::record {

/// How a Recorder keeps its store. A plain value.
struct ZEFO_EXPORT RecorderOptions {
  /// The store never holds more than this many bytes: the oldest segments go first.
  uint64_t max_bytes = uint64_t{64} << 20;
  /// Segments whose newest pass is older than this (milliseconds) are removed.
  uint64_t max_age_ms = uint64_t{7} * 24 * 3600 * 1000;
  /// Every this many passes a record holds the whole pass rather than the changes since the
  /// previous one, so damage costs at most the passes up to the next such key frame.
  uint32_t key_frame_interval = 60;
  /// Each pass is written to the kernel at once (a killed recorder loses at most the pass being
  /// written); it reaches the storage at least this often (milliseconds; a power cut loses at
  /// most this much), and whenever a segment is closed.
  uint64_t sync_interval_ms = 60 * 1000;
  /// zstd level of each record.
  int compression_level = 9;
};

/// Appends passes to a store directory: segment files of checksummed, compressed records,
/// append-only, bounded in size and age, guarded by a lock so that one recorder at a time
/// writes there. Replay them with `zefo::record::Replay`. One thread at a time may use a
/// Recorder; it never throws.
class ZEFO_EXPORT Recorder {
 public:
  explicit Recorder(const RecorderOptions& options = RecorderOptions());
  ~Recorder();
  Recorder(const Recorder&) = delete;
  Recorder& operator=(const Recorder&) = delete;

  /// Takes the store in `dir` (created if missing) and its lock. "" or what is wrong (another
  /// recorder holds the lock, the directory cannot be written, a planted symbolic link).
  std::string Open(const std::string& dir);
  /// Records one pass. "" or what is wrong; the recorder carries on with the next pass.
  std::string Append(const format::Snapshot& pass);
  /// Hands what was written to the storage, closes the segment and releases the lock.
  void Close();

  /// Bytes of the segment files in the store, as the recorder counts them.
  uint64_t StoreBytes() const;

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace zefo::record

#endif  // ZEFO_RECORD_RECORDER_H_
