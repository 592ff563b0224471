// The core: kernel-file readers, the two-sample update, the aggregator's report frame, lookup
// and replacement, the companion thread, timer and lock, and hosts reading while passes run.
#include <fcntl.h>
#include <pthread.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <climits>
#include <set>
#include <sstream>
#include <thread>
#include <type_traits>

#include <gtest/gtest.h>

#include "core/file_reader.h"
#include "support/fixture_tree.h"
#include "zefo/cpu_monitor.h"
#include "zefo/zefo_resource_monitor.h"
#include "zefo/zefo_thread.h"
#include "zefo/zefo_timer.h"

namespace zefo {
namespace {

using namespace std::string_literals;
using std::chrono::milliseconds;
using Clock = std::chrono::steady_clock;

// Kernel counters pass 2^32 on a running board: 64 bits wide on every target, never `long`.
static_assert(std::is_same_v<decltype(CpuState::user), long long>);
static_assert(sizeof(long long) == 8 && sizeof(ResourceItem::count) == 8);

struct LabelItem : ResourceItem {
  explicit LabelItem(std::string text) : text(std::move(text)) {}
  void PrintToStream(std::ostream& os) override { os << text << std::endl; }
  std::string text;
};

// Publishes one item per name on its first pass, and notes the name of the thread it ran on.
class StandIn : public BaseMonitor {
 public:
  StandIn(ResourceMonitorType type, std::vector<std::string> names, int* deleted = nullptr)
      : BaseMonitor(type), names_(std::move(names)), deleted_(deleted) {}
  ~StandIn() override {
    if (deleted_ != nullptr) ++*deleted_;
  }
  bool DoMonitor() override {
    if (!published_.exchange(true)) {
      char name[16] = {};
      pthread_getname_np(pthread_self(), name, sizeof name);
      thread_name = name;
      for (const auto& name : names_) {
        MutableItems()->Insert(name, new LabelItem(std::to_string(Type()) + ":" + name));
      }
    }
    return false;  // the aggregator ignores the result
  }
  std::string thread_name;

 private:
  std::atomic<bool> published_{false};
  std::vector<std::string> names_;
  int* deleted_;
};

TEST(Readers, LinesWordsValuesAndHostileFiles) {
  std::list<std::string> lines;
  detail::SplitLines("a\n\nb"s + std::string("x\0y\n", 4), lines);
  EXPECT_EQ(lines, (std::list<std::string>{"a", "", "bx\0y"s}));
  testing::FixtureTree tree;
  StandIn monitor(Cpu, {});
  long long value = 7;
  EXPECT_FALSE(monitor.ReadValue(tree.Path("missing"), value));
  EXPECT_EQ(value, -1);
  tree.Write("two", "42 17\n99\n");
  EXPECT_TRUE(monitor.ReadValue(tree.Path("two"), value));
  EXPECT_EQ(value, 42);
  tree.Write("long", std::string(70000, 'w') + "\n");
  char word[BaseMonitor::kWordSize + 8];
  std::fill(std::begin(word), std::end(word), '#');
  EXPECT_TRUE(monitor.ReadValue(tree.Path("long"), word));
  EXPECT_EQ(std::string(word), std::string(BaseMonitor::kWordSize - 1, 'w'));
  EXPECT_EQ(word[BaseMonitor::kWordSize], '#');

  tree.Fifo("fifo");
  tree.Symlink("/dev/zero", "zero");
  tree.Mkdir("dir");
  for (const char* name : {"fifo", "zero", "dir", "missing"}) {
    EXPECT_TRUE(monitor.ReadFile(tree.Path(name)).empty()) << name;
  }
  tree.Symlink(tree.Path("two"), "link");
  EXPECT_EQ(monitor.ReadFile(tree.Path("link")).size(), 2u);
  // A host that closed its standard input gets descriptor 0 for the next file opened.
  const int stdin_copy = dup(0);
  close(0);
  EXPECT_EQ(monitor.ReadFile(tree.Path("two")).size(), 2u);
  EXPECT_EQ(fcntl(0, F_GETFD), -1);  // and closed again
  dup2(stdin_copy, 0);
  close(stdin_copy);
  EXPECT_TRUE(monitor.ReadFileNoFollow(tree.Path("link")).empty());
  std::string big, text;
  while (big.size() < 10u * 1024 * 1024) big += std::string(1023, 'a') + "\n";
  tree.Write("big", big);
  EXPECT_EQ(detail::ReadWholeFile(tree.Path("big"), text), detail::ReadStatus::kTruncated);
  EXPECT_LE(text.size(), detail::kMaxFileBytes);
  EXPECT_EQ(text.back(), '\n');  // cut at a whole line within the cap
  // What went wrong is told apart: tools report a missing source unlike a broken one.
  EXPECT_EQ(detail::ReadWholeFile(tree.Path("missing"), text), detail::ReadStatus::kMissing);
  EXPECT_EQ(detail::ReadWholeFile(tree.Path("fifo"), text), detail::ReadStatus::kNotRegular);

  tree.Mkdir("d/a");
  tree.Mkdir("d/.hidden");
  tree.Write("d/f", "");
  tree.Symlink(tree.Path("d/a"), "d/link");
  EXPECT_EQ(monitor.SubDirs(tree.Path("d") + "/"), std::list<std::string>{"a"});
  EXPECT_EQ(monitor.SubFiles(tree.Path("d")), std::list<std::string>{"f"});
  EXPECT_EQ(BaseMonitor::UnitToBytes("kB") * BaseMonitor::UnitToBytes("KB"), 1024u);
  EXPECT_EQ(BaseMonitor::UnitToBytes("GB"), 1073741824u);
  EXPECT_EQ(monitor.LinuxProcessAdjustTime(~0ULL), UINT64_MAX);
  EXPECT_EQ(KernelPaths::UnderRoot("/tmp/t").Root("/boot"), "/tmp/t/rootfs/boot");
  EXPECT_EQ(KernelPaths().Root("/"), "/");
}

struct CounterItem : ResourceItem {
  ~CounterItem() override { ++destroyed; }
  void PrintToStream(std::ostream& os) override { os << rate << "\n"; }
  double rate = 0, elapsed = 0;
  static inline int destroyed = 0;
};

class CounterInfo : public ResourceInfo<long long, CounterItem> {
 public:
  void DoUpdate(const std::string&, CounterItem* item, const long long& current,
                const long long& previous, double elapsed) override {
    item->elapsed = elapsed;
    item->rate = static_cast<double>(current - previous) / elapsed;
  }
};

TEST(ResourceInfoTest, FirstSampleStoresLaterOnesUpdateAcrossGaps) {
  CounterItem::destroyed = 0;
  {
    ResourceItems items;
    CounterInfo info;
    info.Update(&items, "a", 10, 1000);
    EXPECT_TRUE(items.Items().empty());
    info.Update(&items, "a", 30, 3000);
    auto* item = dynamic_cast<CounterItem*>(items.Find("a"));
    ASSERT_NE(item, nullptr);
    EXPECT_EQ(item->count, 1u);
    EXPECT_DOUBLE_EQ(item->rate, 10.0);
    info.Update(&items, "a", 90, 9000);  // absent for a while: paired across the gap
    EXPECT_EQ(items.Find("a"), item);
    EXPECT_EQ(item->count, 2u);
    EXPECT_DOUBLE_EQ(item->elapsed, 6.0);
    info.Update(&items, "b", 1, 1000);
    info.Update(&items, "b", 2, 2000);
    items.Insert("b", new CounterItem());  // replaces b's item, which goes at once
    EXPECT_EQ(CounterItem::destroyed, 1);
  }
  EXPECT_EQ(CounterItem::destroyed, 3);  // the rest once each, with their container
}

TEST(AggregatorTest, LookupAndReplacement) {
  int deleted = 0;
  auto* memory = new StandIn(Memory, {"b", "a"});
  ZefoResourceMonitor monitor(
      {memory, new StandIn(Cpu, {"old"}, &deleted), new StandIn(Cpu, {"cpu10", "cpu2", "cpu1"}),
       new StandIn(ProcInfo, {})},
      60000);
  EXPECT_EQ(deleted, 1);  // a second monitor of a kind replaces the first
  const uint64_t update_time = monitor.WaitForUpdate(0, 5000);
  EXPECT_EQ(monitor.GetUpdateTime(), update_time);
  EXPECT_EQ(memory->thread_name, "res_monitor");  // as ps and top show the sampler
  // Milliseconds since the epoch need 41 bits; `unsigned long` carries them modulo its width.
  ASSERT_GT(update_time, uint64_t{1} << 40);
  std::vector<ResourceMonitorType> seen;
  unsigned long legacy = 0;
  monitor.GetResourceInfo(legacy,
                          [&](ResourceMonitorType type, const auto&) { seen.push_back(type); });
  EXPECT_EQ(legacy, static_cast<unsigned long>(update_time & ULONG_MAX));
  EXPECT_EQ(seen, (std::vector<ResourceMonitorType>{Cpu, Memory, ProcInfo}));
  EXPECT_EQ(dynamic_cast<LabelItem*>(monitor.GetResourceItem(Memory, "a"))->text, "4:a");
  EXPECT_EQ(monitor.GetResourceItem(Cpu, "old"), nullptr);
  EXPECT_EQ(monitor.GetResourceItem(Disk, "a"), nullptr);
  EXPECT_NE(monitor.GetResourceItem(Cpu, "cpu2"), nullptr);  // the lock was let go every time
}

TEST(AggregatorTest, ProcessOnlyModeHasOneSeparatorAndNoSystemItems) {
  ZefoResourceMonitorApi api(60000, std::set<std::string>{"1"});
  const uint64_t update_time = api.WaitForUpdate(0, 5000);
  std::ostringstream report;
  api.PrintToStream(report);
  EXPECT_EQ(report.str(),
            "update time: " + std::to_string(update_time) + "\n" + "-------" + "-------------\n\n");
}

TEST(ThreadingTest, TimerAndLock) {
  // A stopped timer stays stopped: a pass that ends after the stop must not sleep out its period.
  // (Waking a timer that waits is the idle aggregator's destruction below.)
  ZefoTimer timer;
  timer.stop();
  const auto start = Clock::now();
  timer.start(60000);
  EXPECT_LT(Clock::now() - start, std::chrono::seconds(30));

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

TEST(ThreadingTest, HostsSeeWholePassesGetTheirTurnAndDestroyingWaitsForNoPeriod) {
  // Period 0: the sampler takes the lock again the moment it lets go; hosts must still get in.
  auto* monitor = new ZefoResourceMonitor({new HalvesMonitor(Cpu), new HalvesMonitor(Memory)}, 0);
  int torn = 0, sweeps = 0;
  long long seen_max = 0;
  for (const auto deadline = Clock::now() + std::chrono::seconds(30);
       (sweeps < 50 || seen_max < 5) && Clock::now() < deadline; ++sweeps) {
    std::set<long long> halves;
    unsigned long update_time = 0;
    monitor->GetResourceInfo(update_time, [&](ResourceMonitorType, const auto& items) {
      for (const auto& entry : items) {
        auto* item = static_cast<HalvesMonitor::Item*>(entry.second);
        halves.insert({item->first, item->second});
      }
    });
    torn += halves.size() > 1;
    if (!halves.empty()) seen_max = std::max(seen_max, *halves.begin());
  }
  EXPECT_EQ(torn, 0);
  EXPECT_GE(seen_max, 5);
  delete monitor;

  // The thread waits out a 2 s period after its first pass; destruction cuts that short. The
  // destruction comes once the thread is waiting: right after the pass it could come first.
  auto* idle = new ZefoResourceMonitor({new StandIn(Cpu, {})}, 2000);
  idle->WaitForUpdate(0, 5000);
  std::this_thread::sleep_for(milliseconds(100));
  const auto start = Clock::now();
  delete idle;
  EXPECT_LT(Clock::now() - start, milliseconds(1500));
}

}  // namespace
}  // namespace zefo
