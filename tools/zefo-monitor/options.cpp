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

ParseResult ParseOptions(int argc, char** argv) {
  ParseResult result;
  Options& opt = result.options;
  std::vector<std::string> pids;

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
  app.add_option("--procfs", opt.paths.procfs, "Where procfs is mounted")
      ->type_name("DIR")
      ->default_val("/proc");
  app.add_option("--sysfs", opt.paths.sysfs, "Where sysfs is mounted")
      ->type_name("DIR")
      ->default_val("/sys");
  app.add_option("--devfs", opt.paths.devfs, "Where the device nodes are")
      ->type_name("DIR")
      ->default_val("/dev");
  app.add_option("--regdir", opt.paths.regdir, "The process registration directory")
      ->type_name("DIR")
      ->default_val("/tmp/zefo/proc");
  app.add_option("--rootfs", opt.paths.rootfs, "The root under which mount points are queried")
      ->type_name("DIR")
      ->default_val("/");

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
  result.run = true;
  return result;
}

}  // namespace zefo::cli
