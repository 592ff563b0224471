// The exposition's fleet options over the fixture board: counters from the kernel's totals, the
// machine total apart from the CPUs, the kinds and processes chosen, processes by name.
#include <gtest/gtest.h>

#include <set>
#include <sstream>

#include "support/board.h"
#include "support/golden.h"

namespace zefo::format {
namespace {

// The samples these options add (the gauges beside them are the plain golden file's): counters
// of every kind that has them, the registered process with its command line cut, the processes
// grouped by name; then the processes each selection shows.
TEST(Fleet, GoldenOutput) {
  testing::FixtureTree tree;
  const Snapshot pass = testing::BoardPass(tree);
  FormatOptions system = testing::FixedOptions();
  system.counters = true;
  system.kinds = 1u << Cpu | 1u << Disk | 1u << Network | 1u << QeltDdr;
  FormatOptions registered = system;
  registered.kinds = 1u << ProcInfo;
  registered.processes = ProcessMetrics::kRegistered;
  registered.max_cmd_line_bytes = 12;
  FormatOptions grouped = registered;
  grouped.processes = ProcessMetrics::kByName;
  const std::string all = FormatOpenMetrics(pass, system) + FormatOpenMetrics(pass, registered) +
                          FormatOpenMetrics(pass, grouped);
  EXPECT_EQ(all.find("cpu=\"total\""), std::string::npos);
  std::string added;
  std::istringstream lines(all);
  for (std::string line; std::getline(lines, line);) {
    const bool counter = line.find("_total{") != std::string::npos &&
                         line.find("_updates_total") == std::string::npos;
    for (const char* prefix : {"zefo_cpu_machine", "zefo_process_group", "zefo_process_info"}) {
      if (line.rfind(prefix, 0) == 0) added += line + "\n";
    }
    if (counter) added += line + "\n";
  }
  // camera_app has 60 % of a CPU, weird 15 %, sleeper 0 %.
  const std::pair<ProcessMetrics, std::size_t> selections[] = {
      {ProcessMetrics::kNone, 10}, {ProcessMetrics::kRegistered, 10}, {ProcessMetrics::kTop, 1},
      {ProcessMetrics::kTop, 2},   {ProcessMetrics::kTop, 5},         {ProcessMetrics::kByName, 10},
      {ProcessMetrics::kAll, 10}};
  FormatOptions select = testing::FixedOptions();
  select.counters = true;
  for (const auto& [which, top] : selections) {
    select.processes = which;
    select.top_processes = top;
    std::set<std::string> pids;
    std::istringstream exposition(FormatPrometheus(pass, select));
    for (std::string line; std::getline(exposition, line);) {
      const std::size_t at = line.find("pid=\"");
      if (at != std::string::npos)
        pids.insert(line.substr(at + 5, line.find('"', at + 5) - at - 5));
    }
    added += "processes " + std::to_string(static_cast<int>(which)) + ", top " +
             std::to_string(top) + ":";
    for (const std::string& pid : pids) added += " " + pid;
    added += "\n";
  }
  testing::ExpectGolden("format_fleet.txt", added);
}

}  // namespace
}  // namespace zefo::format
