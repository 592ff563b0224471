// lock_wait: what the library's single lock costs a host, measured on this machine.
//
// 1. A host thread calls GetResourceItem in a loop while the sampling thread runs back-to-back
//    passes (period 0) of a stand-in monitor whose pass takes about 200 ms, so the host spends
//    nearly all its time queued behind a pass. Its CPU time (CLOCK_THREAD_CPUTIME_ID) over its
//    wall time is the share of one core that waiting for the lock costs. Done once with a pass
//    that sleeps and once with a pass that keeps its core busy.
// 2. With the default period of 2000 ms, the aggregator is deleted right after a pass started;
//    the time past the end of that pass is what stopping adds. Also deleted while the thread
//    waits between passes.
//
// Prints medians over several rounds. Not a test: the figures depend on the machine's load.
#include <time.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <thread>
#include <vector>

#include "zefo/zefo_resource_monitor.h"

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

double Ms(Clock::duration d) {
  return std::chrono::duration<double, std::milli>(d).count();
}

double ThreadCpuMs() {
  timespec ts{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &ts);
  return static_cast<double>(ts.tv_sec) * 1e3 + static_cast<double>(ts.tv_nsec) / 1e6;
}

double Median(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  const size_t n = values.size();
  return n % 2 == 1 ? values[n / 2] : (values[n / 2 - 1] + values[n / 2]) / 2;
}

// When the stand-in's passes start and end; outlives the monitor, which the aggregator deletes.
class PassProbe {
 public:
  void Started() { Mark(started_, nullptr); }
  void Ended() { Mark(ended_, &last_end_); }
  // Waits until pass number `n` (from 1) has started, or ended.
  void WaitStarted(int n) { WaitFor(started_, n); }
  void WaitEnded(int n) { WaitFor(ended_, n); }
  Clock::time_point LastEnd() {
    std::lock_guard<std::mutex> lock(mutex_);
    return last_end_;
  }

 private:
  void Mark(int& counter, Clock::time_point* when) {
    {
      std::lock_guard<std::mutex> lock(mutex_);
      ++counter;
      if (when != nullptr) *when = Clock::now();
    }
    changed_.notify_all();
  }
  void WaitFor(const int& counter, int n) {
    std::unique_lock<std::mutex> lock(mutex_);
    changed_.wait(lock, [&] { return counter >= n; });
  }

  std::mutex mutex_;
  std::condition_variable changed_;
  int started_ = 0, ended_ = 0;
  Clock::time_point last_end_;
};

// A monitor whose pass takes `pass`, asleep or spinning on its core.
class StandInMonitor : public zefo::BaseMonitor {
 public:
  StandInMonitor(milliseconds pass, bool busy, PassProbe* probe)
      : BaseMonitor(zefo::Cpu), pass_(pass), busy_(busy), probe_(probe) {}

  bool DoMonitor() override {
    probe_->Started();
    if (busy_) {
      const auto end = Clock::now() + pass_;
      while (Clock::now() < end) {
      }
    } else {
      std::this_thread::sleep_for(pass_);
    }
    probe_->Ended();
    return true;
  }

 private:
  milliseconds pass_;
  bool busy_;
  PassProbe* probe_;
};

struct WaitRound {
  double cpu_percent;  // host CPU time over wall time while queued, in % of one core
  double wait_ms;      // mean length of a call that had to queue
  int waits;           // calls that had to queue
};

// A call that takes longer than this queued behind a pass; quicker ones found the lock free
// (the sampler can be off its core for a moment between passes) and are left out.
constexpr double kQueuedMs = 1.0;

WaitRound MeasureLockWait(bool busy, milliseconds length) {
  PassProbe probe;
  auto* monitor =
      new zefo::ZefoResourceMonitor({new StandInMonitor(milliseconds(200), busy, &probe)}, 0);
  probe.WaitStarted(1);
  WaitRound round{};
  std::thread host([&] {
    double cpu = 0, wall = 0;
    const auto begin = Clock::now();
    while (Clock::now() - begin < length) {
      const double cpu0 = ThreadCpuMs();
      const auto wall0 = Clock::now();
      monitor->GetResourceItem(zefo::Cpu, "total");
      const double took = Ms(Clock::now() - wall0);
      if (took < kQueuedMs) continue;
      cpu += ThreadCpuMs() - cpu0;
      wall += took;
      ++round.waits;
    }
    round.cpu_percent = wall > 0 ? cpu / wall * 100.0 : 0.0;
    round.wait_ms = round.waits > 0 ? wall / round.waits : 0.0;
  });
  host.join();
  delete monitor;
  return round;
}

struct StopRound {
  double delete_ms;  // how long `delete` took
  double past_ms;    // how much of it came after the pass in progress had ended (0 if none)
};

StopRound MeasureStop(bool during_pass) {
  PassProbe probe;
  auto* monitor =
      new zefo::ZefoResourceMonitor({new StandInMonitor(milliseconds(200), false, &probe)}, 2000);
  if (during_pass) {
    probe.WaitStarted(1);
  } else {
    probe.WaitEnded(1);
    std::this_thread::sleep_for(milliseconds(100));  // well into the 2 s wait
  }
  const auto start = Clock::now();
  delete monitor;
  const auto end = Clock::now();
  const auto pass_end = probe.LastEnd();
  return {Ms(end - start), pass_end > start ? Ms(end - pass_end) : 0.0};
}

}  // namespace

int main(int argc, char** argv) {
  const int rounds = argc > 1 ? std::max(1, std::atoi(argv[1])) : 5;
  std::printf("lock_wait: %d rounds, stand-in pass of 200 ms; medians\n", rounds);

  for (bool busy : {false, true}) {
    std::vector<double> cpu, wait;
    int waits = 0;
    for (int r = 0; r < rounds; ++r) {
      const WaitRound round = MeasureLockWait(busy, milliseconds(2000));
      cpu.push_back(round.cpu_percent);
      wait.push_back(round.wait_ms);
      waits += round.waits;
    }
    std::printf(
        "host queued behind a %s pass: %.3f%% of one core (goal < 2%%); %d queued calls, "
        "%.1f ms each\n",
        busy ? "busy" : "sleeping", Median(cpu), waits, Median(wait));
  }

  std::vector<double> during, past, between;
  for (int r = 0; r < rounds; ++r) {
    const StopRound in_pass = MeasureStop(true);
    during.push_back(in_pass.delete_ms);
    past.push_back(in_pass.past_ms);
    between.push_back(MeasureStop(false).delete_ms);
  }
  std::printf(
      "delete, period 2000 ms, right after a pass started: %.1f ms, of which %.2f ms after the "
      "pass ended (goal < 50 ms)\n",
      Median(during), Median(past));
  std::printf("delete, period 2000 ms, while waiting between passes: %.2f ms\n", Median(between));
  return 0;
}
