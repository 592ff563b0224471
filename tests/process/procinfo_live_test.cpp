// The process monitor on this machine's own /proc, watching children the test controls.
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <fstream>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "support/fixture_tree.h"
#include "zefo/procinfo_monitor.h"

namespace zefo {
namespace {

constexpr int kWriteBytes = 1 << 20;

const ProcInfoResourceItem* Item(const ProcInfoMonitor& m, pid_t pid) {
  auto it = m.Items().find(std::to_string(pid));
  return it == m.Items().end() ? nullptr : dynamic_cast<ProcInfoResourceItem*>(it->second);
}

// A child answering one-byte commands on a pipe, each acknowledged with the same byte: 'o' opens
// one more file (kept open), 'w' writes and fsyncs kWriteBytes to a new file, 'x' exits.
class Child {
 public:
  explicit Child(const std::string& dir) {
    int to[2], from[2];
    if (pipe(to) != 0 || pipe(from) != 0) return;
    pid = fork();
    if (pid == 0) {
      close(to[1]);
      close(from[0]);
      Serve(to[0], from[1], dir);
    }
    close(to[0]);
    close(from[1]);
    cmd_ = to[1];
    ack_ = from[0];
  }
  ~Child() {
    close(cmd_);  // the child reads end of file and exits
    if (pid > 0) waitpid(pid, nullptr, 0);
    close(ack_);
  }
  bool Ask(char c) {
    char r = 0;
    return write(cmd_, &c, 1) == 1 && read(ack_, &r, 1) == 1 && r == c;
  }
  pid_t pid = -1;

 private:
  [[noreturn]] static void Serve(int in, int out, const std::string& dir) {
    static char block[kWriteBytes];
    char c;
    for (int n = 0; read(in, &c, 1) == 1; ++n) {
      const int fd = open((dir + "/f" + std::to_string(n)).c_str(), O_CREAT | O_WRONLY, 0600);
      if (c == 'w' && (write(fd, block, kWriteBytes) != kWriteBytes || fsync(fd) != 0)) _exit(1);
      if (c == 'w') close(fd);
      if (write(out, &c, 1) != 1) _exit(1);
    }
    _exit(0);
  }
  int cmd_ = -1, ack_ = -1;
};

int64_t g_now = 1000;
int64_t FakeNow() {
  return g_now;
}

TEST(ProcInfoLive, IoMemoryAndDescriptorsOfAChild) {
  testing::FixtureTree scratch;
  Child child(scratch.root());
  ProcInfoMonitor monitor(std::set<std::string>{std::to_string(child.pid)});
  monitor.SetClock(&FakeNow);
  ASSERT_TRUE(monitor.DoMonitor());
  ASSERT_TRUE(child.Ask('w'));
  ASSERT_TRUE(monitor.DoMonitor());  // same fake time: only the counters move
  const ProcInfoResourceItem* item = Item(monitor, child.pid);
  ASSERT_NE(item, nullptr);
  std::ifstream status("/proc/" + std::to_string(child.pid) + "/status");
  long long rss_kb = -1;
  for (std::string word; status >> word;) {
    if (word == "VmRSS:") status >> rss_kb;
  }
  EXPECT_NEAR(item->VmRss, rss_kb * 1024.0, rss_kb * 1024.0 * 0.05);
  const int64_t fds = item->fd_count;

  for (char c : {'o', 'o', 'o', 'w'}) ASSERT_TRUE(child.Ask(c));
  g_now += 1000;
  ASSERT_TRUE(monitor.DoMonitor());
  EXPECT_EQ(item->fd_count, fds + 3);
  if (item->io_write_bandwidth == 0) GTEST_SKIP() << "this file system does not count writes";
  EXPECT_GE(item->io_write_bandwidth, kWriteBytes);
  EXPECT_LE(item->io_write_bandwidth, kWriteBytes + 65536);  // a little metadata may be charged
}

// Nanoseconds the task has run, as the scheduler counts them (not from clock ticks).
long long RunNs(pid_t pid) {
  std::ifstream in("/proc/" + std::to_string(pid) + "/schedstat");
  long long ns = -1;
  in >> ns;
  return ns;
}

TEST(ProcInfoLive, BusyChildReadsOneCore) {
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
  ASSERT_TRUE(monitor.DoMonitor());
  const long long ns0 = RunNs(pid);
  const auto t0 = std::chrono::steady_clock::now();
  // Until the child has had half a second of CPU, however loaded the machine is.
  for (int i = 0; i < 600 && RunNs(pid) - ns0 < 500'000'000; ++i) {
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
  }
  const bool ran = RunNs(pid) - ns0 >= 500'000'000;
  ASSERT_TRUE(monitor.DoMonitor());
  const double seen =
      100.0 * static_cast<double>(RunNs(pid) - ns0) /
      std::chrono::duration<double, std::nano>(std::chrono::steady_clock::now() - t0).count();
  kill(pid, SIGKILL);
  waitpid(pid, nullptr, 0);
  if (!multi) GTEST_SKIP() << "fewer than two per-core lines: the share is scaled by 0";
  ASSERT_NE(Item(monitor, pid), nullptr);
#ifdef ZEFO_UNDER_EMULATOR
  GTEST_SKIP() << "under qemu-user the child is the emulator, whose scheduler figures count its "
                  "translator threads too";
#endif
  // Near 100 on a quiet machine; a loaded one may give the child less, and the figure must
  // follow what the scheduler really gave it.
  ASSERT_TRUE(ran) << "the child hardly ran in 30 s";
  EXPECT_NEAR(Item(monitor, pid)->user + Item(monitor, pid)->system, seen, 15.0);
}

TEST(ProcInfoLive, ChurnDoesNotStallPasses) {
  ProcInfoMonitor monitor;
  std::atomic<bool> stop{false};
  std::atomic<int> passes{0}, failed{0};
  std::thread sampler([&] {
    for (; !stop; ++passes) {
      if (!monitor.DoMonitor()) ++failed;
      std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
  });
  // Batches of short-lived children, each batch left as zombies for a moment before reaping.
  // Counted, not timed: under a sanitizer a fork costs many times more. The deadline only
  // keeps a broken machine from hanging the suite.
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
  int started = 0;
  while (started < 2000 && std::chrono::steady_clock::now() < deadline) {
    std::vector<pid_t> batch;
    for (int i = 0; i < 50; ++i) {
      const pid_t pid = fork();
      if (pid == 0) _exit(0);
      if (pid > 0) batch.push_back(pid);
    }
    for (pid_t pid : batch) waitpid(pid, nullptr, 0);
    started += static_cast<int>(batch.size());
  }
  const int before = passes;
  std::this_thread::sleep_for(std::chrono::milliseconds(300));
  stop = true;
  sampler.join();
  EXPECT_GT(started, 1000);
  EXPECT_GT(passes.load(), before);  // passes still complete after the churn
  EXPECT_EQ(failed.load(), 0);
  EXPECT_FALSE(monitor.Items().empty());
}

}  // namespace
}  // namespace zefo
