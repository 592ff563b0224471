// The terminal view's model: what each panel says about a pass, the process list sorted,
// filtered and scrolled, all cut to a given screen size. Plain text and styles only; drawing
// is top_terminal.cpp's job, so all of this runs (and is tested) without a terminal.
#ifndef ZEFO_TOOLS_ZEFO_MONITOR_TOP_TOP_MODEL_H_
#define ZEFO_TOOLS_ZEFO_MONITOR_TOP_TOP_MODEL_H_

#include <cstddef>
#include <string>
#include <vector>

#include "zefo/format/snapshot.h"

namespace zefo::top {

// How a piece of text is drawn; the terminal maps these to colours or, on a monochrome
// terminal, to bold and reverse video.
enum class Style {
  kNormal,
  kTitle,
  kLabel,
  kLow,
  kMid,
  kHigh,
  kRead,
  kWrite,
  kDim,
  kHeader,
  kPrompt
};

struct Span {
  std::string text;
  Style style = Style::kNormal;
};

// One screen row.
using Row = std::vector<Span>;

enum class SortKey { kCpu, kMemory, kIo, kPid, kName };

// What the person at the terminal chose; changed by keys.
struct ViewState {
  SortKey sort = SortKey::kCpu;
  bool reverse = false;    // ascending where the key is normally descending, and back
  std::string filter;      // processes whose name, registered name or pid contain this
  bool editing = false;    // the filter is being typed
  std::size_t scroll = 0;  // first process row shown
  bool ascii = false;      // no UTF-8 on the terminal: "C" for degrees, '?' for other bytes
  std::string source;      // "live" or what a recording's position is, for the title
};

// `text` safe to put on a terminal, escaped as the other views meant for people escape it; with
// `ascii`, every character beyond ASCII as '?'.
std::string Escape(const std::string& text, bool ascii);
// Characters (not bytes) of UTF-8 text.
std::size_t Columns(const std::string& text);
// `text` cut or padded with spaces to exactly `width` characters.
std::string Fit(const std::string& text, std::size_t width);

// The process ids in the order the list shows them, after the filter.
std::vector<const ProcInfoResourceItem*> ListedProcesses(const format::Snapshot& pass,
                                                         const ViewState& view);

// The whole screen for `pass`: at most `height` rows of at most `width` characters. Panels of
// kinds the pass has no items of are left out; the process list takes the rows that remain.
// `view.scroll` is clamped to what the list can show.
std::vector<Row> Layout(const format::Snapshot& pass, ViewState& view, int width, int height);

// One key pressed (a character, or one of the Key values below); false when the view should
// end. `list_rows` is how many process rows the last layout showed, for paging.
enum Key : int {
  kKeyUp = 0x10000,
  kKeyDown,
  kKeyPageUp,
  kKeyPageDown,
  kKeyHome,
  kKeyEnd,
  kKeyBackspace,
  kKeyEscape,
  kKeyEnter
};
bool HandleKey(int key, ViewState& view, std::size_t list_rows);

}  // namespace zefo::top

#endif  // ZEFO_TOOLS_ZEFO_MONITOR_TOP_TOP_MODEL_H_
