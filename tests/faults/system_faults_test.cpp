// Fault injection into the system monitors' kernel files: each source's files are damaged in
// every way of damage.h, one at a time, and the passes must go on reporting what is intact.
// Then CPU hotplug and counters that wrap or run backwards.
#include <sys/stat.h>
#include <sys/sysmacros.h>

#include <gtest/gtest.h>

#include <string>

#include "damage.h"
#include "zefo/bpu_monitor.h"
#include "zefo/cpu_monitor.h"
#include "zefo/disk_monitor.h"
#include "zefo/memory_monitor.h"
#include "zefo/network_monitor.h"
#include "zefo/temperature_monitor.h"

namespace zefo {
namespace {

using testing::FixtureTree;
using testing::RunAllDamages;
using testing::Source;

std::string N(long long value) {
  return std::to_string(value);
}

template <typename M>
std::function<std::unique_ptr<BaseMonitor>(const KernelPaths&)> Make() {
  return [](const KernelPaths& paths) { return std::make_unique<M>(paths); };
}

TEST(SystemFaults, Cpu) {
  Source source{"cpu",
                Make<CpuMonitor>(),
                [](const FixtureTree& tree, int p) {
                  tree.Write("proc/stat", "cpu  " + N(100 * p) + " 0 " + N(50 * p) + " " +
                                              N(850 * p) + " 0 0 0 0 0 0\ncpu0 " + N(60 * p) +
                                              " 0 20 " + N(420 * p) + " 0 0 0 0 0 0\ncpu1 " +
                                              N(40 * p) + " 0 30 " + N(430 * p) +
                                              " 0 0 0 0 0 0\nintr 1 2 3\nctxt 4\n");
                  for (const char* cpu : {"cpu0", "cpu1"}) {
                    const std::string dir =
                        std::string("sys/devices/system/cpu/") + cpu + "/cpufreq/cpuinfo_";
                    tree.Write(dir + "min_freq", "300000\n");
                    tree.Write(dir + "max_freq", "1800000\n");
                    tree.Write(dir + "cur_freq", N(1000000 + 1000 * p) + "\n");
                  }
                },
                {}};
  source.targets = {
      testing::ManyLines("proc/stat", "cpu9", 1),
      testing::OneLine("sys/devices/system/cpu/cpu0/cpufreq/cpuinfo_cur_freq", "", {"cpu0"}),
      testing::Entry("sys/devices/system/cpu/cpu0/cpufreq", {"cpu0"}),
  };
  RunAllDamages(source);
}

TEST(SystemFaults, Memory) {
  Source source{"memory",
                Make<MemoryMonitor>(),
                [](const FixtureTree& tree, int p) {
                  tree.Write("proc/meminfo",
                             "MemTotal:       2048000 kB\nMemFree:  " + N(1000000 - p * 1000) +
                                 " kB\nMemAvailable:  1500000 kB\nBuffers: " + N(1000 * p) +
                                 " kB\nCached: " + N(2000 * p) +
                                 " kB\nSwapCached: 0 kB\nShmem: 300 kB\n"
                                 "SReclaimable: 400 kB\nSwapTotal: 0 kB\n"
                                 "SwapFree: 0 kB\nHugepagesize: 2048 kB\n");
                },
                {}};
  source.targets = {testing::ManyLines("proc/meminfo", "Hugepagesize:", 2)};
  RunAllDamages(source);
}

TEST(SystemFaults, Network) {
  Source source{"network",
                Make<NetworkMonitor>(),
                [](const FixtureTree& tree, int p) {
                  tree.Write("proc/net/dev",
                             "Inter-|   Receive                                                |"
                             "  Transmit\n face |bytes    packets errs drop fifo frame compressed"
                             " multicast|bytes    packets errs drop fifo colls carrier "
                             "compressed\n    lo: " +
                                 N(1000 * p) + " 10 0 0 0 0 0 0 " + N(1000 * p) +
                                 " 10 0 0 0 0 0 0\n  eth0: " + N(5000 * p) + " 20 0 0 0 0 0 0 " +
                                 N(7000 * p) + " 30 0 0 0 0 0 0\n");
                },
                {}};
  source.targets = {testing::ManyLines("proc/net/dev", "  bad0:", 3)};
  RunAllDamages(source);
}

TEST(SystemFaults, Temperature) {
  Source source{"temperature",
                Make<TemperatureMonitor>(),
                [](const FixtureTree& tree, int p) {
                  const char* types[] = {"cpu-thermal", "bpu-thermal", "ddr-thermal"};
                  for (int zone = 0; zone < 3; ++zone) {
                    const std::string dir = "sys/class/thermal/thermal_zone" + N(zone) + "/";
                    tree.Write(dir + "type", std::string(types[zone]) + "\n");
                    tree.Write(dir + "temp", N(40000 + 1000 * p + 100 * zone) + "\n");
                  }
                },
                {}};
  const std::set<std::string> zone1 = {"bpu-thermal"};
  source.targets = {
      testing::OneLine("sys/class/thermal/thermal_zone1/type", "", zone1),
      testing::OneLine("sys/class/thermal/thermal_zone1/temp", "", zone1),
      testing::Entry("sys/class/thermal/thermal_zone1", zone1),
  };
  RunAllDamages(source);
}

TEST(SystemFaults, Bpu) {
  Source source{"bpu",
                Make<BpuMonitor>(),
                [](const FixtureTree& tree, int p) {
                  for (int core = 0; core < 2; ++core) {
                    const std::string dir = "sys/devices/system/bpu/bpu" + N(core) + "/";
                    const std::string dev = dir + "devfreq/devfreq" + N(core) + "/";
                    tree.Write(dev + "name", "bpu" + N(core) + "\n");
                    tree.Write(dev + "min_freq", "200000000\n");
                    tree.Write(dev + "max_freq", "1000000000\n");
                    tree.Write(dev + "cur_freq", N(500000000 + 1000000 * p) + "\n");
                    tree.Write(dir + "ratio", N((10 * p + core) % 100) + "\n");
                  }
                },
                {}};
  const std::set<std::string> core0 = {"bpu0"};
  source.targets = {
      testing::OneLine("sys/devices/system/bpu/bpu0/ratio", "", core0),
      testing::OneLine("sys/devices/system/bpu/bpu0/devfreq/devfreq0/name", "", core0),
      testing::OneLine("sys/devices/system/bpu/bpu0/devfreq/devfreq0/cur_freq", "", core0),
      testing::Entry("sys/devices/system/bpu/bpu0/devfreq", core0),
  };
  RunAllDamages(source);
}

// The device number of the tree's mount points, when the 16-bit key of diskstats can name it.
bool SixteenBitDevice(const FixtureTree& tree, unsigned& major_no, unsigned& minor_no) {
  struct stat st;
  if (stat(tree.Path("rootfs").c_str(), &st) != 0) return false;
  major_no = major(st.st_dev);
  minor_no = minor(st.st_dev);
  return minor_no < 256 && major_no < 4096;
}

void WriteDisk(const FixtureTree& tree, const std::string& sectors_read,
               const std::string& sectors_written) {
  unsigned major_no = 0, minor_no = 0;
  SixteenBitDevice(tree, major_no, minor_no);
  tree.Mkdir("rootfs/data");
  tree.Mkdir("rootfs/logs");
  tree.Write("proc/mounts",
             "/dev/fake /data ext4 rw 0 0\nproc /proc proc rw 0 0\n/dev/fake /logs ext4 rw 0 0\n");
  tree.Write("proc/diskstats", "   7       0 loop0 0 0 0 0 0 0 0 0 0 0 0\n " + N(major_no) + " " +
                                   N(minor_no) + " fakedisk 1 0 " + sectors_read + " 0 1 0 " +
                                   sectors_written + " 0 0 0 0\n");
}

TEST(SystemFaults, Disk) {
  {
    FixtureTree probe;
    unsigned major_no, minor_no;
    if (!SixteenBitDevice(probe, major_no, minor_no)) {
      GTEST_SKIP() << "the test directory's device number does not fit diskstats' 16-bit key";
    }
  }
  Source source{"disk",
                Make<DiskMonitor>(),
                [](const FixtureTree& tree, int p) { WriteDisk(tree, N(100 * p), N(300 * p)); },
                {}};
  source.live_labels = {"  available size", "  total size"};
  source.targets = {testing::ManyLines("proc/mounts", "/dev/bad", 1),
                    testing::ManyLines("proc/diskstats", "   7 99 loop99", 0)};
  RunAllDamages(source);
  // Mount points as the kernel escapes them, and far longer than any word the parser keeps.
  const testing::Damage long_path = testing::LineDamage(
      "4000-character mount point with \\040 escapes", [](const std::string& key) {
        return key + " /mnt/with\\040blank\\040" + std::string(4000, 'p') + " ext4 rw 0 0";
      });
  testing::RunDamaged(source, source.targets[0], long_path);
}

// ---- CPUs going offline and coming back ----------------------------------------------------

int64_t g_now = 0;
int64_t Now() {
  return g_now;
}

TEST(SystemFaults, CpuHotplugPairsTheReturningCpuAcrossItsAbsence) {
  FixtureTree tree;
  CpuMonitor monitor(tree.paths());
  monitor.SetClock(&Now);
  const std::string freq = "sys/devices/system/cpu/cpu1/cpufreq/cpuinfo_cur_freq";
  // cpu1's user and idle ticks at passes 1, 2 and 4; at pass 3 it is offline (no stat line,
  // no cpufreq directory).
  const long long user[] = {0, 10, 20, 0, 50};
  const long long idle[] = {0, 90, 180, 0, 350};
  for (int p = 1; p <= 4; ++p) {
    std::string stat = "cpu  " + N(100 * p) + " 0 0 " + N(900 * p) + " 0 0 0 0 0 0\n";
    stat += "cpu0 " + N(50 * p) + " 0 0 " + N(450 * p) + " 0 0 0 0 0 0\n";
    if (p != 3) {
      stat += "cpu1 " + N(user[p]) + " 0 0 " + N(idle[p]) + " 0 0 0 0 0 0\n";
      tree.Write(freq, N(1000 * p) + "\n");
    } else {
      tree.Remove("sys/devices/system/cpu/cpu1");
    }
    tree.Write("proc/stat", stat + "intr 1\n");
    g_now = 2000 * p;
    ASSERT_TRUE(monitor.DoMonitor());
    if (p == 3) {
      // Offline: the item keeps the figures of pass 2, the others go on.
      EXPECT_EQ(monitor.Items().at("cpu1")->count, 1u);
      EXPECT_EQ(monitor.Items().at("cpu0")->count, 2u);
    }
  }
  auto* cpu1 = dynamic_cast<CpuResourceItem*>(monitor.Items().at("cpu1"));
  ASSERT_NE(cpu1, nullptr);
  EXPECT_EQ(cpu1->count, 2u);
  // Back online: paired with its sample of pass 2, so the shares span the whole absence
  // (user 30 of 200 ticks).
  EXPECT_DOUBLE_EQ(cpu1->user, 15.0);
  EXPECT_DOUBLE_EQ(cpu1->idle, 85.0);
  EXPECT_EQ(cpu1->cur_freq, 4000);
  EXPECT_DOUBLE_EQ(dynamic_cast<CpuResourceItem*>(monitor.Items().at("total"))->user, 10.0);
}

// ---- counters that wrap or go backwards ----------------------------------------------------

// A counter's two readings, and the difference the rate is made of: the kernel's counters are
// unsigned, read as signed 64-bit values, and differenced modulo 2^64; nothing guards the rate
// (a wrap reads as a large negative rate for one pass), but nothing may overflow either.
struct CounterCase {
  const char* what;
  const char* before;
  const char* after;
  double difference;
};

const CounterCase kCounterCases[] = {
    {"32-bit counter wraps", "4294967000", "200", -4294966800.0},
    {"counter reset", "1000", "10", -990.0},
    {"past 2^63, read as its limit", "18446744073709551615", "5", -9223372036854775802.0},
    {"from the lowest to the highest 64-bit value", "-9223372036854775808", "9223372036854775807",
     -1.0},
};

TEST(SystemFaults, NetworkAndDiskCountersWrapOrRunBackwards) {
  for (const CounterCase& c : kCounterCases) {
    SCOPED_TRACE(c.what);
    FixtureTree tree;
    unsigned major_no, minor_no;
    const bool disk = SixteenBitDevice(tree, major_no, minor_no);
    NetworkMonitor network(tree.paths());
    DiskMonitor disks(tree.paths());
    network.SetClock(&Now);
    disks.SetClock(&Now);
    int p = 0;
    for (const char* value : {c.before, c.after}) {
      ++p;
      tree.Write("proc/net/dev", std::string("h1\nh2\n  eth0: ") + value +
                                     " 1 0 0 0 0 0 0 5 1 0 0 0 0 0 0\n    lo: " + N(1000 * p) +
                                     " 1 0 0 0 0 0 0 " + N(1000 * p) + " 1 0 0 0 0 0 0\n");
      WriteDisk(tree, value, N(8 * p));
      g_now = 2000 * p;
      ASSERT_TRUE(network.DoMonitor());
      ASSERT_TRUE(disks.DoMonitor());
    }
    auto* eth0 = dynamic_cast<NetworkResourceItem*>(network.Items().at("eth0:"));
    EXPECT_DOUBLE_EQ(eth0->rx_bandwidth, c.difference / 2.0);
    EXPECT_DOUBLE_EQ(eth0->tx_bandwidth, 0.0);
    EXPECT_DOUBLE_EQ(dynamic_cast<NetworkResourceItem*>(network.Items().at("lo:"))->rx_bandwidth,
                     500.0);
    if (!disk) continue;  // the test directory's device does not fit diskstats' 16-bit key
    auto* data = dynamic_cast<DiskResourceItem*>(disks.Items().at("/data"));
    EXPECT_DOUBLE_EQ(data->read_bandwidth, c.difference * 512 / 2.0);
    EXPECT_DOUBLE_EQ(data->written_bandwidth, 8 * 512 / 2.0);
  }
}

}  // namespace
}  // namespace zefo
