// zefo-monitor: prints the library's text report after every sampling pass until interrupted.
#include <signal.h>
#include <time.h>

#include <cstdint>
#include <cstdlib>
#include <iostream>
#include <memory>
#include <sstream>

#include "options.h"
#include "zefo/zefo_resource_monitor.h"

namespace {

// How often the tool looks for a finished pass; also the longest it takes to notice a signal.
constexpr long kPollNanoseconds = 20L * 1000 * 1000;

}  // namespace

int main(int argc, char** argv) {
  const zefo::cli::ParseResult parsed = zefo::cli::ParseOptions(argc, argv);
  if (!parsed.run) return parsed.exit_code;
  const zefo::cli::Options& opt = parsed.options;

  // SIGINT and SIGTERM are taken synchronously below; blocking them before the library starts
  // its thread keeps them away from the sampling thread too.
  sigset_t stop_signals;
  sigemptyset(&stop_signals);
  sigaddset(&stop_signals, SIGINT);
  sigaddset(&stop_signals, SIGTERM);
  pthread_sigmask(SIG_BLOCK, &stop_signals, nullptr);

  auto monitor =
      opt.pids.empty()
          ? std::make_unique<zefo::ZefoResourceMonitorApi>(opt.period_ms, opt.paths)
          : std::make_unique<zefo::ZefoResourceMonitorApi>(opt.period_ms, opt.pids, opt.paths);
  // Pass times are compared whole: on 32-bit targets `unsigned long` cannot hold them.
  uint64_t printed = 0;
  long long reports = 0;
  const struct timespec poll = {0, kPollNanoseconds};
  while (opt.count == 0 || reports < opt.count) {
    if (sigtimedwait(&stop_signals, nullptr, &poll) > 0) break;
    const uint64_t latest = monitor->GetUpdateTime();
    if (latest == 0 || latest == printed) continue;
    // The report may already hold a newer pass than `latest`; remember the one it shows.
    std::ostringstream report;
    monitor->PrintToStream(report);
    const std::string text = report.str();
    std::cout << text << std::flush;
    printed = std::strtoull(text.c_str() + text.find(": ") + 2, nullptr, 10);
    ++reports;
  }
  monitor.reset();
  return 0;
}
