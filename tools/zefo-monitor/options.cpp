#include "options.h"

#include <CLI/CLI.hpp>
#include <iostream>

#include "zefo/zefo_utils.h"

namespace zefo::cli {

ParseResult ParseOptions(int argc, char** argv) {
  ParseResult result;
  Options& opt = result.options;
  std::vector<std::string> pids;

  CLI::App app{"Prints the board's resource report after every sampling pass.", "zefo-monitor"};
  app.set_version_flag("--version", std::string("zefo-monitor ") + ZEFO_VERSION);
  app.add_option("--period", opt.period_ms, "Milliseconds between the end of one pass and the next")
      ->check(CLI::Range(0, 86400000))
      ->default_val(2000);
  app.add_option("--count", opt.count,
                 "Stop after this many reports (default: run until interrupted)")
      ->check(CLI::Range(1LL, 1LL << 62));
  app.add_option("--pid", pids, "Watch only this process id (repeatable); no system monitors then")
      ->check([](const std::string& text) {
        return common::util::IsNumeric(text) ? std::string() : "not a process id: " + text;
      });
  app.add_option("--procfs", opt.paths.procfs, "Where procfs is mounted")->default_val("/proc");
  app.add_option("--sysfs", opt.paths.sysfs, "Where sysfs is mounted")->default_val("/sys");
  app.add_option("--devfs", opt.paths.devfs, "Where the device nodes are")->default_val("/dev");
  app.add_option("--regdir", opt.paths.regdir, "The process registration directory")
      ->default_val("/tmp/zefo/proc");
  app.add_option("--rootfs", opt.paths.rootfs, "The root under which mount points are queried")
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
