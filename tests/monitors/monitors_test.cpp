// The system monitors: each reader's hostile and odd lines as one table (the process readers'
// too), what the fixture board cannot show (hotplug, zones and devices that come and go, mounts
// matched with their device), and loopback traffic against what this machine's kernel counts.
#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <cstring>
#include <fstream>
#include <functional>
#include <memory>

#include <gtest/gtest.h>

#include "core/scan_cursor.h"
#include "monitors/cpu_parse.h"
#include "monitors/disk_parse.h"
#include "monitors/memory_parse.h"
#include "monitors/network_parse.h"
#include "monitors/qeltddr_decode.h"
#include "monitors/temperature_parse.h"
#include "process/fd_count.h"
#include "process/procinfo_parse.h"
#include "support/board.h"
#include "support/golden.h"

namespace zefo {
namespace {

using namespace std::string_literals;
using testing::Figures;
using testing::FixtureTree;
using testing::Item;
using testing::MakeMonitor;
using testing::Rows;
using testing::Shown;

std::vector<std::string> Names(const BaseMonitor& monitor) {
  std::vector<std::string> names;
  for (const auto& entry : monitor.Items()) names.push_back(entry.first);
  return names;
}

// `count` records of the DDR device, carrying first, first + 1, ... MiB on the CPU port.
std::vector<unsigned char> DdrRecords(std::size_t count, uint32_t first = 1) {
  std::vector<unsigned char> bytes;
  std::vector<unsigned char> one = testing::BoardDdrRecord();
  for (std::size_t k = 0; k < count; ++k) {
    const uint32_t word = static_cast<uint32_t>(first + k) << 16;
    std::memcpy(one.data() + 12, &word, sizeof word);
    bytes.insert(bytes.end(), one.begin(), one.end());
  }
  return bytes;
}

// Every reader's result for odd and hostile lines, one line per input, in readers.txt.
TEST(Readers, OddAndHostileLines) {
  std::string out =
      Rows("cpu line (word, then the ten counters; 77 left over from an earlier line)",
           {"cpu  1 2 3 4 5 6 7 8 9 10", "cpu3 1 2 3 4 5 6 7", "cpu2 7 x 9",
            "cpu0 -5 99999999999999999999", "cpu" + std::string(400, 'x') + " 1", "intr 197539 0 0",
            "   \t", std::string("\x01\xff\0cpu", 6), "cpu7"},
           [](const std::string& in) {
             std::string word = "-";
             CpuState s;
             s.user = s.guest_nice = 77;
             const bool taken = detail::ParseCpuStatLine(in.c_str(), word, s);
             return (taken ? " " : " refused ") + Shown(word) +
                    Figures({s.user, s.nice, s.system, s.idle, s.iowait, s.irq, s.softirq, s.steal,
                             s.guest, s.guest_nice});
           });
  // Old kernels wrote MemShared:; a repeated key keeps the later line; units scale; one number
  // and one unit serve the whole file, so a bare key reuses the last ones.
  out += Rows("meminfo (total free shared buffers cached shmem sreclaimable swap_total swap_free)",
              {"", "MemShared: 3 kB\nMemTotal: 1 MB\nMemTotal: 2 MB\nMemFree: 7 B\nCached: 9 GB\n",
               "MemTotal: 4 kB\nMemFree:\nBuffers: 5\nCached: 6 pages\n",
               "\x01\xff garbage\n\nMemTotal:kB 12\nSwapFree: 99999999999999999999999 kB\n" +
                   std::string(5000, 'M') + " 1 kB\n"},
              [](std::string in) {
                MemoryState s;
                detail::ParseMeminfoInPlace(in, s);
                return Figures({s.total, s.free, s.shared, s.buffers, s.cached, s.shmem,
                                s.sreclaimable, s.swap_total, s.swap_free});
              });
  // Up to 1000 the driver gives degrees, above it millidegrees.
  out += Rows("zone temperature (raw, degrees)",
              {"45000\n", "1000", "1001", "-5000", "n/a", "", "99999999999999"},
              [](const std::string& in) {
                const int raw = detail::ParseZoneTemp(in.c_str());
                return " " + std::to_string(raw) + " " + std::to_string(detail::ZoneCelsius(raw));
              });
  // A counter that touches the colon stays in the name and the rest moves one place left.
  out += Rows(
      "net/dev line (name, rx_bytes rx_packets tx_bytes tx_compressed; 99 left over)",
      {"    lo:    3267      29    0    0    0     0          0         0     3267      29    0 "
       "   0    0     0       0          7",
       "  eth0:18707308     781    0    0    0     0          0         0    49151     663    0 "
       "   0    0     0       0          0",
       "  wlan0: 5 6 junk 8", "", std::string(300, 'n') + ": 1 2 3"},
      [](const std::string& in) {
        std::string name = "-";
        NetworkState s;
        s.rx_bytes = s.rx_packets = s.tx_bytes = s.tx_compressed = 99;
        const bool taken = detail::ParseNetDevLine(in.c_str(), name, s);
        return (taken ? " " : " refused ") + Shown(name) +
               Figures({s.rx_bytes, s.rx_packets, s.tx_bytes, s.tx_compressed});
      });
  // 14 fields, 20 (discards and flushes), cut short (the rest reads 0).
  const std::string counters = " 11 12 13 14 15 16 17 18 19 20 21";
  out += Rows("diskstats line (sectors read, written, weighted time; 99 left over)",
              {"   8       1 sda1" + counters, "   8       1 sda1" + counters + " 1 2 3 4 5 6",
               "   8       1 sda1 11 12 13", "   8       1 " + std::string(300, 'x') + counters,
               "sda1 8 1" + counters},
              [](const std::string& in) {
                DiskState s;
                s.sectors_read = s.sectors_written = s.weighted_io_time_ms = 99;
                const bool taken = detail::ParseDiskstatsLine(in.c_str(), s);
                return (taken ? "" : " refused") +
                       Figures({s.sectors_read, s.sectors_written, s.weighted_io_time_ms});
              });
  // Minor 256 spills into the major's bits: the key is that of 9:0, not of 8:256.
  out += Rows("diskstats key (major:minor)", {"8 256 sdq", "8 1 sda1", "x 1"},
              [](const std::string& in) {
                uint64_t key = 0;
                return detail::ParseDiskstatsKey(in.c_str(), key)
                           ? " " + std::to_string(major(key)) + ":" + std::to_string(minor(key))
                           : " refused";
              });
  // The previous mount point stays when a line has one word; a word too long for its buffer
  // refuses the line whole, never split in two.
  std::string fs = "old-fs", mp = "/old";
  out += Rows("mount line (words taken, file system, mount point)",
              {"/dev/vda1 /boot ext4 rw 0 0", "none", "", "/dev/x /" + std::string(300, 'm')},
              [&](const std::string& in) {
                const int words = detail::ParseMountLine(in.c_str(), fs, mp);
                return " " + std::to_string(words) + " " + Shown(fs) + " " + Shown(mp);
              });
  // Records are counted from the start of what was read; the newest whole one counts.
  const std::vector<unsigned char> full = DdrRecords(400);
  out += Rows(
      "DDR records (bytes read -> CPU port read, MiB, of the newest whole record)",
      {"0", "375", "376", "751", "752", "150400"}, [&](const std::string& in) {
        const std::size_t length = std::stoul(in);
        std::vector<unsigned char> bytes(1);  // one byte in, so the records are not aligned
        bytes.insert(bytes.end(), full.begin(), full.begin() + static_cast<long>(length));
        QeltDdrState s;
        if (!detail::DecodeNewestDdrRecord(bytes.data() + 1, length, detail::DdrPortNames(), s))
          return std::string(" refused");
        return Figures({static_cast<long long>(s.bandwidth["CPU"].read) / 1048576});
      });
  // Numbers clamp as strtoll does; a NUL ends the text.
  out += Rows("number (taken, value; -1 left over)",
              {"  42 rest", "+17", "9223372036854775808", "-99999999999999999999999", "", "-",
               std::string("\0"
                           "1",
                           2)},
              [](const std::string& in) {
                long long value = -1;
                const bool taken = detail::ScanCursor(in).Number(value);
                return (taken ? " " : " refused ") + std::to_string(value);
              });
  out += Rows("kernel release at least 6.2",
              {"6.2.0", "6.1.99", "5.10.110-rt63", "6.18.44-fc-v782", "10.0", "6", ""},
              [](const std::string& in) {
                return detail::ReleaseAtLeast(in.c_str(), 6, 2) ? " yes" : " no";
              });
  // A process's files. The name is cut at its buffer; a short line leaves the later fields
  // alone.
  out += Rows("process stat (pid name state ppid tpgid cmajflt utime stime; 77 left over)",
              {"1234 (my proc) S 1 2 3 0 -1 9 10 11 12 14 350 120",
               "5 (" + std::string(400, 'n') + ") R 1", "7 (a) b) Z 1", "", "x"},
              [](const std::string& in) {
                ProcInfoState s;
                s.utime = s.stime = 77;
                detail::ParseProcStat(in, s);
                return " " + Shown(s.name) + " " + Shown(s.state) +
                       Figures({s.pid, s.ppid, s.tpgid, s.cmajflt, s.utime, s.stime});
              });
  // Arguments end in one NUL; without a final NUL the last byte is replaced anyway; only the
  // first line counts.
  out += Rows("process cmdline",
              {"a\0b\0"s, "",
               "sleep\0"
               "10"s,
               "a\0b\0\nline2\0"s},
              [](const std::string& in) {
                std::string cmd_line = "stale";
                detail::ParseCmdLine(in, cmd_line);
                return " " + Shown(cmd_line);
              });
  out += Rows("registration (name file|pid file, for process 1234)",
              {"camera\n|1234\n", "camera|1234", "camera\n|1234 \n", "camera\n|12345\n",
               "camera\nx\n|1234\n", "camera\n|1234\n\n", "|1234\n", "camera\n|"},
              [](const std::string& in) {
                std::string name = "stale";
                const std::size_t bar = in.find('|');
                detail::ParseRegistration(in.substr(0, bar), in.substr(bar + 1), "1234", name);
                return " " + Shown(name);
              });
  // A line without a unit word keeps the last unit read.
  out += Rows(
      "process status and io (VmPeak VmRSS VmSwap VmLck RssFile rchar syscw write_bytes "
      "cancelled_write_bytes)",
      {"VmPeak:\t 1 MB\nVmRSS:\t 2048 kB\nVmSwap:\t 3\nVmLckX:\t 5 kB\nRssFile: 7 B\n",
       "rchar: 10\nsyscw: 4\nwrite_bytes: 8192\ncancelled_write_bytes: 1\nbogus: 5\n"},
      [](const std::string& in) {
        ProcInfoState s;
        detail::ParseStatus(in, s);
        detail::ParseIo(in, s);
        return Figures({s.VmPeak, s.VmRSS, s.VmSwap, s.VmLck, s.RssFile, s.rchar, s.syscw,
                        s.write_bytes, s.cancelled_write_bytes});
      });
  // The core count is the last per-core line's number plus one, a lone cpu0 reading 0.
  const std::string agg = "cpu  10 20 30 40 50 60 70 80 90 100\n";
  out +=
      Rows("machine stat for processes (taken, total, cores; -1 left over)",
           {agg + "cpu0 1\ncpu1 1\ncpu2 1\ncpu3 1\nintr 5 6\n", agg + "cpu0 1\nintr 5\n", agg,
            "cpu  1 2 3 4\ncpu2147483647 1\n", "cpu  2147483647 2 3 4\n", "intr 1 2\n" + agg, ""},
           [](const std::string& in) {
             ProcInfoCpuState s{-1, -1};
             const bool taken = detail::ParseCpuTotal(in, s);
             return (taken ? "" : " refused") + Figures({s.total, s.cores});
           });
  testing::ExpectGolden("readers.txt", out);
}

// Boards the fixture board does not show, in odd_boards.txt: every item (name, samples taken,
// report block) after each case's passes over the board at t0, and what each pass returned.
TEST(MonitorsTest, OddBoards) {
  using Change = std::function<void(const FixtureTree&)>;
  std::string out;
  const auto run = [&out](const char* what, auto make, const std::vector<Change>& passes) {
    FixtureTree tree;
    testing::LoadBoard(tree, 0);
    std::unique_ptr<BaseMonitor> monitor = make(tree.paths());
    monitor->SetClock(&testing::FakeNow);
    out += what + std::string(":\n  passes");
    for (const Change& change : passes) {
      change(tree);
      testing::g_fake_now += 1000;
      out += monitor->DoMonitor() ? " true" : " false";
    }
    out += "\n" + testing::ItemsShown(*monitor);
  };
  const Change same = [](const FixtureTree&) {};
  const auto stat = [](std::string text) {
    return [text](const FixtureTree& t) { t.Write("proc/stat", text); };
  };
  const auto gone = [](std::vector<std::string> rels) {
    return [rels](const FixtureTree& t) {
      for (const std::string& rel : rels) t.Remove("sys/devices/system/bpu/" + rel);
    };
  };
  run("cpu: a name with a slash never leads the frequency reader elsewhere",
      MakeMonitor<CpuMonitor>, {stat("cpu  1 2 3 4\ncpu0/../cpu0 1 2 3 4\n"), same});
  run("cpu: cpu1 goes offline and keeps its item; user goes back by 50 ticks",
      MakeMonitor<CpuMonitor>,
      {stat("cpu  100 0 100 800 0 0 0 0 0 0\ncpu0 50 0 50 400\ncpu1 50 0 50 400\n"),
       stat("cpu  200 0 200 1600 0 0 0 0 0 0\ncpu0 100 0 100 800\ncpu1 100 0 100 800\n"),
       stat("cpu  150 0 250 2100 0 0 0 0 0 0\ncpu0 50 0 150 1300\n")});
  // Zones that give nothing must not hold up the rest; zones of one type share an item.
  const std::string zone = "sys/class/thermal/thermal_zone";
  run("temperature: a FIFO nobody writes, a directory, a file, a second cpu-thermal",
      MakeMonitor<TemperatureMonitor>,
      {[&](const FixtureTree& t) {
         t.Fifo(zone + "6/temp");
         t.Write(zone + "6/type", "fifo-thermal\n");
         t.Mkdir(zone + "7/temp");
         t.Write(zone + "7/type", "dir-thermal\n");
         t.Write(zone + "8", "not a zone\n");
         t.Write(zone + "9/type", "cpu-thermal\n");
         t.Write(zone + "9/temp", "45000\n");
       },
       same});
  run("bpu: none", MakeMonitor<BpuMonitor>, {gone({"bpu0", "bpu1"}), same});
  run("bpu: a gap ends the scan", MakeMonitor<BpuMonitor>, {gone({"bpu0"}), same});
  run("bpu: a core without a device name is skipped", MakeMonitor<BpuMonitor>,
      {gone({"bpu0/devfreq/devfreq0/name"}), same});
  run("bpu: a core with an empty devfreq is skipped", MakeMonitor<BpuMonitor>,
      {gone({"bpu0/devfreq/devfreq0"}), same});
  // Unreadable names (none, empty, a directory) pass over a device; missing figures read 0.
  const std::string devfreq = "sys/devices/system/bpu/bpu0/devfreq/";
  run("bpu: the first device with a name counts", MakeMonitor<BpuMonitor>,
      {[&](const FixtureTree& t) {
         t.Mkdir(devfreq + "a");
         t.Write(devfreq + "b/name", "");
         t.Mkdir(devfreq + "c/name");
         t.Remove(devfreq + "devfreq0");
         t.Write(devfreq + "d/name", "bpu-core0 extra\n");
         t.Write(devfreq + "d/max_freq", "junk\n");
       },
       same});
  // A device planted as a process's stat file is refused (only a real procfs spares the type
  // check); a process that exits keeps its item as it was; without a proc root a pass fails.
  run("process: no statm, no status and io, an empty stat, a device as stat; then 100 exits, "
      "then the proc root goes",
      MakeMonitor<ProcInfoMonitor>,
      {[](const FixtureTree& t) {
         for (const char* rel : {"proc/200/statm", "proc/300/status", "proc/300/io"}) t.Remove(rel);
         t.Write("proc/9/stat", "");
         t.Write("proc/8/cmdline", "x");
         t.Symlink("/dev/urandom", "proc/8/stat");
       },
       same, [](const FixtureTree& t) { t.Remove("proc/100"); },
       [](const FixtureTree& t) { t.Remove("proc"); }});
  // Over a tree without any of the files, every monitor passes; only memory has an item.
  FixtureTree empty;
  for (auto* make :
       {MakeMonitor<CpuMonitor>, MakeMonitor<BpuMonitor>, MakeMonitor<DiskMonitor>,
        MakeMonitor<MemoryMonitor>, MakeMonitor<NetworkMonitor>, MakeMonitor<TemperatureMonitor>,
        MakeMonitor<QeltDdrMonitor>, MakeMonitor<ProcInfoMonitor>}) {
    std::unique_ptr<BaseMonitor> monitor = make(empty.paths());
    monitor->DoMonitor();
    monitor->DoMonitor();
    out += "empty tree, kind " + std::to_string(monitor->Type()) + ":\n" +
           testing::ItemsShown(*monitor);
  }
  testing::ExpectGolden("odd_boards.txt", out);
}

TEST(DiskMonitorTest, MountsMatchTheirDeviceLineOnly) {
  FixtureTree tree;
  for (const char* dir : {"rootfs/data", "rootfs/data2", "rootfs/my disk"}) tree.Mkdir(dir);
  tree.Symlink("/proc", "rootfs/proc");  // a pseudo file system: no diskstats line
  struct stat st;
  ASSERT_EQ(stat(tree.Path("rootfs/data").c_str(), &st), 0);
  const unsigned major_no = major(st.st_dev), minor_no = minor(st.st_dev);
  // With an odd major, minor + 256 spills into the very same key.
  if (minor_no >= 256 || major_no >= 4096 || major_no % 2 == 1) GTEST_SKIP() << "device number";
  tree.Write("proc/mounts",
             "/dev/fake /data ext4 rw 0 0\nproc /proc proc rw 0 0\n/dev/gone /missing ext4 rw 0 "
             "0\n/dev/fake /my\\040disk ext4 rw 0 0\n/dev/fake /data2 ext4 rw 0 0\n");
  const auto diskstats = [&](int read, int written) {
    const std::string id = std::to_string(major_no) + " " + std::to_string(minor_no);
    const std::string spilled = std::to_string(major_no) + " " + std::to_string(minor_no + 256);
    tree.Write("proc/diskstats", id + " fakedisk 1 0 " + std::to_string(read) + " 0 1 0 " +
                                     std::to_string(written) + " 0 0 0 0\n" + spilled +
                                     " spilled 1 0 999999 0 1 0 999999 0 0 0 0\n");
  };
  diskstats(100, 200);
  DiskMonitor monitor(tree.paths());
  monitor.SetClock(&testing::FakeNow);
  EXPECT_TRUE(monitor.DoMonitor());
  diskstats(100 + 2048, 200 + 4096);
  testing::g_fake_now += 1000;
  EXPECT_TRUE(monitor.DoMonitor());
  ASSERT_EQ(Names(monitor), (std::vector<std::string>{"/data", "/data2"}));
  // A line of one word keeps the last mount point, under the new word.
  tree.Write("proc/mounts", "/dev/fake /data ext4 rw 0 0\nnone\n");
  std::string table;
  for (const auto& [device, mounts] : monitor.GetMounts()) {
    for (const Mount& m : mounts) table += m.file_system + m.mount_point + " ";
  }
  EXPECT_EQ(table, "/dev/fake/data none/data ");
  struct statvfs vfs;
  ASSERT_EQ(statvfs(tree.Path("rootfs/data").c_str(), &vfs), 0);
  for (const char* mount_point : {"/data", "/data2"}) {
    const auto* item = Item<DiskResourceItem>(monitor, mount_point);
    EXPECT_EQ(item->name, "fakedisk");  // had the minor-256 line matched, it would have won
    EXPECT_EQ(item->file_system + item->mount_point, std::string("/dev/fake") + mount_point);
    EXPECT_EQ(item->total_size, static_cast<int64_t>(vfs.f_blocks * vfs.f_bsize));
    EXPECT_DOUBLE_EQ(item->read_bandwidth, 2048 * 512);
    EXPECT_DOUBLE_EQ(item->written_bandwidth, 4096 * 512);
  }
}

// Devices are numbered from 0 without gaps; one that cannot be opened ends the search too. Each
// pass decodes the newest record of what it read, through close-on-exec descriptors. Records
// are counted from the start of each read: bytes short of a record go with the read (never
// shifting what later reads decode), and the other device goes on being read.
TEST(DdrMonitorTest, DevicesAndTheNewestRecordOfEachRead) {
  FixtureTree tree;
  for (int id : {0, 1, 3}) tree.Fifo("dev/ddrmonitor" + std::to_string(id));
  auto monitor = std::make_unique<QeltDdrMonitor>(tree.paths());
  ASSERT_EQ(monitor->Infos().size(), 2u);
  const int fd = monitor->Infos().front()->fd;
  EXPECT_NE(fcntl(fd, F_GETFD) & FD_CLOEXEC, 0);
  EXPECT_NE(fcntl(fd, F_GETFL) & O_NONBLOCK, 0);
  int writers[2];
  for (int id : {0, 1}) {
    writers[id] = open(tree.Path("dev/ddrmonitor" + std::to_string(id)).c_str(),
                       O_WRONLY | O_NONBLOCK | O_CLOEXEC);
  }
  const auto send = [&](int id, std::vector<unsigned char> bytes, std::size_t junk = 0) {
    bytes.insert(bytes.end(), junk, 0x5A);  // stray bytes, short of a record
    ASSERT_EQ(write(writers[id], bytes.data(), bytes.size()), ssize_t(bytes.size()));
  };
  for (std::size_t count : {1, 2, 174}) {  // 174 records fill a default 64 KiB pipe
    for (int id : {0, 1}) send(id, DdrRecords(count));
    monitor->DoMonitor();
  }
  ASSERT_EQ(Names(*monitor), (std::vector<std::string>{"ddr0", "ddr1"}));
  EXPECT_EQ(Item(*monitor, "ddr0")->count, 2u);
  EXPECT_EQ(Item<QeltDdrResourceItem>(*monitor, "ddr1")->name, "ddr1");  // reports lead with it
  const auto cpu = [&](const char* device) {
    return Item<QeltDdrResourceItem>(*monitor, device)->bandwidth.at("CPU").read / 1048576;
  };
  EXPECT_EQ(cpu("ddr0"), 174);
  const struct {
    std::size_t records, first, junk;  // so many records of first, first + 1, ... MiB, then junk
    int shown;  // CPU port after the pass, MiB; 0 when the item keeps its figures
  } cases[] = {{0, 0, 1, 0}, {0, 0, 375, 0}, {1, 5, 1, 5}, {2, 6, 248, 7}};
  uint32_t other = 200;
  for (const auto& c : cases) {
    send(0, DdrRecords(c.records, static_cast<uint32_t>(c.first)), c.junk);
    send(1, DdrRecords(1, ++other));
    const double before = cpu("ddr0");
    monitor->DoMonitor();
    EXPECT_EQ(cpu("ddr0"), c.shown > 0 ? c.shown : before) << c.junk;
    EXPECT_EQ(cpu("ddr1"), other);
    send(0, DdrRecords(1, 9));  // the next read decodes the next whole record
    send(1, DdrRecords(1, ++other));
    monitor->DoMonitor();
    EXPECT_EQ(cpu("ddr0"), 9);
  }
  // The totals are of the newest record alone, not summed over the passes.
  const auto* ddr1 = Item<QeltDdrResourceItem>(*monitor, "ddr1");
  double writes = 0;
  for (const auto& [port, figures] : ddr1->bandwidth) writes += figures.write;
  EXPECT_GT(writes, 0);
  EXPECT_EQ(ddr1->total_write, writes);
  for (int w : writers) close(w);
  monitor.reset();
  EXPECT_EQ(fcntl(fd, F_GETFD), -1);
  tree.Remove("dev/ddrmonitor1");
  tree.Mkdir("dev/ddrmonitor1");  // there, but cannot be opened read-write
  EXPECT_EQ(QeltDdrMonitor(tree.paths()).Infos().size(), 1u);
}

// 20 MiB in datagrams to 127.0.0.1, one (fake) second between the samples. The loopback
// interface counts what it carries, received or dropped by the socket, in both directions.
TEST(LiveMachine, LoopbackTrafficShowsInLoRates) {
  const auto counted = [] {  // what the kernel has counted on the interface, both ways
    long long rx = -1, tx = -1;
    std::ifstream("/sys/class/net/lo/statistics/rx_bytes") >> rx;
    std::ifstream("/sys/class/net/lo/statistics/tx_bytes") >> tx;
    return rx < 0 || tx < 0 ? -1 : rx + tx;
  };
  NetworkMonitor monitor;
  monitor.SetClock(&testing::FakeNow);
  const long long before = counted();
  monitor.DoMonitor();
  const long long bytes = 20LL << 20;
  const int udp = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  sockaddr_in addr{};
  addr.sin_family = AF_INET;
  addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t len = sizeof(addr);
  ASSERT_EQ(bind(udp, reinterpret_cast<sockaddr*>(&addr), len), 0);
  ASSERT_EQ(getsockname(udp, reinterpret_cast<sockaddr*>(&addr), &len), 0);
  const std::string chunk(60000, 's');
  for (ssize_t sent = 0, put = 0; sent < bytes && put >= 0; sent += put) {
    put = sendto(udp, chunk.data(), chunk.size(), 0, reinterpret_cast<sockaddr*>(&addr), len);
  }
  close(udp);
  testing::g_fake_now += 1000;
  monitor.DoMonitor();
  const long long after = counted();
  const auto* lo = Item<NetworkResourceItem>(monitor, "lo:");
  if (lo == nullptr) GTEST_SKIP() << "no loopback interface";
  // Other programs' loopback traffic lands in the same counters: the rates lie between what
  // this test sent and what the kernel counted (both ways) around the two samples.
  EXPECT_GE(lo->tx_bandwidth, bytes);
  EXPECT_GE(lo->rx_bandwidth, bytes);
  EXPECT_TRUE(before < 0 || lo->tx_bandwidth + lo->rx_bandwidth <= after - before)
      << lo->tx_bandwidth << " + " << lo->rx_bandwidth << " > " << after - before;
}

}  // namespace
}  // namespace zefo
