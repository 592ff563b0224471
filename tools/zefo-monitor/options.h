#ifndef ZEFO_TOOLS_ZEFO_MONITOR_OPTIONS_H_
#define ZEFO_TOOLS_ZEFO_MONITOR_OPTIONS_H_

#include <cstdint>
#include <limits>
#include <set>
#include <string>
#include <vector>

#include "zefo/format/formats.h"
#include "zefo/kernel_paths.h"

namespace zefo::cli {

// Where --listen binds: a host name or address (IPv6 without brackets; "" for every address)
// and a port; port 0 lets the system choose one.
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
  std::string web_config;     // --web-config FILE: TLS and basic auth for --listen
  bool top = false;           // the full-screen terminal view
  bool line_details = false;  // --format line with every core, device, zone and more processes
  // --record DIR: every pass is also appended to the store in DIR, kept within these bounds.
  std::string record_dir;
  uint64_t record_max_bytes = uint64_t{64} << 20;
  uint64_t record_max_age_ms = uint64_t{7} * 24 * 3600 * 1000;
  // --replay DIR: the recorded passes between --from and --to instead of live ones.
  std::string replay_dir;
  uint64_t replay_from_ms = 0;
  uint64_t replay_to_ms = std::numeric_limits<uint64_t>::max();
  // A name no pass has seen for this long is forgotten; 0 keeps every name ever seen.
  long long forget_after_seconds = 60;
};

// "127.0.0.1:9464", "[::1]:9464", "localhost:9464", ":9464" (every address) into `out`; "" or
// what is wrong.
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
