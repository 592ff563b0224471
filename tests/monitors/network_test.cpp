// The network monitor: /proc/net/dev lines, the report block, and real loopback traffic.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <fstream>
#include <sstream>
#include <string>
#include <thread>

#include <gtest/gtest.h>

#include "monitors/network_parse.h"
#include "support/fixture_tree.h"
#include "support/golden.h"
#include "zefo/network_monitor.h"

namespace zefo {
namespace {

int64_t g_now = 0;
int64_t FakeNow() {
  return g_now;
}

const char kHeader[] =
    "Inter-|   Receive                                                |  Transmit\n"
    " face |bytes    packets errs drop fifo frame compressed multicast|bytes    packets errs "
    "drop fifo colls carrier compressed\n";

TEST(NetworkParseTest, Lines) {
  struct Case {
    std::string line;
    bool ok;
    std::string name;
    long long rx_bytes, rx_packets, tx_bytes, tx_compressed;
  } cases[] = {
      {"    lo:    3267      29    0    0    0     0          0         0     3267      29    0    "
       "0    0     0       0          7",
       true, "lo:", 3267, 29, 3267, 7},
      // The counter touches the colon: it stays in the name and the rest moves one place left.
      {"  eth0:18707308     781    0    0    0     0          0         0    49151     663    0 "
       "   0    0     0       0          0",
       true, "eth0:18707308", 781, 0, 663, 0},
      {"  wlan0: 5 6 junk 8", true, "wlan0:", 5, 6, 0, 0},
      {"", false, "keep", 99, 99, 99, 99},
      {std::string(300, 'n') + ": 1 2 3", false, "keep", 99, 99, 99, 99},
  };
  for (const Case& c : cases) {
    std::string name = "keep";
    NetworkState state;
    state.rx_bytes = state.rx_packets = state.tx_bytes = state.tx_compressed = 99;
    EXPECT_EQ(detail::ParseNetDevLine(c.line, name, state), c.ok) << c.line;
    EXPECT_EQ(name, c.name);
    EXPECT_EQ(state.rx_bytes, c.rx_bytes) << c.line;
    EXPECT_EQ(state.rx_packets, c.rx_packets) << c.line;
    EXPECT_EQ(state.tx_bytes, c.tx_bytes) << c.line;
    EXPECT_EQ(state.tx_compressed, c.tx_compressed) << c.line;
  }
}

TEST(NetworkMonitorTest, Block) {
  testing::FixtureTree tree;
  auto dev = [&](long long lo, long long eth_rx, long long eth_tx) {
    const std::string l = std::to_string(lo), rx = std::to_string(eth_rx),
                      tx = std::to_string(eth_tx);
    tree.Write("proc/net/dev", std::string(kHeader) + "    lo: " + l + " 10 0 0 0 0 0 0 " + l +
                                   " 10 0 0 0 0 0 0\n  eth0: " + rx + " 5 0 0 0 0 0 0 " + tx +
                                   " 7 0 0 0 0 0 0\n");
  };
  NetworkMonitor monitor(tree.paths());
  monitor.SetClock(&FakeNow);
  EXPECT_FALSE(monitor.DoMonitor());  // no file
  tree.Write("proc/net/dev", "Inter-|   Receive\n");
  EXPECT_FALSE(monitor.DoMonitor());
  tree.Write("proc/net/dev", kHeader);
  EXPECT_TRUE(monitor.DoMonitor());
  dev(1000, 5000000, 80000);
  g_now = 1000;
  EXPECT_TRUE(monitor.DoMonitor());
  EXPECT_TRUE(monitor.Items().empty());
  dev(1000, 5000000 + 3000001, 80000 + 1024);
  g_now = 3000;
  monitor.DoMonitor();
  std::ostringstream os;
  for (const auto& entry : monitor.Items()) entry.second->PrintToStream(os);
  testing::ExpectGolden("network_block.txt", os.str());
}

// Sends `bytes` from one end of a TCP connection on 127.0.0.1 to the other.
void SendOverLoopback(long long bytes) {
  const int listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  ASSERT_GE(listener, 0);
  sockaddr_in addr{};
  addr.sin_family = AF_INET;
  addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t len = sizeof(addr);
  ASSERT_EQ(bind(listener, reinterpret_cast<sockaddr*>(&addr), len), 0);
  ASSERT_EQ(listen(listener, 1), 0);
  ASSERT_EQ(getsockname(listener, reinterpret_cast<sockaddr*>(&addr), &len), 0);
  const int sender = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  ASSERT_EQ(connect(sender, reinterpret_cast<sockaddr*>(&addr), len), 0);
  const int receiver = accept(listener, nullptr, nullptr);
  ASSERT_GE(receiver, 0);
  long long received = 0;
  std::thread reader([&] {
    char buffer[65536];
    ssize_t got;
    while ((got = read(receiver, buffer, sizeof(buffer))) > 0) received += got;
  });
  const std::string chunk(1 << 16, 's');
  for (long long sent = 0; sent < bytes;) {
    const ssize_t put = write(sender, chunk.data(), chunk.size());
    if (put <= 0) break;
    sent += put;
  }
  shutdown(sender, SHUT_WR);
  reader.join();
  close(sender);
  close(receiver);
  close(listener);
  EXPECT_GE(received, bytes);
}

// What the kernel has counted on the loopback interface so far ("tx_bytes", "rx_bytes").
long long LoopbackCounter(const std::string& name) {
  std::ifstream file("/sys/class/net/lo/statistics/" + name);
  long long value = -1;
  file >> value;
  return value;
}

TEST(NetworkMonitorTest, LoopbackTrafficShowsInLoRates) {
  NetworkMonitor monitor;
  monitor.SetClock(&FakeNow);
  g_now = 1000;
  const long long tx_before = LoopbackCounter("tx_bytes");
  const long long rx_before = LoopbackCounter("rx_bytes");
  monitor.DoMonitor();
  const long long bytes = 20LL << 20;
  SendOverLoopback(bytes);
  g_now = 2000;
  monitor.DoMonitor();
  const long long tx_after = LoopbackCounter("tx_bytes");
  const long long rx_after = LoopbackCounter("rx_bytes");
  auto it = monitor.Items().find("lo:");
  if (it == monitor.Items().end()) GTEST_SKIP() << "no loopback interface";
  const auto* lo = dynamic_cast<NetworkResourceItem*>(it->second);
  ASSERT_NE(lo, nullptr);
  // One second between samples. Other programs' loopback traffic lands in the same counters,
  // so the rate lies between what this test sent and what the kernel counted around both samples.
  EXPECT_GE(lo->tx_bandwidth, bytes);
  EXPECT_GE(lo->rx_bandwidth, bytes);
  if (tx_before >= 0 && rx_before >= 0) {
    EXPECT_LE(lo->tx_bandwidth, tx_after - tx_before);
    EXPECT_LE(lo->rx_bandwidth, rx_after - rx_before);
  }
}

}  // namespace
}  // namespace zefo
