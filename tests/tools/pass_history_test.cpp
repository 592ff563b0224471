// The dashboard's history: which figures of a pass are charted, the ring's two bounds (time and
// bytes) over long runs, and the columnar JSON the page reads.
#include "pass_history.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <nlohmann/json.hpp>
#include <string>

#include "support/board.h"
#include "support/golden.h"

namespace zefo::cli {
namespace {

// A pass at `time` with `series` figures "cpu/cpu<i>//busy", each of value i.
PassFigures Pass(uint64_t time, int series, const std::string& prefix = "cpu") {
  PassFigures pass;
  pass.time = time;
  for (int i = 0; i < series; ++i) {
    pass.keys.push_back(SeriesKey{"cpu", prefix + std::to_string(i), "", "busy"});
    pass.values.push_back(static_cast<float>(i));
  }
  return pass;
}

TEST(PassHistoryTest, BoardPassChartsEveryKindInApiUnits) {
  testing::FixtureTree tree;
  const format::Snapshot board = testing::BoardPass(tree);
  PassHistory ring(600000, 1 << 20);
  ring.Push(ChartFigures(board));
  // A later pass without the DDR device and with a new zone: its series join the answer, with
  // nulls where a pass did not have them.
  format::Snapshot later = board;
  later.update_time += 2000;
  later.ddr.clear();
  later.temperature["gpu-thermal"].temperature = 48.5;
  ring.Push(ChartFigures(later));
  // The ring's bytes depend on the target's type sizes (32-bit ARM has smaller ones): left out.
  testing::ExpectGolden("history.json",
                        HistoryJson(ring.Query(std::numeric_limits<double>::infinity()),
                                    HistoryFacts{ring.window_ms(), ring.budget_bytes(), 0, 2000}));
}

TEST(PassHistoryTest, StaysWithinItsBytesOverAnyNumberOfPasses) {
  // 10 ms passes of 50 figures for over three minutes into 64 KiB (the ring turns over about
  // 80 times), with the series changing now and then (an interface coming and going), as a
  // long run at a short period would give.
  constexpr std::size_t kBudget = 64 * 1024;
  PassHistory ring(600000, kBudget);
  for (uint64_t i = 1; i <= 20000; ++i) {
    ring.Push(Pass(i * 10, (i / 1000) % 2 == 0 ? 50 : 51));
    ASSERT_LE(ring.bytes(), kBudget) << "pass " << i;
  }
  // About 4 bytes per figure and some overhead per pass: the budget holds hundreds of passes.
  EXPECT_GT(ring.passes(), 200u);
  EXPECT_LE(ring.passes(), kBudget / (50 * sizeof(float)));
  const auto entries = ring.Query(std::numeric_limits<double>::infinity());
  ASSERT_EQ(entries.size(), ring.passes());
  EXPECT_EQ(entries.back().time, 200000u);
  for (std::size_t i = 1; i < entries.size(); ++i) {
    ASSERT_EQ(entries[i].time, entries[i - 1].time + 10);
  }
}

TEST(PassHistoryTest, KeepsOnlyTheWindowAndAnswersTheLastSeconds) {
  PassHistory ring(600000, 64 << 20);
  for (uint64_t t = 1000; t <= 1200000; t += 1000) ring.Push(Pass(t, 8));
  EXPECT_EQ(ring.passes(), 600u);  // 600001 .. 1200000 ms
  const struct {
    double seconds;
    std::size_t passes;
    uint64_t oldest;
  } cases[] = {
      {1, 1, 1200000},
      {2.5, 3, 1198000},
      {600, 600, 601000},
      {1e9, 600, 601000},
      {std::numeric_limits<double>::infinity(), 600, 601000},
      {0, 0, 0},
      {-1, 0, 0},
      {std::nan(""), 0, 0},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.seconds);
    const auto entries = ring.Query(c.seconds);
    EXPECT_EQ(entries.size(), c.passes);
    EXPECT_EQ(entries.empty() ? 0 : entries.front().time, c.oldest);
  }
  // A pass no newer than the newest (a clock that went back) is not kept.
  ring.Push(Pass(1200000, 8));
  ring.Push(Pass(5, 8));
  EXPECT_EQ(ring.Query(1e9).back().time, 1200000u);
  EXPECT_EQ(ring.passes(), 600u);
}

TEST(PassHistoryTest, SharedKeysAreChargedOnceAndReleasedWithTheirLastPass) {
  // A ring that saw other layouts, once they have all left it, costs what a ring that only
  // ever saw the remaining passes costs: no key list is charged twice or left behind.
  PassHistory mixed(100000, 64 << 20);
  PassHistory plain(100000, 64 << 20);
  for (uint64_t t = 1000; t <= 50000; t += 1000) {
    mixed.Push(Pass(t, 10 + static_cast<int>(t / 1000) % 3, t % 2000 == 0 ? "cpu" : "zone"));
  }
  for (uint64_t t = 200000; t < 300000; t += 1000) {
    mixed.Push(Pass(t, 12));
    plain.Push(Pass(t, 12));
  }
  EXPECT_EQ(mixed.passes(), plain.passes());
  EXPECT_EQ(mixed.bytes(), plain.bytes());
  // One key list for all 100 passes: far less than 100 copies of it.
  PassHistory one(100000, 64 << 20);
  one.Push(Pass(1, 12));
  EXPECT_LT(plain.bytes(), 100 * one.bytes() / 4);
}

TEST(PassHistoryTest, APassLargerThanTheBudgetKeepsTheSeriesThatFit) {
  PassHistory ring(600000, 4096);
  ring.Push(Pass(1000, 10));
  ring.Push(Pass(2000, 1000));  // about 100 KiB of keys and values
  EXPECT_LE(ring.bytes(), 4096u);
  ASSERT_EQ(ring.passes(), 1u);
  const auto entries = ring.Query(1e9);
  EXPECT_GT(entries[0].layout->size(), 10u);
  EXPECT_LT(entries[0].layout->size(), 1000u);
  EXPECT_EQ(entries[0].values.size(), entries[0].layout->size());
  // Not even the pass's own overhead fits: nothing is kept, nothing breaks.
  PassHistory tiny(600000, 8);
  tiny.Push(Pass(1000, 3));
  EXPECT_EQ(tiny.passes(), 0u);
  EXPECT_EQ(tiny.bytes(), 0u);
  EXPECT_TRUE(nlohmann::json::accept(HistoryJson(tiny.Query(1), HistoryFacts{})));
}

}  // namespace
}  // namespace zefo::cli
