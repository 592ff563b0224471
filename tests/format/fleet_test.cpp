// The exposition's fleet options over the simulated board: counters from the kernel's totals,
// the machine total apart from the CPUs, the kinds and processes chosen, processes by name.
#include <gtest/gtest.h>

#include <set>
#include <sstream>

#include "support/board.h"
#include "support/golden.h"

namespace zefo::format {
namespace {

class Fleet : public ::testing::Test {
 protected:
  void SetUp() override {
    pass = testing::BoardPass(tree);
    options = testing::FixedOptions();
    options.counters = true;
  }
  testing::FixtureTree tree;
  Snapshot pass;
  FormatOptions options;
};

// Counters of every kind that has them, the registered process with its command line cut,
// and the processes grouped by name.
TEST_F(Fleet, GoldenOutput) {
  FormatOptions system = options;
  system.kinds = 1u << Cpu | 1u << Disk | 1u << Network | 1u << QeltDdr;
  FormatOptions registered = options;
  registered.kinds = 1u << ProcInfo;
  registered.processes = ProcessMetrics::kRegistered;
  registered.max_cmd_line_bytes = 12;
  FormatOptions grouped = registered;
  grouped.processes = ProcessMetrics::kByName;
  const std::string all = FormatOpenMetrics(pass, system) + FormatOpenMetrics(pass, registered) +
                          FormatOpenMetrics(pass, grouped);
  EXPECT_EQ(all.find("cpu=\"total\""), std::string::npos);
  // The samples these options add; the gauges beside them are the plain golden file's.
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
  testing::ExpectGolden("format_fleet.txt", added);
}

TEST_F(Fleet, ProcessSelection) {
  const struct {
    ProcessMetrics which;
    std::size_t top;
    std::set<std::string> pids;
  } cases[] = {
      {ProcessMetrics::kNone, 10, {}},           {ProcessMetrics::kRegistered, 10, {"100"}},
      {ProcessMetrics::kTop, 1, {"100"}},  // camera_app 60 %, weird 15 %, sleeper 0 %
      {ProcessMetrics::kTop, 2, {"100", "200"}}, {ProcessMetrics::kTop, 5, {"100", "200", "300"}},
      {ProcessMetrics::kByName, 10, {}},         {ProcessMetrics::kAll, 10, {"100", "200", "300"}},
  };
  for (const auto& c : cases) {
    options.processes = c.which;
    options.top_processes = c.top;
    std::set<std::string> pids;
    std::istringstream lines(FormatPrometheus(pass, options));
    for (std::string line; std::getline(lines, line);) {
      const std::size_t at = line.find("pid=\"");
      if (at != std::string::npos)
        pids.insert(line.substr(at + 5, line.find('"', at + 5) - at - 5));
    }
    EXPECT_EQ(pids, c.pids) << static_cast<int>(c.which) << " top " << c.top;
  }
}

}  // namespace
}  // namespace zefo::format
