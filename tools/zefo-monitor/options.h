#ifndef ZEFO_TOOLS_ZEFO_MONITOR_OPTIONS_H_
#define ZEFO_TOOLS_ZEFO_MONITOR_OPTIONS_H_

#include <set>
#include <string>
#include <vector>

#include "zefo/kernel_paths.h"

namespace zefo::cli {

struct Options {
  int period_ms = 2000;
  long long count = 0;  // reports to print; 0 means until interrupted
  std::set<std::string> pids;
  KernelPaths paths;
};

// What the command line asked for: run with `options`, or exit at once with `exit_code` (help
// and version were printed on standard output, an error on standard error).
struct ParseResult {
  bool run = false;
  int exit_code = 0;
  Options options;
};

ParseResult ParseOptions(int argc, char** argv);

}  // namespace zefo::cli

#endif  // ZEFO_TOOLS_ZEFO_MONITOR_OPTIONS_H_
