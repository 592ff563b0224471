#include "pass_store.h"

#include <utility>
#include <vector>

namespace zefo::cli {

void PassStore::Publish(std::shared_ptr<const format::Snapshot> pass) {
  PassFigures figures = ChartFigures(*pass);
  std::lock_guard<std::mutex> lock(mutex_);
  latest_ = std::move(pass);
  history_.Push(std::move(figures));
}

std::string PassStore::History(double seconds) const {
  std::vector<PassHistory::Entry> entries;
  HistoryFacts facts;
  {
    // Copied under the lock (values and shared key lists), written out after it.
    std::lock_guard<std::mutex> lock(mutex_);
    entries = history_.Query(seconds);
    facts = {history_.window_ms(), history_.budget_bytes(), history_.bytes(), period_ms_};
  }
  return HistoryJson(entries, facts);
}

}  // namespace zefo::cli
