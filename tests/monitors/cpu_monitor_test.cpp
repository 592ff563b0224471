// The CPU monitor: the /proc/stat line parser, report blocks over fixture trees, and the shares
// it measures on this machine.
#include <gtest/gtest.h>
#include <pthread.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <climits>
#include <cmath>
#include <sstream>
#include <thread>
#include <vector>

#include "monitors/cpu_parse.h"
#include "support/fixture_tree.h"
#include "support/golden.h"
#include "zefo/cpu_monitor.h"

namespace zefo {
namespace {

using testing::ExpectGolden;
using testing::FixtureTree;

TEST(ParseCpuStatLine, TakesCpuLinesAndZeroesWhatAShortLineLacks) {
  const std::string long_word = "cpu" + std::string(400, 'x');
  const struct {
    std::string line, word;  // word "-": the line is not taken
    std::vector<long long> counters;
  } cases[] = {
      {"cpu  1 2 3 4 5 6 7 8 9 10", "cpu", {1, 2, 3, 4, 5, 6, 7, 8, 9, 10}},
      {"cpu3 1 2 3 4 5 6 7", "cpu3", {1, 2, 3, 4, 5, 6, 7, 0, 0, 0}},  // older kernels
      {"cpu2 7 x 9", "cpu2", {7, 0, 0, 0, 0, 0, 0, 0, 0, 0}},
      {"cpu0 -5 99999999999999999999", "cpu0", {-5, LLONG_MAX, 0, 0, 0, 0, 0, 0, 0, 0}},
      {long_word + " 1", long_word.substr(0, 255), {0, 0, 0, 0, 0, 0, 0, 0, 0, 0}},
      {"intr 197539 0 0", "-", {}},
      {"   \t", "-", {}},
      {std::string("\x01\xff\0cpu", 6), "-", {}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.line.substr(0, 40));
    std::string word = "-";
    CpuState s;
    s.user = s.guest_nice = 77;  // left over from an earlier line
    EXPECT_EQ(detail::ParseCpuStatLine(c.line, word, s), c.word != "-");
    EXPECT_EQ(word, c.word);
    if (c.word == "-") continue;
    EXPECT_EQ(std::vector<long long>({s.user, s.nice, s.system, s.idle, s.iowait, s.irq, s.softirq,
                                      s.steal, s.guest, s.guest_nice}),
              c.counters);
  }
}

// Runs one pass per /proc/stat text and returns the CPU blocks in report order.
std::string Passes(const FixtureTree& tree, CpuMonitor& monitor,
                   const std::vector<std::string>& stats) {
  for (const std::string& stat : stats) {
    tree.Write("proc/stat", stat);
    monitor.DoMonitor();
  }
  std::ostringstream os;
  for (const auto& [name, item] : monitor.Items()) item->PrintToStream(os);
  return os.str();
}

// Sixteen CPUs plus the aggregate after `pass` intervals. Each CPU's eight non-guest counters
// grow by 1000 ticks per interval, so the shares come out as round figures.
std::string SixteenCpuStat(long long pass) {
  std::vector<long long> all(10, 0);
  std::string lines;
  for (int i = 0; i < 16; ++i) {
    const long long user = (100 + 10 * i) * pass, idle = (1000 - 75) * pass - user;
    const long long v[10] = {user + 7, 5 * pass, 50 * pass, idle + 3000, 10 * pass,
                             5 * pass, 5 * pass, 0,         20 * pass,   0};
    lines += "cpu" + std::to_string(i);
    for (int c = 0; c < 10; ++c) lines += " " + std::to_string(v[c]), all[c] += v[c];
    lines += "\n";
  }
  std::string total = "cpu ";
  for (long long v : all) total += " " + std::to_string(v);
  return total + "\n" + lines + "intr 1 2 3\nctxt 281275\nbtime 1700000000\n";
}

TEST(CpuMonitorTest, SixteenCpusInByteOrderWithTheirFrequencies) {
  FixtureTree tree;
  CpuMonitor monitor(tree.paths());
  auto freq = [&](const std::string& cpu, const char* file, const char* khz) {
    tree.Write("sys/devices/system/cpu/" + cpu + "/cpufreq/cpuinfo_" + file + "_freq", khz);
  };
  for (int i = 0; i < 16; i += 2) {  // odd CPUs have no frequency driver ...
    freq("cpu" + std::to_string(i), "min", "300000\n");
    freq("cpu" + std::to_string(i), "max", "1800000\n");
    freq("cpu" + std::to_string(i), "cur", "1200000\n");
  }
  freq("cpu1", "min", "500000\n");  // ... but cpu1, whose current frequency we may not read
  freq("cpu1", "max", "1000000\n");
  EXPECT_EQ(Passes(tree, monitor, {SixteenCpuStat(0)}), "");
  freq("cpu0", "cur", "1800000\n");  // the newer sample's frequency is shown
  ExpectGolden("cpu_sixteen.txt", Passes(tree, monitor, {SixteenCpuStat(1)}));
  EXPECT_EQ(monitor.Items().size(), 17u);
}

TEST(CpuMonitorTest, OfflineCpuKeepsItsItemAndBackwardsCountersGoNegative) {
  FixtureTree tree;
  CpuMonitor monitor(tree.paths());
  ExpectGolden("cpu_offline_backwards.txt",
               Passes(tree, monitor,
                      {"cpu  100 0 100 800 0 0 0 0 0 0\ncpu0 50 0 50 400\ncpu1 50 0 50 400\n",
                       "cpu  200 0 200 1600 0 0 0 0 0 0\ncpu0 100 0 100 800\ncpu1 100 0 100 800\n",
                       // cpu1 went offline; user went back by 50 ticks.
                       "cpu  150 0 250 2100 0 0 0 0 0 0\ncpu0 50 0 150 1300\n"}));
  EXPECT_EQ(monitor.Items().at("cpu0")->count, 2u);
  EXPECT_EQ(monitor.Items().at("cpu1")->count, 1u);
}

TEST(CpuMonitorTest, IdenticalSamplesPrintNotANumber) {
  FixtureTree tree;
  CpuMonitor monitor(tree.paths());
  const std::string stat = "cpu  5 0 5 90 0 0 0 0 0 0\ncpu0 5 0 5 90 0 0 0 0 0 0\n";
  std::istringstream report(Passes(tree, monitor, {stat, stat}));
  EXPECT_TRUE(std::isnan(dynamic_cast<CpuResourceItem&>(*monitor.Items().at("total")).user));
  // "nan" or "-nan" by the NaN's sign, which differs by machine; no label holds "nan".
  int nan_lines = 0;
  for (std::string line; std::getline(report, line);) {
    nan_lines += line.size() > 22 && line.find(": ") == 20 && line.find("nan", 22) != line.npos;
  }
  EXPECT_EQ(nan_lines, 20);
}

double Seconds(clockid_t clock) {
  timespec ts{};
  clock_gettime(clock, &ts);
  return static_cast<double>(ts.tv_sec) + static_cast<double>(ts.tv_nsec) * 1e-9;
}

// This machine's own /proc/stat over a stretch in which a thread spins. The stretch lasts until
// the thread has had half a second of CPU, however loaded the machine is.
TEST(CpuMonitorTest, MeasuresABusyThreadOnThisMachine) {
  CpuMonitor monitor;
  std::atomic<bool> spin{true};
  std::thread busy([&spin] {
    while (spin.load(std::memory_order_relaxed)) {
    }
  });
  clockid_t busy_clock;
  ASSERT_EQ(pthread_getcpuclockid(busy.native_handle(), &busy_clock), 0);
  const double cpu0 = Seconds(busy_clock), wall0 = Seconds(CLOCK_MONOTONIC);
  monitor.DoMonitor();
  for (int i = 0; i < 600 && Seconds(busy_clock) - cpu0 < 0.5; ++i) {
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
  }
  monitor.DoMonitor();
  const double spun = Seconds(busy_clock) - cpu0, wall = Seconds(CLOCK_MONOTONIC) - wall0;
  spin = false;
  busy.join();

  ASSERT_EQ(monitor.Items().count("total"), 1u);
  for (const auto& [name, base] : monitor.Items()) {
    const auto& item = dynamic_cast<const CpuResourceItem&>(*base);
    EXPECT_NEAR(item.user + item.nice + item.system + item.idle + item.iowait + item.irq +
                    item.softirq + item.steal,
                100.0, 1e-6)
        << name;
  }
  // The machine was busy at least as long as the thread spun (allowing for coarse ticks).
  const auto& total = dynamic_cast<const CpuResourceItem&>(*monitor.Items().at("total"));
  const double cpus = static_cast<double>(sysconf(_SC_NPROCESSORS_ONLN));
  ASSERT_GE(spun, 0.5) << "the thread hardly ran in 30 s";
  EXPECT_GE((total.user + total.nice + total.system) / 100.0 * wall * cpus, 0.8 * spun);
  EXPECT_EQ(total.min_freq, -1);
}

}  // namespace
}  // namespace zefo
