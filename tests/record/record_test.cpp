// The flight recorder's store: passes replay as they were recorded, damage and torn writes cost
// only what they touched, the bounds and the lock hold.
#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <fstream>

#include "record/store_dir.h"
#include "support/board.h"
#include "support/golden.h"
#include "time_arg.h"
#include "zefo/record/recorder.h"
#include "zefo/record/replay.h"

namespace zefo::record {
namespace {

using format::Format;
using format::Snapshot;

void WriteAll(const std::string& path, const std::string& bytes) {
  std::ofstream(path, std::ios::binary | std::ios::trunc) << bytes;
}

struct Replayed {
  std::vector<Snapshot> passes;
  std::vector<std::string> problems;
  ReplaySummary summary;
};

Replayed ReplayAll(const std::string& dir, ReplayRange range = ReplayRange()) {
  Replayed r;
  r.summary = Replay(
      dir, range,
      [&](const Snapshot& pass) {
        r.passes.push_back(pass);
        return true;
      },
      [&](const std::string& problem) { r.problems.push_back(problem); });
  return r;
}

std::vector<std::string> Segments(const std::string& dir) {
  const int fd = open(dir.c_str(), O_RDONLY | O_DIRECTORY);
  std::vector<std::string> names = detail::ListSegments(fd);
  close(fd);
  for (auto& name : names) name = dir + "/" + name;
  return names;
}

class Store : public ::testing::Test {
 protected:
  void SetUp() override {
    board = testing::BoardPass(tree);
    dir = tree.Path("store");
  }
  // The board's pass at time `t`, with figures and processes that change from pass to pass.
  Snapshot Pass(uint64_t t) const {
    Snapshot pass = board;
    pass.update_time = t;
    for (auto& [name, cpu] : pass.cpu) cpu.user += static_cast<double>(t % 7) / 3;
    for (auto& [name, process] : pass.process) process.run_time += static_cast<double>(t);
    if (t % 3 == 0) pass.process.erase(pass.process.begin());
    if (t % 2 == 0) pass.process["9" + std::to_string(t)].cmd_line = "new\n" + std::to_string(t);
    pass.memory[""].free = static_cast<long long>(t) * 4096;
    return pass;
  }
  // Records passes 1..n; returns the store's size after each.
  std::vector<uint64_t> Record(int n, RecorderOptions options = RecorderOptions()) {
    Recorder recorder(options);
    EXPECT_EQ(recorder.Open(dir), "");
    std::vector<uint64_t> sizes;
    for (int t = 1; t <= n; ++t) {
      EXPECT_EQ(recorder.Append(Pass(static_cast<uint64_t>(t))), "");
      sizes.push_back(recorder.StoreBytes());
    }
    return sizes;
  }
  testing::FixtureTree tree;
  Snapshot board;
  std::string dir;
};

TEST_F(Store, ReplaysEveryFormatByteForByte) {
  RecorderOptions options;
  options.key_frame_interval = 4;
  Record(9, options);
  const Replayed r = ReplayAll(dir);
  ASSERT_EQ(r.passes.size(), 9u);
  EXPECT_TRUE(r.problems.empty());
  for (uint64_t t = 1; t <= 9; ++t) {
    for (Format f : {Format::kReport, Format::kLine, Format::kJson, Format::kOpenMetrics}) {
      EXPECT_EQ(FormatPass(r.passes[t - 1], f, testing::FixedOptions()),
                FormatPass(Pass(t), f, testing::FixedOptions()))
          << "pass " << t << " format " << FormatName(f);
    }
  }
  const Replayed window = ReplayAll(dir, {3, 5});
  ASSERT_EQ(window.passes.size(), 3u);
  EXPECT_EQ(window.passes[0].update_time, 3u);
}

// A recorder killed while writing leaves the last record cut short at any byte: the passes
// before it replay, with one line about the torn one. A torn segment header costs that segment.
TEST_F(Store, TornWritesCostOnlyWhatTheyTore) {
  const std::vector<uint64_t> sizes = Record(3);
  const std::string first = Segments(dir).at(0);
  const std::string whole = testing::ReadFile(first);
  for (uint64_t cut = sizes[1]; cut < sizes[2]; ++cut) {
    WriteAll(first, whole.substr(0, cut));
    const Replayed r = ReplayAll(dir);
    ASSERT_EQ(r.passes.size(), 2u) << "cut at " << cut;
    EXPECT_EQ(r.problems.size(), cut > sizes[1] ? 1u : 0u) << "cut at " << cut;
  }
  usleep(2000);  // the next segment's name, from the clock, sorts after
  Record(1);
  for (std::size_t cut = 1; cut < whole.find("\xe5ZR1"); ++cut) {
    WriteAll(first, whole.substr(0, cut));
    const Replayed r = ReplayAll(dir);
    ASSERT_EQ(r.passes.size(), 1u) << "header cut at " << cut;
    EXPECT_EQ(r.problems.size(), 1u) << "header cut at " << cut;
  }
}

// Records K D K D K D (key frames every second pass); a flipped byte costs the damaged record
// and the deltas after it up to the next key frame.
TEST_F(Store, DamageCostsUpToTheNextKeyFrame) {
  RecorderOptions options;
  options.key_frame_interval = 2;
  const std::vector<uint64_t> sizes = Record(6, options);
  const std::string segment = Segments(dir).at(0);
  const std::string whole = testing::ReadFile(segment);
  const struct {
    int record;
    std::size_t offset;  // into the record
    std::vector<uint64_t> expected;
  } cases[] = {
      {2, 20, {1, 2, 5, 6}},     // a key frame's compressed body
      {2, 5, {1, 2, 5, 6}},      // its length
      {3, 30, {1, 2, 3, 5, 6}},  // a delta
      {3, 0, {1, 2, 3, 5, 6}},   // its marker
  };
  for (const auto& c : cases) {
    std::string damaged = whole;
    damaged[sizes[static_cast<std::size_t>(c.record) - 1] + c.offset] ^= 0x5a;
    WriteAll(segment, damaged);
    const Replayed r = ReplayAll(dir);
    std::vector<uint64_t> times;
    for (const Snapshot& pass : r.passes) times.push_back(pass.update_time);
    EXPECT_EQ(times, c.expected) << "record " << c.record << " byte " << c.offset;
    EXPECT_EQ(r.problems.size(), 1u);
    EXPECT_TRUE(r.summary.error.empty());
  }
}

// tests/record/v1 was written by the first store version; every later build must replay it.
TEST(StoreVersions, ReadsVersionOneAndRefusesNewer) {
  const std::string v1 = std::string(ZEFO_RECORD_FIXTURES) + "/v1";
  const Replayed r = ReplayAll(v1);
  EXPECT_TRUE(r.problems.empty());
  std::string json;
  for (const Snapshot& pass : r.passes) json += FormatPass(pass, Format::kJson);
  testing::ExpectGolden("record_v1.jsonl", json);

  testing::FixtureTree tree;
  const std::vector<std::string> files = Segments(v1);
  std::string newer = testing::ReadFile(files.at(0));
  newer[8] = 2;  // the version, after the magic
  tree.Write("store/" + files[0].substr(files[0].rfind('/') + 1), newer);
  const Replayed refused = ReplayAll(tree.Path("store"));
  EXPECT_TRUE(refused.passes.empty());
  EXPECT_NE(refused.summary.error.find("newer"), std::string::npos) << refused.summary.error;
}

TEST_F(Store, RemovesOldestSegmentsBySizeAndAge) {
  RecorderOptions options;
  options.max_bytes = 256 << 10;  // segments of 64 KiB
  options.key_frame_interval = 1;
  Record(400, options);
  uint64_t total = 0;
  for (const std::string& file : Segments(dir)) total += testing::ReadFile(file).size();
  EXPECT_LE(total, options.max_bytes);
  const Replayed r = ReplayAll(dir);
  ASSERT_FALSE(r.passes.empty());
  EXPECT_GT(r.passes.front().update_time, 1u);
  EXPECT_EQ(r.passes.back().update_time, 400u);

  // A segment last written eight days ago goes when a recorder opens the store.
  const std::string old = Segments(dir).at(0);
  const struct timespec times[2] = {{time(nullptr) - 8 * 86400, 0}, {time(nullptr) - 8 * 86400, 0}};
  ASSERT_EQ(utimensat(AT_FDCWD, old.c_str(), times, 0), 0);
  Recorder recorder;
  ASSERT_EQ(recorder.Open(dir), "");
  EXPECT_NE(access(old.c_str(), F_OK), 0);
}

TEST_F(Store, OneRecorderAtATime) {
  Recorder first;
  ASSERT_EQ(first.Open(dir), "");
  Recorder second;
  EXPECT_NE(second.Open(dir).find("another recorder"), std::string::npos);
  first.Close();
  EXPECT_EQ(second.Open(dir), "");
  second.Close();
  // A lock file planted as a link is not followed.
  tree.Symlink(tree.Path("elsewhere"), "planted/lock");
  EXPECT_NE(Recorder().Open(tree.Path("planted")), "");
  EXPECT_NE(access(tree.Path("elsewhere").c_str(), F_OK), 0);
}

// kill -9 while recording, then a new recorder on the same store: every pass but the one being
// written replays, in order.
TEST_F(Store, SurvivesKillAndRestart) {
  const pid_t child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    Recorder recorder;
    if (!recorder.Open(dir).empty()) _exit(1);
    for (uint64_t t = 1;; ++t) recorder.Append(Pass(t));
  }
  while (Segments(dir).empty() || testing::ReadFile(Segments(dir)[0]).size() < 200000) usleep(1000);
  kill(child, SIGKILL);
  waitpid(child, nullptr, 0);
  {
    Recorder recorder;
    ASSERT_EQ(recorder.Open(dir), "");
    recorder.Append(Pass(1000000));
  }
  const Replayed r = ReplayAll(dir);
  ASSERT_GT(r.passes.size(), 10u);
  EXPECT_LE(r.problems.size(), 1u);
  for (std::size_t i = 0; i + 1 < r.passes.size(); ++i) {
    ASSERT_EQ(r.passes[i].update_time, i + 1);
  }
  EXPECT_EQ(r.passes.back().update_time, 1000000u);
}

TEST(TimeArguments, UnixSecondsAndIso8601) {
  setenv("TZ", "CET-1CEST,M3.5.0,M10.5.0/3", 1);
  tzset();
  const struct {
    const char* text;
    uint64_t ms;  // 0: refused
  } cases[] = {
      {"1714589462", 1714589462000},
      {"1714589462.25", 1714589462250},
      {"2024-05-01T18:51:02Z", 1714589462000},
      {"2024-05-01 20:51:02+02:00", 1714589462000},
      {"2024-05-01T13:51:02.5-0500", 1714589462500},
      {"2024-05-01T20:51:02", 1714589462000},
      {"2024-05-01T20:51", 1714589460000},
      {"2024-01-01T01:00:00", 1704067200000},
      {"2024-13-01T00:00:00Z", 0},
      {"2024-05-01T18:51:02+2", 0},
      {"yesterday", 0},
      {"", 0},
  };
  for (const auto& c : cases) {
    uint64_t ms = 0;
    const std::string problem = cli::ParseTime(c.text, ms);
    EXPECT_EQ(problem.empty() ? ms : 0, c.ms) << c.text << ": " << problem;
  }
}

}  // namespace
}  // namespace zefo::record
