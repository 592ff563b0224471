// Every output format over the fixture board, as golden files (ZEFO_UPDATE_GOLDEN=1 rewrites
// them); the report of a copy matching the library's own.
#include <chrono>
#include <cstdlib>
#include <nlohmann/json.hpp>
#include <sstream>
#include <thread>

#include <unistd.h>

#include <gtest/gtest.h>

#include "format/text.h"
#include "support/board.h"
#include "support/golden.h"
#include "zefo/zefo_resource_monitor.h"

namespace zefo::format {
namespace {

using testing::FixedOptions;
using testing::Rows;
using testing::Shown;

TEST(FormatTest, GoldenOutputsOfTheBoard) {
  testing::FixtureTree tree;
  const Snapshot pass = testing::BoardPass(tree);
  ASSERT_EQ(pass.ddr.size(), 1u) << "the DDR FIFO gave no second sample";
  const FormatOptions options = FixedOptions();
  testing::ExpectGolden("board_report.txt", FormatPass(pass, Format::kReport, options));
  // The line as it fits 120 columns, then with the details; colour changes nothing but the
  // escape sequences.
  FormatOptions details = options;
  details.line_details = true;
  const std::string line = FormatPass(pass, Format::kLine, options);
  testing::ExpectGolden("format_line.txt", line + FormatPass(pass, Format::kLine, details));
  FormatOptions colour = options;
  colour.color = true;
  std::string coloured = FormatPass(pass, Format::kLine, colour);
  EXPECT_NE(coloured, line);
  for (std::size_t at; (at = coloured.find('\033')) != std::string::npos;) {
    coloured.erase(at, coloured.find('m', at) - at + 1);
  }
  EXPECT_EQ(coloured, line);
  testing::ExpectGolden("format_openmetrics.txt", FormatPass(pass, Format::kOpenMetrics, options));
  testing::ExpectGolden("format_prometheus.txt", FormatPass(pass, Format::kPrometheus, options));
  // JSON is one line per pass (zefo-monitor's tool test parses its JSON output a line at a time);
  // the golden file holds it indented, for review.
  const std::string json = FormatPass(pass, Format::kJson, options);
  testing::ExpectGolden("format_json.txt", nlohmann::ordered_json::parse(json).dump(2) + "\n");
}

// A pass in which no monitor has an item yet shows its time and nothing else, in every format.
TEST(FormatTest, FirstPassHasOnlyTheTime) {
  Snapshot pass;
  pass.update_time = testing::kBoardUpdateTime;
  for (int type = Cpu; type <= ProcInfo; ++type)
    pass.Add(static_cast<ResourceMonitorType>(type), {});
  std::string out;
  for (Format format :
       {Format::kReport, Format::kLine, Format::kJson, Format::kOpenMetrics, Format::kPrometheus}) {
    out += FormatPass(pass, format, FixedOptions());
  }
  testing::ExpectGolden("format_first_pass.txt", out);
}

// The report made from a copy is byte for byte the library's own report of the same pass. Of
// the processes it watches this one: others' (another test's 4 MiB command line) would differ
// by the cut every copy makes.
TEST(FormatTest, ReportMatchesTheLibrarysReportOfTheSamePass) {
  ZefoResourceMonitor monitor(
      {new CpuMonitor, new BpuMonitor, new DiskMonitor, new MemoryMonitor, new NetworkMonitor,
       new TemperatureMonitor, new QeltDdrMonitor,
       new ProcInfoMonitor(std::set<std::string>{std::to_string(getpid())})},
      100);
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
  int compared = 0;
  while (compared < 2 && std::chrono::steady_clock::now() < deadline) {
    const Snapshot before = TakeSnapshot(monitor);
    std::ostringstream report;
    monitor.PrintToStream(report);
    const Snapshot after = TakeSnapshot(monitor);
    // Only when no pass ran in between do both describe one pass.
    if (before.update_time == 0 || before.update_time != after.update_time || after.cpu.empty()) {
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
      continue;
    }
    EXPECT_EQ(FormatReport(after), report.str());
    ++compared;
  }
  EXPECT_EQ(compared, 2) << "no two passes could be compared in 30 s";
}

// What the text helpers make of odd strings, one row per input, in format_text.txt: invalid
// UTF-8 replaced, cuts at a character's edge (or at the byte, for what is not UTF-8), nothing a
// terminal would take as a command, numbers as the expositions write them.
TEST(FormatTest, TextOfOddStrings) {
  const std::vector<std::string> utf8 = {"\xC3\xA9t\xE2\x82\xAC \xF0\x9F\x98\x80",
                                         "a\xFF"
                                         "b",
                                         "\xC0\xAF",
                                         "\xED\xA0\x80",
                                         "cut\xE2\x82",
                                         std::string("nul\0", 4),
                                         "\xC3\xA9\xC3\xA9",
                                         "ab\x80\x80\x80\x80\x80"};
  std::string out = Rows("valid UTF-8, cut at 3 and 6 bytes", utf8, [](const std::string& in) {
    return " " + Shown(detail::ValidUtf8(in)) + " " + Shown(std::string(detail::CutUtf8(in, 3))) +
           " " + Shown(std::string(detail::CutUtf8(in, 6)));
  });
  out += Rows("for a terminal, then controls escaped but for newlines",
              {"\x1b[2J\x1b]0;owned\x07", std::string("cr\rnul\0tab\tdel\x7f", 15),
               "csi\xC2\x9B"
               "1m raw\x9B"
               "1m",
               "\xC2\xA0\xC3\xA9\xE2\x82\xAC \\x1b", "two\nlines\n"},
              [](const std::string& in) {
                return " " + Shown(EscapeForTerminal(in)) + " " +
                       Shown(detail::EscapeControls(in, false));
              });
  out += Rows(
      "number", {"-0", "0.25", "1e20", "4096000000", "nan", "inf", "-inf"},
      [](const std::string& in) { return " " + detail::Number(std::strtod(in.c_str(), nullptr)); });
  testing::ExpectGolden("format_text.txt", out);
}

}  // namespace
}  // namespace zefo::format
