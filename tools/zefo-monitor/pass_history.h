#ifndef ZEFO_TOOLS_ZEFO_MONITOR_PASS_HISTORY_H_
#define ZEFO_TOOLS_ZEFO_MONITOR_PASS_HISTORY_H_

#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <string>
#include <vector>

#include "zefo/format/snapshot.h"

namespace zefo::cli {

// One charted figure of a pass: the kind ("cpu"), the item's name ("cpu0"), a part of the item
// (a DDR port, "" for the item as a whole) and the figure ("busy"). `kind` and `figure` point to
// string literals.
struct SeriesKey {
  const char* kind = "";
  std::string item;
  std::string part;
  const char* figure = "";
};
bool operator==(const SeriesKey& a, const SeriesKey& b);
bool operator<(const SeriesKey& a, const SeriesKey& b);

// The figures of one pass that the dashboard charts, in the units of the JSON format (percent,
// kHz for CPUs, Hz for the BPU, bytes, bytes per second, degrees Celsius):
//   cpu/<cpu>//busy (100 less idle and iowait), cpu/<cpu>//cur_freq (CPUs that have one)
//   bpu/<core>//ratio, bpu/<core>//cur_freq
//   ddr/<device>/<port>/read|write, ddr/<device>//read|write (the device's own figures)
//   memory///used (total less free, buffers and page cache), memory///total
//   disk/<mount point>//read|write, network/<interface>//rx|tx, temperature/<zone>//celsius
struct PassFigures {
  uint64_t time = 0;  // the pass's update time, ms since the epoch
  std::vector<SeriesKey> keys;
  std::vector<float> values;  // one per key; NaN where the figure is not a number
};
PassFigures ChartFigures(const format::Snapshot& pass);

// The charted figures of the recent passes, oldest first, in a ring bounded twice: passes older
// than `window_ms` before the newest are dropped, and so are the oldest passes while the ring's
// bytes (values, series names, per-pass overhead) exceed `budget_bytes`. Consecutive passes with
// the same series share one list of keys, so a steady board costs about 4 bytes per figure and
// pass. Not thread-safe: the owner serialises Push and Query.
class PassHistory {
 public:
  using Layout = std::vector<SeriesKey>;
  struct Entry {
    uint64_t time = 0;
    std::shared_ptr<const Layout> layout;
    std::vector<float> values;
  };

  PassHistory(uint64_t window_ms, std::size_t budget_bytes);

  // Appends a pass; a pass not newer than the newest is ignored. A pass that alone exceeds the
  // budget keeps only the series that fit.
  void Push(PassFigures pass);
  // The passes of the last `seconds` seconds, counted back from the newest pass's time (so a
  // board whose clock is off still answers): those with time > newest - seconds * 1000.
  std::vector<Entry> Query(double seconds) const;

  std::size_t passes() const { return entries_.size(); }
  std::size_t bytes() const { return bytes_; }
  std::size_t budget_bytes() const { return budget_bytes_; }
  uint64_t window_ms() const { return window_ms_; }

 private:
  void PopOldest();

  uint64_t window_ms_;
  std::size_t budget_bytes_;
  std::deque<Entry> entries_;
  // Every entry's own bytes, plus each layout's once (layouts are shared only by runs of
  // consecutive entries).
  std::size_t bytes_ = 0;
};

// What the JSON answer says about the ring besides the passes.
struct HistoryFacts {
  uint64_t window_ms = 0;
  std::size_t budget_bytes = 0;
  std::size_t bytes = 0;
  int period_ms = 0;
};

// What Query returned as one JSON object, columnar for charting:
//   {"window_seconds":600,"budget_bytes":4194304,"bytes":123456,"period_ms":2000,
//    "times":[t0,t1,...],
//    "series":[{"kind":"cpu","item":"cpu0","part":"","figure":"busy","values":[v0,v1,...]},...]}
// `times` are ms since the epoch; every series has one value per time, null where the pass did
// not have it or it was not a number. Series appear in the order passes first had them.
std::string HistoryJson(const std::vector<PassHistory::Entry>& entries, const HistoryFacts& facts);

}  // namespace zefo::cli

#endif  // ZEFO_TOOLS_ZEFO_MONITOR_PASS_HISTORY_H_
