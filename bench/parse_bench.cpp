// zefo-parse-bench: each monitor's text-to-state step over captured kernel text, and the
// two-sample update, without any I/O. Run the release build:
//
//   build/release/bench/zefo-parse-bench [--benchmark_filter=Proc]
#include <benchmark/benchmark.h>

#include <cstring>
#include <list>
#include <string>
#include <vector>

#include "core/file_reader.h"
#include "monitors/cpu_parse.h"
#include "monitors/disk_parse.h"
#include "monitors/memory_parse.h"
#include "monitors/network_parse.h"
#include "monitors/qeltddr_decode.h"
#include "monitors/temperature_parse.h"
#include "process/fd_count.h"
#include "process/procinfo_parse.h"
#include "zefo/procinfo_monitor.h"

namespace zefo {
namespace {

// ---- captured text (a 2-core development machine) --------------------------------------------

const char kProcStat[] =
    "cpu  2684811 115236 1094082 54162041 10674 0 890071 0 0 0\n"
    "cpu0 1342405 57618 547041 27081020 5337 0 445035 0 0 0\n"
    "cpu1 1342406 57618 547041 27081021 5337 0 445036 0 0 0\n"
    "intr 175064416 9 0 0 0 0 0 0 0 1 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0\n"
    "ctxt 338452716\nbtime 1718030000\nprocesses 1893310\nprocs_running 2\nprocs_blocked 0\n"
    "softirq 94757301 0 20338213 1 3519917 0 0 4 38087018 0 32812148\n";

const char kMeminfo[] =
    "MemTotal:       16318524 kB\nMemFree:         1437360 kB\nMemAvailable:    9788528 kB\n"
    "Buffers:          538292 kB\nCached:          7880308 kB\nSwapCached:            0 kB\n"
    "Active:          7335416 kB\nInactive:        6371024 kB\nActive(anon):    5344980 kB\n"
    "Inactive(anon):    76624 kB\nActive(file):    1990436 kB\nInactive(file):  6294400 kB\n"
    "Unevictable:       35828 kB\nMlocked:               0 kB\nSwapTotal:       2097148 kB\n"
    "SwapFree:        2097148 kB\nDirty:               848 kB\nWriteback:             0 kB\n"
    "AnonPages:       5323680 kB\nMapped:          1009468 kB\nShmem:             98012 kB\n"
    "KReclaimable:     466764 kB\nSlab:             804344 kB\nSReclaimable:     466764 kB\n"
    "SUnreclaim:       337580 kB\nKernelStack:       26160 kB\nPageTables:        59556 kB\n"
    "CommitLimit:    10256408 kB\nCommitted_AS:   15634352 kB\nVmallocTotal:   34359738367 kB\n"
    "HugePages_Total:       0\nHugePages_Free:        0\nHugepagesize:       2048 kB\n";

const char kMounts[] =
    "/dev/nvme0n1p2 / ext4 rw,relatime,errors=remount-ro 0 0\n"
    "proc /proc proc rw,nosuid,nodev,noexec,relatime 0 0\n"
    "sysfs /sys sysfs rw,nosuid,nodev,noexec,relatime 0 0\n"
    "tmpfs /run tmpfs rw,nosuid,nodev,noexec,relatime,size=1631856k,mode=755 0 0\n"
    "/dev/nvme0n1p1 /boot/efi vfat rw,relatime,fmask=0077,dmask=0077 0 0\n";

const char kDiskstats[] =
    " 259       0 nvme0n1 1197429 361727 77465396 305452 3101452 2717313 169925882 4067404 0 "
    "2095396 4488616 0 0 0 0 127786 115759\n"
    " 259       1 nvme0n1p1 486 1001 25476 107 2 0 2 0 0 200 108 0 0 0 0 0 0\n"
    " 259       2 nvme0n1p2 1196830 360726 77433056 305316 3101450 2717313 169925880 4067404 0 "
    "2095268 4372720 0 0 0 0 0 0\n";

const char kNetDev[] =
    "Inter-|   Receive                                                |  Transmit\n"
    " face |bytes    packets errs drop fifo frame compressed multicast|bytes    packets errs "
    "drop fifo colls carrier compressed\n"
    "    lo: 92710284  420121    0    0    0     0          0         0 92710284  420121    0 "
    "   0    0     0       0          0\n"
    "  eth0: 1872345213 1893021    0 1520    0     0          0     10234 190234512  901234    "
    "0    0    0     0       0          0\n";

const char kPidStat[] =
    "1234 (my proc) S 1 1234 1234 34816 1234 4194560 150 0 0 0 350 120 0 0 20 0 1 0 5000 "
    "5869568 410 18446744073709551615 94 95 140 0 0 0 65536 4 0 0 0 17 3 0 0 7 0 0 96 97 98 99 "
    "100 101 0\n";

const char kPidStatus[] =
    "Name:\tcat\nUmask:\t0022\nState:\tR (running)\nTgid:\t22473\nNgid:\t0\nPid:\t22473\n"
    "PPid:\t22471\nTracerPid:\t0\nUid:\t0\t0\t0\t0\nGid:\t0\t0\t0\t0\nFDSize:\t256\nGroups:\t \n"
    "NStgid:\t22473\nNSpid:\t22473\nNSpgid:\t22471\nNSsid:\t11437\nKthread:\t0\n"
    "VmPeak:\t    3060 kB\nVmSize:\t    3060 kB\nVmLck:\t       0 kB\nVmPin:\t       0 kB\n"
    "VmHWM:\t    1640 kB\nVmRSS:\t    1640 kB\nRssAnon:\t     112 kB\nRssFile:\t    1528 kB\n"
    "RssShmem:\t       0 kB\nVmData:\t     360 kB\nVmStk:\t     132 kB\nVmExe:\t      20 kB\n"
    "VmLib:\t    1528 kB\nVmPTE:\t      44 kB\nVmSwap:\t       0 kB\nHugetlbPages:\t       0 kB\n"
    "CoreDumping:\t0\nTHP_enabled:\t1\nuntag_mask:\t0xffffffffffffffff\nThreads:\t1\n"
    "SigQ:\t0/96365\nSigPnd:\t0000000000000000\nShdPnd:\t0000000000000000\n"
    "SigBlk:\t0000000000000000\nSigIgn:\t0000000000000000\nSigCgt:\t0000000000000000\n"
    "CapInh:\t0000000000000000\nCapPrm:\t000001fffeffffff\nCapEff:\t000001fffeffffff\n"
    "CapBnd:\t000001fffeffffff\nCapAmb:\t0000000000000000\nNoNewPrivs:\t0\nSeccomp:\t0\n"
    "Seccomp_filters:\t0\nSpeculation_Store_Bypass:\tthread vulnerable\n"
    "SpeculationIndirectBranch:\tconditional enabled\nCpus_allowed:\t3\n"
    "Cpus_allowed_list:\t0-1\nMems_allowed:\t00000000,00000001\nMems_allowed_list:\t0\n"
    "voluntary_ctxt_switches:\t0\nnonvoluntary_ctxt_switches:\t1\n";

const char kPidIo[] =
    "rchar: 4185\nwchar: 0\nsyscr: 10\nsyscw: 0\nread_bytes: 4096\nwrite_bytes: 8192\n"
    "cancelled_write_bytes: 100\n";

const char kPidStatm[] = "2795 410 343 39 0 161 0\n";

std::list<std::string> Lines(const char* text) {
  std::list<std::string> lines;
  detail::SplitLines(text, lines);
  return lines;
}

// ---- system monitors -------------------------------------------------------------------------

void BM_CpuStat(benchmark::State& st) {
  const std::list<std::string> lines = Lines(kProcStat);
  std::string word;
  CpuState state;
  for (auto _ : st) {
    for (const std::string& line : lines) {
      benchmark::DoNotOptimize(detail::ParseCpuStatLine(line.c_str(), word, state));
    }
  }
}
BENCHMARK(BM_CpuStat);

void BM_Meminfo(benchmark::State& st) {
  const std::string text = kMeminfo;
  std::string copy;
  MemoryState state;
  for (auto _ : st) {
    copy = text;  // the parser cuts its text in place
    detail::ParseMeminfoInPlace(copy, state);
    benchmark::DoNotOptimize(state);
  }
}
BENCHMARK(BM_Meminfo);

void BM_DiskMountsAndDiskstats(benchmark::State& st) {
  const std::list<std::string> mounts = Lines(kMounts);
  const std::list<std::string> stats = Lines(kDiskstats);
  std::string file_system, mount_point;
  DiskState state;
  uint64_t key = 0;
  for (auto _ : st) {
    for (const std::string& line : mounts) {
      benchmark::DoNotOptimize(detail::ParseMountLine(line.c_str(), file_system, mount_point));
    }
    for (const std::string& line : stats) {
      if (detail::ParseDiskstatsKey(line.c_str(), key)) {
        benchmark::DoNotOptimize(detail::ParseDiskstatsLine(line.c_str(), state));
      }
    }
  }
}
BENCHMARK(BM_DiskMountsAndDiskstats);

void BM_NetDev(benchmark::State& st) {
  const std::list<std::string> lines = Lines(kNetDev);
  std::string name;
  NetworkState state;
  for (auto _ : st) {
    for (auto line = std::next(lines.begin(), 2); line != lines.end(); ++line) {
      benchmark::DoNotOptimize(detail::ParseNetDevLine(line->c_str(), name, state));
    }
  }
}
BENCHMARK(BM_NetDev);

void BM_ThermalZone(benchmark::State& st) {
  const std::string type = "x86_pkg_temp";
  const std::string temp = "47000";
  std::string out;
  for (auto _ : st) {
    benchmark::DoNotOptimize(detail::ParseZoneType(type.c_str(), out));
    benchmark::DoNotOptimize(detail::ZoneCelsius(detail::ParseZoneTemp(temp.c_str())));
  }
}
BENCHMARK(BM_ThermalZone);

void BM_DdrRecord(benchmark::State& st) {
  std::vector<unsigned char> bytes(3 * QeltDdrMonitor::MonitorData::kSize);
  for (std::size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<unsigned char>(i * 7);
  QeltDdrState state;
  for (auto _ : st) {
    benchmark::DoNotOptimize(
        detail::DecodeNewestDdrRecord(bytes.data(), bytes.size(), detail::DdrPortNames(), state));
  }
}
BENCHMARK(BM_DdrRecord);

// ---- process monitor -------------------------------------------------------------------------

void BM_ProcStat(benchmark::State& st) {
  ProcInfoState state;
  for (auto _ : st) {
    detail::ParseProcStat(kPidStat, state);
    benchmark::DoNotOptimize(state.blkio_ticks);
  }
}
BENCHMARK(BM_ProcStat);

void BM_ProcStatus(benchmark::State& st) {
  ProcInfoState state;
  for (auto _ : st) {
    detail::ParseStatus(kPidStatus, state);
    benchmark::DoNotOptimize(state.VmSwap);
  }
}
BENCHMARK(BM_ProcStatus);

void BM_ProcIo(benchmark::State& st) {
  ProcInfoState state;
  for (auto _ : st) {
    detail::ParseIo(kPidIo, state);
    benchmark::DoNotOptimize(state.cancelled_write_bytes);
  }
}
BENCHMARK(BM_ProcIo);

void BM_ProcStatmAndCmdline(benchmark::State& st) {
  const std::string cmdline("/usr/sbin/sshd\0-D\0-o\0ListenAddress=0.0.0.0\0", 42);
  ProcInfoState state;
  for (auto _ : st) {
    detail::ParseStatm(kPidStatm, state.statm);
    detail::ParseCmdLine(cmdline, state.cmd_line);
    benchmark::DoNotOptimize(state.statm.dt);
  }
}
BENCHMARK(BM_ProcStatmAndCmdline);

void BM_ProcCpuTotalAndUptime(benchmark::State& st) {
  ProcInfoCpuState cpu;
  ProcInfoUptimeState uptime;
  for (auto _ : st) {
    benchmark::DoNotOptimize(detail::ParseCpuTotal(kProcStat, cpu));
    benchmark::DoNotOptimize(detail::ParseUptime("350.25 1201.50\n", uptime));
  }
}
BENCHMARK(BM_ProcCpuTotalAndUptime);

// ---- the two-sample update -------------------------------------------------------------------

// One pass of ResourceInfo::Update over `range` processes that all have their item already: the
// steady state of the process monitor (two map lookups, the figures, the stored sample).
void BM_ProcInfoUpdate(benchmark::State& st) {
  const int count = static_cast<int>(st.range(0));
  ProcInfoResourceInfo info(4096);
  ResourceItems items;
  std::vector<std::string> names;
  ProcInfoState state;
  detail::ParseProcStat(kPidStat, state);
  detail::ParseStatus(kPidStatus, state);
  state.cmd_line = "/usr/sbin/sshd -D -o ListenAddress=0.0.0.0";
  for (int i = 0; i < count; ++i) names.push_back(std::to_string(1000 + i * 37));
  int64_t now = 1000;
  for (int pass = 0; pass < 2; ++pass, now += 2000) {
    for (const std::string& name : names) info.Update(&items, name, state, now);
  }
  for (auto _ : st) {
    now += 2000;
    state.cpu.total += 200;
    for (const std::string& name : names) info.Update(&items, name, state, now);
    items.StampTouched(static_cast<uint64_t>(now));
  }
  st.SetItemsProcessed(st.iterations() * count);
}
BENCHMARK(BM_ProcInfoUpdate)->Arg(400);

// A process's descriptor count: one stat() of its fd directory, where the kernel gives the count
// as the size (Linux 6.2 and later), against listing the directory. This process's own
// directory stands in for another's.
void BM_FdCountStat(benchmark::State& st) {
  detail::FdSizeRule rule = detail::DetectFdSizeRule("/proc");
  if (!rule.size_is_count) {
    st.SkipWithError("this kernel does not give the count as the size");
    return;
  }
  rule.lists_any = true;
  const std::string dir = "/proc/self/fd";
  for (auto _ : st) benchmark::DoNotOptimize(detail::FdCount(dir, rule, false));
}
BENCHMARK(BM_FdCountStat);

void BM_FdCountList(benchmark::State& st) {
  const std::string dir = "/proc/self/fd";
  for (auto _ : st) benchmark::DoNotOptimize(detail::ListFdCount(dir));
}
BENCHMARK(BM_FdCountList);

}  // namespace
}  // namespace zefo

BENCHMARK_MAIN();
