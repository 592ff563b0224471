// The process monitor's parsers over inline text, and the monitor over fixture trees.
#include <gtest/gtest.h>

#include <functional>
#include <iterator>
#include <sstream>
#include <string>
#include <tuple>

#include "core/file_reader.h"
#include "process/procinfo_parse.h"
#include "support/fixture_tree.h"
#include "support/golden.h"
#include "zefo/procinfo_monitor.h"

namespace zefo {
namespace {

using namespace std::string_literals;
using std::make_tuple;
using std::tie;
using testing::FixtureTree;

const detail::ProcInfoFormats& F() {
  static const detail::ProcInfoFormats formats = detail::MakeProcInfoFormats();
  return formats;
}

struct Proc {
  std::string comm = "app", cmdline = "/bin/app\0"s;
  long long utime = 0, stime = 0, start = 0, read_bytes = 0;
  bool statm = true, status = true, io = true;
};

// Fields 1..15, 22 and 39..42 carry values; processor (39) is 3 and blkio_ticks (42) is 7.
std::string StatLine(const std::string& pid, const Proc& p) {
  std::ostringstream s;
  s << pid << " (" << p.comm << ") S 1 " << pid << " " << pid << " 0 -1 4194560 11 12 13 14 "
    << p.utime << " " << p.stime << " 0 0 20 0 1 0 " << p.start;
  for (int field = 23; field <= 38; ++field) s << " 0";
  s << " 3 0 0 7 0 0\n";
  return s.str();
}

TEST(ProcInfoParse, StatLineWithBlankInName) {
  ProcInfoState s;
  detail::ParseProcStat(StatLine("1234", Proc{"my proc", "", 350, 120, 5000}), s);
  EXPECT_EQ(tie(s.pid, s.name, s.state, s.tpgid, s.cmajflt, s.utime, s.stime, s.start_time),
            make_tuple(1234LL, "my proc"s, "S"s, -1LL, 14LL, 350LL, 120LL, 5000LL));
  EXPECT_EQ(tie(s.processor, s.blkio_ticks), make_tuple(3, 7LL));
  // An overlong name is cut at its buffer; a short line leaves the later fields alone.
  detail::ParseProcStat("5 (" + std::string(400, 'n') + ") R 1", s);
  EXPECT_EQ(tie(s.pid, s.ppid, s.utime), make_tuple(5LL, 1LL, 350LL));
  EXPECT_EQ(s.name.size(), 255u);
}

TEST(ProcInfoParse, CmdLineBlanksSeparatorsAndEndsInNul) {
  const std::pair<std::string, std::string> cases[] = {
      {"a\0b\0"s, "a b\0"s},
      {"", ""},
      {"sleep\0"
       "10"s,
       "sleep 1\0"s},                  // no trailing NUL: the last byte is replaced anyway
      {"a\0b\0\nline2\0"s, "a b\0"s},  // only the first line counts
  };
  for (const auto& [text, expected] : cases) {
    std::string out = "stale";
    detail::ParseCmdLine(text, out);
    EXPECT_EQ(out, expected);
  }
}

TEST(ProcInfoParse, RegistrationMatchesByteForByte) {
  const std::tuple<std::string, std::string, bool> cases[] = {
      {"camera\n", "1234\n", true},
      {"camera", "1234", true},
      {"camera\n", "1234 \n", false},
      {"camera\n", "12345\n", false},
      {"camera\nx\n", "1234\n", false},
      {"camera\n", "1234\n\n", false},
      {"", "1234\n", false},
      {"camera\n", "", false},
  };
  for (const auto& [name, pid, match] : cases) {
    std::string out;
    detail::ParseRegistration(name, pid, "1234", out);
    EXPECT_EQ(out, match ? "camera" : "") << name << "|" << pid;
  }
}

TEST(ProcInfoParse, StatusIoAndNetDev) {
  ProcInfoState s;
  detail::ParseStatus(
      "Name:\tcat\nVmPeak:\t 1 MB\nVmRSS:\t 2048 kB\nVmSwap:\t 3\nVmLckX:\t 5 kB\nRssFile:\t 7 B\n",
      s);
  // A line without a unit word keeps the last unit read (kB for VmSwap).
  EXPECT_EQ(tie(s.VmPeak, s.VmRSS, s.VmSwap, s.VmLck, s.RssFile),
            make_tuple(1048576LL, 2048LL * 1024, 3LL * 1024, 0LL, 7LL));
  detail::ParseIo(
      "rchar: 10\nwchar: 20\nsyscr: 3\nsyscw: 4\nread_bytes: 4096\n"
      "write_bytes: 8192\ncancelled_write_bytes: 100\nbogus: 5\n",
      s);
  EXPECT_EQ(
      tie(s.rchar, s.wchar, s.syscr, s.syscw, s.read_bytes, s.write_bytes, s.cancelled_write_bytes),
      make_tuple(10LL, 20LL, 3LL, 4LL, 4096LL, 8192LL, 100LL));
  const std::string header = "Inter-| Receive | Transmit\n face |bytes packets|bytes packets\n";
  detail::ParseNetDev(header, F().net, s.net);
  EXPECT_TRUE(s.net.empty());
  detail::ParseNetDev(header + "  lo: 100 1 0 0 0 0 0 0 200 2 0 0\n eth0: 5 1 0 0 0 0 0 0 9\n",
                      F().net, s.net);
  EXPECT_EQ(s.net.size(), 2u);
  EXPECT_EQ(tie(s.net["lo:"].rx_bytes, s.net["lo:"].tx_bytes), make_tuple(100LL, 200LL));
}

TEST(ProcInfoParse, CpuTotalCoresAndUptime) {
  const std::string agg = "cpu  10 20 30 40 50 60 70 80 90 100\n";
  const std::tuple<std::string, bool, long long, int> cases[] = {
      {agg + "cpu0 1\ncpu1 1\ncpu2 1\ncpu3 1\nintr 5 6\n", true, 550, 4},
      {agg + "cpu0 1\nintr 5\n", true, 550, 0},  // a lone cpu0 reads 0 cores
      {agg, true, 550, 11},                      // no per-core line: the first counter, plus one
      {"intr 1 2\n" + agg, false, -1, -1},
      {"", false, -1, -1},
  };
  for (const auto& [text, ok, total, cores] : cases) {
    ProcInfoCpuState out{-1, -1};
    EXPECT_EQ(detail::ParseCpuTotal(text, out), ok) << text;
    EXPECT_EQ(tie(out.total, out.cores), make_tuple(total, cores)) << text;
  }
  ProcInfoUptimeState u;
  EXPECT_FALSE(detail::ParseUptime("", F().uptime, u));
  EXPECT_TRUE(detail::ParseUptime("350.25 1201.50\n", F().uptime, u));
  EXPECT_EQ(tie(u.uptime, u.idle), make_tuple(350.25, 1201.50));
}

// Scripted clock: each call returns the next time, the last one for good.
const int64_t* g_times = nullptr;
int64_t ScriptedNow() {
  const int64_t now = *g_times;
  if (g_times[1] != 0) ++g_times;
  return now;
}

void WriteProc(const FixtureTree& tree, const std::string& pid, const Proc& p) {
  const std::string dir = "proc/" + pid + "/";
  tree.Write(dir + "stat", StatLine(pid, p));
  tree.Write(dir + "cmdline", p.cmdline);
  if (p.statm) tree.Write(dir + "statm", "1000 200 50 10 0 300 0\n");
  if (p.status) {
    tree.Write(dir + "status", "Name:\t" + p.comm +
                                   "\nVmPeak:\t 5000 kB\nVmSize:\t 4000 kB\nVmHWM:\t 900 kB\n"
                                   "VmRSS:\t 800 kB\nRssAnon:\t 500 kB\nRssFile:\t 200 kB\n"
                                   "RssShmem:\t 100 kB\nVmData:\t 300 kB\nVmStk:\t 132 kB\n"
                                   "VmExe:\t 40 kB\nVmLib:\t 2000 kB\nVmSwap:\t 0 kB\n");
  }
  if (p.io) tree.Write(dir + "io", "read_bytes: " + std::to_string(p.read_bytes) + "\n");
  for (const char* fd : {"0", "1", "2", "255"}) tree.Write(dir + "fd/" + fd, "");
}

// /proc/stat on four cores, its total 1000 ticks plus `user`; /proc/uptime.
void WriteMachine(const FixtureTree& tree, long long user) {
  tree.Write("proc/stat", "cpu  " + std::to_string(user) +
                              " 0 100 900 0 0 0 0 0 0\ncpu0 1\ncpu1 1\ncpu2 1\ncpu3 1\n");
  tree.Write("proc/uptime", "120.50 200.00\n");
}

const ProcInfoResourceItem* Item(const ProcInfoMonitor& m, const std::string& pid) {
  auto it = m.Items().find(pid);
  return it == m.Items().end() ? nullptr : dynamic_cast<ProcInfoResourceItem*>(it->second);
}

class ProcInfoFixture : public ::testing::Test {
 protected:
  FixtureTree tree;
};

TEST_F(ProcInfoFixture, GoldenBlocksInKeyOrder) {
  // Two passes 2 s and 400 ticks apart: 100 hundredths of user time is one busy core of four.
  static const int64_t kTimes[] = {1000, 1000, 3000, 0};
  g_times = kTimes;
  ProcInfoMonitor monitor(tree.paths());
  monitor.SetClock(&ScriptedNow);
  monitor.SetPageSize(4096);
  Proc app{"my proc", "/bin/app\0--flag\0"s, 350, 120, 5000, 4096};
  Proc kthread{"kworker/0:1", "", 0, 0, 0, 0, true, false, false};
  tree.Write("reg/100/name", "camera\n");
  tree.Write("reg/100/pid", "100\n");
  for (const char* other : {"proc/self", "proc/7x", "proc/sys"}) tree.Mkdir(other);
  WriteMachine(tree, 0);
  WriteProc(tree, "100", app);
  WriteProc(tree, "2", kthread);
  ASSERT_TRUE(monitor.DoMonitor());
  EXPECT_TRUE(monitor.Items().empty());

  WriteMachine(tree, 400);
  app.utime += 100;
  app.stime += 20;
  app.read_bytes += 1048576;
  WriteProc(tree, "100", app);
  ASSERT_TRUE(monitor.DoMonitor());
  ASSERT_EQ(monitor.Items().size(), 2u);
  EXPECT_EQ(monitor.Items().begin()->first, "100");  // string order: 100 before 2

  std::ostringstream report;
  for (const auto& entry : monitor.Items()) entry.second->PrintToStream(report);
  report << 1.0 << "\n";  // the stream is left in fixed notation, two decimals
  testing::ExpectGolden("procinfo_block.txt", report.str());
}

TEST_F(ProcInfoFixture, FixedSetSampledInStringOrderOnly) {
  // Clock calls in sampling order get 1, 2, 3 and 7 s: if "42" goes first it spans 2 s, "7" 5 s.
  static const int64_t kTimes[] = {1000, 2000, 3000, 7000, 0};
  g_times = kTimes;
  ProcInfoMonitor monitor({"7", "42"}, tree.paths());
  monitor.SetClock(&ScriptedNow);
  WriteMachine(tree, 100);
  Proc p;
  for (long long bytes : {0, 1000}) {
    p.read_bytes = bytes;
    for (const char* pid : {"7", "42", "1"}) WriteProc(tree, pid, p);
    ASSERT_TRUE(monitor.DoMonitor());
  }
  ASSERT_EQ(monitor.Items().size(), 2u);
  EXPECT_EQ(Item(monitor, "42")->io_read_bandwidth, 500.0);
  EXPECT_EQ(Item(monitor, "7")->io_read_bandwidth, 200.0);
}

TEST_F(ProcInfoFixture, SkippedExitedAndPartialProcesses) {
  ProcInfoMonitor monitor(tree.paths());
  WriteMachine(tree, 100);
  WriteProc(tree, "5", Proc{"no statm", "", 0, 0, 0, 0, false});
  WriteProc(tree, "6", Proc{"bare", "", 0, 0, 0, 0, true, false, false});  // no status, no io
  WriteProc(tree, "42", Proc());
  tree.Write("proc/9/stat", "");
  ASSERT_TRUE(monitor.DoMonitor());
  ASSERT_TRUE(monitor.DoMonitor());
  EXPECT_EQ(Item(monitor, "5"), nullptr);
  EXPECT_EQ(Item(monitor, "9"), nullptr);
  ASSERT_NE(Item(monitor, "6"), nullptr);
  EXPECT_EQ(tie(Item(monitor, "6")->VmRss, Item(monitor, "6")->fd_count), make_tuple(0L, 4L));
  ASSERT_NE(Item(monitor, "42"), nullptr);

  tree.Remove("proc/42");  // the process exits: its item stays as it was
  ASSERT_TRUE(monitor.DoMonitor());
  EXPECT_EQ(Item(monitor, "42")->count, 1u);
  EXPECT_EQ(Item(monitor, "42")->VmRss, 800 * 1024);
  EXPECT_EQ(Item(monitor, "6")->count, 2u);

  tree.Remove("proc");  // no proc root at all: the pass reports it, nothing breaks
  EXPECT_FALSE(monitor.DoMonitor());
  ProcInfoCpuState cpu{5, 6};
  EXPECT_FALSE(monitor.GetCpu(cpu));
  EXPECT_EQ(cpu.total, 5);
}

TEST_F(ProcInfoFixture, FilesOutsideARealProcfsAreTypeChecked) {
  // Only a real procfs root spares the per-file type check; a fixture root is not one, so a
  // device planted as a process's stat file is refused rather than read as 4 MiB of noise.
  EXPECT_TRUE(detail::IsProcfsMount("/proc"));
  EXPECT_FALSE(detail::IsProcfsMount(tree.Path("proc")));
  EXPECT_FALSE(detail::IsProcfsMount(tree.Path("missing")));
  ProcInfoMonitor monitor(tree.paths());
  WriteMachine(tree, 100);
  WriteProc(tree, "8", Proc());
  tree.Remove("proc/8/stat");
  tree.Symlink("/dev/urandom", "proc/8/stat");
  ASSERT_TRUE(monitor.DoMonitor());
  ASSERT_TRUE(monitor.DoMonitor());
  EXPECT_EQ(Item(monitor, "8"), nullptr);
}

TEST_F(ProcInfoFixture, HostileRegistrationLeavesNameEmpty) {
  ProcInfoMonitor monitor({"1234"}, tree.paths());
  WriteMachine(tree, 100);
  WriteProc(tree, "1234", Proc());
  const auto name_of = [&]() {
    ProcInfoState state;
    monitor.GetZefoName("1234", state);
    return state.zefo_name;
  };
  const std::pair<std::string, std::string> files[] = {{"reg/1234/name", "camera\n"},
                                                       {"reg/1234/pid", "1234\n"}};
  for (const auto& [file, content] : files) tree.Write(file, content);
  ASSERT_EQ(name_of(), "camera");
  using Plant = std::function<void(const std::string&, const std::string&)>;
  const Plant plants[] = {
      [&](const std::string& file, const std::string&) { tree.Fifo(file); },
      [&](const std::string& file, const std::string&) { tree.Symlink("/dev/zero", file); },
      [&](const std::string& file, const std::string& content) {  // a link to a good file
        tree.Write("reg/real", content);
        tree.Symlink(tree.Path("reg/real"), file);
      },
      [&](const std::string& file, const std::string&) { tree.Sparse(file, 1LL << 32); },
      [&](const std::string& file, const std::string&) { tree.Mkdir(file); },
  };
  for (const auto& [file, content] : files) {
    for (size_t i = 0; i < std::size(plants); ++i) {
      tree.Remove(file);
      plants[i](file, content);
      EXPECT_EQ(name_of(), "") << file << " planted by #" << i;
    }
    tree.Remove(file);
    tree.Write(file, content);
  }
  tree.Remove("reg/1234");
  tree.Write("reg/1234", "1234\n");  // a file where the directory should be
  EXPECT_EQ(name_of(), "");
  EXPECT_TRUE(monitor.DoMonitor());
}

}  // namespace
}  // namespace zefo
