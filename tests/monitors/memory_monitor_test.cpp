// The memory monitor: the /proc/meminfo parser, report blocks over fixture trees, and this
// machine's own figures.
#include <gtest/gtest.h>

#include <sstream>
#include <vector>

#include "monitors/memory_parse.h"
#include "support/fixture_tree.h"
#include "support/golden.h"
#include "zefo/memory_monitor.h"

namespace zefo {
namespace {

using testing::ExpectGolden;
using testing::FixtureTree;

TEST(ParseMeminfo, KnownKeysInBytesAndMinusOneForTheRest) {
  const struct {
    std::string text;
    std::vector<long long> fields;  // total free shared buffers cached shmem srecl swap_t swap_f
  } cases[] = {
      {"MemTotal: 1000 kB\nMemFree: 250 kB\nMemAvailable: 600 kB\nBuffers: 50 kB\n"
       "Cached: 200 kB\nSwapCached: 0 kB\nShmem: 10 kB\nSReclaimable: 20 kB\n"
       "SwapTotal: 100 kB\nSwapFree: 90 kB\nHugePages_Total: 0\n",
       {1024000, 256000, -1, 51200, 204800, 10240, 20480, 102400, 92160}},
      {"", {-1, -1, -1, -1, -1, -1, -1, -1, -1}},
      // Old kernels wrote MemShared:; a repeated key keeps the later line; units scale.
      {"MemShared: 3 kB\nMemTotal: 1 MB\nMemTotal: 2 MB\nMemFree: 7 B\nCached: 9 GB\n",
       {2097152, 7, 3072, -1, 9663676416, -1, -1, -1, -1}},
      // One number and one unit serve the whole file: a bare key reuses the last ones.
      {"MemTotal: 4 kB\nMemFree:\nBuffers: 5\nCached: 6 pages\n",
       {4096, 4096, -1, 5120, 6, -1, -1, -1, -1}},
      {"\x01\xff garbage\n\nMemTotal:kB 12\nSwapFree: 99999999999999999999999 kB\n" +
           std::string(5000, 'M') + " 1 kB\n",
       {-1, -1, -1, -1, -1, -1, -1, -1, -1024}},  // the huge number wraps, but nothing crashes
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.text);
    std::list<std::string> lines;
    std::istringstream in(c.text);
    for (std::string line; std::getline(in, line);) lines.push_back(line);
    MemoryState s;
    detail::ParseMeminfo(lines, s);
    EXPECT_EQ(std::vector<long long>({s.total, s.free, s.shared, s.buffers, s.cached, s.shmem,
                                      s.sreclaimable, s.swap_total, s.swap_free}),
              c.fields);
  }
}

// Two passes over `meminfo` (nullptr: a directory where the file should be); the block.
std::string TwoPasses(const char* meminfo) {
  FixtureTree tree;
  MemoryMonitor monitor(tree.paths());
  meminfo ? tree.Write("proc/meminfo", meminfo) : tree.Mkdir("proc/meminfo");
  EXPECT_TRUE(monitor.DoMonitor());
  EXPECT_TRUE(monitor.Items().empty());
  EXPECT_TRUE(monitor.DoMonitor());
  EXPECT_EQ(monitor.Items().size(), 1u);
  std::ostringstream os;
  if (monitor.Items().count("") == 1) monitor.Items().at("")->PrintToStream(os);
  return os.str();
}

TEST(MemoryMonitorTest, Blocks) {
  ExpectGolden("memory_block.txt",
               TwoPasses("MemTotal: 1000 kB\nMemFree: 250 kB\nBuffers: 50 kB\nCached: 200 kB\n"
                         "Shmem: 10 kB\nSReclaimable: 20 kB\nSwapTotal: 0 kB\nSwapFree: 0 kB\n"));
  ExpectGolden("memory_unreadable.txt", TwoPasses(nullptr));
}

TEST(MemoryMonitorTest, ReadsThisMachine) {
  MemoryMonitor monitor;
  monitor.DoMonitor();
  monitor.DoMonitor();
  const auto& item = dynamic_cast<const MemoryResourceItem&>(*monitor.Items().at(""));
  EXPECT_GT(item.free, 0);
  EXPECT_LE(item.free, item.total);
  EXPECT_EQ(item.total % 1024, 0);
  EXPECT_GT(item.used_percent, 0.0);
  EXPECT_LT(item.used_percent, 100.0);
}

}  // namespace
}  // namespace zefo
