// The aggregator with stand-in monitors: order, lookup, report frame, replacement, callbacks.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <sstream>
#include <thread>
#include <vector>

#include "zefo/zefo_resource_monitor.h"

namespace zefo {
namespace {

struct LabelItem : ResourceItem {
  explicit LabelItem(std::string text) : text(std::move(text)) {}
  void PrintToStream(std::ostream& os) override { os << text << std::endl; }
  std::string text;
};

// Publishes one item per name on its first pass and counts passes.
class StandInMonitor : public BaseMonitor {
 public:
  StandInMonitor(ResourceMonitorType type, std::vector<std::string> names,
                 std::atomic<int>* deleted = nullptr)
      : BaseMonitor(type), names_(std::move(names)), deleted_(deleted) {}
  ~StandInMonitor() override {
    if (deleted_ != nullptr) ++*deleted_;
  }
  bool DoMonitor() override {
    if (passes.fetch_add(1) == 0) {
      for (const auto& name : names_) {
        MutableItems()->Insert(name, new LabelItem(std::to_string(Type()) + ":" + name));
      }
    }
    return false;  // the aggregator ignores the result
  }
  std::atomic<int> passes{0};

 private:
  std::vector<std::string> names_;
  std::atomic<int>* deleted_;
};

// The whole pass time: GetResourceInfo's `unsigned long` is cut to 32 bits on armhf.
uint64_t WaitForPass(ZefoResourceMonitor& monitor) {
  uint64_t update_time = 0;
  for (int i = 0; i < 2000 && update_time == 0; ++i) {
    update_time = monitor.GetUpdateTime();
    if (update_time == 0) std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  return update_time;
}

TEST(AggregatorTest, ReportFrameFollowsTypeAndNameOrder) {
  ZefoResourceMonitor monitor(
      {new StandInMonitor(Memory, {"b", "a"}), new StandInMonitor(Cpu, {"cpu10", "cpu2", "cpu1"}),
       new StandInMonitor(ProcInfo, {})},
      60000);
  const uint64_t update_time = WaitForPass(monitor);
  ASSERT_NE(update_time, 0u);
  std::ostringstream report;
  monitor.PrintToStream(report);
  const std::string sep = "--------------------\n";
  EXPECT_EQ(report.str(), "update time: " + std::to_string(update_time) + "\n" +
                              "1:cpu1\n1:cpu10\n1:cpu2\n" + sep + "4:a\n4:b\n" + sep + sep + "\n");
}

TEST(AggregatorTest, CallbackSweepAndLookup) {
  ZefoResourceMonitor monitor({new StandInMonitor(Disk, {"/"}), new StandInMonitor(Cpu, {"total"})},
                              60000);
  ASSERT_NE(WaitForPass(monitor), 0u);
  std::vector<ResourceMonitorType> seen;
  unsigned long update_time = 0;
  monitor.GetResourceInfo(update_time, [&](ResourceMonitorType type, const auto& items) {
    seen.push_back(type);
    EXPECT_EQ(items.size(), 1u);
  });
  EXPECT_EQ(seen, (std::vector<ResourceMonitorType>{Cpu, Disk}));
  EXPECT_NE(update_time, 0u);

  auto* item = dynamic_cast<LabelItem*>(monitor.GetResourceItem(Disk, "/"));
  ASSERT_NE(item, nullptr);
  EXPECT_EQ(item->text, "3:/");
  EXPECT_EQ(monitor.GetResourceItem(Disk, "/nope"), nullptr);
  EXPECT_EQ(monitor.GetResourceItem(Memory, "/"), nullptr);
  // The lock was released on every path above.
  EXPECT_NE(monitor.GetResourceItem(Cpu, "total"), nullptr);
}

TEST(AggregatorTest, ASecondMonitorOfAKindReplacesTheFirst) {
  std::atomic<int> deleted{0};
  auto* first = new StandInMonitor(Cpu, {"old"}, &deleted);
  auto* second = new StandInMonitor(Cpu, {"new"}, &deleted);
  {
    ZefoResourceMonitor monitor({first, second}, 60000);
    EXPECT_EQ(deleted, 1);
    ASSERT_NE(WaitForPass(monitor), 0u);
    EXPECT_EQ(monitor.GetResourceItem(Cpu, "old"), nullptr);
    EXPECT_NE(monitor.GetResourceItem(Cpu, "new"), nullptr);
  }
  EXPECT_EQ(deleted, 2);
}

TEST(AggregatorTest, FirstPassRunsAtOnceThenOncePerPeriod) {
  auto* probe = new StandInMonitor(Cpu, {});
  ZefoResourceMonitor monitor({probe}, 20);
  ASSERT_NE(WaitForPass(monitor), 0u);
  while (probe->passes < 3) std::this_thread::sleep_for(std::chrono::milliseconds(5));
  const uint64_t first = monitor.GetUpdateTime();
  uint64_t later = first;
  while (later == first) {
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
    later = monitor.GetUpdateTime();
  }
  EXPECT_GT(later, first);
}

TEST(FacadeTest, ProcessOnlyModeHasOneSeparatorAndNoSystemItems) {
  ZefoResourceMonitorApi api(60000, std::set<std::string>{"1"});
  uint64_t update_time = 0;
  while (update_time == 0) {
    update_time = api.GetUpdateTime();
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  std::ostringstream report;
  api.PrintToStream(report);
  EXPECT_EQ(report.str(),
            "update time: " + std::to_string(update_time) + "\n" + "--------------------\n\n");
  EXPECT_EQ(api.GetResourceItem(Cpu, "total"), nullptr);
}

}  // namespace
}  // namespace zefo
