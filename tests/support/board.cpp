#include "support/board.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>

namespace zefo::testing {

void LoadBoard(const FixtureTree& tree, int pass, const std::vector<std::string>& only) {
  namespace fs = std::filesystem;
  const fs::path from = fs::path(ZEFO_FIXTURE_DIR) / "board" / (pass == 0 ? "t0" : "t1");
  const auto options = fs::copy_options::recursive | fs::copy_options::overwrite_existing;
  if (only.empty()) fs::copy(from, tree.root(), options);
  for (const std::string& rel : only) {
    fs::create_directories(fs::path(tree.Path(rel)).parent_path());
    fs::copy(from / rel, tree.Path(rel), options);
  }
}

std::vector<unsigned char> BoardDdrRecord() {
  std::ifstream in(std::string(ZEFO_FIXTURE_DIR) + "/board/ddrmonitor0.bin", std::ios::binary);
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

bool WriteDisk(const FixtureTree& tree, const std::vector<std::string>& mounts,
               const std::string& read, const std::string& written) {
  std::string table;
  for (const std::string& mount : mounts) {
    tree.Mkdir("rootfs" + mount);
    table += "/dev/fake " + mount + " ext4 rw 0 0\n";
  }
  tree.Write("proc/mounts", table + "proc /proc proc rw 0 0\n");
  struct stat st {};
  stat(tree.Path("rootfs").c_str(), &st);
  const unsigned major_no = major(st.st_dev), minor_no = minor(st.st_dev);
  tree.Write("proc/diskstats", "   7       0 loop0 0 0 0 0 0 0 0 0 0 0 0\n " +
                                   std::to_string(major_no) + " " + std::to_string(minor_no) +
                                   " fakedisk 1 0 " + read + " 0 1 0 " + written + " 0 0 0 0\n");
  return minor_no < 256 && major_no < 4096;
}

format::Snapshot BoardPass(const FixtureTree& tree) {
  const KernelPaths paths = tree.paths();
  tree.Fifo("dev/ddrmonitor0");
  LoadBoard(tree, 0);
  std::unique_ptr<BaseMonitor> monitors[] = {
      MakeMonitor<CpuMonitor>(paths),         MakeMonitor<BpuMonitor>(paths),
      MakeMonitor<MemoryMonitor>(paths),      MakeMonitor<NetworkMonitor>(paths),
      MakeMonitor<TemperatureMonitor>(paths), MakeMonitor<QeltDdrMonitor>(paths),
      MakeMonitor<ProcInfoMonitor>(paths)};
  const int ddr_fd = open(tree.Path("dev/ddrmonitor0").c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC);
  const std::vector<unsigned char> record = BoardDdrRecord();

  DiskResourceInfo disk_info;
  ResourceItems disks;
  DiskState userdata;
  userdata.file_system = "/dev/mmcblk0p7";
  userdata.mount_point = "/userdata";
  userdata.name = "mmcblk0p7";
  userdata.total_size = 4096000000;
  userdata.available_size = 1234567890;
  DiskState media = userdata;
  media.file_system = "/dev/sda1";
  media.mount_point = "/media/my\\040disk";  // a blank, escaped as the mount table writes it
  media.name = "sda1";

  for (int pass = 0; pass < 2; ++pass) {
    g_fake_now = 1000 + 2000 * pass;
    if (pass == 1) LoadBoard(tree, 1);
    if (ddr_fd >= 0 && write(ddr_fd, record.data(), record.size()) < 0) break;
    for (const auto& monitor : monitors) {
      monitor->SetClock(&FakeNow);
      monitor->DoMonitor();
    }
    userdata.sectors_read = 4096 * pass;  // 2 MiB in 2 s
    userdata.sectors_written = 8 * pass;
    disk_info.Update(&disks, userdata.mount_point, userdata, g_fake_now);
    disk_info.Update(&disks, media.mount_point, media, g_fake_now);
  }
  if (ddr_fd >= 0) close(ddr_fd);

  format::Snapshot snapshot;
  snapshot.update_time = kBoardUpdateTime;
  for (const auto& monitor : monitors) snapshot.Add(monitor->Type(), monitor->Items());
  snapshot.Add(Disk, disks.Items());
  std::sort(snapshot.kinds.begin(), snapshot.kinds.end());  // as a pass lists them
  return snapshot;
}

std::string ItemsShown(const BaseMonitor& monitor) {
  std::ostringstream out;
  for (const auto& [name, item] : monitor.Items()) {
    out << "  " << name << " (" << item->count << " samples):\n";
    item->PrintToStream(out);
  }
  std::string text = out.str();  // a command line ends in a NUL byte: shown, so git diffs text
  for (std::size_t at; (at = text.find('\0')) != std::string::npos;) text.replace(at, 1, "\\x00");
  return text;
}

format::FormatOptions FixedOptions() {
  format::FormatOptions options;
  options.utc = true;
  options.clock_ticks = 100;
  return options;
}

}  // namespace zefo::testing
