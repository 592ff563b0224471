// The DDR bandwidth monitor: the record decoder on raw bytes, and the monitor reading records
// through FIFOs that stand in for the devices.
#include <fcntl.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "monitors/qeltddr_decode.h"
#include "support/fixture_tree.h"
#include "support/golden.h"
#include "zefo/qeltddr_monitor.h"

namespace zefo {
namespace {

using testing::FixtureTree;

constexpr std::size_t kRecord = 376;
constexpr int64_t kMiB = 1048576;

int64_t g_now_ms = 0;
int64_t FakeNow() {
  return g_now_ms += 2000;
}

// Raw words of one record, laid out by hand at the device's offsets.
struct Raw {
  std::array<uint32_t, 5> read{};  // CPU, BPU, CV, APV, CAM
  std::array<uint32_t, 5> write{};
  uint32_t cmd_sum_read = 0;
  uint32_t cmd_sum_write = 0;
};

void Put(std::vector<unsigned char>& bytes, std::size_t at, uint32_t word) {
  std::memcpy(bytes.data() + at, &word, sizeof word);
}

// A record whose bytes not interpreted by the monitor are all 0xA5.
std::vector<unsigned char> Record(const Raw& raw) {
  std::vector<unsigned char> bytes(kRecord, 0xA5);
  for (std::size_t i = 0; i < 5; ++i) {
    Put(bytes, 12 + 64 * i, raw.read[i]);
    Put(bytes, 44 + 64 * i, raw.write[i]);
  }
  Put(bytes, 328, raw.cmd_sum_read);
  Put(bytes, 332, raw.cmd_sum_write);
  return bytes;
}

// `count` records back to back; record k carries (k + 1) MiB on the CPU port.
std::vector<unsigned char> Records(std::size_t count) {
  std::vector<unsigned char> bytes;
  for (std::size_t k = 0; k < count; ++k) {
    Raw raw;
    raw.read[0] = static_cast<uint32_t>(k + 1) << 16;
    const std::vector<unsigned char> one = Record(raw);
    bytes.insert(bytes.end(), one.begin(), one.end());
  }
  return bytes;
}

TEST(DdrDecode, NewestCompleteRecordWins) {
  struct Case {
    std::size_t length;
    int64_t cpu_read;  // 0: nothing decoded
  };
  const std::vector<unsigned char> full = Records(400);
  for (const Case& c : {Case{0, 0}, Case{1, 0}, Case{375, 0}, Case{376, 1 * kMiB},
                        Case{751, 1 * kMiB}, Case{752, 2 * kMiB}, Case{150400, 400 * kMiB}}) {
    // One byte in, so the records are not aligned.
    std::vector<unsigned char> bytes(1);
    bytes.insert(bytes.end(), full.begin(), full.begin() + static_cast<long>(c.length));
    QeltDdrState state;
    const bool decoded =
        detail::DecodeNewestDdrRecord(bytes.data() + 1, c.length, detail::DdrPortNames(), state);
    EXPECT_EQ(decoded, c.cpu_read != 0) << c.length;
    EXPECT_EQ(decoded ? state.bandwidth["CPU"].read : 0, c.cpu_read) << c.length;
  }
}

// A fixture devfs whose devices are FIFOs; the test writes records into them.
class DdrMonitorTest : public ::testing::Test {
 protected:
  void SetUp() override { g_now_ms = 0; }
  void TearDown() override {
    for (int fd : writers_) ::close(fd);
  }

  std::unique_ptr<QeltDdrMonitor> Build() {
    auto monitor = std::make_unique<QeltDdrMonitor>(tree.paths());
    monitor->SetClock(&FakeNow);
    return monitor;
  }

  // Opens device `id`'s FIFO for writing; the monitor must already hold it open.
  int Writer(int id) {
    const int fd = ::open(tree.Path("dev/ddrmonitor" + std::to_string(id)).c_str(),
                          O_WRONLY | O_NONBLOCK | O_CLOEXEC);
    EXPECT_GE(fd, 0);
    writers_.push_back(fd);
    return fd;
  }

  static void Send(int fd, const std::vector<unsigned char>& bytes) {
    ASSERT_EQ(::write(fd, bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
  }

  static const QeltDdrResourceItem* Item(const QeltDdrMonitor& monitor, const std::string& name) {
    auto it = monitor.Items().find(name);
    return it == monitor.Items().end() ? nullptr
                                       : dynamic_cast<const QeltDdrResourceItem*>(it->second);
  }

  FixtureTree tree;

 private:
  std::vector<int> writers_;
};

// Devices are numbered from 0 without gaps; one that cannot be opened ends the search too.
TEST_F(DdrMonitorTest, DevicesAreContiguousFromZero) {
  auto none = Build();
  EXPECT_FALSE(none->DoMonitor());
  EXPECT_TRUE(none->Items().empty());
  for (int id : {0, 1, 3}) tree.Fifo("dev/ddrmonitor" + std::to_string(id));
  auto monitor = Build();
  std::vector<std::string> names;
  for (const auto* info : monitor->Infos()) names.push_back(info->name);
  EXPECT_EQ(names, (std::vector<std::string>{"ddr0", "ddr1"}));
  for (int pass = 0; pass < 2; ++pass) {
    for (int id : {0, 1}) Send(Writer(id), Records(1));
    EXPECT_TRUE(monitor->DoMonitor());
  }
  EXPECT_EQ(monitor->Items().size(), 2u);
  tree.Remove("dev/ddrmonitor1");
  tree.Mkdir("dev/ddrmonitor1");  // exists, but cannot be opened read-write
  EXPECT_EQ(Build()->Infos().size(), 1u);
}

TEST_F(DdrMonitorTest, DescriptorsAreCloseOnExecAndClosedWithTheMonitor) {
  tree.Fifo("dev/ddrmonitor0");
  auto monitor = Build();
  ASSERT_EQ(monitor->Infos().size(), 1u);
  const int fd = monitor->Infos().front()->fd;
  EXPECT_GT(fd, 0);
  EXPECT_NE(::fcntl(fd, F_GETFD) & FD_CLOEXEC, 0);
  EXPECT_NE(::fcntl(fd, F_GETFL) & O_NONBLOCK, 0);
  monitor.reset();
  EXPECT_EQ(::fcntl(fd, F_GETFD), -1);
}

TEST_F(DdrMonitorTest, EachPassDecodesTheNewestRecordOfItsRead) {
  tree.Fifo("dev/ddrmonitor0");
  auto monitor = Build();
  const int fd = Writer(0);
  // 174 records are as many as fit in a default 64 KiB pipe.
  for (std::size_t count : {std::size_t{1}, std::size_t{2}, std::size_t{174}}) {
    Send(fd, Records(count));
    monitor->DoMonitor();
  }
  const QeltDdrResourceItem* item = Item(*monitor, "ddr0");
  ASSERT_NE(item, nullptr);
  EXPECT_EQ(item->count, 2u);
  EXPECT_EQ(item->bandwidth.at("CPU").read, 174.0 * kMiB);
}

TEST_F(DdrMonitorTest, ReportBlockWithCmdSumApartFromTotal) {
  tree.Fifo("dev/ddrmonitor0");
  auto monitor = Build();
  const int fd = Writer(0);
  Raw raw;
  raw.read = {0x00020000u, 0x0001FFFFu, 0x0000FFFFu, 3u << 16, 10u << 16};  // CPU BPU CV APV CAM
  raw.write = {1u << 16, 0u, 5u << 16, 0x00028000u, 7u << 16};
  raw.cmd_sum_read = 20u << 16;
  raw.cmd_sum_write = 12u << 16;
  Send(fd, Record(raw));
  monitor->DoMonitor();
  Send(fd, Record(raw));
  monitor->DoMonitor();
  const QeltDdrResourceItem* item = Item(*monitor, "ddr0");
  ASSERT_NE(item, nullptr);
  EXPECT_EQ(item->total_read, 16.0 * kMiB);
  EXPECT_EQ(item->cmd_sum_read, 20.0 * kMiB);
  std::ostringstream report;
  for (const auto& entry : monitor->Items()) entry.second->PrintToStream(report);
  testing::ExpectGolden("qeltddr_report.txt", report.str());
}

}  // namespace
}  // namespace zefo
