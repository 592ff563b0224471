#include "board.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstring>
#include <sstream>
#include <vector>

#include "zefo/format/snapshot.h"

namespace zefo::testing {

namespace {

int64_t g_now = 0;
int64_t BoardNow() {
  return g_now;
}

// Counters of one /proc/stat cpu line: user nice system idle iowait irq softirq.
std::string CpuLine(const std::string& name, const std::vector<long long>& c) {
  std::string line = name;
  for (long long v : c) line += " " + std::to_string(v);
  return line + " 0 0 0\n";
}

void WriteStat(const FixtureTree& tree, int pass) {
  const long long d = pass;  // each pass adds to the counters
  tree.Write("proc/stat",
             CpuLine("cpu ", {300 + 260 * d, 0, 100 + 60 * d, 3000 + 440 * d, 10 + 40 * d, 0, 0}) +
                 CpuLine("cpu0", {100 + 150 * d, 0, 50 + 30 * d, 1000 + 20 * d, 0, 0, 0}) +
                 CpuLine("cpu1", {100 + 100 * d, 0, 25 + 30 * d, 1000 + 20 * d, 5 + 40 * d, 0, 0}) +
                 CpuLine("cpu2", {100 + 10 * d, 0, 25, 1000 + 400 * d, 5, 0, 0}) +
                 CpuLine("cpu10", {0, 0, 0, 0, 0, 0, 0}) + "intr 12345\nctxt 6789\n");
  tree.Write("proc/uptime", pass == 0 ? "100.00 300.00\n" : "102.00 306.00\n");
}

std::string StatLine(const std::string& pid, const std::string& comm, long long utime,
                     long long stime, long long start, char state) {
  std::ostringstream s;
  s << pid << " (" << comm << ") " << state << " 1 " << pid << " " << pid
    << " 0 -1 4194560 11 12 13 14 " << utime << " " << stime << " 0 0 20 0 1 0 " << start;
  for (int field = 23; field <= 38; ++field) s << " 0";
  s << " 2 0 0 25 0 0\n";
  return s.str();
}

void WriteProcess(const FixtureTree& tree, const std::string& pid, const std::string& comm,
                  const std::string& cmdline, long long utime, long long stime, long long read) {
  const std::string dir = "proc/" + pid + "/";
  tree.Write(dir + "stat", StatLine(pid, comm, utime, stime, 5000, 'S'));
  tree.Write(dir + "cmdline", cmdline);
  tree.Write(dir + "statm", "2000 400 100 20 0 600 0\n");
  tree.Write(dir + "status",
             "Name:\t" + comm +
                 "\nVmPeak:\t 9000 kB\nVmSize:\t 8000 kB\nVmHWM:\t 1800 kB\nVmRSS:\t 1600 kB\n"
                 "RssAnon:\t 1000 kB\nRssFile:\t 400 kB\nRssShmem:\t 200 kB\nVmData:\t 600 kB\n"
                 "VmStk:\t 132 kB\nVmExe:\t 80 kB\nVmLib:\t 4000 kB\nVmSwap:\t 16 kB\n");
  tree.Write(dir + "io", "read_bytes: " + std::to_string(read) + "\nwrite_bytes: 0\n");
  for (const char* fd : {"0", "1", "2"}) tree.Write(dir + "fd/" + fd, "");
}

void WritePass(const FixtureTree& tree, int pass) {
  const long long d = pass;
  WriteStat(tree, pass);
  for (int cpu = 0; cpu < 3; ++cpu) {
    const std::string dir = "sys/devices/system/cpu/cpu" + std::to_string(cpu) + "/cpufreq/";
    tree.Write(dir + "cpuinfo_min_freq", "300000\n");
    tree.Write(dir + "cpuinfo_max_freq", "1500000\n");
    tree.Write(dir + "cpuinfo_cur_freq", std::to_string(1200000 - 300000 * cpu) + "\n");
  }
  for (int core = 0; core < 2; ++core) {
    const std::string n = std::to_string(core);
    const std::string dir = "sys/devices/system/bpu/bpu" + n;
    tree.Write(dir + "/ratio", std::to_string(45 + 40 * core) + "\n");
    tree.Write(dir + "/devfreq/devfreq" + n + "/name", "bpu" + n + "\n");
    tree.Write(dir + "/devfreq/devfreq" + n + "/min_freq", "200000000\n");
    tree.Write(dir + "/devfreq/devfreq" + n + "/max_freq", "1000000000\n");
    tree.Write(dir + "/devfreq/devfreq" + n + "/cur_freq", std::to_string(800000000) + "\n");
  }
  tree.Write("proc/meminfo",
             "MemTotal:        2048000 kB\nMemFree:          512000 kB\n"
             "Buffers:           20480 kB\nCached:           409600 kB\nShmem:  10240 kB\n"
             "SReclaimable:   51200 kB\nSwapTotal:       1024000 kB\nSwapFree:  1000000 kB\n");
  tree.Write("proc/net/dev",
             "Inter-|   Receive                                                |  Transmit\n"
             " face |bytes    packets errs drop fifo frame compressed multicast|bytes    packets "
             "errs drop fifo colls carrier compressed\n"
             "    lo: " +
                 std::to_string(1000 + 2048 * d) + " 10 0 0 0 0 0 0 " +
                 std::to_string(1000 + 2048 * d) +
                 " 10 0 0 0 0 0 0\n  eth0: " + std::to_string(5000 + 3000000 * d) +
                 " 5 0 0 0 0 0 0 " + std::to_string(7000 + 500000 * d) + " 7 0 0 0 0 0 0\n");
  const char* zones[][2] = {{"cpu-thermal", "45000"},
                            {"bpu-thermal", "61500"},
                            {"ddr-thermal", "52250"},
                            {"board-thermal", "38000"}};
  for (int z = 0; z < 4; ++z) {
    const std::string dir = "sys/class/thermal/thermal_zone" + std::to_string(z) + "/";
    tree.Write(dir + "type", std::string(zones[z][0]) + "\n");
    tree.Write(dir + "temp", std::string(zones[z][1]) + "\n");
  }
  WriteProcess(tree, "100", "camera_app",
               std::string("/usr/bin/camera_app\0--fps\0"
                           "30\0",
                           29),
               1000 + 100 * d, 200 + 20 * d, 4096 + 2097152 * d);
  WriteProcess(tree, "200", "we\"ird\\\xff", std::string("./weird\0", 8), 50 + 30 * d, 10, 0);
  WriteProcess(tree, "300", "sleeper",
               std::string("sleep\0"
                           "100\0",
                           10),
               5, 5, 0);
}

// One DDR record: port i reads (i + 1) GiB and writes (i + 1) × 256 MiB; the device's own
// figures are a little larger.
std::vector<unsigned char> DdrRecord() {
  std::vector<unsigned char> bytes(376, 0);
  const auto put = [&bytes](std::size_t at, uint32_t word) {
    std::memcpy(bytes.data() + at, &word, sizeof word);
  };
  for (uint32_t i = 0; i < 5; ++i) {
    put(12 + 64 * i, ((i + 1) * 1024) << 16);
    put(44 + 64 * i, ((i + 1) * 256) << 16);
  }
  put(328, 16000u << 16);
  put(332, 4000u << 16);
  return bytes;
}

}  // namespace

format::Snapshot BoardPass(const FixtureTree& tree) {
  const KernelPaths paths = tree.paths();
  tree.Fifo("dev/ddrmonitor0");
  WritePass(tree, 0);
  CpuMonitor cpu(paths);
  BpuMonitor bpu(paths);
  MemoryMonitor memory(paths);
  NetworkMonitor network(paths);
  TemperatureMonitor temperature(paths);
  QeltDdrMonitor ddr(paths);
  ProcInfoMonitor process(paths);
  process.SetPageSize(4096);
  tree.Write("reg/100/name", "camera\n");
  tree.Write("reg/100/pid", "100\n");
  BaseMonitor* monitors[] = {&cpu, &bpu, &memory, &network, &temperature, &ddr, &process};
  const int ddr_fd = open(tree.Path("dev/ddrmonitor0").c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC);
  const std::vector<unsigned char> record = DdrRecord();

  // The disk monitor asks statvfs about real mount points; its items are made from samples.
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
  media.mount_point = "/media/my\\040disk";
  media.name = "sda1";

  for (int pass = 0; pass < 2; ++pass) {
    g_now = 1000 + 2000 * pass;
    if (pass == 1) WritePass(tree, 1);
    if (ddr_fd >= 0 && write(ddr_fd, record.data(), record.size()) < 0) break;
    for (BaseMonitor* monitor : monitors) {
      monitor->SetClock(&BoardNow);
      monitor->DoMonitor();
    }
    userdata.sectors_read = 4096 * pass;  // 2 MiB in 2 s
    userdata.sectors_written = 8 * pass;
    disk_info.Update(&disks, userdata.mount_point, userdata, g_now);
    disk_info.Update(&disks, media.mount_point, media, g_now);
  }
  if (ddr_fd >= 0) close(ddr_fd);

  format::Snapshot snapshot;
  snapshot.update_time = kBoardUpdateTime;
  snapshot.Add(Cpu, cpu.Items());
  snapshot.Add(Bpu, bpu.Items());
  snapshot.Add(Disk, disks.Items());
  snapshot.Add(Memory, memory.Items());
  snapshot.Add(Network, network.Items());
  snapshot.Add(Temperature, temperature.Items());
  snapshot.Add(QeltDdr, ddr.Items());
  snapshot.Add(ProcInfo, process.Items());
  return snapshot;
}

format::FormatOptions FixedOptions() {
  format::FormatOptions options;
  options.utc = true;
  options.clock_ticks = 100;
  return options;
}

}  // namespace zefo::testing
