#include "options.h"

#include <CLI/CLI.hpp>
#include <cerrno>
#include <cstdlib>
#include <iostream>
#include <limits>

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
  const std::string example = " (give ADDRESS:PORT, e.g. 127.0.0.1:9464 or [::1]:9464)";
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
  if (host.empty()) return "'" + text + "' names no address" + example;
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

  CLI::App app{"Prints the board's resource report after every sampling pass.", "zefo-monitor"};
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
  opt.pids.insert(pids.begin(), pids.end());
  format::ParseFormat(format_name, opt.format);
  opt.format_given = app.count("--format") > 0;
  if (!listen.empty()) {
    opt.listen = true;
    ParseListenAddress(listen, opt.listen_address);
  }
  result.run = true;
  return result;
}

}  // namespace zefo::cli
