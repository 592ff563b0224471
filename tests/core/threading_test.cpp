// The companion thread, timer and lock, and the aggregator's shutdown under concurrent hosts.
#include <gtest/gtest.h>
#include <pthread.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <set>
#include <sstream>
#include <thread>
#include <vector>

#include "zefo/zefo_resource_monitor.h"
#include "zefo/zefo_thread.h"
#include "zefo/zefo_timer.h"

namespace zefo {
namespace {

using std::chrono::milliseconds;
using Clock = std::chrono::steady_clock;

class NameProbe : public ZefoThread {
 public:
  NameProbe() : ZefoThread("res_monitor") {}
  ~NameProbe() override { stop(); }
  std::string seen;
  std::atomic<bool> done{false};

 protected:
  void do_run() override {
    char name[16] = {};
    pthread_getname_np(pthread_self(), name, sizeof name);
    seen = name;
    done = true;
    while (is_running()) std::this_thread::sleep_for(milliseconds(1));
  }
};

TEST(ZefoThreadTest, NamesTheOsThreadAndStopsOnce) {
  NameProbe probe;
  probe.stop();  // never started: nothing happens
  probe.start();
  EXPECT_TRUE(probe.is_running());
  while (!probe.done) std::this_thread::sleep_for(milliseconds(1));
  probe.stop();
  probe.stop();
  EXPECT_FALSE(probe.is_running());
  EXPECT_EQ(probe.seen, "res_monitor");
}

TEST(ZefoTimerTest, StopWakesAWaiterAndLatches) {
  ZefoTimer timer;
  const auto start = Clock::now();
  std::thread waiter([&] { timer.start(60000); });
  std::this_thread::sleep_for(milliseconds(20));
  timer.stop();
  waiter.join();
  timer.start(60000);  // stopped: returns at once
  EXPECT_LT(Clock::now() - start, std::chrono::seconds(30));
}

TEST(ZefoThreadSpinTest, ExcludesAndPublishes) {
  ZefoThreadSpin spin;
  long long counter = 0;  // plain: only the lock orders the writes
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&] {
      for (int i = 0; i < 20000; ++i) {
        ZefoSpinGuard guard(&spin);
        ++counter;
      }
    });
  }
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(counter, 80000);
}

// A monitor whose pass takes a while, so hosts queue up behind it.
class SlowMonitor : public BaseMonitor {
 public:
  explicit SlowMonitor(ResourceMonitorType type) : BaseMonitor(type) {}
  bool DoMonitor() override {
    std::this_thread::sleep_for(milliseconds(3));
    ++passes;
    return true;
  }
  std::atomic<int> passes{0};
};

TEST(AggregatorShutdownTest, DestroyingReturnsWithinThePassInProgress) {
  auto* slow = new SlowMonitor(Cpu);
  auto* monitor = new ZefoResourceMonitor({slow}, 2000);
  while (slow->passes == 0) std::this_thread::sleep_for(milliseconds(1));
  // The thread now waits out a 2 s period; destruction must cut that short.
  const auto start = Clock::now();
  delete monitor;
  EXPECT_LT(Clock::now() - start, milliseconds(1500));
}

// Writes its one item in two halves, a little apart, with its own pass number, so a reader
// that is not kept out for a whole pass sees the halves, or two monitors, disagree.
class HalvesMonitor : public BaseMonitor {
 public:
  struct Item : ResourceItem {
    void PrintToStream(std::ostream& os) override { os << first << " " << second << std::endl; }
    long long first = 0, second = 0;
  };
  explicit HalvesMonitor(ResourceMonitorType type) : BaseMonitor(type) {}
  bool DoMonitor() override {
    if (item_ == nullptr) MutableItems()->Insert("pass", item_ = new Item());
    item_->first = ++passes_;
    std::this_thread::sleep_for(milliseconds(1));
    item_->second = passes_;
    return true;
  }

 private:
  Item* item_ = nullptr;
  long long passes_ = 0;
};

TEST(AggregatorConsistencyTest, HostsSeeWholePassesAndGetTheirTurn) {
  // Period 0: the sampler takes the lock again the moment it lets go; hosts must still get in.
  ZefoResourceMonitor monitor({new HalvesMonitor(Cpu), new HalvesMonitor(Memory)}, 0);
  std::atomic<int> torn{0};
  std::atomic<long long> seen_max{0};
  std::thread printer([&] {
    for (int i = 0; i < 20; ++i) {
      std::ostringstream report;
      monitor.PrintToStream(report);
      std::istringstream in(report.str());
      std::string line;
      std::set<std::string> distinct;
      while (std::getline(in, line)) {
        if (!line.empty() && line[0] != 'u' && line[0] != '-') distinct.insert(line);
      }
      if (distinct.size() > 1) ++torn;
    }
  });
  const auto deadline = Clock::now() + std::chrono::seconds(30);
  int sweeps = 0;
  while ((sweeps < 50 || seen_max < 5) && Clock::now() < deadline) {
    std::vector<long long> halves;
    unsigned long update_time = 0;
    monitor.GetResourceInfo(update_time, [&](ResourceMonitorType, const auto& items) {
      for (const auto& entry : items) {
        auto* item = static_cast<HalvesMonitor::Item*>(entry.second);
        halves.push_back(item->first);
        halves.push_back(item->second);
      }
    });
    if (!halves.empty()) {
      if (std::set<long long>(halves.begin(), halves.end()).size() != 1) ++torn;
      seen_max = std::max<long long>(seen_max, halves[0]);
    }
    ++sweeps;
  }
  printer.join();
  EXPECT_EQ(torn, 0);
  EXPECT_GE(sweeps, 50);
  EXPECT_GE(seen_max, 5);
}

}  // namespace
}  // namespace zefo
