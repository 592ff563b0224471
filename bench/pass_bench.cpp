// zefo-pass-bench: the CPU cost of full sampling passes over the real kernel files.
//
//   zefo-pass-bench [K] [--procs-only] [--by-monitor]
//
// Builds the eight monitors (or the process monitor alone with --procs-only), warms up, then runs
// K passes back to back, calling DoMonitor on each monitor as the sampling thread does.
// Prints one line of key=value pairs; the *_us figures are CPU microseconds per pass from
// getrusage, so start-up and the warm-up are left out:
//
//   passes=K procs=P user_us=U sys_us=S total_us=T maxrss_kb=M allocs=A alloc_bytes=B ...
//
// allocs and alloc_bytes count the calls of the global operator new (replaced below) per pass;
// allocs_per_proc divides them by the processes sampled. Allocations that the C library makes
// on its own (opendir's buffer) do not pass through operator new and are not counted.
// --by-monitor adds a second line: one more pass, its CPU time and allocations monitor by monitor.
#include <dirent.h>
#include <sys/resource.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <string>
#include <vector>

#include "zefo/bpu_monitor.h"
#include "zefo/cpu_monitor.h"
#include "zefo/disk_monitor.h"
#include "zefo/memory_monitor.h"
#include "zefo/network_monitor.h"
#include "zefo/procinfo_monitor.h"
#include "zefo/qeltddr_monitor.h"
#include "zefo/temperature_monitor.h"

// ---- counting allocator ----------------------------------------------------------------------

namespace {

std::atomic<unsigned long long> g_allocs{0};
std::atomic<unsigned long long> g_alloc_bytes{0};

void* CountedAlloc(std::size_t size) {
  g_allocs.fetch_add(1, std::memory_order_relaxed);
  g_alloc_bytes.fetch_add(size, std::memory_order_relaxed);
  if (size == 0) size = 1;
  void* p = std::malloc(size);
  if (p == nullptr) throw std::bad_alloc();
  return p;
}

void* CountedAllocNoThrow(std::size_t size) noexcept {
  g_allocs.fetch_add(1, std::memory_order_relaxed);
  g_alloc_bytes.fetch_add(size, std::memory_order_relaxed);
  return std::malloc(size == 0 ? 1 : size);
}

}  // namespace

void* operator new(std::size_t size) {
  return CountedAlloc(size);
}
void* operator new[](std::size_t size) {
  return CountedAlloc(size);
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  return CountedAllocNoThrow(size);
}
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
  return CountedAllocNoThrow(size);
}
void operator delete(void* p) noexcept {
  std::free(p);
}
void operator delete[](void* p) noexcept {
  std::free(p);
}
void operator delete(void* p, std::size_t) noexcept {
  std::free(p);
}
void operator delete[](void* p, std::size_t) noexcept {
  std::free(p);
}
void operator delete(void* p, const std::nothrow_t&) noexcept {
  std::free(p);
}
void operator delete[](void* p, const std::nothrow_t&) noexcept {
  std::free(p);
}

// ---- driver ----------------------------------------------------------------------------------

namespace {

double Microseconds(const struct timeval& t) {
  return static_cast<double>(t.tv_sec) * 1e6 + static_cast<double>(t.tv_usec);
}

// Numeric entries of /proc: the processes one pass samples (give or take those that come and go).
int CountProcesses() {
  DIR* dir = opendir("/proc");
  if (dir == nullptr) return 0;
  int n = 0;
  while (const struct dirent* entry = readdir(dir)) {
    const char* name = entry->d_name;
    if (*name == '\0') continue;
    bool digits = true;
    for (const char* c = name; *c != '\0'; ++c) {
      if (*c < '0' || *c > '9') {
        digits = false;
        break;
      }
    }
    if (digits) ++n;
  }
  closedir(dir);
  return n;
}

void Pass(const std::vector<std::unique_ptr<zefo::BaseMonitor>>& monitors) {
  for (const auto& monitor : monitors) monitor->DoMonitor();
}

const char* const kNames[] = {"",        "cpu",         "bpu", "disk",   "memory",
                              "network", "temperature", "ddr", "process"};

int Usage() {
  std::fprintf(stderr, "usage: zefo-pass-bench [K] [--procs-only] [--by-monitor]\n");
  return 2;
}

}  // namespace

int main(int argc, char** argv) {
  long passes = 50;
  bool procs_only = false;
  bool by_monitor_wanted = false;
  for (int i = 1; i < argc; ++i) {
    if (std::strcmp(argv[i], "--procs-only") == 0) {
      procs_only = true;
    } else if (std::strcmp(argv[i], "--by-monitor") == 0) {
      by_monitor_wanted = true;
    } else if (argv[i][0] >= '0' && argv[i][0] <= '9') {
      passes = std::strtol(argv[i], nullptr, 10);
    } else {
      return Usage();
    }
  }
  if (passes < 1) passes = 1;

  // The aggregator's order: CPU, BPU, disk, memory, network, temperature, DDR, process.
  std::vector<std::unique_ptr<zefo::BaseMonitor>> monitors;
  if (!procs_only) {
    monitors.emplace_back(new zefo::CpuMonitor());
    monitors.emplace_back(new zefo::BpuMonitor());
    monitors.emplace_back(new zefo::DiskMonitor());
    monitors.emplace_back(new zefo::MemoryMonitor());
    monitors.emplace_back(new zefo::NetworkMonitor());
    monitors.emplace_back(new zefo::TemperatureMonitor());
    monitors.emplace_back(new zefo::QeltDdrMonitor());
  }
  monitors.emplace_back(new zefo::ProcInfoMonitor());

  // Warm-up, two passes: the first pages in the code and the dentries and stores the first
  // samples, the second creates the items. The timed passes are then the steady state, in which
  // every pass updates every item in place.
  Pass(monitors);
  Pass(monitors);

  const unsigned long long allocs_before = g_allocs.load();
  const unsigned long long bytes_before = g_alloc_bytes.load();
  struct rusage before;
  struct rusage after;
  getrusage(RUSAGE_SELF, &before);
  for (long i = 0; i < passes; ++i) Pass(monitors);
  getrusage(RUSAGE_SELF, &after);
  const double allocs = static_cast<double>(g_allocs.load() - allocs_before) / passes;
  const double bytes = static_cast<double>(g_alloc_bytes.load() - bytes_before) / passes;

  // With --by-monitor, one more pass, timed and counted monitor by monitor.
  std::string by_monitor;
  for (const auto& monitor : monitors) {
    if (!by_monitor_wanted) break;
    const unsigned long long before_allocs = g_allocs.load();
    struct rusage a;
    struct rusage b;
    getrusage(RUSAGE_SELF, &a);
    monitor->DoMonitor();
    getrusage(RUSAGE_SELF, &b);
    char part[96];
    std::snprintf(part, sizeof part, " %s=%.0fus/%llu", kNames[monitor->Type()],
                  Microseconds(b.ru_utime) - Microseconds(a.ru_utime) + Microseconds(b.ru_stime) -
                      Microseconds(a.ru_stime),
                  g_allocs.load() - before_allocs);
    by_monitor += part;
  }

  const int procs = CountProcesses();
  const double user = (Microseconds(after.ru_utime) - Microseconds(before.ru_utime)) / passes;
  const double sys = (Microseconds(after.ru_stime) - Microseconds(before.ru_stime)) / passes;
  std::printf(
      "passes=%ld procs=%d user_us=%.1f sys_us=%.1f total_us=%.1f maxrss_kb=%ld allocs=%.1f "
      "alloc_bytes=%.0f allocs_per_proc=%.2f us_per_proc=%.1f\n",
      passes, procs, user, sys, user + sys, after.ru_maxrss, allocs, bytes,
      procs > 0 ? allocs / procs : 0.0, procs > 0 ? (user + sys) / procs : 0.0);
  if (by_monitor_wanted)
    std::printf("one more pass, CPU/allocations by monitor:%s\n", by_monitor.c_str());
  return 0;
}
