#ifndef ZEFO_RECORD_REPLAY_H_
#define ZEFO_RECORD_REPLAY_H_

#include <cstdint>
#include <functional>
#include <limits>
#include <string>

#include "zefo/format/snapshot.h"
#include "zefo/zefo_export.h"

namespace zefo::record {

/// Which passes to replay: those whose update_time lies in [from_ms, to_ms].
struct ZEFO_EXPORT ReplayRange {
  uint64_t from_ms = 0;
  uint64_t to_ms = std::numeric_limits<uint64_t>::max();
};

struct ZEFO_EXPORT ReplaySummary {
  /// Passes handed to the callback.
  uint64_t passes = 0;
  /// Records that decoded, in the range or not.
  uint64_t readable = 0;
  /// Damaged or cut-short records and segment headers that were skipped.
  uint64_t damaged = 0;
  /// Why the replay stopped early (a segment of a newer store version, no such directory);
  /// empty when it read everything it could.
  std::string error;
};

/// Reads the store a Recorder wrote in `dir`, oldest pass first, and hands each pass in `range`
/// to `on_pass` (return false to stop). Damaged and cut-short records are skipped, with one line
/// each (no newline) to `on_problem`; the passes that follow a damaged one are lost up to the
/// next key frame. Safe to run while a recorder appends. Never throws.
ZEFO_EXPORT ReplaySummary Replay(const std::string& dir, const ReplayRange& range,
                                 const std::function<bool(const format::Snapshot&)>& on_pass,
                                 const std::function<void(const std::string&)>& on_problem);

}  // namespace zefo::record

#endif  // ZEFO_RECORD_REPLAY_H_
