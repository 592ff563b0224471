#include "options.h"

#include <CLI/CLI.hpp>
#include <cerrno>
#include <cstdlib>
#include <iostream>
#include <limits>

#include "manual.h"
#include "time_arg.h"
#include "zefo/zefo_utils.h"

namespace zefo::cli {

namespace {

// Accepts a decimal whole number in [min, max] and says plainly what is wrong otherwise; the
// stock range check calls "x" or "1.5" merely out of range.
CLI::Validator WholeNumber(long long min, long long max) {
  return CLI::Validator(
      [min, max](std::string& text) -> std::string {
        const bool digits =
            !text.empty() && (common::util::IsNumeric(text) ||
                              (text[0] == '-' && common::util::IsNumeric(text.substr(1))));
        if (!digits) return "'" + text + "' is not a whole number";
        errno = 0;
        const long long value = std::strtoll(text.c_str(), nullptr, 10);
        if (errno == ERANGE || value < min || value > max) {
          return "'" + text + "' is out of range (" + std::to_string(min) + " to " +
                 std::to_string(max) + ")";
        }
        return std::string();
      },
      "");
}

}  // namespace

std::string ParseListenAddress(const std::string& text, ListenAddress& out) {
  const std::string example =
      " (give ADDRESS:PORT, e.g. 127.0.0.1:9464 or [::1]:9464, or :PORT for every address)";
  std::string host, port;
  if (!text.empty() && text[0] == '[') {
    const std::size_t close = text.find(']');
    if (close == std::string::npos || close + 1 >= text.size() || text[close + 1] != ':') {
      return "'" + text + "' is not an address and port" + example;
    }
    host = text.substr(1, close - 1);
    port = text.substr(close + 2);
  } else {
    const std::size_t colon = text.rfind(':');
    if (colon == std::string::npos || text.find(':') != colon) {
      return "'" + text + "' is not an address and port" + example;
    }
    host = text.substr(0, colon);
    port = text.substr(colon + 1);
  }
  errno = 0;
  const long number = common::util::IsNumeric(port) ? std::strtol(port.c_str(), nullptr, 10) : -1;
  if (port.empty() || errno == ERANGE || number < 0 || number > 65535) {
    return "'" + port + "' is not a port (0 to 65535)";
  }
  out.host = host;
  out.port = static_cast<int>(number);
  return std::string();
}

ParseResult ParseOptions(int argc, char** argv) {
  ParseResult result;
  Options& opt = result.options;
  std::vector<std::string> pids;
  std::string format_name = "report";
  std::string listen;

  CLI::App app{
      "Writes every sampling pass of the board's resources: as the library's text report, one "
      "line, JSON or a metrics exposition, served over HTTP with a dashboard, or shown in a "
      "full-screen terminal view.",
      "zefo-monitor"};
  app.set_version_flag("--version", std::string("zefo-monitor ") + ZEFO_VERSION);
  app.add_option("--period", opt.period_ms,
                 "Milliseconds from the end of one sampling pass to the start of the next")
      ->type_name("MS")
      ->check(WholeNumber(0, 86400000))
      ->default_val(2000);
  app.add_option("--count", opt.count, "Stop after N reports (default: run until interrupted)")
      ->type_name("N")
      ->check(WholeNumber(1, std::numeric_limits<long long>::max()));
  app.add_option("--pid", pids,
                 "Watch only this process (repeatable); the system monitors are left out then")
      ->type_name("PID")
      ->check(CLI::Validator(
          [](std::string& text) {
            return common::util::IsNumeric(text) ? std::string()
                                                 : "'" + text + "' is not a process id";
          },
          ""));
  // The kernel's roots, defaulting to where a running system has them.
  const KernelPaths system;
  const struct {
    const char* flag;
    std::string KernelPaths::*root;
    const char* help;
  } roots[] = {
      {"--procfs", &KernelPaths::procfs, "Where procfs is mounted"},
      {"--sysfs", &KernelPaths::sysfs, "Where sysfs is mounted"},
      {"--devfs", &KernelPaths::devfs, "Where the device nodes are"},
      {"--regdir", &KernelPaths::regdir, "The process registration directory"},
      {"--rootfs", &KernelPaths::rootfs, "The root under which mount points are queried"},
  };
  for (const auto& root : roots) {
    app.add_option(root.flag, opt.paths.*root.root, root.help)
        ->type_name("DIR")
        ->default_val(system.*root.root);
  }

  app.add_option("--format", format_name,
                 "How each pass is written: report (the text report), line (one line per "
                 "pass), json (one JSON object per line), openmetrics, or prometheus (the text "
                 "format node_exporter's textfile collector reads)")
      ->type_name("FORMAT")
      ->check(CLI::Validator(
          [](std::string& text) {
            format::Format unused;
            return format::ParseFormat(text, unused)
                       ? std::string()
                       : "'" + text +
                             "' is not a format (report, line, json, openmetrics, prometheus)";
          },
          ""));
  app.add_option("--output", opt.output,
                 "Write each pass to FILE, replacing it whole (written beside it, then renamed), "
                 "instead of standard output; with --format openmetrics, a FILE ending in "
                 ".prom gets the prometheus format, for node_exporter's textfile collector")
      ->type_name("FILE")
      ->check(CLI::Validator(
          [](std::string& text) {
            return text.empty() ? std::string("the file name is empty") : std::string();
          },
          ""));
  app.add_option("--listen", listen,
                 "Serve the newest pass at http://ADDRESS:PORT/metrics (OpenMetrics or "
                 "Prometheus text, as the scraper asks) and a live dashboard at "
                 "http://ADDRESS:PORT/, on that address only; port 0 picks a free port. "
                 "Standard output then stays quiet unless --format is given")
      ->type_name("ADDRESS:PORT")
      ->check(CLI::Validator(
          [](std::string& text) {
            ListenAddress unused;
            return ParseListenAddress(text, unused);
          },
          ""));

  app.add_option("--history", opt.history_seconds,
                 "With --listen, how many seconds of passes /api/history keeps for the dashboard's "
                 "charts (also at most 4 MiB of figures)")
      ->type_name("SECONDS")
      ->check(WholeNumber(0, 86400))
      ->default_val(600);
  app.add_option("--web-config", opt.web_config,
                 "With --listen, serve over TLS and/or ask for basic-auth users as FILE says (the "
                 "web configuration file of Prometheus exporters: tls_server_config with "
                 "cert_file, key_file and optionally client_ca_file, basic_auth_users with "
                 "bcrypt hashes); read once at start")
      ->type_name("FILE");

  app.add_flag(
      "--top", opt.top,
      "Show the board in a full-screen terminal view: CPU and BPU cores, DDR, memory, "
      "temperatures, disks, network and a process list (keys: c m i p n sort, r "
      "reverse, / filter, arrows scroll, q quit); not with --format, --output or --listen");
  app.add_flag("--line-details", opt.line_details,
               "With --format line, every CPU with its frequency, every DDR device, the three "
               "hottest zones and the three busiest processes (the line is then wider than "
               "120 columns)");
  // The manual page and the shell completion are written from this very option table at
  // build time, so they cannot drift from it.
  bool manual = false, completion = false;
  app.add_flag("--help-man", manual, "Print the manual page (roff) and exit")->group("");
  app.add_flag("--bash-completion", completion, "Print the bash completion script and exit")
      ->group("");

  // The flight recorder.
  const auto checked = [](auto parse) {
    return CLI::Validator(
        [parse](std::string& text) {
          uint64_t unused;
          return parse(text, unused);
        },
        "");
  };
  std::string max_size = "64M", max_age = "7d", from, to;
  auto* record = app.add_option("--record", opt.record_dir,
                                "Also append every pass to the store in DIR (created if missing), "
                                "for --replay later")
                     ->type_name("DIR");
  app.add_option("--record-max-size", max_size,
                 "With --record, the most the store keeps; the oldest passes go first "
                 "(K, M, G: powers of 1024; default 64M)")
      ->type_name("SIZE")
      ->check(checked(ParseSize))
      ->needs(record);
  app.add_option("--record-max-age", max_age,
                 "With --record, how long passes are kept (s, m, h, d; default 7d)")
      ->type_name("DURATION")
      ->check(checked(ParseDuration))
      ->needs(record);
  auto* replay = app.add_option("--replay", opt.replay_dir,
                                "Write the passes recorded in DIR (by --record) instead of "
                                "sampling, with --format and --output")
                     ->type_name("DIR")
                     ->excludes(record);
  app.add_option("--from", from,
                 "With --replay, the first time to write: Unix seconds or ISO 8601 (local time "
                 "unless it ends in Z or an offset)")
      ->type_name("TIME")
      ->check(checked(ParseTime))
      ->needs(replay);
  app.add_option("--to", to, "With --replay, the last time to write (as --from)")
      ->type_name("TIME")
      ->check(checked(ParseTime))
      ->needs(replay);

  app.add_option("--forget-after", opt.forget_after_seconds,
                 "Forget a process, disk, interface or other item no pass has seen for SECONDS "
                 "(its figures and what is kept to compute them); 0 keeps everything ever seen. "
                 "Every format but report shows only what the newest pass saw either way")
      ->type_name("SECONDS")
      ->check(WholeNumber(0, 100LL * 365 * 86400))
      ->default_val(60);

  try {
    app.parse(argc, argv);
  } catch (const CLI::CallForHelp& e) {
    result.exit_code = app.exit(e);
    return result;
  } catch (const CLI::CallForVersion& e) {
    result.exit_code = app.exit(e);
    return result;
  } catch (const CLI::ParseError& e) {
    std::cerr << "zefo-monitor: " << e.what() << "\n"
              << "Run with --help for the options.\n";
    result.exit_code = 2;
    return result;
  }
  if (manual || completion) {
    std::cout << (manual ? ManualPage(app) : BashCompletion(app));
    return result;
  }
  for (const char* other : {"--format", "--output", "--listen"}) {
    if (opt.top && app.count(other) > 0) {
      std::cerr << "zefo-monitor: --top shows the passes itself; it does not go with " << other
                << "\n";
      result.exit_code = 2;
      return result;
    }
  }
  opt.pids.insert(pids.begin(), pids.end());
  format::ParseFormat(format_name, opt.format);
  opt.format_given = app.count("--format") > 0;
  if (!listen.empty()) {
    opt.listen = true;
    ParseListenAddress(listen, opt.listen_address);
  }
  if (app.count("--web-config") > 0 && !opt.listen) {
    std::cerr << "zefo-monitor: --web-config needs --listen\n";
    result.exit_code = 2;
    return result;
  }
  ParseSize(max_size, opt.record_max_bytes);
  ParseDuration(max_age, opt.record_max_age_ms);
  if (!from.empty()) ParseTime(from, opt.replay_from_ms);
  if (!to.empty()) ParseTime(to, opt.replay_to_ms);
  if (opt.replay_from_ms > opt.replay_to_ms) {
    std::cerr << "zefo-monitor: --from " << from << " lies after --to " << to << "\n";
    result.exit_code = 2;
    return result;
  }
  result.run = true;
  return result;
}

}  // namespace zefo::cli
