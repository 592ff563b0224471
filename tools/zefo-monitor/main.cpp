// zefo-monitor: writes every sampling pass (the library's text report, one line, JSON or a
// metrics exposition) to standard output or a file, and serves the newest one over HTTP, until
// interrupted.
#include <signal.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <iostream>
#include <memory>
#include <optional>

#include "options.h"
#include "output_file.h"
#include "zefo/format/formats.h"
#include "zefo/format/snapshot.h"
#ifdef ZEFO_WITH_RECORD
#include "zefo/record/recorder.h"
#include "zefo/record/replay.h"
#endif
#include "zefo/zefo_resource_monitor.h"
#ifdef ZEFO_WITH_HTTP
#include "dashboard_page.h"
#include "http_server.h"
#endif

namespace {

// How often the tool looks for a finished pass; also the longest it takes to notice a signal.
constexpr long kPollNanoseconds = 20L * 1000 * 1000;

// The most the dashboard's history of charted figures may hold, whatever --history says.
constexpr std::size_t kHistoryBudgetBytes = 4 << 20;
// Over a --replay it charts the window replayed: at most 8 days and 32 MiB of figures (about
// 140000 passes of a 2-CPU board).
constexpr uint64_t kReplayWindowMs = uint64_t{8} * 24 * 3600 * 1000;
constexpr std::size_t kReplayBudgetBytes = 32 << 20;

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
  const zefo::format::FormatOptions format_options;
  std::optional<zefo::cli::OutputFile> output;
  if (!opt.output.empty()) {
    output.emplace(opt.output);
    const std::string problem = output->Probe();
    if (!problem.empty()) return Fail("cannot write --output " + opt.output + ": " + problem);
  }
  // Standard output carries the passes unless they go to a file, or the tool serves or records
  // them and was not asked for a format.
  const bool to_stdout = !output && ((!opt.listen && opt.record_dir.empty()) || opt.format_given);
  std::string last_error;
  // Writes one pass where it goes; false once standard output's reader went away.
  const auto emit = [&](const zefo::format::Snapshot& pass) {
    if (output) {
      // A failing write (a full disk) is reported once, and again after it recovers and fails.
      const std::string error = output->Write(FormatPass(pass, file_format, format_options));
      if (!error.empty() && error != last_error) std::cerr << "zefo-monitor: " << error << "\n";
      last_error = error;
    }
    if (to_stdout) {
      std::cout << FormatPass(pass, opt.format, format_options) << std::flush;
      if (!std::cout) return false;
    }
    return true;
  };

#ifndef ZEFO_WITH_RECORD
  if (!opt.replay_dir.empty() || !opt.record_dir.empty()) {
    return Fail("this zefo-monitor was built without the recorder (zstd and zlib)");
  }
#else
  zefo::record::RecorderOptions record_options;
  record_options.max_bytes = opt.record_max_bytes;
  record_options.max_age_ms = opt.record_max_age_ms;
  zefo::record::Recorder recorder(record_options);
  if (!opt.record_dir.empty()) {
    const std::string problem = recorder.Open(opt.record_dir);
    if (!problem.empty()) return Fail("--record: " + problem);
  }
  std::string last_record_error;
#endif

  // SIGINT and SIGTERM are taken synchronously below; blocking them before any thread starts
  // keeps them away from the sampling and HTTP threads too.
  sigset_t stop_signals;
  sigemptyset(&stop_signals);
  sigaddset(&stop_signals, SIGINT);
  sigaddset(&stop_signals, SIGTERM);
  pthread_sigmask(SIG_BLOCK, &stop_signals, nullptr);

#ifdef ZEFO_WITH_HTTP
  // Over a replay the dashboard charts the whole window replayed.
  const bool replay = !opt.replay_dir.empty();
  const uint64_t replay_span = opt.replay_to_ms - opt.replay_from_ms;
  zefo::cli::PassStore store(opt.period_ms,
                             replay ? std::min(replay_span, kReplayWindowMs)
                                    : static_cast<uint64_t>(opt.history_seconds) * 1000,
                             replay ? kReplayBudgetBytes : kHistoryBudgetBytes);
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

#ifdef ZEFO_WITH_RECORD
  if (!opt.replay_dir.empty()) {
    // The recorded passes, written as the live run wrote them.
    const zefo::record::ReplaySummary summary = zefo::record::Replay(
        opt.replay_dir, {opt.replay_from_ms, opt.replay_to_ms},
        [&](const zefo::format::Snapshot& pass) {
#ifdef ZEFO_WITH_HTTP
          store.Publish(std::make_shared<const zefo::format::Snapshot>(pass));
#endif
          return emit(pass);
        },
        [](const std::string& problem) { std::cerr << "zefo-monitor: " << problem << "\n"; });
    if (!summary.error.empty()) std::cerr << "zefo-monitor: " << summary.error << "\n";
    const int status = summary.readable > 0 || summary.error.empty() ? 0 : 1;
#ifdef ZEFO_WITH_HTTP
    if (server) {
      // The dashboard and /metrics show the replayed window until interrupted.
      std::cerr << "zefo-monitor: replayed " << summary.passes << " passes" << std::endl;
      int signal_number = 0;
      sigwait(&stop_signals, &signal_number);
      server->Stop();
    }
#endif
    return status;
  }
#endif

  auto monitor =
      opt.pids.empty()
          ? std::make_unique<zefo::ZefoResourceMonitorApi>(opt.period_ms, opt.paths)
          : std::make_unique<zefo::ZefoResourceMonitorApi>(opt.period_ms, opt.pids, opt.paths);
  // Pass times are compared whole: on 32-bit targets `unsigned long` cannot hold them.
  uint64_t written = 0;
  long long passes = 0;
  const struct timespec poll = {0, kPollNanoseconds};
  while (opt.count == 0 || passes < opt.count) {
    if (sigtimedwait(&stop_signals, nullptr, &poll) > 0) break;
    const uint64_t latest = monitor->GetUpdateTime();
    if (latest == 0 || latest == written) continue;
    // Copied under the library's lock; formatted after it is released. The copy may already
    // hold a newer pass than `latest`; remember the one it holds.
    auto pass =
        std::make_shared<const zefo::format::Snapshot>(zefo::format::TakeSnapshot(*monitor));
    written = pass->update_time;
    ++passes;
#ifdef ZEFO_WITH_HTTP
    store.Publish(pass);
#endif
#ifdef ZEFO_WITH_RECORD
    if (!opt.record_dir.empty()) {
      const std::string error = recorder.Append(*pass);
      if (!error.empty() && error != last_record_error) {
        std::cerr << "zefo-monitor: --record: " << error << "\n";
      }
      last_record_error = error;
    }
#endif
    if (!emit(*pass)) break;  // the reader went away
  }
#ifdef ZEFO_WITH_HTTP
  if (server) server->Stop();
#endif
  monitor.reset();
  return 0;
}
