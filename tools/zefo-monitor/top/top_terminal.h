// zefo-monitor --top: the full-screen terminal view, drawn with ncurses.
#ifndef ZEFO_TOOLS_ZEFO_MONITOR_TOP_TOP_TERMINAL_H_
#define ZEFO_TOOLS_ZEFO_MONITOR_TOP_TOP_TERMINAL_H_

#include <signal.h>

#include <memory>
#include <string>

#include "zefo/format/snapshot.h"

namespace zefo::top {

// Where the passes come from: the live monitor, or (later) a recording stepped through by keys.
class PassSource {
 public:
  virtual ~PassSource() = default;
  // A pass newer than the last one returned, or null when there is none yet.
  virtual std::shared_ptr<const format::Snapshot> Poll() = 0;
  // What the title says about the source ("live", a position in a recording).
  virtual std::string Describe() const = 0;
  // Moves `steps` passes on (negative: back); false where the source cannot step (live).
  virtual bool Step(int /*steps*/) { return false; }
};

// Runs the view until 'q', one of `stop_signals` (blocked by the caller) arrives, or `count`
// passes were shown (0: no limit). Leaves the terminal as it found it. Returns the exit code:
// 0, or 2 when standard input and output are not a terminal.
int RunTop(PassSource& source, const sigset_t& stop_signals, long long count);

}  // namespace zefo::top

#endif  // ZEFO_TOOLS_ZEFO_MONITOR_TOP_TOP_TERMINAL_H_
