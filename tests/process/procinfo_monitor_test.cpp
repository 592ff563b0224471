// The process monitor over fixture trees: modes, order, hostile registration files, the block.
#include <gtest/gtest.h>

#include <sstream>
#include <string>

#include "support/fixture_tree.h"
#include "support/golden.h"
#include "zefo/procinfo_monitor.h"

namespace zefo {
namespace {

using namespace std::string_literals;
using testing::FixtureTree;

// Scripted clock: each call returns the next time, then keeps returning the last one.
const int64_t* g_times = nullptr;
int64_t ScriptedNow() {
  const int64_t now = *g_times;
  if (g_times[1] != 0) ++g_times;
  return now;
}

struct Proc {
  std::string comm = "app";
  long long utime = 0, stime = 0, start = 0, read_bytes = 0;
  std::string cmdline = "/bin/app\0"s;
  bool statm = true, status = true, io = true;
};

std::string StatLine(const std::string& pid, const Proc& p) {
  std::ostringstream s;
  s << pid << " (" << p.comm << ") S 1 " << pid << " " << pid << " 0 -1 4194560 0 0 0 0 " << p.utime
    << " " << p.stime << " 0 0 20 0 1 0 " << p.start;
  for (int i = 23; i <= 38; ++i) s << " 0";
  s << " 1 0 0 2 0 0\n";
  return s.str();
}

void WriteProc(const FixtureTree& tree, const std::string& pid, const Proc& p) {
  const std::string dir = "proc/" + pid + "/";
  tree.Write(dir + "stat", StatLine(pid, p));
  tree.Write(dir + "cmdline", p.cmdline);
  if (p.statm) tree.Write(dir + "statm", "1000 200 50 10 0 300 0\n");
  if (p.status) {
    tree.Write(dir + "status",
               "Name:\t" + p.comm +
                   "\nVmPeak:\t 5000 kB\nVmSize:\t 4000 kB\nVmHWM:\t 900 kB\nVmRSS:\t 800 kB\n"
                   "RssAnon:\t 500 kB\nRssFile:\t 200 kB\nRssShmem:\t 100 kB\nVmData:\t 300 kB\n"
                   "VmStk:\t 132 kB\nVmExe:\t 40 kB\nVmLib:\t 2000 kB\nVmSwap:\t 0 kB\n");
  }
  if (p.io) {
    tree.Write(dir + "io", "rchar: 1\nwchar: 2\nread_bytes: " + std::to_string(p.read_bytes) +
                               "\nwrite_bytes: 0\ncancelled_write_bytes: 0\n");
  }
  for (const char* fd : {"0", "1", "2", "255"}) tree.Write(dir + "fd/" + fd, "");
}

void WriteMachine(const FixtureTree& tree, long long user) {
  tree.Write("proc/stat", "cpu  " + std::to_string(user) +
                              " 0 100 800 0 0 0 0 0 0\ncpu0 1\ncpu1 1\ncpu2 1\ncpu3 1\n");
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

TEST_F(ProcInfoFixture, GoldenBlockInKeyOrder) {
  // Two passes 2 s and 400 ticks apart on 4 cores: 100 hundredths of user time is one busy core.
  static const int64_t kTimes[] = {1000, 1000, 3000, 0};
  g_times = kTimes;
  ProcInfoMonitor monitor(tree.paths());
  monitor.SetClock(&ScriptedNow);
  monitor.SetPageSize(4096);
  Proc app;
  app.comm = "my proc";
  app.cmdline = "/bin/app\0--flag\0"s;
  app.utime = 350;
  app.stime = 120;
  app.start = 5000;
  app.read_bytes = 4096;
  Proc kthread;
  kthread.comm = "kworker/0:1";
  kthread.cmdline = "";
  kthread.status = false;
  kthread.io = false;
  tree.Write("reg/100/name", "camera\n");
  tree.Write("reg/100/pid", "100\n");
  tree.Mkdir("proc/self");
  tree.Mkdir("proc/7x");
  WriteMachine(tree, 100);
  WriteProc(tree, "100", app);
  WriteProc(tree, "2", kthread);
  ASSERT_TRUE(monitor.DoMonitor());
  EXPECT_TRUE(monitor.Items().empty());

  WriteMachine(tree, 500);
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
  // Clock calls in sampling order get 1, 2, 3 and 7 s: if "42" goes first it spans 2 s and "7"
  // spans 5 s.
  static const int64_t kTimes[] = {1000, 2000, 3000, 7000, 0};
  g_times = kTimes;
  ProcInfoMonitor monitor({"7", "42"}, tree.paths());
  monitor.SetClock(&ScriptedNow);
  WriteMachine(tree, 100);
  for (const char* pid : {"7", "42", "1"}) WriteProc(tree, pid, Proc());
  ASSERT_TRUE(monitor.DoMonitor());
  Proc grown;
  grown.read_bytes = 1000;
  for (const char* pid : {"7", "42", "1"}) WriteProc(tree, pid, grown);
  ASSERT_TRUE(monitor.DoMonitor());
  ASSERT_EQ(monitor.Items().size(), 2u);
  EXPECT_DOUBLE_EQ(Item(monitor, "42")->io_read_bandwidth, 500.0);
  EXPECT_DOUBLE_EQ(Item(monitor, "7")->io_read_bandwidth, 200.0);
}

TEST_F(ProcInfoFixture, SkippedExitedAndPartialProcesses) {
  ProcInfoMonitor monitor(tree.paths());
  WriteMachine(tree, 100);
  Proc no_statm;
  no_statm.statm = false;
  Proc bare;  // no status, no io: still sampled, those fields zero
  bare.status = bare.io = false;
  WriteProc(tree, "5", no_statm);
  WriteProc(tree, "6", bare);
  WriteProc(tree, "42", Proc());
  tree.Write("proc/9/stat", "");  // an empty stat is skipped too
  ASSERT_TRUE(monitor.DoMonitor());
  ASSERT_TRUE(monitor.DoMonitor());
  EXPECT_EQ(Item(monitor, "5"), nullptr);
  EXPECT_EQ(Item(monitor, "9"), nullptr);
  ASSERT_NE(Item(monitor, "6"), nullptr);
  EXPECT_EQ(Item(monitor, "6")->VmRss, 0);
  EXPECT_EQ(Item(monitor, "6")->fd_count, 4);
  ASSERT_NE(Item(monitor, "42"), nullptr);
  EXPECT_EQ(Item(monitor, "42")->VmRss, 800 * 1024);

  tree.Remove("proc/42");  // the process exits: its item stays as it was
  ASSERT_TRUE(monitor.DoMonitor());
  ASSERT_NE(Item(monitor, "42"), nullptr);
  EXPECT_EQ(Item(monitor, "42")->count, 1u);
  EXPECT_EQ(Item(monitor, "6")->count, 2u);

  tree.Remove("proc");  // no proc root at all: the pass reports failure, nothing breaks
  EXPECT_FALSE(monitor.DoMonitor());
  ProcInfoCpuState cpu{5, 6};
  EXPECT_FALSE(monitor.GetCpu(cpu));
  EXPECT_EQ(cpu.total, 5);
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
  tree.Write("reg/1234/name", "camera\n");
  tree.Write("reg/1234/pid", "1234\n");
  ASSERT_EQ(name_of(), "camera");
  for (const char* file : {"reg/1234/name", "reg/1234/pid"}) {
    const std::string keep = file == "reg/1234/name"s ? "camera\n" : "1234\n";
    tree.Remove(file);
    tree.Fifo(file);
    EXPECT_EQ(name_of(), "") << file << " as a FIFO";
    tree.Remove(file);
    tree.Symlink("/dev/zero", file);
    EXPECT_EQ(name_of(), "") << file << " as a link to /dev/zero";
    tree.Remove(file);
    tree.Write("reg/1234/real", keep);
    tree.Symlink(tree.Path("reg/1234/real"), file);
    EXPECT_EQ(name_of(), "") << file << " as a link to a good file";
    tree.Remove(file);
    tree.Sparse(file, 1LL << 32);
    EXPECT_EQ(name_of(), "") << file << " as a huge file";
    tree.Remove(file);
    tree.Mkdir(file);
    EXPECT_EQ(name_of(), "") << file << " as a directory";
    tree.Remove(file);
    tree.Write(file, keep);
    ASSERT_EQ(name_of(), "camera");
  }
  tree.Remove("reg/1234");
  tree.Write("reg/1234", "not a directory\n");
  EXPECT_EQ(name_of(), "");
  EXPECT_TRUE(monitor.DoMonitor());
}

}  // namespace
}  // namespace zefo
