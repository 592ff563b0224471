// A DDR monitor device (a FIFO here) that delivers odd amounts: records are counted from the
// start of each read, the newest whole one wins, bytes short of a record are dropped with the
// read (so they never shift what later reads decode), and the other device goes on being read
// every pass.
#include <fcntl.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "support/fixture_tree.h"
#include "zefo/qeltddr_monitor.h"

namespace zefo {
namespace {

constexpr std::size_t kRecord = 376;
constexpr double kMiB = 1048576.0;

int64_t g_now = 0;
int64_t Now() {
  return g_now += 2000;
}

// A record whose CPU port reads `mib` MiB; every other byte is 0xA5.
std::vector<unsigned char> Record(uint32_t mib) {
  std::vector<unsigned char> bytes(kRecord, 0xA5);
  const uint32_t raw = mib << 16;
  std::memcpy(bytes.data() + 12, &raw, sizeof raw);
  return bytes;
}

std::vector<unsigned char> Concat(std::initializer_list<std::vector<unsigned char>> parts) {
  std::vector<unsigned char> all;
  for (const auto& part : parts) all.insert(all.end(), part.begin(), part.end());
  return all;
}

std::vector<unsigned char> Junk(std::size_t n) {
  return std::vector<unsigned char>(n, 0x5A);
}

TEST(DdrFaults, OddDeliveriesKeepOnlyWholeRecords) {
  testing::FixtureTree tree;
  tree.Fifo("dev/ddrmonitor0");
  tree.Fifo("dev/ddrmonitor1");
  QeltDdrMonitor monitor(tree.paths());
  monitor.SetClock(&Now);
  ASSERT_EQ(monitor.Infos().size(), 2u);
  int writers[2];
  for (int id = 0; id < 2; ++id) {
    writers[id] = ::open(tree.Path("dev/ddrmonitor" + std::to_string(id)).c_str(),
                         O_WRONLY | O_NONBLOCK | O_CLOEXEC);
    ASSERT_GE(writers[id], 0);
  }
  const auto send = [&](int id, const std::vector<unsigned char>& bytes) {
    ASSERT_EQ(::write(writers[id], bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
  };
  const auto cpu = [&](const char* device) {
    return dynamic_cast<QeltDdrResourceItem*>(monitor.Items().at(device))->bandwidth.at("CPU").read;
  };

  struct Case {
    const char* what;
    std::vector<unsigned char> delivered;
    double shown;  // CPU port after the pass, MiB; 0 when the item keeps its figures
  };
  // Each odd delivery is followed by one whole record of 9 MiB: the next read must decode it.
  const Case cases[] = {
      {"1 byte", Junk(1), 0},
      {"375 bytes", Junk(375), 0},
      {"377 bytes: a record and a stray byte", Concat({Record(5), Junk(1)}), 5},
      {"1000 bytes: two records and 248 bytes", Concat({Record(6), Record(7), Junk(248)}), 7},
  };
  send(0, Record(1));
  send(1, Record(1));
  ASSERT_TRUE(monitor.DoMonitor());
  send(0, Record(2));
  send(1, Record(2));
  ASSERT_TRUE(monitor.DoMonitor());
  uint32_t other = 2;
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    send(0, c.delivered);
    send(1, Record(++other));
    const double before = cpu("ddr0");
    ASSERT_TRUE(monitor.DoMonitor());
    EXPECT_EQ(cpu("ddr0"), c.shown > 0 ? c.shown * kMiB : before);
    EXPECT_EQ(cpu("ddr1"), other * kMiB);
    send(0, Record(9));
    send(1, Record(++other));
    ASSERT_TRUE(monitor.DoMonitor());
    EXPECT_EQ(cpu("ddr0"), 9 * kMiB);
    EXPECT_EQ(cpu("ddr1"), other * kMiB);
  }
  for (int fd : writers) ::close(fd);
}

}  // namespace
}  // namespace zefo
