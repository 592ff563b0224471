// zefo-monitor: writes every sampling pass (the library's text report, one line, JSON or a
// metrics exposition) to standard output or a file, and serves the newest one over HTTP, until
// interrupted.
#include <signal.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <memory>
#include <optional>
#include <string_view>
#include <thread>

#include "options.h"
#include "output_file.h"
#include "preflight.h"
#include "zefo/format/formats.h"
#include "zefo/format/snapshot.h"
#ifdef ZEFO_WITH_RECORD
#include "zefo/record/recorder.h"
#include "zefo/record/replay.h"
#endif
#include "zefo/zefo_resource_monitor.h"
#ifdef ZEFO_WITH_TOP
#include "top/live_source.h"
#include "top/top_terminal.h"
#endif
#ifdef ZEFO_WITH_HTTP
#include "dashboard_page.h"
#include "http_server.h"
#include "pass_store.h"
#include "web_config.h"
#endif

namespace {

// The longest the tool sleeps without looking at the library, when passes take that long.
constexpr int kWaitMilliseconds = 1000;

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

// Exit status when a pass could not be written (a full disk, a closed terminal).
constexpr int kWriteFailed = 1;
// What writing a pass returns when the run goes on.
constexpr int kKeepGoing = -1;

// Writes all of `text` to standard output: 0, or the errno of the write that failed.
int WriteStdout(std::string_view text) {
  while (!text.empty()) {
    const ssize_t n = write(STDOUT_FILENO, text.data(), text.size());
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) return errno;
    if (n == 0) return EIO;
    text.remove_prefix(static_cast<std::size_t>(n));
  }
  return 0;
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
  // A write to a pipe whose reader left fails with EPIPE instead of killing the tool; a
  // scraper hanging up mid-answer must not kill it either.
  signal(SIGPIPE, SIG_IGN);
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
  // Standard output carries the passes unless they go to a file, or the tool serves or records
  // them and was not asked for a format.
  const bool to_stdout = !output && ((!opt.listen && opt.record_dir.empty()) || opt.format_given);
  // Process names, command lines and registered names are whatever their owners chose; on a
  // terminal the report shows their control characters escaped. Files and pipes get the
  // library's bytes.
  const bool escape_report = to_stdout && opt.format == Format::kReport && isatty(STDOUT_FILENO);

  zefo::format::FormatOptions format_options;
  format_options.line_details = opt.line_details;
  // Colour only for a person at a terminal who did not opt out; files and pipes get none.
  zefo::format::FormatOptions stdout_options = format_options;
  const char* no_colour = std::getenv("NO_COLOR");
  stdout_options.color = isatty(STDOUT_FILENO) && (no_colour == nullptr || no_colour[0] == '\0');
#ifndef ZEFO_WITH_TOP
  if (opt.top) return Fail("--top: this build has no terminal view");
#endif

  // Writes one pass where it goes: kKeepGoing, or the status to end the run with. The report is
  // the library's, every item it holds (`all`); every other output shows only what the pass
  // sampled (`live`).
  const auto emit = [&](const zefo::format::Snapshot& all, const zefo::format::Snapshot& live) {
    const auto pass_for = [&](Format format) -> const zefo::format::Snapshot& {
      return format == Format::kReport ? all : live;
    };
    if (output) {
      const std::string error =
          output->Write(FormatPass(pass_for(file_format), file_format, format_options));
      if (!error.empty()) {
        std::cerr << "zefo-monitor: " << error << "\n";
        return kWriteFailed;
      }
    }
    if (to_stdout) {
      std::string text = FormatPass(pass_for(opt.format), opt.format, stdout_options);
      if (escape_report) text = zefo::format::EscapeForTerminal(text);
      const int error = WriteStdout(text);
      // A reader that went away (`zefo-monitor | head`) ends the run quietly.
      if (error == EPIPE) return 0;
      if (error != 0) {
        std::cerr << "zefo-monitor: cannot write to standard output: " << std::strerror(error)
                  << "\n";
        return kWriteFailed;
      }
    }
    return kKeepGoing;
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
    // Seen by ps and top under the name people started, not the helper's.
    prctl(PR_SET_NAME, "zefo-monitor", 0, 0, 0);
    // Every held connection is a descriptor: allow as many as the hard limit does.
    struct rlimit files;
    if (getrlimit(RLIMIT_NOFILE, &files) == 0 && files.rlim_cur < files.rlim_max) {
      files.rlim_cur = files.rlim_max;
      setrlimit(RLIMIT_NOFILE, &files);
    }
    zefo::cli::WebConfig web;
    if (!opt.web_config.empty()) {
      const std::string problem = zefo::cli::LoadWebConfig(opt.web_config, web);
      if (!problem.empty()) return Fail("--web-config " + opt.web_config + ": " + problem);
    }
    const auto& where = opt.listen_address;
    const std::string shown = where.host.empty()                          ? std::string("*")
                              : where.host.find(':') != std::string::npos ? "[" + where.host + "]"
                                                                          : where.host;
    const std::string_view page = zefo::cli::DashboardPage();
    server = std::make_unique<zefo::cli::HttpServer>(
        zefo::cli::RouteContext{store, format_options, zefo::cli::DashboardPolicy(page)}, web);
    const std::string problem = server->Listen(where.host, where.port);
    if (!problem.empty()) {
      return Fail("cannot listen on " + shown + ":" + std::to_string(where.port) + ": " + problem);
    }
    const std::string base = std::string(web.tls() ? "https" : "http") + "://" + shown + ":" +
                             std::to_string(server->port()) + "/";
    std::cerr << "zefo-monitor: serving " << base << "metrics"
              << (web.users.empty() ? "" : " (basic auth)") << std::endl;
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
    int status = kKeepGoing;
    const zefo::record::ReplaySummary summary = zefo::record::Replay(
        opt.replay_dir, {opt.replay_from_ms, opt.replay_to_ms},
        [&](const zefo::format::Snapshot& pass) {
#ifdef ZEFO_WITH_HTTP
          store.Publish(std::make_shared<const zefo::format::Snapshot>(pass));
#endif
          status = emit(pass, pass);
          return status == kKeepGoing;
        },
        [](const std::string& problem) { std::cerr << "zefo-monitor: " << problem << "\n"; });
    if (!summary.error.empty()) std::cerr << "zefo-monitor: " << summary.error << "\n";
    if (status != kKeepGoing) return status;
#ifdef ZEFO_WITH_HTTP
    if (server) {
      // The dashboard and /metrics show the replayed window until interrupted.
      std::cerr << "zefo-monitor: replayed " << summary.passes << " passes" << std::endl;
      int signal_number = 0;
      sigwait(&stop_signals, &signal_number);
      server->Stop();
    }
#endif
    return summary.readable > 0 || summary.error.empty() ? 0 : 1;
  }
#endif

  for (const std::string& note : zefo::cli::MissingDataNotes(opt)) {
    std::cerr << "zefo-monitor: " << note << "\n";
  }
  auto monitor =
      opt.pids.empty()
          ? std::make_unique<zefo::ZefoResourceMonitorApi>(opt.period_ms, opt.paths)
          : std::make_unique<zefo::ZefoResourceMonitorApi>(opt.period_ms, opt.pids, opt.paths);
  monitor->SetForgetAfter(opt.forget_after_seconds * 1000);
#ifdef ZEFO_WITH_TOP
  if (opt.top) {
    zefo::top::LiveSource source(*monitor);
    return zefo::top::RunTop(source, stop_signals, opt.count);
  }
#endif

  // A thread of its own takes SIGINT and SIGTERM and wakes the loop below, which otherwise
  // sleeps until the next pass ends.
  std::atomic<bool> stopping{false};
  std::thread signal_waiter([&stop_signals, &stopping, &monitor] {
    int signal_number = 0;
    sigwait(&stop_signals, &signal_number);
    stopping.store(true);
    monitor->StopWaiting();
  });

  const bool report_out =
      (to_stdout && opt.format == Format::kReport) || (output && file_format == Format::kReport);
  const bool live_out = opt.listen || !opt.record_dir.empty() ||
                        (to_stdout && opt.format != Format::kReport) ||
                        (output && file_format != Format::kReport);
  // Pass times are compared whole: on 32-bit targets `unsigned long` cannot hold them.
  uint64_t written = 0;
  long long passes = 0;
  int status = kKeepGoing;
  while (status == kKeepGoing && (opt.count == 0 || passes < opt.count)) {
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
#ifdef ZEFO_WITH_HTTP
    if (opt.listen) store.Publish(live);
#endif
#ifdef ZEFO_WITH_RECORD
    if (!opt.record_dir.empty()) {
      const std::string error = recorder.Append(*live);
      if (!error.empty() && error != last_record_error) {
        std::cerr << "zefo-monitor: --record: " << error << "\n";
      }
      last_record_error = error;
    }
#endif
    status = emit(all ? *all : *live, live ? *live : *all);
  }
  if (!stopping.load()) pthread_kill(signal_waiter.native_handle(), SIGTERM);
  signal_waiter.join();
#ifdef ZEFO_WITH_HTTP
  if (server) server->Stop();
#endif
  monitor.reset();
  return status == kKeepGoing ? 0 : status;
}
