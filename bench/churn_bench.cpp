// zefo-churn-bench: what a pass costs after the process monitor has seen many short-lived
// processes, against a run that has seen none, with the same live processes.
//
//   zefo-churn-bench [--live N] [--churn C] [--rounds R] [--passes P]
//
// Builds a saved proc tree of N processes (default 400) and runs three kinds of child process,
// R rounds each (default 3), interleaved: "none" has seen only the N; "churn" has first seen C
// short-lived processes (default 50,000: batches of 500, each alive for three passes) with
// retention at 60 s; "keep" has seen the same churn with retention off, as the library keeps
// by default. The library's sampling thread runs the passes back to back, and the bench moves a
// replayed clock 2 s on after each. After the churn is gone and 40 more passes, each child
// times P passes (default 20) and reports the CPU per pass (the process's CPU clock), its
// VmRSS, the items it holds, and the size of one JSON pass of the live items. The parent prints the
// medians over the rounds and the ratios to "none".
#include <sys/stat.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>
#include <vector>

#include "zefo/format/formats.h"
#include "zefo/format/snapshot.h"
#include "zefo/procinfo_monitor.h"
#include "zefo/zefo_resource_monitor.h"

namespace {

constexpr int kBatch = 500;
constexpr int64_t kForgetAfterMs = 60000;
constexpr int64_t kPeriodMs = 2000;

// The replayed clock: the sampling thread reads it, the bench moves it on after every pass.
std::atomic<int64_t> g_now{1000};
int64_t ReplayNow() {
  return g_now.load();
}

void WriteFile(const std::string& path, const std::string& text) {
  std::ofstream(path) << text;
}

void WriteProcess(const std::string& dir, long pid) {
  mkdir(dir.c_str(), 0755);
  const std::string p = std::to_string(pid);
  std::string stat =
      p + " (worker_" + p + ") S 1 " + p + " " + p + " 0 -1 0 0 0 0 0 25 5 0 0 20 0 1 0 500";
  for (int field = 23; field <= 44; ++field) stat += " 0";
  WriteFile(dir + "/stat", stat + "\n");
  WriteFile(dir + "/statm", "2000 400 100 20 0 600 0\n");
  WriteFile(dir + "/status",
            "Name:\tworker\nVmSize:\t 8000 kB\nVmRSS:\t 1600 kB\nRssAnon:\t 1000 kB\n"
            "RssFile:\t 400 kB\nVmData:\t 600 kB\nVmStk:\t 132 kB\nVmExe:\t 80 kB\n");
  WriteFile(dir + "/io", "read_bytes: 4096\nwrite_bytes: 0\n");
  WriteFile(dir + "/cmdline",
            std::string("/usr/bin/worker\0--id\0", 21) + p + std::string(1, '\0'));
  mkdir((dir + "/fd").c_str(), 0755);
  for (const char* fd : {"0", "1", "2"}) WriteFile(dir + "/fd/" + fd, "");
}

double CpuSeconds() {
  struct timespec now;
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

long RssKb() {
  std::ifstream status("/proc/self/status");
  std::string line;
  while (std::getline(status, line)) {
    if (line.rfind("VmRSS:", 0) == 0) return std::strtol(line.c_str() + 6, nullptr, 10);
  }
  return 0;
}

struct Result {
  double pass_us = 0;
  double rss_kb = 0;
  double items = 0;
  double json_bytes = 0;
};

// One run, in a child: the process monitor under the library's own sampling thread, passing
// back to back; the clock moves 2 s after each pass.
Result Run(const std::string& root, int churn, bool retain, int passes) {
  auto* monitor = new zefo::ProcInfoMonitor(zefo::KernelPaths::UnderRoot(root));
  monitor->SetClock(&ReplayNow);
  monitor->SetPageSize(4096);
  zefo::ZefoResourceMonitor aggregator({monitor}, 1);
  aggregator.SetForgetAfter(retain ? kForgetAfterMs : 0);
  uint64_t seen = 0;
  const auto pass = [&] {
    seen = aggregator.WaitForUpdate(seen, 60000);
    g_now += kPeriodMs;
  };
  // The short-lived processes: one batch of directories, renamed to new ids for each batch.
  for (int first = 0; first < churn; first += kBatch) {
    for (int i = 0; i < kBatch; ++i) {
      const long from = first == 0 ? 9000000 + i : 1000000 + first - kBatch + i;
      const std::string src = root + (first == 0 ? "/spare/" : "/proc/") + std::to_string(from);
      const std::string dst = root + "/proc/" + std::to_string(1000000 + first + i);
      std::rename(src.c_str(), dst.c_str());
    }
    pass();
    pass();
    pass();
  }
  if (churn > 0) {
    const int last = (churn - 1) / kBatch * kBatch;
    for (int i = 0; i < kBatch; ++i) {
      const std::string src = root + "/proc/" + std::to_string(1000000 + last + i);
      std::rename(src.c_str(), (root + "/spare/" + std::to_string(9000000 + i)).c_str());
    }
  }
  for (int i = 0; i < 40; ++i) pass();
  const double start = CpuSeconds();
  for (int i = 0; i < passes; ++i) pass();
  Result result;
  result.pass_us = (CpuSeconds() - start) * 1e6 / passes;
  result.rss_kb = static_cast<double>(RssKb());
  const zefo::format::Snapshot live =
      zefo::format::TakeSnapshot(aggregator, zefo::format::SnapshotScope::kLive);
  const zefo::format::Snapshot all = zefo::format::TakeSnapshot(aggregator);
  result.items = static_cast<double>(all.process.size());
  result.json_bytes = static_cast<double>(zefo::format::FormatJson(live).size());
  return result;
}

double Median(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  return values.empty() ? 0 : values[values.size() / 2];
}

}  // namespace

int main(int argc, char** argv) {
  int live = 400;
  int churn = 50000;
  int rounds = 3;
  int passes = 20;
  for (int i = 1; i + 1 < argc; i += 2) {
    const int value = std::atoi(argv[i + 1]);
    if (std::strcmp(argv[i], "--live") == 0) {
      live = value;
    } else if (std::strcmp(argv[i], "--churn") == 0) {
      churn = value;
    } else if (std::strcmp(argv[i], "--rounds") == 0) {
      rounds = value;
    } else if (std::strcmp(argv[i], "--passes") == 0) {
      passes = value;
    } else {
      std::fprintf(stderr, "zefo-churn-bench: unknown option %s\n", argv[i]);
      return 2;
    }
  }
  if ((argc - 1) % 2 != 0 || live < 1 || churn < 0 || rounds < 1 || passes < 1) {
    std::fprintf(stderr,
                 "usage: zefo-churn-bench [--live N] [--churn C] [--rounds R] [--passes P]\n");
    return 2;
  }
  char pattern[] = "/tmp/zefo-churn-XXXXXX";
  const char* made = mkdtemp(pattern);
  if (made == nullptr) return 1;
  const std::string root = made;
  mkdir((root + "/proc").c_str(), 0755);
  mkdir((root + "/spare").c_str(), 0755);
  WriteFile(root + "/proc/stat",
            "cpu  1000 0 500 10000 0 0 0 0 0 0\ncpu0 1000 0 500 10000 0 0 0 0 0 0\n");
  WriteFile(root + "/proc/uptime", "1000.00 3000.00\n");
  for (int i = 0; i < live; ++i) WriteProcess(root + "/proc/" + std::to_string(100 + i), 100 + i);
  for (int i = 0; i < kBatch; ++i) {
    WriteProcess(root + "/spare/" + std::to_string(9000000 + i), 9000000 + i);
  }

  const struct {
    const char* name;
    int churn;
    bool retain;
  } kinds[] = {{"none", 0, true}, {"churn", churn, true}, {"keep", churn, false}};
  std::vector<Result> results[3];
  for (int round = 0; round < rounds; ++round) {
    for (int k = 0; k < 3; ++k) {
      int fds[2];
      if (pipe(fds) != 0) return 1;
      const pid_t child = fork();
      if (child == 0) {
        close(fds[0]);
        const Result r = Run(root, kinds[k].churn, kinds[k].retain, passes);
        if (write(fds[1], &r, sizeof r) != static_cast<ssize_t>(sizeof r)) _exit(1);
        _exit(0);
      }
      close(fds[1]);
      Result r;
      const bool got = read(fds[0], &r, sizeof r) == static_cast<ssize_t>(sizeof r);
      close(fds[0]);
      waitpid(child, nullptr, 0);
      if (got) results[k].push_back(r);
    }
  }
  std::string command = "rm -rf '" + root + "'";
  if (std::system(command.c_str()) != 0) std::fprintf(stderr, "could not remove %s\n", made);

  const auto column = [&](int k, double Result::*field) {
    std::vector<double> values;
    for (const Result& r : results[k]) values.push_back(r.*field);
    return Median(values);
  };
  std::printf("live=%d churn=%d rounds=%d passes=%d (medians over rounds)\n", live, churn, rounds,
              passes);
  for (int k = 0; k < 3; ++k) {
    const double base_us = column(0, &Result::pass_us);
    const double base_rss = column(0, &Result::rss_kb);
    std::printf(
        "%-6s pass_cpu_us=%.0f rss_kb=%.0f items=%.0f json_bytes=%.0f  ratio_cpu=%.3f "
        "ratio_rss=%.3f\n",
        kinds[k].name, column(k, &Result::pass_us), column(k, &Result::rss_kb),
        column(k, &Result::items), column(k, &Result::json_bytes),
        column(k, &Result::pass_us) / base_us, column(k, &Result::rss_kb) / base_rss);
  }
  return 0;
}
