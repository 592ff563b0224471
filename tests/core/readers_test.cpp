// The kernel-file readers: line splitting, presets, width bounds and hostile files.
#include <gtest/gtest.h>

#include <string>

#include "core/file_reader.h"
#include "support/fixture_tree.h"
#include "zefo/base_monitor.h"

namespace zefo {
namespace {

using testing::FixtureTree;

class ProbeMonitor : public BaseMonitor {
 public:
  ProbeMonitor() : BaseMonitor(Cpu) {}
  bool DoMonitor() override { return true; }
};

std::list<std::string> Lines(std::string_view text) {
  std::list<std::string> lines;
  detail::SplitLines(text, lines);
  return lines;
}

TEST(SplitLines, FollowsLineReaderRules) {
  using L = std::list<std::string>;
  EXPECT_EQ(Lines(""), L{});
  EXPECT_EQ(Lines("a\n"), L{"a"});
  EXPECT_EQ(Lines("a\n\nb"), (L{"a", "", "b"}));
  EXPECT_EQ(Lines("\n"), L{""});
  EXPECT_EQ(Lines(std::string("x\0y\n", 4)), L{std::string("x\0y", 3)});
}

class ReaderTest : public ::testing::Test {
 protected:
  FixtureTree tree;
  ProbeMonitor monitor;
};

TEST_F(ReaderTest, ReadValuePresetsAndFirstWord) {
  long long value = 7;
  EXPECT_FALSE(monitor.ReadValue(tree.Path("missing"), value));
  EXPECT_EQ(value, -1);
  tree.Write("abc", "abc\n");
  EXPECT_TRUE(monitor.ReadValue(tree.Path("abc"), value));
  EXPECT_EQ(value, -1);
  tree.Write("two", "42 17\n99\n");
  EXPECT_TRUE(monitor.ReadValue(tree.Path("two"), value));
  EXPECT_EQ(value, 42);
  int small = 0;
  tree.Write("empty", "");
  EXPECT_FALSE(monitor.ReadValue(tree.Path("empty"), small));
  EXPECT_EQ(small, -1);
}

TEST_F(ReaderTest, WordReaderStopsAtBufferSize) {
  tree.Write("long", std::string(70000, 'w') + "\n");
  char word[BaseMonitor::kWordSize + 8];
  std::fill(std::begin(word), std::end(word), '#');
  EXPECT_TRUE(monitor.ReadValue(tree.Path("long"), word));
  EXPECT_EQ(std::string(word), std::string(BaseMonitor::kWordSize - 1, 'w'));
  EXPECT_EQ(word[BaseMonitor::kWordSize], '#');
}

TEST_F(ReaderTest, HostileFilesReadAsEmpty) {
  tree.Fifo("fifo");
  tree.Symlink("/dev/zero", "zero");
  tree.Mkdir("dir");
  tree.Write("binary", std::string("\x01\xff\0\x7f\n", 5));
  for (const char* name : {"fifo", "zero", "dir", "missing"}) {
    EXPECT_TRUE(monitor.ReadFile(tree.Path(name)).empty()) << name;
  }
  EXPECT_EQ(monitor.ReadFile(tree.Path("binary")).size(), 1u);
}

TEST_F(ReaderTest, NoFollowRefusesLinks) {
  tree.Write("real", "x\n");
  tree.Symlink(tree.Path("real"), "link");
  EXPECT_EQ(monitor.ReadFile(tree.Path("link")).size(), 1u);
  EXPECT_TRUE(monitor.ReadFileNoFollow(tree.Path("link")).empty());
  EXPECT_EQ(monitor.ReadFileNoFollow(tree.Path("real")).size(), 1u);
}

TEST_F(ReaderTest, OversizedFilesAreCutAtALineWithinTheCap) {
  std::string big;
  const std::string line(1023, 'a');
  while (big.size() < 10u * 1024 * 1024) big += line + "\n";
  tree.Write("big", big);
  std::string text;
  EXPECT_EQ(detail::ReadWholeFile(tree.Path("big"), text), detail::ReadStatus::kTruncated);
  EXPECT_LE(text.size(), detail::kMaxFileBytes);
  EXPECT_EQ(text.back(), '\n');
  tree.Sparse("sparse", 10LL * 1024 * 1024 * 1024);
  EXPECT_EQ(detail::ReadWholeFile(tree.Path("sparse"), text), detail::ReadStatus::kTruncated);
  EXPECT_TRUE(text.empty());  // NULs and no newline: no whole line to keep
}

TEST_F(ReaderTest, ListersSkipHiddenAndFollowNoLinks) {
  tree.Mkdir("d/a");
  tree.Mkdir("d/.hidden");
  tree.Write("d/f", "");
  tree.Symlink(tree.Path("d/a"), "d/link");
  EXPECT_EQ(monitor.SubDirs(tree.Path("d")), std::list<std::string>{"a"});
  EXPECT_EQ(monitor.SubDirs(tree.Path("d") + "/"), std::list<std::string>{"a"});
  EXPECT_EQ(monitor.SubFiles(tree.Path("d")), std::list<std::string>{"f"});
  EXPECT_TRUE(monitor.SubDirs("").empty());
  EXPECT_TRUE(monitor.SubDirs(tree.Path("nowhere")).empty());
}

TEST(BaseMonitorTest, UnitsAndTicks) {
  EXPECT_EQ(BaseMonitor::UnitToBytes("kB"), 1024u);
  EXPECT_EQ(BaseMonitor::UnitToBytes("KB"), 1u);
  EXPECT_EQ(BaseMonitor::UnitToBytes("MB"), 1048576u);
  EXPECT_EQ(BaseMonitor::UnitToBytes("GB"), 1073741824u);
  EXPECT_EQ(BaseMonitor::UnitToBytes(""), 1u);
  ProbeMonitor monitor;
  const double ticks = static_cast<double>(sysconf(_SC_CLK_TCK));
  EXPECT_EQ(monitor.LinuxProcessAdjustTime(250), static_cast<uint64_t>(250 * 100.0 / ticks));
  EXPECT_EQ(monitor.LinuxProcessAdjustTime(~0ULL), UINT64_MAX);
}

TEST(KernelPathsTest, JoinsWithOneSlash) {
  KernelPaths paths;
  EXPECT_EQ(paths.Proc("stat"), "/proc/stat");
  EXPECT_EQ(paths.Root("/boot"), "/boot");
  EXPECT_EQ(paths.Root("/"), "/");
  const KernelPaths moved = KernelPaths::UnderRoot("/tmp/t");
  EXPECT_EQ(moved.Root("/boot"), "/tmp/t/rootfs/boot");
  EXPECT_EQ(moved.Reg("12/name"), "/tmp/t/reg/12/name");
  EXPECT_EQ(moved.Sys(""), "/tmp/t/sys");
}

}  // namespace
}  // namespace zefo
