// zefo-soak: many thousands of sampling passes of the whole library over a fixed fixture tree,
// with resident memory and open descriptors measured once the items exist and again at the end.
// Over a tree that never changes, nothing may grow from pass to pass.
//
//   zefo-soak [--passes N] [--warmup W] [--period MS] [--samples S]
//             [--check] [--rss-tolerance-kb K] [--fd-tolerance F]
//
// Builds a board in a temporary directory (CPUs with cpufreq, memory, a mount point with its
// diskstats line, two interfaces, three thermal zones, two BPU cores, a DDR monitor FIFO fed by
// a thread, three processes with registrations), runs ZefoResourceMonitorApi over it at the
// given period (default 1 ms), and prints one line per sample:
//
//   pass=P rss_kb=R fds=F items=I
//
// then a summary. With --check it exits 1 when, between the end of the warm-up and the last
// pass, resident memory grew by more than the tolerance (default 256 kB), the descriptor count
// changed by more than its tolerance (default 0), or the item count changed.
#include <dirent.h>
#include <fcntl.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "zefo/zefo_resource_monitor.h"

#if defined(__has_feature)
#if __has_feature(address_sanitizer)
#define ZEFO_SOAK_ASAN 1
#endif
#endif
#if defined(__SANITIZE_ADDRESS__) && !defined(ZEFO_SOAK_ASAN)
#define ZEFO_SOAK_ASAN 1
#endif

#ifdef ZEFO_SOAK_ASAN
// AddressSanitizer keeps freed memory aside (256 MB by default) before reusing it, so resident
// memory climbs with every allocation until that quarantine is full, leak or no leak. Without
// it, freed memory is reused at once and growth means what it means in a plain build.
extern "C" __attribute__((visibility("default"))) const char* __asan_default_options() {
  return "quarantine_size_mb=0";
}
#endif

namespace {

namespace fs = std::filesystem;

struct Options {
  long passes = 20000;
  long warmup = 1000;
  int period = 1;
  int samples = 5;
  bool check = false;
  long rss_tolerance_kb = 256;
  long fd_tolerance = 0;
};

bool ParseOptions(int argc, char** argv, Options& o) {
  for (int i = 1; i < argc; ++i) {
    const std::string arg = argv[i];
    const auto value = [&](long& out) {
      if (i + 1 >= argc) return false;
      char* end = nullptr;
      out = std::strtol(argv[++i], &end, 10);
      return *end == '\0' && out >= 0;
    };
    long number = 0;
    if (arg == "--check") {
      o.check = true;
    } else if (arg == "--passes" && value(number) && number > 0) {
      o.passes = number;
    } else if (arg == "--warmup" && value(number)) {
      o.warmup = number;
    } else if (arg == "--period" && value(number)) {
      o.period = static_cast<int>(number);
    } else if (arg == "--samples" && value(number) && number > 0) {
      o.samples = static_cast<int>(number);
    } else if (arg == "--rss-tolerance-kb" && value(number)) {
      o.rss_tolerance_kb = number;
    } else if (arg == "--fd-tolerance" && value(number)) {
      o.fd_tolerance = number;
    } else {
      return false;
    }
  }
  return o.warmup < o.passes;
}

void Write(const fs::path& path, const std::string& text) {
  fs::create_directories(path.parent_path());
  std::ofstream(path, std::ios::binary | std::ios::trunc) << text;
}

// The board: every kind of item the library knows, none of them changing.
void BuildBoard(const fs::path& root) {
  Write(root / "proc/stat",
        "cpu  4705 356 584 3699 23 23 0 0 0 0\ncpu0 2400 178 292 1850 12 12 0 0 0 0\n"
        "cpu1 2305 178 292 1849 11 11 0 0 0 0\nintr 114930548 113199788 3 0 5\nctxt 1990473\n"
        "btime 1700000000\nprocesses 2915\nprocs_running 1\nprocs_blocked 0\n");
  for (const char* cpu : {"cpu0", "cpu1"}) {
    const fs::path dir = root / "sys/devices/system/cpu" / cpu / "cpufreq";
    Write(dir / "cpuinfo_min_freq", "300000\n");
    Write(dir / "cpuinfo_max_freq", "1800000\n");
    Write(dir / "cpuinfo_cur_freq", "1200000\n");
  }
  Write(root / "proc/meminfo",
        "MemTotal:        2048000 kB\nMemFree:          512000 kB\nMemAvailable:    1024000 kB\n"
        "Buffers:           64000 kB\nCached:           256000 kB\nShmem:              1000 kB\n"
        "SReclaimable:      32000 kB\nSwapTotal:             0 kB\nSwapFree:              0 kB\n");
  fs::create_directories(root / "rootfs/data");
  struct stat st {};
  ::stat((root / "rootfs/data").c_str(), &st);
  Write(root / "proc/mounts", "/dev/fake /data ext4 rw,relatime 0 0\nproc /proc proc rw 0 0\n");
  Write(root / "proc/diskstats", " " + std::to_string(major(st.st_dev)) + " " +
                                     std::to_string(minor(st.st_dev)) +
                                     " fakedisk 100 0 2000 50 200 0 4000 80 0 120 130\n");
  Write(root / "proc/net/dev",
        "Inter-|   Receive                                                |  Transmit\n"
        " face |bytes    packets errs drop fifo frame compressed multicast|bytes    packets errs "
        "drop fifo colls carrier compressed\n"
        "    lo:    3267      29    0    0    0     0          0         0     3267      29    0 "
        "   0    0     0       0          0\n"
        "  eth0: 18707308     781    0    0    0     0          0         0    49151     663    0 "
        "   0    0     0       0          0\n");
  Write(root / "proc/uptime", "35000.25 60000.50\n");
  const char* zones[] = {"cpu-thermal", "bpu-thermal", "ddr-thermal"};
  for (int i = 0; i < 3; ++i) {
    const fs::path dir = root / ("sys/class/thermal/thermal_zone" + std::to_string(i));
    Write(dir / "type", std::string(zones[i]) + "\n");
    Write(dir / "temp", std::to_string(45000 + 1000 * i) + "\n");
  }
  for (int core = 0; core < 2; ++core) {
    const fs::path dir = root / ("sys/devices/system/bpu/bpu" + std::to_string(core));
    const fs::path dev = dir / ("devfreq/devfreq" + std::to_string(core));
    Write(dev / "name", "bpu" + std::to_string(core) + "\n");
    Write(dev / "min_freq", "200000000\n");
    Write(dev / "max_freq", "1000000000\n");
    Write(dev / "cur_freq", "800000000\n");
    Write(dir / "ratio", "37\n");
  }
  fs::create_directories(root / "dev");
  ::mkfifo((root / "dev/ddrmonitor0").c_str(), 0600);
  for (const char* pid : {"101", "202", "303"}) {
    const fs::path dir = root / "proc" / pid;
    Write(dir / "stat", std::string(pid) +
                            " (app) S 1 101 101 0 -1 4194560 150 0 0 0 350 120 0 0 20 0 1 0 5000 "
                            "5869568 410 18446744073709551615 1 1 0 0 0 0 0 0 0 0 0 0 17 1 0 0 "
                            "7 0 0 0 0 0 0 0 0 0\n");
    Write(dir / "statm", "2795 410 343 39 0 161 0\n");
    Write(dir / "status",
          "Name:\tapp\nVmPeak:\t 5000 kB\nVmSize:\t 4000 kB\nVmHWM:\t 900 kB\nVmRSS:\t 800 kB\n"
          "RssAnon:\t 500 kB\nRssFile:\t 200 kB\nRssShmem:\t 100 kB\nVmData:\t 300 kB\n"
          "VmStk:\t 132 kB\nVmExe:\t 40 kB\nVmLib:\t 2000 kB\nVmSwap:\t 0 kB\n");
    Write(dir / "io",
          "rchar: 10\nwchar: 20\nsyscr: 1\nsyscw: 2\nread_bytes: 4096\n"
          "write_bytes: 8192\ncancelled_write_bytes: 0\n");
    Write(dir / "cmdline", std::string("/usr/bin/app\0--serve\0", 21));
    for (const char* fd : {"0", "1", "2"}) Write(dir / "fd" / fd, "");
    Write(root / "reg" / pid / "name", std::string("svc") + pid + "\n");
    Write(root / "reg" / pid / "pid", std::string(pid) + "\n");
  }
}

// Resident memory of this process, kB (VmRSS).
long RssKb() {
  std::ifstream status("/proc/self/status");
  std::string line;
  while (std::getline(status, line)) {
    if (line.rfind("VmRSS:", 0) == 0) return std::strtol(line.c_str() + 6, nullptr, 10);
  }
  return -1;
}

// Open descriptors of this process.
long Descriptors() {
  long count = 0;
  DIR* dir = opendir("/proc/self/fd");
  if (dir == nullptr) return -1;
  while (const dirent* entry = readdir(dir)) count += entry->d_name[0] != '.';
  closedir(dir);
  return count - 1;  // the listing's own descriptor
}

struct Sample {
  uint64_t pass = 0;
  long rss_kb = 0;
  long fds = 0;
  std::size_t items = 0;
};

// The number of passes so far (the CPU total item is updated once a pass) and the item count,
// both read under the library's lock.
// The callback captures one pointer, so that the std::function holding it needs no heap: the
// polling itself allocates nothing.
void Count(zefo::ZefoResourceMonitorApi& monitor, Sample& sample) {
  unsigned long update_time = 0;
  sample.items = 0;
  Sample* out = &sample;
  monitor.GetResourceInfo(update_time, [out](zefo::ResourceMonitorType type, const auto& map) {
    out->items += map.size();
    const auto total = map.find("total");
    if (type == zefo::Cpu && total != map.end()) out->pass = total->second->count + 1;
  });
}

Sample WaitForPass(zefo::ZefoResourceMonitorApi& monitor, uint64_t pass) {
  Sample sample;
  while (true) {
    Count(monitor, sample);
    if (sample.pass >= pass) break;
    std::this_thread::sleep_for(std::chrono::microseconds(200));
  }
  sample.rss_kb = RssKb();
  sample.fds = Descriptors();
  std::printf("pass=%llu rss_kb=%ld fds=%ld items=%zu\n",
              static_cast<unsigned long long>(sample.pass), sample.rss_kb, sample.fds,
              sample.items);
  std::fflush(stdout);
  return sample;
}

}  // namespace

int main(int argc, char** argv) {
  Options options;
  if (!ParseOptions(argc, argv, options)) {
    std::fprintf(stderr,
                 "usage: %s [--passes N] [--warmup W] [--period MS] [--samples S] [--check] "
                 "[--rss-tolerance-kb K] [--fd-tolerance F]\n",
                 argv[0]);
    return 2;
  }
  std::string pattern = (fs::temp_directory_path() / "zefo-soak-XXXXXX").string();
  if (mkdtemp(pattern.data()) == nullptr) return 2;
  const fs::path root = pattern;
  BuildBoard(root);

  const long fds_before = Descriptors();
  const auto started = std::chrono::steady_clock::now();
  bool ok = true;
  {
    zefo::ZefoResourceMonitorApi monitor(options.period,
                                         zefo::KernelPaths::UnderRoot(root.string()));
    // The DDR device: one record every millisecond, as a driver would deliver them.
    std::atomic<bool> feeding{true};
    std::thread feeder([&] {
      const int fd = ::open((root / "dev/ddrmonitor0").c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC);
      unsigned char record[376] = {};
      const uint32_t raw = 3u << 16;
      std::memcpy(record + 12, &raw, sizeof raw);
      while (feeding) {
        if (fd >= 0 && ::write(fd, record, sizeof record) < 0) {
          // Full (nobody read for a while): the record is dropped, as a driver would.
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
      }
      if (fd >= 0) ::close(fd);
    });

    std::vector<Sample> samples;
    samples.push_back(WaitForPass(monitor, static_cast<uint64_t>(options.warmup)));
    for (int s = 1; s <= options.samples; ++s) {
      const long pass = options.warmup + (options.passes - options.warmup) * s / options.samples;
      samples.push_back(WaitForPass(monitor, static_cast<uint64_t>(pass)));
    }
    feeding = false;
    feeder.join();

    const Sample& first = samples.front();
    const Sample& last = samples.back();
    const double seconds =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count();
    const long rss_growth = last.rss_kb - first.rss_kb;
    const long fd_growth = last.fds - first.fds;
    const double per_pass =
        static_cast<double>(rss_growth) * 1024.0 / static_cast<double>(last.pass - first.pass);
    std::printf(
        "passes=%llu seconds=%.1f period_ms=%d items=%zu rss_kb=%ld->%ld (%+ld, %+.2f bytes per "
        "pass) fds=%ld->%ld (%+ld)\n",
        static_cast<unsigned long long>(last.pass), seconds, options.period, last.items,
        first.rss_kb, last.rss_kb, rss_growth, per_pass, first.fds, last.fds, fd_growth);
    if (options.check) {
      if (rss_growth > options.rss_tolerance_kb) {
        std::printf("FAIL: resident memory grew by %ld kB (tolerance %ld kB)\n", rss_growth,
                    options.rss_tolerance_kb);
        ok = false;
      }
      if (fd_growth > options.fd_tolerance || -fd_growth > options.fd_tolerance) {
        std::printf("FAIL: open descriptors went from %ld to %ld\n", first.fds, last.fds);
        ok = false;
      }
      if (last.items != first.items) {
        std::printf("FAIL: items went from %zu to %zu over a tree that does not change\n",
                    first.items, last.items);
        ok = false;
      }
    }
  }
  // Everything the library opened is closed again with it.
  const long fds_after = Descriptors();
  if (options.check && fds_after != fds_before) {
    std::printf("FAIL: %ld descriptors open before the library, %ld after it\n", fds_before,
                fds_after);
    ok = false;
  }
  std::error_code ignored;
  fs::remove_all(root, ignored);
  return ok ? 0 : 1;
}
