// The manual page and the bash completion of zefo-monitor, written from its option table.
#ifndef ZEFO_TOOLS_ZEFO_MONITOR_MANUAL_H_
#define ZEFO_TOOLS_ZEFO_MONITOR_MANUAL_H_

#include <CLI/CLI.hpp>
#include <string>

namespace zefo::cli {

// zefo-monitor(1) in roff (man macros): every option the app has, with its argument, help and
// default, between fixed sections on units, keys, environment and exit status.
std::string ManualPage(const CLI::App& app);

// A bash completion script: every option, directories after DIR options, files after FILE,
// the format names after --format.
std::string BashCompletion(const CLI::App& app);

}  // namespace zefo::cli

#endif  // ZEFO_TOOLS_ZEFO_MONITOR_MANUAL_H_
