// The passes of a recording, for the terminal view to step through with keys.
#ifndef ZEFO_TOOLS_ZEFO_MONITOR_TOP_REPLAY_SOURCE_H_
#define ZEFO_TOOLS_ZEFO_MONITOR_TOP_REPLAY_SOURCE_H_

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "top_terminal.h"
#include "zefo/format/snapshot.h"
#include "zefo/record/replay.h"

namespace zefo::top {

// Knows the time of every pass in the range and holds only the passes around the one shown, so
// that a week of recording steps through in little memory: a step beyond them decodes the next
// few dozen passes again (from the segment that holds them).
class ReplaySource : public PassSource {
 public:
  ReplaySource(std::string dir, const record::ReplayRange& range);

  // What went wrong reading the store, or "" once there is a pass to show.
  const std::string& problem() const { return problem_; }

  std::shared_ptr<const format::Snapshot> Poll() override;
  std::string Describe() const override;
  bool Step(int steps) override;

 private:
  void Load(std::size_t around);

  std::string dir_;
  std::string problem_;
  std::vector<uint64_t> times_;  // every pass in the range, oldest first
  std::size_t position_ = 0;     // the pass shown
  bool moved_ = true;            // Poll has not yet returned the pass at `position_`
  std::size_t first_loaded_ = 0;
  std::vector<std::shared_ptr<const format::Snapshot>> loaded_;  // from `first_loaded_` on
};

}  // namespace zefo::top

#endif  // ZEFO_TOOLS_ZEFO_MONITOR_TOP_REPLAY_SOURCE_H_
