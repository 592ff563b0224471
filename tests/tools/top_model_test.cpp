// The terminal view's model over the fixture board: panels, widths, sorting, filtering and the
// escaping of names, without a terminal.
#include "top_model.h"

#include <gtest/gtest.h>

#include <cmath>

#include "support/board.h"

namespace zefo::top {
namespace {

std::string Text(const Row& row) {
  std::string text;
  for (const Span& span : row) text += span.text;
  return text;
}

// The escaping itself is the format library's (EscapeForTerminal); the view adds a '?' per
// character beyond ASCII where the terminal cannot show UTF-8, and cuts by columns.
TEST(TopModelTest, EscapesAndFitsByColumns) {
  EXPECT_EQ(Escape("a\x1b[2J\xc3\xa9", false), "a\\x1b[2J\xc3\xa9");
  EXPECT_EQ(Escape("\x1b\xc3\xa9t\xc3\xa9", true), "\\x1b?t?");
  EXPECT_EQ(Fit("\xc3\xa9t\xc3\xa9-long", 4), "\xc3\xa9t\xc3\xa9-");
  EXPECT_EQ(Fit("ab", 4), "ab  ");
}

TEST(TopModelTest, SortsAndFiltersTheProcesses) {
  format::Snapshot pass;
  const struct {
    int pid;
    const char* name;
    const char* registered;
    double cpu;
    int64_t rss;
    double io;
  } processes[] = {{300, "sleeper", "", 0, 900, 5e6},
                   {100, "camera_app", "Camera", 80, 100, 0},
                   {200, "Bpu_worker", "", std::nan(""), 500, 1e6}};
  for (const auto& p : processes) {
    ProcInfoResourceItem& item = pass.process[std::to_string(p.pid)];
    item.pid = p.pid;
    item.name = p.name;
    item.zefo_name = p.registered;
    item.user = p.cpu;
    item.VmRss = p.rss;
    item.io_read_bandwidth = p.io;
  }
  const struct {
    SortKey sort;
    bool reverse;
    std::string filter;
    std::vector<int> pids;
  } cases[] = {
      {SortKey::kCpu, false, "", {100, 300, 200}},  // a share not known yet sorts last
      {SortKey::kCpu, true, "", {200, 300, 100}},
      {SortKey::kMemory, false, "", {300, 200, 100}},
      {SortKey::kIo, false, "", {300, 200, 100}},
      {SortKey::kPid, false, "", {100, 200, 300}},
      {SortKey::kName, false, "", {200, 100, 300}},
      {SortKey::kPid, false, "camera", {100}},  // registered name, any case
      {SortKey::kPid, false, "BPU", {200}},
      {SortKey::kPid, false, "30", {300}},  // pid
      {SortKey::kPid, false, "none", {}},
  };
  for (const auto& c : cases) {
    ViewState view;
    view.sort = c.sort;
    view.reverse = c.reverse;
    view.filter = c.filter;
    std::vector<int> pids;
    for (const auto* p : ListedProcesses(pass, view)) pids.push_back(p->pid);
    EXPECT_EQ(pids, c.pids) << static_cast<int>(c.sort) << " " << c.filter;
  }
}

// Which panels a board without BPU, DDR devices or thermal zones leaves out is
// top_tmux_test.sh's (its bare case), on a real terminal.
TEST(TopModelTest, FitsEveryPanel) {
  testing::FixtureTree tree;
  const format::Snapshot board = testing::BoardPass(tree);
  const struct {
    int width, height;
    std::vector<std::string> titles;
  } cases[] = {
      {80, 24, {"CPU", "BPU", "DDR", "MEM", "TEMP", "DISK", "NET", "PID"}},
      {200, 50, {"CPU", "BPU", "DDR", "MEM", "TEMP", "DISK", "NET", "COMMAND"}},
      {20, 4, {}},  // a tiny terminal: no row longer or more rows than it has
  };
  for (const auto& c : cases) {
    ViewState view;
    view.scroll = 1000;  // clamped to the list
    const std::vector<Row> rows = Layout(board, view, c.width, c.height);
    EXPECT_LE(rows.size(), static_cast<std::size_t>(c.height));
    std::string screen;
    for (const Row& row : rows) {
      EXPECT_LE(Columns(Text(row)), static_cast<std::size_t>(c.width)) << Text(row);
      screen += Text(row) + "\n";
    }
    for (const auto& title : c.titles) EXPECT_NE(screen.find(title), std::string::npos) << title;
    EXPECT_EQ(screen.find('\x1b'), std::string::npos);
    EXPECT_LT(view.scroll, board.process.size());
  }
}

TEST(TopModelTest, KeysTypeAFilterAndChangeTheSort) {
  ViewState view;
  for (int key : std::vector<int>{'/', 'c', 'a', 'm', kKeyBackspace, 'x', kKeyEnter})
    HandleKey(key, view, 10);
  EXPECT_EQ(view.filter, "cax");
  EXPECT_FALSE(view.editing);
  HandleKey('m', view, 10);
  EXPECT_EQ(view.sort, SortKey::kMemory);
  HandleKey('m', view, 10);
  EXPECT_TRUE(view.reverse);
  HandleKey(kKeyEscape, view, 10);
  EXPECT_EQ(view.filter, "");
  // q, which ends the view, is top_tmux_test.sh's (the first case ends with it).
}

}  // namespace
}  // namespace zefo::top
