// zefo-record-bench: what the flight recorder costs on the machine at hand.
//
//   zefo-record-bench [--passes K] [--period MS] [--day-passes N] [--json-passes J] [--level L]
//                     [--dir DIR]
//
// Samples K live passes of the whole machine with the library (period MS, default 500), records
// each as zefo-monitor --record does, and prints the median bytes a pass adds to the store, the
// bytes of a day at the default 2000 ms period, and the CPU a pass costs with and without the
// recording (medians over the same passes, and their ratio). Then it records N passes (default
// 43200, a day at 2000 ms) made of the sampled ones with their times moved 2 s apart, and times
// replaying them, alone and to JSON (only the first J to JSON, when given). --level sets the
// zstd level (default 9, the recorder's).
#include <sys/resource.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "zefo/format/formats.h"
#include "zefo/format/snapshot.h"
#include "zefo/record/recorder.h"
#include "zefo/record/replay.h"
#include "zefo/zefo_resource_monitor.h"

namespace {

double ProcessCpuUs() {
  struct rusage usage;
  getrusage(RUSAGE_SELF, &usage);
  return usage.ru_utime.tv_sec * 1e6 + usage.ru_utime.tv_usec + usage.ru_stime.tv_sec * 1e6 +
         usage.ru_stime.tv_usec;
}

double ClockUs(clockid_t clock) {
  struct timespec now;
  clock_gettime(clock, &now);
  return now.tv_sec * 1e6 + now.tv_nsec / 1e3;
}

double Median(std::vector<double> v) {
  if (v.empty()) return 0;
  std::sort(v.begin(), v.end());
  const std::size_t n = v.size();
  return n % 2 ? v[n / 2] : (v[n / 2 - 1] + v[n / 2]) / 2;
}

}  // namespace

int main(int argc, char** argv) {
  int passes = 60, period = 500, level = 9;
  long day_passes = 43200, json_passes = -1;
  std::string dir = "/tmp/zefo-record-bench." + std::to_string(getpid());
  setvbuf(stdout, nullptr, _IOLBF, 0);
  for (int i = 1; i + 1 < argc; i += 2) {
    const std::string flag = argv[i];
    if (flag == "--passes")
      passes = std::atoi(argv[i + 1]);
    else if (flag == "--period")
      period = std::atoi(argv[i + 1]);
    else if (flag == "--day-passes")
      day_passes = std::atol(argv[i + 1]);
    else if (flag == "--dir")
      dir = argv[i + 1];
    else if (flag == "--level")
      level = std::atoi(argv[i + 1]);
  }
  const std::string live_dir = dir + "/live", day_dir = dir + "/day";
  std::system(("rm -rf '" + dir + "' && mkdir -p '" + dir + "'").c_str());

  zefo::record::RecorderOptions options;
  options.max_bytes = uint64_t{1} << 40;
  options.compression_level = level;
  zefo::record::Recorder recorder(options);
  if (const std::string e = recorder.Open(live_dir); !e.empty()) {
    std::fprintf(stderr, "%s\n", e.c_str());
    return 1;
  }
  std::vector<zefo::format::Snapshot> sampled;
  std::vector<double> bytes, key_bytes, pass_us, record_us;
  {
    zefo::ZefoResourceMonitorApi monitor(period);
    uint64_t seen = 0;
    double cpu_before = ProcessCpuUs();
    // Two passes first: the figures start with the second.
    for (int i = -2; i < passes;) {
      usleep(5000);
      const uint64_t latest = monitor.GetUpdateTime();
      if (latest == seen) continue;
      seen = latest;
      zefo::format::Snapshot pass = zefo::format::TakeSnapshot(monitor);
      const double cpu_after = ProcessCpuUs();
      const uint64_t store_before = recorder.StoreBytes();
      const double t0 = ClockUs(CLOCK_THREAD_CPUTIME_ID);
      recorder.Append(pass);
      const double spent = ClockUs(CLOCK_THREAD_CPUTIME_ID) - t0;
      if (i >= 0) {
        // Every 60th record (from the first, which carries the segment header too) holds the
        // whole pass; counted apart.
        ((i + 2) % 60 == 0 ? key_bytes : bytes)
            .push_back(static_cast<double>(recorder.StoreBytes() - store_before));
        pass_us.push_back(cpu_after - cpu_before);
        record_us.push_back(spent);
        sampled.push_back(pass);
      }
      cpu_before = ProcessCpuUs();
      ++i;
    }
  }
  recorder.Close();
  const double per_pass = Median(bytes);
  double mean = 0;
  for (double b : bytes) mean += b;
  mean = bytes.empty() ? 0 : mean / bytes.size();
  // A key frame every 60 passes.
  const double per_day = (mean * 59 + Median(key_bytes)) / 60 * 43200;
  std::printf(
      "passes=%d procs=%zu bytes_per_pass_median=%.0f bytes_per_pass_mean=%.0f "
      "key_frame_bytes=%.0f bytes_per_day=%.0f (%.1f MiB)\n",
      passes, sampled.empty() ? 0 : sampled.back().process.size(), per_pass, mean,
      Median(key_bytes), per_day, per_day / (1 << 20));
  std::printf("pass_cpu_us_median=%.0f record_cpu_us_median=%.0f ratio=%.3f\n", Median(pass_us),
              Median(record_us), Median(record_us) / Median(pass_us));

  // The same passes again at other zstd levels: what each level saves and costs.
  for (int other : {1, 3, 6, 9, 15, 19}) {
    zefo::record::RecorderOptions o = options;
    o.compression_level = other;
    zefo::record::Recorder again(o);
    again.Open(dir + "/level" + std::to_string(other));
    std::vector<double> b, us;
    for (std::size_t i = 0; i < sampled.size(); ++i) {
      const uint64_t before = again.StoreBytes();
      const double t0 = ClockUs(CLOCK_THREAD_CPUTIME_ID);
      again.Append(sampled[i]);
      us.push_back(ClockUs(CLOCK_THREAD_CPUTIME_ID) - t0);
      if (i % 60 != 0) b.push_back(static_cast<double>(again.StoreBytes() - before));
    }
    std::printf("level=%d bytes_per_pass_median=%.0f record_cpu_us_median=%.0f\n", other, Median(b),
                Median(us));
  }

  zefo::record::Recorder day(options);
  day.Open(day_dir);
  const uint64_t start = sampled.empty() ? 0 : sampled.front().update_time;
  for (long i = 0; i < day_passes && !sampled.empty(); ++i) {
    zefo::format::Snapshot pass = sampled[static_cast<std::size_t>(i) % sampled.size()];
    pass.update_time = start + static_cast<uint64_t>(i) * 2000;
    day.Append(pass);
  }
  const uint64_t day_bytes = day.StoreBytes();
  day.Close();
  const double d0 = ClockUs(CLOCK_MONOTONIC);
  zefo::record::Replay(
      day_dir, {}, [](const zefo::format::Snapshot&) { return true; }, [](const std::string&) {});
  const double decode_seconds = (ClockUs(CLOCK_MONOTONIC) - d0) / 1e6;
  std::size_t json_bytes = 0;
  const double t0 = ClockUs(CLOCK_MONOTONIC);
  const zefo::record::ReplaySummary summary = zefo::record::Replay(
      day_dir, {},
      [&](const zefo::format::Snapshot& pass) {
        json_bytes += zefo::format::FormatJson(pass).size();
        return json_passes < 0 || --json_passes > 0;
      },
      [](const std::string& problem) { std::fprintf(stderr, "%s\n", problem.c_str()); });
  const double seconds = (ClockUs(CLOCK_MONOTONIC) - t0) / 1e6;
  std::printf(
      "day_passes=%llu day_store_bytes=%llu replay_only_s=%.2f replay_to_json_s=%.2f "
      "us_per_pass=%.0f json_bytes=%zu\n",
      static_cast<unsigned long long>(summary.passes), static_cast<unsigned long long>(day_bytes),
      decode_seconds, seconds, summary.passes ? seconds * 1e6 / summary.passes : 0.0, json_bytes);
  std::system(("rm -rf '" + dir + "'").c_str());
  return 0;
}
