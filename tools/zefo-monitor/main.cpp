// zefo-monitor: writes every sampling pass (the library's text report, one line, JSON or a
// metrics exposition) to standard output or a file, and serves the newest one over HTTP, until
// interrupted.
#include <signal.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <iostream>
#include <memory>
#include <optional>
#include <thread>

#include "options.h"
#include "output_file.h"
#include "preflight.h"
#include "zefo/format/formats.h"
#include "zefo/format/snapshot.h"
#include "zefo/zefo_resource_monitor.h"
#ifdef ZEFO_WITH_HTTP
#include "dashboard_page.h"
#include "http_server.h"
#endif

namespace {

// The longest the tool sleeps without looking at the library, when passes take that long.
constexpr int kWaitMilliseconds = 1000;

// The most the dashboard's history of charted figures may hold, whatever --history says.
constexpr std::size_t kHistoryBudgetBytes = 4 << 20;

int Fail(const std::string& message) {
  std::cerr << "zefo-monitor: " << message << "\n";
  return 2;
}

#ifdef ZEFO_HTTP_HELPER
// This zefo-monitor carries no HTTP server, so that watching a board keeps few pages resident;
// --listen hands the whole command line to zefo-monitor-http, found beside this program (the
// build tree) or where it is installed. Returns only if neither could be started.
int HandOverToHttpHelper(char** argv) {
  std::string self(4096, '\0');
  const ssize_t length = readlink("/proc/self/exe", self.data(), self.size() - 1);
  self.resize(length > 0 ? static_cast<std::size_t>(length) : 0);
  const std::string dir = self.substr(0, self.rfind('/') + 1);
  int error = ENOENT;
  for (const std::string& helper : {dir + "zefo-monitor-http", dir + ZEFO_HTTP_HELPER}) {
    execv(helper.c_str(), argv);
    if (errno != ENOENT) error = errno;
  }
  return Fail(std::string("--listen: cannot start zefo-monitor-http: ") + std::strerror(error));
}
#endif

}  // namespace

int main(int argc, char** argv) {
  const zefo::cli::ParseResult parsed = zefo::cli::ParseOptions(argc, argv);
  if (!parsed.run) return parsed.exit_code;
  const zefo::cli::Options& opt = parsed.options;
#ifdef ZEFO_HTTP_HELPER
  if (opt.listen) return HandOverToHttpHelper(argv);
#endif
  using zefo::format::Format;

  // node_exporter's textfile collector reads only *.prom files, and only the Prometheus text
  // format: a .prom target is written in that format.
  Format file_format = opt.format;
  const std::string& out = opt.output;
  if (file_format == Format::kOpenMetrics && out.size() > 5 &&
      out.compare(out.size() - 5, 5, ".prom") == 0) {
    file_format = Format::kPrometheus;
  }
  std::optional<zefo::cli::OutputFile> output;
  if (!opt.output.empty()) {
    output.emplace(opt.output);
    const std::string problem = output->Probe();
    if (!problem.empty()) return Fail("cannot write --output " + opt.output + ": " + problem);
  }
  // Standard output carries the passes unless they go to a file, or the tool serves them and
  // was not asked for a format.
  const bool to_stdout = !output && (!opt.listen || opt.format_given);

  // SIGINT and SIGTERM are taken synchronously below; blocking them before any thread starts
  // keeps them away from the sampling and HTTP threads too.
  sigset_t stop_signals;
  sigemptyset(&stop_signals);
  sigaddset(&stop_signals, SIGINT);
  sigaddset(&stop_signals, SIGTERM);
  pthread_sigmask(SIG_BLOCK, &stop_signals, nullptr);

  const zefo::format::FormatOptions format_options;
#ifdef ZEFO_WITH_HTTP
  zefo::cli::PassStore store(opt.period_ms, static_cast<uint64_t>(opt.history_seconds) * 1000,
                             kHistoryBudgetBytes);
  std::unique_ptr<zefo::cli::HttpServer> server;
  if (opt.listen) {
    // A scraper that hangs up mid-answer must not kill the tool.
    signal(SIGPIPE, SIG_IGN);
    const auto& where = opt.listen_address;
    const std::string shown =
        where.host.find(':') != std::string::npos ? "[" + where.host + "]" : where.host;
    server = std::make_unique<zefo::cli::HttpServer>();
    zefo::cli::AddRoutes(*server, store, format_options);
    const std::string problem = server->Bind(where.host, where.port);
    if (!problem.empty()) {
      return Fail("cannot listen on " + shown + ":" + std::to_string(where.port) + ": " + problem);
    }
    server->Start();
    const std::string base = "http://" + shown + ":" + std::to_string(server->port()) + "/";
    std::cerr << "zefo-monitor: serving " << base << "metrics" << std::endl;
    std::cerr << "zefo-monitor: "
              << (zefo::cli::DashboardBuilt() ? "dashboard at " + base
                                              : "this build has no dashboard; see " + base)
              << std::endl;
  }
#else
  if (opt.listen) return Fail("--listen: this zefo-monitor was built without HTTP support");
#endif

  for (const std::string& note : zefo::cli::MissingDataNotes(opt)) {
    std::cerr << "zefo-monitor: " << note << "\n";
  }
  auto monitor =
      opt.pids.empty()
          ? std::make_unique<zefo::ZefoResourceMonitorApi>(opt.period_ms, opt.paths)
          : std::make_unique<zefo::ZefoResourceMonitorApi>(opt.period_ms, opt.pids, opt.paths);
  monitor->SetForgetAfter(opt.forget_after_seconds * 1000);

  // A thread of its own takes SIGINT and SIGTERM and wakes the loop below, which otherwise
  // sleeps until the next pass ends.
  std::atomic<bool> stopping{false};
  std::thread signal_waiter([&stop_signals, &stopping, &monitor] {
    int signal_number = 0;
    sigwait(&stop_signals, &signal_number);
    stopping.store(true);
    monitor->StopWaiting();
  });

  // The report is the library's, every item it holds; every other output shows only what the
  // newest pass saw.
  const bool report_out =
      (to_stdout && opt.format == Format::kReport) || (output && file_format == Format::kReport);
  const bool live_out = opt.listen || (to_stdout && opt.format != Format::kReport) ||
                        (output && file_format != Format::kReport);
  // Pass times are compared whole: on 32-bit targets `unsigned long` cannot hold them.
  uint64_t written = 0;
  long long passes = 0;
  std::string last_error;
  while (opt.count == 0 || passes < opt.count) {
    const uint64_t latest = monitor->WaitForUpdate(written, kWaitMilliseconds);
    if (stopping.load()) break;
    if (latest == 0 || latest == written) continue;
    // Copied under the library's lock; formatted after it is released. The copy may already
    // hold a newer pass than `latest`; remember the one it holds.
    using zefo::format::Snapshot;
    using zefo::format::SnapshotScope;
    std::shared_ptr<const Snapshot> all, live;
    if (report_out) {
      all = std::make_shared<const Snapshot>(zefo::format::TakeSnapshot(*monitor));
      if (live_out) {
        auto copy = std::make_shared<Snapshot>(*all);
        zefo::format::DropStale(*copy);
        live = std::move(copy);
      }
    } else {
      live = std::make_shared<const Snapshot>(
          zefo::format::TakeSnapshot(*monitor, SnapshotScope::kLive));
    }
    written = (all ? all : live)->update_time;
    ++passes;
    const auto pass_for = [&](Format format) -> const Snapshot& {
      return format == Format::kReport ? *all : *live;
    };
#ifdef ZEFO_WITH_HTTP
    if (opt.listen) store.Publish(live);
#endif
    if (output) {
      // A failing write (a full disk) is reported once, and again after it recovers and fails.
      const std::string error =
          output->Write(FormatPass(pass_for(file_format), file_format, format_options));
      if (!error.empty() && error != last_error) std::cerr << "zefo-monitor: " << error << "\n";
      last_error = error;
    }
    if (to_stdout) {
      std::cout << FormatPass(pass_for(opt.format), opt.format, format_options) << std::flush;
      if (!std::cout) break;  // the reader went away
    }
  }
  if (!stopping.load()) pthread_kill(signal_waiter.native_handle(), SIGTERM);
  signal_waiter.join();
#ifdef ZEFO_WITH_HTTP
  if (server) server->Stop();
#endif
  monitor.reset();
  return 0;
}
