// Telling the items the newest pass rewrote from those of names that have gone, and forgetting
// names unseen for a while: every kind, over the fixture board with one name taken away.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <fstream>
#include <functional>
#include <memory>
#include <string>

#include "support/board.h"
#include "zefo/disk_monitor.h"
#include "zefo/zefo_resource_monitor.h"

namespace zefo {
namespace {

using testing::FixtureTree;

// Rewrites `rel` without its lines that start with `prefix`.
void DropLines(const FixtureTree& tree, const std::string& rel, const std::string& prefix) {
  std::ifstream in(tree.Path(rel));
  std::string kept;
  for (std::string line; std::getline(in, line);) {
    if (line.rfind(prefix, 0) != 0) kept += line + "\n";
  }
  tree.Write(rel, kept);
}

TEST(RetentionTest, GoneNamesAreNotLiveAndAreForgottenAfterTheLimit) {
  const std::string thermal = "sys/class/thermal/thermal_zone1", bpu = "sys/devices/system/bpu/";
  const struct {
    const char* kind;
    std::unique_ptr<BaseMonitor> (*make)(const KernelPaths&);
    const char* kept;  // null: the kind has no other item
    std::string goes;  // empty: the kind's one item cannot go
    std::function<void(const FixtureTree&)> take_away;
  } cases[] = {
      {"cpu", testing::MakeMonitor<CpuMonitor>, "cpu0", "cpu2",
       [](const FixtureTree& t) { DropLines(t, "proc/stat", "cpu2 "); }},
      {"bpu", testing::MakeMonitor<BpuMonitor>, "bpu0", "bpu1",
       [&](const FixtureTree& t) { t.Remove(bpu + "bpu1"); }},
      {"disk", testing::MakeMonitor<DiskMonitor>, "/data", "/media",
       [](const FixtureTree& t) { testing::WriteDisk(t, {"/data"}); }},
      {"memory", testing::MakeMonitor<MemoryMonitor>, "", "", [](const FixtureTree&) {}},
      {"network", testing::MakeMonitor<NetworkMonitor>,
       "lo:", "eth0:", [](const FixtureTree& t) { DropLines(t, "proc/net/dev", "  eth0:"); }},
      {"temperature", testing::MakeMonitor<TemperatureMonitor>, "cpu-thermal", "bpu-thermal",
       [&](const FixtureTree& t) { t.Remove(thermal); }},
      {"ddr", testing::MakeMonitor<QeltDdrMonitor>, nullptr, "ddr0",
       [](const FixtureTree&) {}},  // no record
      {"process", testing::MakeMonitor<ProcInfoMonitor>, "100", "300",
       [](const FixtureTree& t) { t.Remove("proc/300"); }},
  };
  const std::vector<unsigned char> record = testing::BoardDdrRecord();
  for (const auto& c : cases) {
    SCOPED_TRACE(c.kind);
    FixtureTree tree;
    tree.Fifo("dev/ddrmonitor0");
    std::unique_ptr<BaseMonitor> monitor = c.make(tree.paths());
    const int ddr_fd = open(tree.Path("dev/ddrmonitor0").c_str(), O_WRONLY | O_NONBLOCK);
    monitor->SetClock(&testing::FakeNow);
    const auto pass = [&](int64_t now, bool both) {
      testing::g_fake_now = now;
      testing::LoadBoard(tree, now > 1000 ? 1 : 0);
      testing::WriteDisk(tree, {"/data", "/media"});  // the board has no mounts of its own
      if (both && ddr_fd >= 0) {  // the FIFO opens for writing once the DDR monitor reads it
        ASSERT_EQ(write(ddr_fd, record.data(), record.size()), static_cast<ssize_t>(record.size()));
      } else if (!both) {
        c.take_away(tree);
      }
      monitor->DoMonitor();
      monitor->EndPass(static_cast<uint64_t>(now));
      monitor->Forget(5000);
    };
    const auto live = [&](const std::string& name) {
      auto it = monitor->Items().find(name);
      return it != monitor->Items().end() &&
             it->second->update_time == static_cast<uint64_t>(testing::g_fake_now);
    };
    const bool can_go = !c.goes.empty();
    pass(1000, true);
    pass(2000, true);
    EXPECT_TRUE(c.kept == nullptr || live(c.kept));
    EXPECT_TRUE(!can_go || live(c.goes));

    pass(3000, false);  // `goes` has gone: its item stays, but is not live
    EXPECT_EQ(live(c.goes), !can_go);
    pass(7000, false);  // its newest sample, at 2000, is 5 s old: not yet forgotten
    EXPECT_EQ(monitor->Items().count(c.goes), 1u);
    pass(7001, false);
    EXPECT_EQ(monitor->Items().count(c.goes), can_go ? 0u : 1u);
    EXPECT_TRUE(c.kept == nullptr || live(c.kept));
    if (ddr_fd >= 0) close(ddr_fd);
  }
}

// The aggregator forgets only when asked to; its constructors alone keep every name.
TEST(RetentionTest, TheAggregatorForgetsOnlyWhenAsked) {
  for (int64_t forget_after : {0, 30}) {
    SCOPED_TRACE(forget_after);
    FixtureTree tree;
    testing::LoadBoard(tree, 1, {"proc/net"});
    ZefoResourceMonitor monitor({new NetworkMonitor(tree.paths())}, 5);
    monitor.SetForgetAfter(forget_after);
    uint64_t seen = 0;
    for (int i = 0; i < 1000 && monitor.GetResourceItem(Network, "eth0:") == nullptr; ++i) {
      seen = monitor.WaitForUpdate(seen, 1000);
    }
    ASSERT_NE(monitor.GetResourceItem(Network, "eth0:"), nullptr);
    DropLines(tree, "proc/net/dev", "  eth0:");
    // Forgetting takes 30 ms of passes; give it many more.
    for (int i = 0; i < 20; ++i) seen = monitor.WaitForUpdate(seen, 1000);
    usleep(100 * 1000);
    seen = monitor.WaitForUpdate(seen, 1000);
    EXPECT_EQ(monitor.GetResourceItem(Network, "eth0:") == nullptr, forget_after > 0);
    EXPECT_NE(monitor.GetResourceItem(Network, "lo:"), nullptr);
  }
}

}  // namespace
}  // namespace zefo
