// The disk monitor: mount-table and diskstats parsing, matching mounts with their device, and
// the bandwidth of a real write.
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <filesystem>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "monitors/disk_parse.h"
#include "support/fixture_tree.h"
#include "support/golden.h"
#include "zefo/disk_monitor.h"

namespace zefo {
namespace {

int64_t g_now = 0;
int64_t FakeNow() {
  return g_now;
}

const DiskResourceItem* Item(const DiskMonitor& monitor, const std::string& mount_point) {
  auto it = monitor.Items().find(mount_point);
  return it == monitor.Items().end() ? nullptr : dynamic_cast<DiskResourceItem*>(it->second);
}

TEST(DiskParseTest, DiskstatsLinesOfEveryKernelGeneration) {
  const std::string counters = " 11 12 13 14 15 16 17 18 19 20 21";
  struct Case {
    std::string line;
    bool ok;
    long long sectors_read, sectors_written, weighted;
  } cases[] = {
      {"   8       1 sda1" + counters, true, 13, 17, 21},                   // 14 fields
      {"   8       1 sda1" + counters + " 1 2 3 4", true, 13, 17, 21},      // 18: discards
      {"   8       1 sda1" + counters + " 1 2 3 4 5 6", true, 13, 17, 21},  // 20: flushes
      {"   8       1 sda1 11 12 13", true, 13, 0, 0},  // cut short: the rest reads 0
      {"   8       1 " + std::string(300, 'x') + counters, false, 99, 99, 99},
      {"sda1 8 1" + counters, false, 99, 99, 99},
  };
  for (const Case& c : cases) {
    DiskState state;
    state.sectors_read = state.sectors_written = state.weighted_io_time_ms = 99;
    EXPECT_EQ(detail::ParseDiskstatsLine(c.line, state), c.ok) << c.line;
    EXPECT_EQ(state.sectors_read, c.sectors_read) << c.line;
    EXPECT_EQ(state.sectors_written, c.sectors_written) << c.line;
    EXPECT_EQ(state.weighted_io_time_ms, c.weighted) << c.line;
  }
}

TEST(DiskParseTest, KeyIsTheSixteenBitDeviceNumber) {
  uint64_t key = 0;
  ASSERT_TRUE(detail::ParseDiskstatsKey(" 254   3 vda3 1 2", key));
  EXPECT_EQ(key, makedev(254, 3));
  // Minor 256 spills into the major's bits: the key is that of 9:0, not of 8:256.
  ASSERT_TRUE(detail::ParseDiskstatsKey("8 256 sdq", key));
  EXPECT_EQ(key, makedev(9, 0));
}

TEST(DiskParseTest, MountLines) {
  std::string fs = "old-fs", mp = "/old";
  EXPECT_EQ(detail::ParseMountLine("/dev/vda1 /boot ext4 rw 0 0", fs, mp), 2);
  EXPECT_EQ(fs + " " + mp, "/dev/vda1 /boot");
  // One word: the previous mount point stays.
  EXPECT_EQ(detail::ParseMountLine("none", fs, mp), 1);
  EXPECT_EQ(fs + " " + mp, "none /boot");
  EXPECT_EQ(detail::ParseMountLine("", fs, mp), 0);
  // A word too long for its buffer: the line is refused whole, never split in two.
  EXPECT_EQ(detail::ParseMountLine("/dev/x /" + std::string(300, 'm') + " ext4", fs, mp), -1);
  EXPECT_EQ(fs + " " + mp, "none /boot");
}

TEST(DiskMonitorTest, MountsMatchTheirDeviceLineOnly) {
  testing::FixtureTree tree;
  tree.Mkdir("rootfs/data");
  tree.Mkdir("rootfs/data2");
  tree.Mkdir("rootfs/my disk");
  // Real pseudo file systems: devices of their own, with no diskstats line.
  tree.Symlink("/proc", "rootfs/proc");
  tree.Symlink("/sys", "rootfs/sys");
  struct stat st;
  ASSERT_EQ(stat(tree.Path("rootfs/data").c_str(), &st), 0);
  const unsigned major_no = major(st.st_dev), minor_no = minor(st.st_dev);
  if (minor_no >= 256 || major_no >= 4096) GTEST_SKIP() << "test directory's device not 16-bit";
  // With an odd major, minor + 256 spills into the very same key.
  if (major_no % 2 == 1) GTEST_SKIP() << "test directory's major number is odd";
  tree.Write("proc/mounts",
             "/dev/fake /data ext4 rw 0 0\n"
             "proc /proc proc rw 0 0\n"
             "sysfs /sys sysfs rw 0 0\n"
             "/dev/gone /missing ext4 rw 0 0\n"
             "/dev/fake /my\\040disk ext4 rw 0 0\n"
             "/dev/fake /data2 ext4 rw 0 0\n");
  auto diskstats = [&](int sectors_read, int sectors_written) {
    const std::string id = std::to_string(major_no) + " " + std::to_string(minor_no);
    const std::string spilled = std::to_string(major_no) + " " + std::to_string(minor_no + 256);
    return id + " fakedisk 1 0 " + std::to_string(sectors_read) + " 0 1 0 " +
           std::to_string(sectors_written) + " 0 0 0 0\n" + spilled +
           " spilled 1 0 999999 0 1 0 999999 0 0 0 0\n";
  };
  tree.Write("proc/diskstats", diskstats(100, 200));
  DiskMonitor monitor(tree.paths());
  monitor.SetClock(&FakeNow);

  const MountTable table = monitor.GetMounts();
  ASSERT_EQ(table.count(st.st_dev), 1u);
  std::vector<std::string> on_device;
  for (const Mount& m : table.at(st.st_dev)) on_device.push_back(m.mount_point);
  EXPECT_EQ(on_device, (std::vector<std::string>{"/data", "/data2"}));

  g_now = 1000;
  EXPECT_TRUE(monitor.DoMonitor());
  EXPECT_TRUE(monitor.Items().empty());
  tree.Write("proc/diskstats", diskstats(100 + 2048, 200 + 4096));
  g_now = 3000;
  EXPECT_TRUE(monitor.DoMonitor());

  ASSERT_EQ(monitor.Items().size(), 2u);
  struct statvfs vfs;
  ASSERT_EQ(statvfs(tree.Path("rootfs/data").c_str(), &vfs), 0);
  for (const char* mount_point : {"/data", "/data2"}) {
    const DiskResourceItem* item = Item(monitor, mount_point);
    ASSERT_NE(item, nullptr) << mount_point;
    // Had the minor-256 line matched, it would have come last and won.
    EXPECT_EQ(item->name, "fakedisk");
    EXPECT_EQ(item->file_system, "/dev/fake");
    EXPECT_EQ(item->mount_point, mount_point);
    EXPECT_EQ(item->total_size, static_cast<int64_t>(vfs.f_blocks * vfs.f_bsize));
    EXPECT_DOUBLE_EQ(item->read_bandwidth, 2048 * 512 / 2.0);
    EXPECT_DOUBLE_EQ(item->written_bandwidth, 4096 * 512 / 2.0);
  }
}

TEST(DiskMonitorTest, Block) {
  DiskResourceInfo info;
  ResourceItems items;
  DiskState state;
  state.name = "mmcblk0p7";
  state.file_system = "/dev/mmcblk0p7";
  state.mount_point = "/userdata";
  state.total_size = 4096000000;
  state.available_size = 1234567890;
  state.sectors_read = 1000;
  state.sectors_written = 5000;
  info.Update(&items, state.mount_point, state, 10000);
  state.sectors_read += 4096;  // 2 MiB
  state.sectors_written += 3;
  info.Update(&items, state.mount_point, state, 12000);
  std::ostringstream os;
  items.Find("/userdata")->PrintToStream(os);
  os << 1.0 << "\n";  // the notation stays set on the stream
  testing::ExpectGolden("disk_block.txt", os.str());
}

// Writes into the temporary directory; skipped where that is not on a disk listed in diskstats.
TEST(DiskMonitorTest, ASyncedWriteShowsInItsMountsBandwidth) {
  DiskMonitor monitor;
  monitor.SetClock(&FakeNow);
  g_now = 1000;
  monitor.DoMonitor();
  const std::string dir = std::filesystem::temp_directory_path().string();
  struct stat dir_st;
  ASSERT_EQ(stat(dir.c_str(), &dir_st), 0);
  const std::string path = dir + "/zefo-disk-test-" + std::to_string(getpid());
  const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
  ASSERT_GE(fd, 0);
  const std::string chunk(1 << 20, 'z');
  const int64_t written = 16 * static_cast<int64_t>(chunk.size());
  for (int i = 0; i < 16; ++i) ASSERT_EQ(write(fd, chunk.data(), chunk.size()), ssize_t{1 << 20});
  ASSERT_EQ(fsync(fd), 0);
  close(fd);
  unlink(path.c_str());
  g_now = 2000;
  monitor.DoMonitor();

  const DiskResourceItem* found = nullptr;
  for (const auto& [name, item] : monitor.Items()) {
    struct stat st;
    if (stat(name.c_str(), &st) == 0 && st.st_dev == dir_st.st_dev) {
      found = dynamic_cast<DiskResourceItem*>(item);
    }
  }
  if (found == nullptr) GTEST_SKIP() << dir << " is not on a disk listed in /proc/diskstats";
  // One second between the samples: the figure is the bytes the device took, ours and others'.
  EXPECT_GE(found->written_bandwidth, static_cast<double>(written)) << found->mount_point;
}

}  // namespace
}  // namespace zefo
