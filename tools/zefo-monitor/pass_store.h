#ifndef ZEFO_TOOLS_ZEFO_MONITOR_PASS_STORE_H_
#define ZEFO_TOOLS_ZEFO_MONITOR_PASS_STORE_H_

#include <cstdint>
#include <memory>
#include <mutex>
#include <string>

#include "pass_history.h"
#include "zefo/format/snapshot.h"

namespace zefo::cli {

// The newest pass and the charted figures of the recent ones, handed from the sampling loop to
// the HTTP handlers. Publish, Latest and History may be called from any thread; a reader keeps
// the pass it got alive for as long as it needs it, and formats it without holding anything.
class PassStore {
 public:
  // Keeps the figures of the passes of the last `history_ms` (at most `budget_bytes` of them);
  // `period_ms` is the sampling period, told to the dashboard.
  PassStore(int period_ms, uint64_t history_ms, std::size_t budget_bytes)
      : period_ms_(period_ms), history_(history_ms, budget_bytes) {}

  void Publish(std::shared_ptr<const format::Snapshot> pass);
  // Null before the first pass.
  std::shared_ptr<const format::Snapshot> Latest() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return latest_;
  }
  // The passes of the last `seconds` seconds as HistoryJson writes them.
  std::string History(double seconds) const;

 private:
  mutable std::mutex mutex_;
  std::shared_ptr<const format::Snapshot> latest_;
  const int period_ms_;
  PassHistory history_;
};

}  // namespace zefo::cli

#endif  // ZEFO_TOOLS_ZEFO_MONITOR_PASS_STORE_H_
