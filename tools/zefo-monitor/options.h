#ifndef ZEFO_TOOLS_ZEFO_MONITOR_OPTIONS_H_
#define ZEFO_TOOLS_ZEFO_MONITOR_OPTIONS_H_

#include <set>
#include <string>
#include <vector>

#include "zefo/format/formats.h"
#include "zefo/kernel_paths.h"

namespace zefo::cli {

// Where --listen binds: a host name or address (IPv6 without brackets) and a port; port 0 lets
// the system choose one.
struct ListenAddress {
  std::string host;
  int port = 0;
};

struct Options {
  int period_ms = 2000;
  long long count = 0;  // passes to write; 0 means until interrupted
  std::set<std::string> pids;
  KernelPaths paths;
  format::Format format = format::Format::kReport;
  bool format_given = false;  // --format was on the command line
  std::string output;         // --output FILE; empty: standard output
  bool listen = false;
  ListenAddress listen_address;
  int history_seconds = 600;  // how far back /api/history reaches with --listen
  // A name no pass has seen for this long is forgotten; 0 keeps every name ever seen.
  long long forget_after_seconds = 60;
};

// "127.0.0.1:9464", "[::1]:9464", "localhost:9464" into `out`; "" or what is wrong.
std::string ParseListenAddress(const std::string& text, ListenAddress& out);

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
