// The BPU monitor over fixture sysfs trees: the core scan, the choice of device, the figures and
// the report block.
#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

#include "support/fixture_tree.h"
#include "support/golden.h"
#include "zefo/bpu_monitor.h"

namespace zefo {
namespace {

using testing::FixtureTree;

int64_t g_now_ms = 0;
int64_t FakeNow() {
  return g_now_ms += 2000;
}

struct Core {
  int id;
  std::string device;  // subdirectory under devfreq/
  std::string name;    // contents of its name file; empty = no name file
  std::string min_freq, max_freq, cur_freq, ratio;  // empty = no file
};

void WriteCore(const FixtureTree& tree, const Core& core) {
  const std::string dir = "sys/devices/system/bpu/bpu" + std::to_string(core.id);
  const std::string dev = dir + "/devfreq/" + core.device;
  tree.Mkdir(dev);
  if (!core.name.empty()) tree.Write(dev + "/name", core.name);
  if (!core.min_freq.empty()) tree.Write(dev + "/min_freq", core.min_freq);
  if (!core.max_freq.empty()) tree.Write(dev + "/max_freq", core.max_freq);
  if (!core.cur_freq.empty()) tree.Write(dev + "/cur_freq", core.cur_freq);
  if (!core.ratio.empty()) tree.Write(dir + "/ratio", core.ratio);
}

Core FullCore(int id) {
  const std::string n = std::to_string(id);
  return {id,
          "devfreq" + n,
          "bpu" + n + "\n",
          "200000000\n",
          "1000000000\n",
          "80000000" + n + "\n",
          n + "\n"};
}

std::vector<std::string> ItemNames(const BaseMonitor& monitor) {
  std::vector<std::string> names;
  for (const auto& entry : monitor.Items()) names.push_back(entry.first);
  return names;
}

const BpuResourceItem& Item(const BaseMonitor& monitor, const std::string& name) {
  static const BpuResourceItem missing;
  auto it = monitor.Items().find(name);
  if (it == monitor.Items().end()) {
    ADD_FAILURE() << "no item " << name;
    return missing;
  }
  return *dynamic_cast<const BpuResourceItem*>(it->second);
}

class BpuMonitorTest : public ::testing::Test {
 protected:
  void TwoPasses() {
    monitor.SetClock(&FakeNow);
    EXPECT_TRUE(monitor.DoMonitor());
    EXPECT_TRUE(monitor.Items().empty()) << "the first reading is only remembered";
    EXPECT_TRUE(monitor.DoMonitor());
  }
  FixtureTree tree;
  BpuMonitor monitor{tree.paths()};
};

TEST(BpuScanTest, ItemsFollowTheScan) {
  std::vector<Core> eleven;
  for (int id = 0; id < 11; ++id) eleven.push_back(FullCore(id));
  const struct {
    const char* what;
    std::vector<Core> cores;
    std::vector<std::string> items;
  } cases[] = {
      {"no BPU", {}, {}},
      {"a gap ends the scan", {FullCore(0), FullCore(2)}, {"bpu0"}},
      {"a core without a device name is skipped",
       {{0, "devfreq0", "", "1", "2", "3", "4"}, FullCore(1)},
       {"bpu1"}},
      {"a core with an empty devfreq is skipped",
       {{0, "", "", "", "", "", "7"}, FullCore(1)},
       {"bpu1"}},
      {"names are not padded",
       eleven,
       {"bpu0", "bpu1", "bpu10", "bpu2", "bpu3", "bpu4", "bpu5", "bpu6", "bpu7", "bpu8", "bpu9"}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    FixtureTree tree;
    BpuMonitor monitor{tree.paths()};
    for (const Core& core : c.cores) WriteCore(tree, core);
    monitor.SetClock(&FakeNow);
    EXPECT_TRUE(monitor.DoMonitor());
    EXPECT_TRUE(monitor.DoMonitor());
    EXPECT_EQ(ItemNames(monitor), c.items);
  }
}

TEST_F(BpuMonitorTest, FirstDeviceWithReadableNameIsTheCores) {
  // Unreadable: no name file, an empty name file, a name that is a directory.
  WriteCore(tree, {0, "a", "", "1", "1", "1", "5"});
  WriteCore(tree, {0, "b", "", "2", "2", "2", ""});
  tree.Write("sys/devices/system/bpu/bpu0/devfreq/b/name", "");
  WriteCore(tree, {0, "c", "", "3", "3", "3", ""});
  tree.Mkdir("sys/devices/system/bpu/bpu0/devfreq/c/name");
  WriteCore(tree, {0, "d", "bpu-core0 extra\n", "100", "900", "450", ""});
  BpuState state;
  std::string path;
  ASSERT_TRUE(monitor.GetBpuPath(0, path));
  ASSERT_TRUE(monitor.GetBpuState(path, state));
  EXPECT_EQ(state.name, "bpu-core0");
  EXPECT_EQ(state.min_freq, 100);
  EXPECT_EQ(state.max_freq, 900);
  EXPECT_EQ(state.cur_freq, 450);
  EXPECT_EQ(state.ratio, 5);
}

TEST_F(BpuMonitorTest, OfTwoReadableDevicesTheListersFirstWins) {
  WriteCore(tree, {0, "x", "first-x\n", "1", "1", "1", "1"});
  WriteCore(tree, {0, "y", "first-y\n", "2", "2", "2", "1"});
  const std::string devfreq = tree.Path("sys/devices/system/bpu/bpu0/devfreq");
  const std::string first = monitor.SubDirs(devfreq).front();
  BpuState state;
  ASSERT_TRUE(monitor.GetBpuState(tree.Path("sys/devices/system/bpu/bpu0"), state));
  EXPECT_EQ(state.name, "first-" + first);
}

TEST_F(BpuMonitorTest, MissingFiguresStartAtZeroForEachCore) {
  WriteCore(tree, {0, "d0", "bpu0\n", "", "", "", ""});
  WriteCore(tree, FullCore(1));
  WriteCore(tree, {2, "d2", "bpu2\n", "", "junk\n", "", ""});
  TwoPasses();
  ASSERT_EQ(ItemNames(monitor), (std::vector<std::string>{"bpu0", "bpu1", "bpu2"}));
  const BpuResourceItem& bpu0 = Item(monitor, "bpu0");
  EXPECT_EQ(bpu0.min_freq, 0);
  EXPECT_EQ(bpu0.ratio, 0);
  const BpuResourceItem& bpu2 = Item(monitor, "bpu2");
  EXPECT_EQ(bpu2.min_freq, 0) << "not bpu1's figure";
  EXPECT_EQ(bpu2.max_freq, -1) << "a file that does not hold a number reads as -1";
  EXPECT_EQ(bpu2.cur_freq, 0);
  EXPECT_EQ(bpu2.ratio, 0);
}

TEST_F(BpuMonitorTest, ReportBlocks) {
  WriteCore(tree, FullCore(0));
  WriteCore(tree, FullCore(1));
  monitor.SetClock(&FakeNow);
  monitor.DoMonitor();
  // The items show the second reading.
  WriteCore(tree, {1, "devfreq1", "bpu1-renamed\n", "-5", "1000000000", "600000000", "100"});
  monitor.DoMonitor();
  std::ostringstream report;
  for (const auto& entry : monitor.Items()) entry.second->PrintToStream(report);
  testing::ExpectGolden("bpu_report.txt", report.str());
}

}  // namespace
}  // namespace zefo
