// The process monitor on this machine's own /proc, watching children it controls.
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <fstream>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "support/fixture_tree.h"
#include "zefo/procinfo_monitor.h"

namespace zefo {
namespace {

const ProcInfoResourceItem* Item(const ProcInfoMonitor& m, const std::string& pid) {
  auto it = m.Items().find(pid);
  return it == m.Items().end() ? nullptr : dynamic_cast<ProcInfoResourceItem*>(it->second);
}

// A child that obeys one-byte commands on a pipe and answers each with one byte:
// 'w' writes and fsyncs kWriteBytes to a new file, 'o' opens one more file, 'x' exits.
constexpr int kWriteBytes = 1 << 20;

class Child {
 public:
  explicit Child(const std::string& dir) {
    int to[2], from[2];
    if (pipe(to) != 0 || pipe(from) != 0) return;
    pid_ = fork();
    if (pid_ == 0) {
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
    Ask('x');
    close(cmd_);
    close(ack_);
    if (pid_ > 0) waitpid(pid_, nullptr, 0);
  }
  bool Ask(char c) {
    char r = 0;
    return write(cmd_, &c, 1) == 1 && read(ack_, &r, 1) == 1 && r == c;
  }
  std::string Pid() const { return std::to_string(pid_); }

 private:
  [[noreturn]] static void Serve(int in, int out, const std::string& dir) {
    static char block[kWriteBytes];
    char c;
    int n = 0;
    while (read(in, &c, 1) == 1 && c != 'x') {
      const std::string path = dir + "/f" + std::to_string(n++);
      const int fd = open(path.c_str(), O_CREAT | O_WRONLY | O_TRUNC, 0600);
      if (c == 'w') {
        if (write(fd, block, sizeof block) != kWriteBytes || fsync(fd) != 0) _exit(1);
        close(fd);
      }
      if (write(out, &c, 1) != 1) _exit(1);
    }
    if (c == 'x') (void)!write(out, &c, 1);
    _exit(0);
  }
  pid_t pid_ = -1;
  int cmd_ = -1, ack_ = -1;
};

long long StatusKb(const std::string& pid, const std::string& key) {
  std::ifstream in("/proc/" + pid + "/status");
  std::string word;
  long long value = -1;
  while (in >> word) {
    if (word == key) in >> value;
  }
  return value;
}

// Two passes a fake second apart bracket the child's writes and opens.
int64_t g_now = 1000;
int64_t FakeNow() {
  return g_now;
}

TEST(ProcInfoLive, IoMemoryAndDescriptorsOfAChild) {
  testing::FixtureTree scratch;  // on the same file system as the fixtures, for the writes
  Child child(scratch.root());
  ProcInfoMonitor monitor(std::set<std::string>{child.Pid()});
  monitor.SetClock(&FakeNow);
  ASSERT_TRUE(child.Ask('o'));
  g_now = 1000;
  ASSERT_TRUE(monitor.DoMonitor());
  ASSERT_TRUE(child.Ask('w'));
  ASSERT_TRUE(monitor.DoMonitor());  // same time: elapsed 0, only counters change
  const ProcInfoResourceItem* item = Item(monitor, child.Pid());
  ASSERT_NE(item, nullptr);
  const long long fds = item->fd_count;
  const long long rss = StatusKb(child.Pid(), "VmRSS:") * 1024;
  EXPECT_NEAR(static_cast<double>(item->VmRss), static_cast<double>(rss), rss * 0.05);
  EXPECT_EQ(item->pid, std::stoi(child.Pid()));

  for (int i = 0; i < 3; ++i) ASSERT_TRUE(child.Ask('o'));
  ASSERT_TRUE(child.Ask('w'));
  g_now += 1000;
  ASSERT_TRUE(monitor.DoMonitor());
  EXPECT_EQ(item->fd_count, fds + 3);
  if (item->io_write_bandwidth == 0) GTEST_SKIP() << "this file system does not count writes";
  // A little metadata may be charged to the writer as well.
  EXPECT_GE(item->io_write_bandwidth, kWriteBytes);
  EXPECT_LE(item->io_write_bandwidth, kWriteBytes + 65536);
}

// Nanoseconds the task has run, from the scheduler (not from the clock-tick accounting).
long long RunNs(pid_t pid) {
  std::ifstream in("/proc/" + std::to_string(pid) + "/schedstat");
  long long ns = -1;
  in >> ns;
  return ns;
}

TEST(ProcInfoLive, BusyChildReadsOneCore) {
  const pid_t pid = fork();
  if (pid == 0) {
    for (volatile unsigned long spin = 0;; spin = spin + 1) {
    }
  }
  ASSERT_GT(pid, 0);
  // Ahead of builds running beside the test, so the child really keeps one core (needs root).
  const bool favoured = setpriority(PRIO_PROCESS, pid, -20) == 0;
  ProcInfoMonitor monitor(std::set<std::string>{std::to_string(pid)});
  ProcInfoCpuState cpu;
  const bool multi = monitor.GetCpu(cpu) && cpu.cores >= 2;
  ASSERT_TRUE(monitor.DoMonitor());
  const long long ns0 = RunNs(pid);
  const auto t0 = std::chrono::steady_clock::now();
  std::this_thread::sleep_for(std::chrono::milliseconds(1000));
  ASSERT_TRUE(monitor.DoMonitor());
  const long long ns1 = RunNs(pid);
  const auto t1 = std::chrono::steady_clock::now();
  kill(pid, SIGKILL);
  waitpid(pid, nullptr, 0);
  if (!multi) GTEST_SKIP() << "fewer than two per-core lines: the share is scaled by 0";
  const ProcInfoResourceItem* item = Item(monitor, std::to_string(pid));
  ASSERT_NE(item, nullptr);
  // The share the scheduler saw over the same second, in percent of one core.
  const double seen = 100.0 * static_cast<double>(ns1 - ns0) /
                      std::chrono::duration<double, std::nano>(t1 - t0).count();
  // On an idle machine (or with the child favoured) `seen` is close to 100; a busy machine may
  // give the child less, and the monitor must report what it really got.
  EXPECT_GT(seen, 20.0) << "the child hardly ran";
  EXPECT_NEAR(item->user + item->system, seen, 15.0) << "favoured: " << favoured;
}

TEST(ProcInfoLive, ChurnDoesNotStallPasses) {
  ProcInfoMonitor monitor;
  std::atomic<bool> stop{false};
  std::atomic<int> passes{0}, failed{0};
  std::thread sampler([&] {
    while (!stop) {
      if (!monitor.DoMonitor()) ++failed;
      ++passes;
      std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
  });
  // Batches of short-lived children; each batch lingers as zombies until it is reaped.
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(3);
  int started = 0;
  while (started < 4000 && std::chrono::steady_clock::now() < deadline) {
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
  std::this_thread::sleep_for(std::chrono::milliseconds(200));
  stop = true;
  sampler.join();
  EXPECT_GT(started, 1000);
  EXPECT_GT(passes.load(), before);  // still completing after the churn
  EXPECT_EQ(failed.load(), 0);
  EXPECT_FALSE(monitor.Items().empty());
}

}  // namespace
}  // namespace zefo
