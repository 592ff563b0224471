// The whole library on this machine under process churn: every monitor at a period of 2 ms,
// a helper starting and reaping short-lived children at about a thousand a second, a zombie
// nobody reaps, and host threads asking for items and reports all the while; then the facade
// is destroyed in the middle of a pass. Run by the sanitizer suites too, so everything is
// bounded by counts, with a generous deadline only against hangs.
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "zefo/cpu_monitor.h"
#include "zefo/procinfo_monitor.h"
#include "zefo/zefo_resource_monitor.h"

namespace zefo {
namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr int kPeriodMs = 2, kForks = 3000, kMinPasses = 30, kMinHostCalls = 200;
constexpr auto kDeadline = std::chrono::minutes(4);

// Starts short-lived children (/bin/true, as the shells and scripts of a board start them) and
// reaps them, in batches paced to about one per millisecond, until `count` have come and gone.
// posix_spawn rather than fork: a forked copy of a sanitizer build must duplicate its huge
// shadow mappings, which would slow the churn twentyfold.
void Churn(int count, std::atomic<int>& done) {
  char true_path[] = "/bin/true";
  char* const argv[] = {true_path, nullptr};
  char* const envp[] = {nullptr};
  const auto start = Clock::now();
  while (done < count && Clock::now() - start < kDeadline) {
    std::vector<pid_t> batch(10, -1);
    for (pid_t& pid : batch) posix_spawn(&pid, true_path, nullptr, nullptr, argv, envp);
    for (pid_t pid : batch) done += pid > 0 && waitpid(pid, nullptr, 0) == pid;
    std::this_thread::sleep_until(start + milliseconds(done.load()));
  }
}

// What a host reads inside a callback: every figure of the items it knows, so that a pass
// writing them at the same time would show as a data race.
double Touch(const std::map<std::string, ResourceItem*>& items) {
  double sum = 0;
  for (const auto& [name, item] : items) {
    sum += static_cast<double>(item->count + name.size());
    if (auto* cpu = dynamic_cast<CpuResourceItem*>(item)) sum += cpu->user + cpu->idle;
    if (auto* proc = dynamic_cast<ProcInfoResourceItem*>(item)) {
      sum += proc->user + proc->system + static_cast<double>(proc->VmRss + proc->fd_count) +
             static_cast<double>(proc->state.size() + proc->cmd_line.size());
    }
  }
  return sum;
}

TEST(FacadeChurn, HostsAndChurnThenDestroyedMidPass) {
  // A zombie for the whole run: its directory stays under /proc with state Z until reaped.
  const pid_t zombie = fork();
  if (zombie == 0) _exit(0);
  ASSERT_GT(zombie, 0);
  const std::string zombie_name = std::to_string(zombie);

  auto* monitor = new ZefoResourceMonitorApi(kPeriodMs);
  const auto deadline = Clock::now() + kDeadline;
  std::atomic<int> forked{0}, calls[3] = {}, bad_reports{0};
  std::atomic<bool> churning{true}, zombie_seen{false};
  std::atomic<uint64_t> passes{0};
  std::thread forker([&] {
    Churn(kForks, forked);
    churning = false;
  });
  // Three hosts: one reads every item in callbacks, one looks items up (the pointer only: its
  // fields may be rewritten by the next pass at any moment), one prints reports.
  const auto host = [&](int kind) {
    volatile double sink = 0;
    while ((churning || calls[kind] < kMinHostCalls || passes < kMinPasses) &&
           Clock::now() < deadline) {
      unsigned long update_time = 0;
      std::ostringstream report;
      if (kind == 0) {
        monitor->GetResourceInfo(update_time, [&](ResourceMonitorType type, const auto& items) {
          sink = sink + Touch(items);
          if (type == Cpu && items.count("total") != 0) passes = items.at("total")->count;
          const auto it = items.find(zombie_name);
          if (type != ProcInfo || it == items.end()) return;
          zombie_seen = zombie_seen || static_cast<ProcInfoResourceItem*>(it->second)->state == "Z";
        });
      } else if (kind == 1) {
        sink = sink + (monitor->GetResourceItem(Cpu, "total") != nullptr) +
               (monitor->GetResourceItem(ProcInfo, zombie_name) != nullptr) +
               (monitor->GetResourceItem(Memory, "no such item") != nullptr);
      } else {
        monitor->PrintToStream(report);
        bad_reports += report.str().rfind("update time: ", 0) != 0;
      }
      ++calls[kind];
    }
  };
  std::thread hosts[] = {std::thread(host, 0), std::thread(host, 1), std::thread(host, 2)};
  forker.join();
  for (std::thread& thread : hosts) thread.join();

  EXPECT_EQ(forked.load(), kForks) << "the deadline cut the churn short";
  EXPECT_GE(passes.load(), static_cast<uint64_t>(kMinPasses));
  for (const auto& count : calls) EXPECT_GE(count.load(), kMinHostCalls);
  EXPECT_EQ(bad_reports.load(), 0);
  EXPECT_TRUE(zombie_seen) << "the zombie " << zombie << " was never reported with state Z";

  // A host callback that holds the lock long enough for the sampler to queue behind it: the
  // pass starts the moment the callback returns, so the destructor meets it under way and
  // must wait for it, and no longer.
  unsigned long update_time = 0;
  monitor->GetResourceInfo(update_time, [](ResourceMonitorType type, const auto&) {
    if (type == Cpu) std::this_thread::sleep_for(milliseconds(20 * kPeriodMs));
  });
  const auto start = Clock::now();
  delete monitor;
  const auto took = std::chrono::duration_cast<milliseconds>(Clock::now() - start);
  EXPECT_LT(took, std::chrono::seconds(30));
  std::cout << "passes " << passes << ", host calls " << calls[0] << "/" << calls[1] << "/"
            << calls[2] << ", destroyed mid-pass in " << took.count() << " ms" << std::endl;
  ASSERT_EQ(waitpid(zombie, nullptr, 0), zombie);
}

}  // namespace
}  // namespace zefo
