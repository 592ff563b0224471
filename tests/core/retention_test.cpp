// Telling the items the newest pass rewrote from those of names that have gone, and forgetting
// names unseen for a while: every kind, on one fixture tree.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "support/fixture_tree.h"
#include "zefo/bpu_monitor.h"
#include "zefo/cpu_monitor.h"
#include "zefo/disk_monitor.h"
#include "zefo/memory_monitor.h"
#include "zefo/network_monitor.h"
#include "zefo/procinfo_monitor.h"
#include "zefo/qeltddr_monitor.h"
#include "zefo/temperature_monitor.h"
#include "zefo/zefo_resource_monitor.h"

namespace zefo {
namespace {

using testing::FixtureTree;

int64_t g_now = 0;
int64_t FakeNow() {
  return g_now;
}

std::string StatLine(const std::string& pid) {
  std::string line =
      pid + " (sleeper) S 1 " + pid + " " + pid + " 0 -1 0 0 0 0 0 5 5 0 0 20 0 1 0 50";
  for (int field = 23; field <= 44; ++field) line += " 0";
  return line + "\n";
}

// Writes one pass's files of a kind: with `both`, names `kept` and `goes`; without, `kept` only.
using Writer = std::function<void(const FixtureTree&, bool both, int ddr_fd)>;

void WriteCpu(const FixtureTree& tree, bool both, int) {
  const std::string line = " 100 0 50 1000 0 0 0 0 0 0\n";
  tree.Write("proc/stat", "cpu " + line + "cpu0" + line + (both ? "cpu1" + line : ""));
}

void WriteBpu(const FixtureTree& tree, bool both, int) {
  for (int core = 0; core < 2; ++core) {
    const std::string dir = "sys/devices/system/bpu/bpu" + std::to_string(core);
    if (core == 1 && !both) {
      tree.Remove(dir);
      continue;
    }
    tree.Write(dir + "/ratio", "40\n");
    tree.Write(dir + "/devfreq/d/name", "bpu\n");
  }
}

void WriteNetwork(const FixtureTree& tree, bool both, int) {
  const std::string line = " 100 1 0 0 0 0 0 0 100 1 0 0 0 0 0 0\n";
  tree.Write("proc/net/dev", "header\nheader\n    lo:" + line + (both ? "  eth0:" + line : ""));
}

void WriteTemperature(const FixtureTree& tree, bool both, int) {
  tree.Write("sys/class/thermal/thermal_zone0/type", "cpu-thermal\n");
  tree.Write("sys/class/thermal/thermal_zone0/temp", "40000\n");
  if (both) {
    tree.Write("sys/class/thermal/thermal_zone1/type", "bpu-thermal\n");
    tree.Write("sys/class/thermal/thermal_zone1/temp", "50000\n");
  } else {
    tree.Remove("sys/class/thermal/thermal_zone1");
  }
}

void WriteDisk(const FixtureTree& tree, bool both, int) {
  tree.Mkdir("rootfs/data");
  tree.Mkdir("rootfs/media");
  tree.Write("proc/mounts", std::string("/dev/fake /data ext4 rw 0 0\n") +
                                (both ? "/dev/fake /media ext4 rw 0 0\n" : ""));
  struct stat st;
  stat(tree.Path("rootfs/data").c_str(), &st);
  tree.Write("proc/diskstats", std::to_string(major(st.st_dev)) + " " +
                                   std::to_string(minor(st.st_dev)) +
                                   " fake 1 0 100 0 1 0 200 0 0 0 0\n");
}

void WriteMemory(const FixtureTree& tree, bool, int) {
  tree.Write("proc/meminfo", "MemTotal: 2048 kB\nMemFree: 1024 kB\n");
}

// The device yields a record only in passes that see it.
void WriteDdr(const FixtureTree&, bool both, int ddr_fd) {
  const std::vector<unsigned char> record(376, 0);
  if (both && ddr_fd >= 0) {
    ASSERT_EQ(write(ddr_fd, record.data(), record.size()), 376);
  }
}

void WriteProcess(const FixtureTree& tree, bool both, int) {
  tree.Write("proc/stat", "cpu  100 0 50 1000 0 0 0 0 0 0\ncpu0 100 0 50 1000 0 0 0 0 0 0\n");
  tree.Write("proc/uptime", "100.00 300.00\n");
  for (const char* pid : {"100", "200"}) {
    const std::string dir = std::string("proc/") + pid;
    if (std::string(pid) == "200" && !both) {
      tree.Remove(dir);
      continue;
    }
    tree.Write(dir + "/stat", StatLine(pid));
    tree.Write(dir + "/statm", "2000 400 100 20 0 600 0\n");
  }
}

TEST(RetentionTest, GoneNamesAreNotLiveAndAreForgottenAfterTheLimit) {
  const struct {
    const char* kind;
    std::function<BaseMonitor*(const KernelPaths&)> make;
    Writer write;
    const char* kept;  // null: the kind has no other item
    std::string goes;  // empty: the kind's one item cannot go
  } cases[] = {
      {"cpu", [](const KernelPaths& p) { return new CpuMonitor(p); }, WriteCpu, "cpu0", "cpu1"},
      {"bpu", [](const KernelPaths& p) { return new BpuMonitor(p); }, WriteBpu, "bpu0", "bpu1"},
      {"disk", [](const KernelPaths& p) { return new DiskMonitor(p); }, WriteDisk, "/data",
       "/media"},
      {"memory", [](const KernelPaths& p) { return new MemoryMonitor(p); }, WriteMemory, "", ""},
      {"network", [](const KernelPaths& p) { return new NetworkMonitor(p); }, WriteNetwork,
       "lo:", "eth0:"},
      {"temperature", [](const KernelPaths& p) { return new TemperatureMonitor(p); },
       WriteTemperature, "cpu-thermal", "bpu-thermal"},
      {"ddr", [](const KernelPaths& p) { return new QeltDdrMonitor(p); }, WriteDdr, nullptr,
       "ddr0"},
      {"process", [](const KernelPaths& p) { return new ProcInfoMonitor(p); }, WriteProcess, "100",
       "200"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.kind);
    FixtureTree tree;
    tree.Fifo("dev/ddrmonitor0");
    c.write(tree, true, -1);
    std::unique_ptr<BaseMonitor> monitor(c.make(tree.paths()));
    const int ddr_fd = open(tree.Path("dev/ddrmonitor0").c_str(), O_WRONLY | O_NONBLOCK);
    monitor->SetClock(&FakeNow);
    const auto pass = [&](int64_t now, bool both) {
      g_now = now;
      c.write(tree, both, ddr_fd);
      monitor->DoMonitor();
      monitor->EndPass(static_cast<uint64_t>(now));
      monitor->Forget(5000);
    };
    const auto live = [&](const std::string& name) {
      auto it = monitor->Items().find(name);
      return it != monitor->Items().end() &&
             it->second->update_time == static_cast<uint64_t>(g_now);
    };
    const bool can_go = !c.goes.empty();
    pass(1000, true);
    pass(2000, true);
    EXPECT_TRUE(c.kept == nullptr || live(c.kept));
    EXPECT_TRUE(!can_go || live(c.goes));

    pass(3000, false);  // `goes` has gone: its item stays, but is not live
    EXPECT_EQ(monitor->Items().count(c.goes), 1u);
    EXPECT_EQ(live(c.goes), !can_go);
    pass(7000, false);  // its newest sample, at 2000, is 5 s old: not yet forgotten
    EXPECT_EQ(monitor->Items().count(c.goes), 1u);
    pass(7001, false);
    EXPECT_EQ(monitor->Items().count(c.goes), can_go ? 0u : 1u);
    EXPECT_TRUE(c.kept == nullptr || live(c.kept));
    if (ddr_fd >= 0) close(ddr_fd);
  }
}

// The aggregator forgets only when asked to; the specified constructors keep every name.
TEST(RetentionTest, TheAggregatorForgetsOnlyWhenAsked) {
  for (int64_t forget_after : {0, 30}) {
    SCOPED_TRACE(forget_after);
    FixtureTree tree;
    WriteNetwork(tree, true, -1);
    ZefoResourceMonitor monitor({new NetworkMonitor(tree.paths())}, 5);
    monitor.SetForgetAfter(forget_after);
    uint64_t seen = 0;
    for (int i = 0; i < 1000 && monitor.GetResourceItem(Network, "eth0:") == nullptr; ++i) {
      seen = monitor.WaitForUpdate(seen, 1000);
    }
    ASSERT_NE(monitor.GetResourceItem(Network, "eth0:"), nullptr);
    WriteNetwork(tree, false, -1);
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
