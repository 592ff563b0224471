// The two-sample update that every monitor's figures come from.
#include <gtest/gtest.h>

#include <string>

#include "zefo/base_monitor.h"

namespace zefo {
namespace {

struct CounterState {
  long long value = 0;
};

struct CounterItem : ResourceItem {
  ~CounterItem() override { ++destroyed; }
  void PrintToStream(std::ostream& os) override { os << rate << "\n"; }
  double rate = 0;
  double elapsed = 0;
  static int destroyed;
};
int CounterItem::destroyed = 0;

struct OtherItem : ResourceItem {
  void PrintToStream(std::ostream&) override {}
};

class CounterInfo : public ResourceInfo<CounterState, CounterItem> {
 public:
  void DoUpdate(const std::string&, CounterItem* item, const CounterState& current,
                const CounterState& previous, double elapsed) override {
    ++calls;
    item->elapsed = elapsed;
    item->rate = static_cast<double>(current.value - previous.value) / elapsed;
  }
  int calls = 0;
};

TEST(ResourceInfoTest, FirstSampleOnlyStoresThenEachLaterOneUpdates) {
  ResourceItems items;
  CounterInfo info;
  info.Update(&items, "a", {10}, 1000);
  EXPECT_TRUE(items.Items().empty());
  EXPECT_EQ(info.states["a"].timestamp, 1000);

  info.Update(&items, "a", {30}, 3000);
  auto* item = dynamic_cast<CounterItem*>(items.Find("a"));
  ASSERT_NE(item, nullptr);
  EXPECT_EQ(item->count, 1u);
  EXPECT_DOUBLE_EQ(item->elapsed, 2.0);
  EXPECT_DOUBLE_EQ(item->rate, 10.0);

  // Absent for a while, then back: paired with the old sample across the gap, same object.
  info.Update(&items, "a", {90}, 9000);
  EXPECT_EQ(items.Find("a"), item);
  EXPECT_EQ(item->count, 2u);
  EXPECT_DOUBLE_EQ(item->elapsed, 6.0);
}

TEST(ResourceInfoTest, ARecordOfAnotherTypeIsLeftAloneButTheSampleStored) {
  ResourceItems items;
  auto* other = new OtherItem();
  items.Insert("x", other);
  CounterInfo info;
  info.Update(&items, "x", {1}, 1000);
  info.Update(&items, "x", {2}, 2000);
  EXPECT_EQ(info.calls, 0);
  EXPECT_EQ(items.Find("x"), other);
  EXPECT_EQ(other->count, 0u);
  EXPECT_EQ(info.states["x"].state.value, 2);
}

TEST(ResourceInfoTest, ItemsAreDeletedOnceWithTheirContainer) {
  CounterItem::destroyed = 0;
  {
    ResourceItems items;
    CounterInfo info;
    for (const char* name : {"b", "a", "c"}) {
      info.Update(&items, name, {1}, 1000);
      info.Update(&items, name, {2}, 2000);
    }
    EXPECT_EQ(items.Items().begin()->first, "a");
  }
  EXPECT_EQ(CounterItem::destroyed, 3);
}

}  // namespace
}  // namespace zefo
