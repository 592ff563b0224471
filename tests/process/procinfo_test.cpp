// The process monitor: what the fixture board cannot show (a fixed set of processes, processes
// that exit or lack files, planted devices), and children of this test measured against what
// the kernel reports of them, with the machine's CPU shares and disk bandwidth beside.
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/utsname.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <fstream>
#include <thread>

#include <gtest/gtest.h>

#include "core/file_reader.h"
#include "process/fd_count.h"
#include "support/board.h"

namespace zefo {
namespace {

using namespace std::string_literals;
using testing::FixtureTree;
using testing::Item;

// Scripted clock: each call returns the next time, the last one for good.
const int64_t* g_times = nullptr;
int64_t ScriptedNow() {
  const int64_t now = *g_times;
  if (g_times[1] != 0) ++g_times;
  return now;
}

TEST(ProcInfoMonitorTest, FixedSetSampledInStringOrderOnly) {
  // Clock calls in sampling order get 1, 2, 3 and 7 s: "100" goes first and spans 2 s, "300" 5 s.
  static const int64_t kTimes[] = {1000, 2000, 3000, 7000, 0};
  g_times = kTimes;
  FixtureTree tree;
  ProcInfoMonitor monitor({"300", "100"}, tree.paths());
  monitor.SetClock(&ScriptedNow);
  for (int pass : {0, 1}) {
    testing::LoadBoard(tree, pass);
    tree.Write("proc/300/io", pass == 0 ? "read_bytes: 0\n" : "read_bytes: 1000\n");
    ASSERT_TRUE(monitor.DoMonitor());
  }
  ASSERT_EQ(monitor.Items().size(), 2u);
  EXPECT_EQ(Item<ProcInfoResourceItem>(monitor, "100")->io_read_bandwidth, 2097152 / 2.0);
  EXPECT_EQ(Item<ProcInfoResourceItem>(monitor, "300")->io_read_bandwidth, 200.0);
}

// A child answering one-byte commands on a socket, each acknowledged with the same byte: 'o'
// opens one more file (kept open), 'w' also writes and fsyncs 1 MiB to it.
class Child {
 public:
  explicit Child(const std::string& dir) {
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0) return;
    pid = fork();
    if (pid == 0) {
      close(ends[0]);
      static char block[1 << 20];
      char c;
      for (int n = 0; read(ends[1], &c, 1) == 1; ++n) {
        const int fd = open((dir + "/f" + std::to_string(n)).c_str(), O_CREAT | O_WRONLY, 0600);
        if (c == 'w' && (write(fd, block, sizeof block) != sizeof block || fsync(fd) != 0))
          _exit(1);
        if (write(ends[1], &c, 1) != 1) _exit(1);
      }
      _exit(0);
    }
    close(ends[1]);
    socket_ = ends[0];
  }
  ~Child() {
    close(socket_);  // the child reads end of file and exits
    if (pid > 0) waitpid(pid, nullptr, 0);
  }
  bool Ask(char c) {
    char r = 0;
    return write(socket_, &c, 1) == 1 && read(socket_, &r, 1) == 1 && r == c;
  }
  pid_t pid = -1;

 private:
  int socket_ = -1;
};

TEST(ProcInfoLive, IoMemoryAndDescriptorsOfAChild) {
  FixtureTree scratch;
  Child child(scratch.root());
  const std::string pid = std::to_string(child.pid);
  ProcInfoMonitor monitor(std::set<std::string>{pid});
  monitor.SetClock(&testing::FakeNow);
  ASSERT_TRUE(monitor.DoMonitor());
  ASSERT_TRUE(child.Ask('w'));
  ASSERT_TRUE(monitor.DoMonitor());  // same fake time: only the counters move
  const auto* item = Item<ProcInfoResourceItem>(monitor, pid);
  ASSERT_NE(item, nullptr);
  std::ifstream status("/proc/" + pid + "/status");
  long long rss_kb = -1;
  for (std::string word; status >> word;) {
    if (word == "VmRSS:") status >> rss_kb;
  }
  EXPECT_NEAR(item->VmRss, rss_kb * 1024.0, rss_kb * 1024.0 * 0.05);
  // Counted from the directory's size where the kernel gives it (6.2 on), as listing counts.
  const int64_t fds = item->fd_count;
  EXPECT_EQ(fds, detail::ListFdCount("/proc/" + pid + "/fd"));
  const detail::FdSizeRule rule = detail::DetectFdSizeRule("/proc");
  utsname name;
  ASSERT_EQ(uname(&name), 0);
  EXPECT_EQ(rule.size_is_count, detail::ReleaseAtLeast(name.release, 6, 2));
  // Our own directory is listed, so it counts the descriptor that lists it, as always.
  const std::string self = "/proc/" + std::to_string(getpid()) + "/fd";
  EXPECT_EQ(detail::FdCount(self, rule, true), detail::ListFdCount(self));
  EXPECT_EQ(detail::FdCount("/proc/999999999/fd", rule, false), 0);
  // Root may size any process's directory only with CAP_DAC_OVERRIDE or CAP_DAC_READ_SEARCH.
  for (const char* cap_eff : {"0000000000000000", "0000000000000002", "0000000000000004"}) {
    scratch.Write("self/status", "Name:\tx\nCapEff:\t"s + cap_eff + "\n");
    scratch.Mkdir("self/fd");
    EXPECT_EQ(detail::DetectFdSizeRule(scratch.root()).lists_any,
              rule.size_is_count && geteuid() == 0 && cap_eff[15] != '0')
        << cap_eff;
  }
  EXPECT_TRUE(detail::IsProcfsMount("/proc"));
  EXPECT_FALSE(detail::IsProcfsMount(scratch.root()));
  // The disk of the scratch directory takes the child's synced MiB too, ours and others' bytes.
  DiskMonitor disks;
  disks.SetClock(&testing::FakeNow);
  disks.DoMonitor();
  for (char c : {'o', 'o', 'w'}) ASSERT_TRUE(child.Ask(c));
  testing::g_fake_now += 1000;
  ASSERT_TRUE(monitor.DoMonitor());
  disks.DoMonitor();
  EXPECT_EQ(item->fd_count, fds + 3);
  struct stat scratch_st, st;
  ASSERT_EQ(stat(scratch.root().c_str(), &scratch_st), 0);
  for (const auto& [mount_point, disk] : disks.Items()) {
    if (stat(mount_point.c_str(), &st) == 0 && st.st_dev == scratch_st.st_dev) {
      EXPECT_GE(static_cast<DiskResourceItem*>(disk)->written_bandwidth, 1 << 20) << mount_point;
    }
  }
  if (item->io_write_bandwidth == 0) GTEST_SKIP() << "this file system does not count writes";
  EXPECT_GE(item->io_write_bandwidth, 1 << 20);
  EXPECT_LE(item->io_write_bandwidth, (1 << 20) + 65536);  // a little metadata may be charged
}

// Nanoseconds the task has run, as the scheduler counts them (not from clock ticks).
long long RunNs(pid_t pid) {
  std::ifstream in("/proc/" + std::to_string(pid) + "/schedstat");
  long long ns = -1;
  in >> ns;
  return ns;
}

// A child spinning until it has had half a second of CPU, however loaded the machine is: the
// process monitor gives it what the scheduler gave it, and the machine's shares cover it.
TEST(ProcInfoLive, BusyChildReadsWhatTheSchedulerGaveIt) {
  const pid_t pid = fork();
  if (pid == 0) {
    for (volatile unsigned spin = 0;; spin = spin + 1) {
    }
  }
  ASSERT_GT(pid, 0);
  setpriority(PRIO_PROCESS, pid, -20);  // ahead of builds running beside the test, if allowed
  ProcInfoMonitor monitor(std::set<std::string>{std::to_string(pid)});
  ProcInfoCpuState cpu;
  const bool multi = monitor.GetCpu(cpu) && cpu.cores >= 2;
  CpuMonitor machine;
  machine.DoMonitor();
  ASSERT_TRUE(monitor.DoMonitor());
  const long long ns0 = RunNs(pid);
  const auto t0 = std::chrono::steady_clock::now();
  for (int i = 0; i < 600 && RunNs(pid) - ns0 < 500'000'000; ++i) {
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
  }
  const double ran_ns = static_cast<double>(RunNs(pid) - ns0);
  ASSERT_TRUE(monitor.DoMonitor());
  machine.DoMonitor();
  const double wall_ns =
      std::chrono::duration<double, std::nano>(std::chrono::steady_clock::now() - t0).count();
  kill(pid, SIGKILL);
  waitpid(pid, nullptr, 0);
  ASSERT_GE(ran_ns, 5e8) << "the child hardly ran in 30 s";
  for (const auto& [name, base] : machine.Items()) {
    const auto& c = dynamic_cast<const CpuResourceItem&>(*base);
    EXPECT_NEAR(c.user + c.nice + c.system + c.idle + c.iowait + c.irq + c.softirq + c.steal, 100.0,
                1e-6)
        << name;
  }
  const auto& total = dynamic_cast<const CpuResourceItem&>(*machine.Items().at("total"));
  const double cpus = static_cast<double>(sysconf(_SC_NPROCESSORS_ONLN));
  EXPECT_GE((total.user + total.nice + total.system) / 100.0 * wall_ns * cpus, 0.8 * ran_ns);
  if (!multi) GTEST_SKIP() << "fewer than two per-core lines: the share is scaled by 0";
#ifdef ZEFO_UNDER_EMULATOR
  GTEST_SKIP() << "under qemu-user the child is the emulator, whose figures count its threads";
#endif
  const auto* item = Item<ProcInfoResourceItem>(monitor, std::to_string(pid));
  ASSERT_NE(item, nullptr);
  EXPECT_NEAR(item->user + item->system, 100.0 * ran_ns / wall_ns, 15.0);
}

}  // namespace
}  // namespace zefo
