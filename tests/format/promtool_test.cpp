// Prometheus's own linter over the exposition: the fixture board's, and zefo-monitor's over
// this machine (real process names, real mount points). Built only where promtool is installed.
#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <string>

#include "support/board.h"

namespace zefo::format {
namespace {

// Runs `promtool check metrics` on `path`; its exit status, with what it printed in `output`.
int Promtool(const std::string& path, std::string& output) {
  const std::string command = std::string(ZEFO_PROMTOOL) + " check metrics < '" + path + "' 2>&1";
  FILE* pipe = popen(command.c_str(), "r");
  if (pipe == nullptr) return -1;
  char buffer[4096];
  for (size_t n; (n = fread(buffer, 1, sizeof buffer, pipe)) > 0;) output.append(buffer, n);
  return pclose(pipe);
}

TEST(PromtoolTest, BoardExpositionPassesTheLinter) {
  testing::FixtureTree tree;
  const Snapshot pass = testing::BoardPass(tree);
  const std::string path = tree.Path("board.prom");
  std::ofstream(path) << FormatPrometheus(pass, testing::FixedOptions());
  std::string output;
  EXPECT_EQ(Promtool(path, output), 0) << output;
  EXPECT_EQ(output, "");
}

TEST(PromtoolTest, ZefoMonitorOnThisMachinePassesTheLinter) {
  testing::FixtureTree tree;
  const std::string path = tree.Path("machine.prom");
  for (const char* processes : {"top:10", "by-name", "all"}) {
    SCOPED_TRACE(processes);
    const std::string run = std::string(ZEFO_MONITOR_BIN) +
                            " --count 2 --period 100 --format openmetrics --metrics-processes " +
                            processes + " --output '" + path + "'";
    ASSERT_EQ(std::system(run.c_str()), 0);
    std::string output;
    EXPECT_EQ(Promtool(path, output), 0) << output;
    EXPECT_EQ(output, "");
  }
}

}  // namespace
}  // namespace zefo::format
