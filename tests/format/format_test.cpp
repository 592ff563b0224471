// Every output format over the fixture board, as golden files (ZEFO_UPDATE_GOLDEN=1 rewrites
// them); the two expositions agreeing; the report of a copy matching the library's own.
#include <chrono>
#include <cmath>
#include <nlohmann/json.hpp>
#include <sstream>
#include <thread>

#include <gtest/gtest.h>

#include "format/text.h"
#include "support/board.h"
#include "support/golden.h"
#include "zefo/zefo_resource_monitor.h"

namespace zefo::format {
namespace {

using testing::FixedOptions;

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
  const std::string om = FormatPass(pass, Format::kOpenMetrics, options);
  const std::string prom = FormatPass(pass, Format::kPrometheus, options);
  testing::ExpectGolden("format_openmetrics.txt", om);
  testing::ExpectGolden("format_prometheus.txt", prom);
  // JSON is one line per pass; the golden file holds it indented, for review.
  const std::string json = FormatPass(pass, Format::kJson, options);
  EXPECT_EQ(json.find('\n'), json.size() - 1);
  testing::ExpectGolden("format_json.txt", nlohmann::ordered_json::parse(json).dump(2) + "\n");

  // The expositions carry one set of samples and differ only in metadata.
  const auto samples = [](const std::string& text) {
    std::vector<std::string> kept;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
      if (line[0] != '#') kept.push_back(line);
    }
    return kept;
  };
  EXPECT_EQ(samples(om), samples(prom));
}

TEST(FormatTest, FirstPassHasOnlyTheTime) {
  Snapshot pass;
  pass.update_time = testing::kBoardUpdateTime;
  for (int type = Cpu; type <= ProcInfo; ++type)
    pass.Add(static_cast<ResourceMonitorType>(type), {});
  EXPECT_EQ(FormatLine(pass, FixedOptions()), "18:51:02\n");
  EXPECT_EQ(FormatPrometheus(pass),
            "# HELP zefo_update_time_seconds End of the sampling pass, in seconds since the Unix "
            "epoch.\n# TYPE zefo_update_time_seconds gauge\nzefo_update_time_seconds "
            "1714589462\n");
  std::string report = "update time: 1714589462000\n";
  for (int kind = 0; kind < 8; ++kind) report += "--------------------\n";
  EXPECT_EQ(FormatReport(pass), report + "\n");
}

// The report made from a copy is byte for byte the library's own report of the same pass.
TEST(FormatTest, ReportMatchesTheLibrarysReportOfTheSamePass) {
  ZefoResourceMonitorApi monitor(100);
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

TEST(FormatTest, Utf8AndNumbers) {
  const std::pair<std::string, std::string> utf8[] = {
      {"\xC3\xA9t\xE2\x82\xAC \xF0\x9F\x98\x80", "\xC3\xA9t\xE2\x82\xAC \xF0\x9F\x98\x80"},
      {"a\xFF"
       "b",
       "a\xEF\xBF\xBD"
       "b"},                                                     // never valid
      {"\xC0\xAF", "\xEF\xBF\xBD\xEF\xBF\xBD"},                  // overlong '/'
      {"\xED\xA0\x80", "\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD"},  // a surrogate
      {"cut\xE2\x82", "cut\xEF\xBF\xBD\xEF\xBF\xBD"},            // truncated at the end
      {std::string("nul\0", 4), std::string("nul\0", 4)},
  };
  for (const auto& [in, out] : utf8) EXPECT_EQ(detail::ValidUtf8(in), out) << in;
  EXPECT_EQ(detail::CutUtf8("\xC3\xA9\xC3\xA9", 3), "\xC3\xA9");
  EXPECT_EQ(detail::CutUtf8("ab\x80\x80\x80\x80\x80", 6), "ab\x80\x80\x80\x80");  // not UTF-8

  // What a terminal is shown: nothing it would take as a command, nothing ambiguous.
  const std::pair<std::string, std::string> terminal[] = {
      {"\x1b[2J\x1b]0;owned\x07", "\\x1b[2J\\x1b]0;owned\\x07"},
      {std::string("cr\rnul\0tab\tdel\x7f", 15), "cr\\x0dnul\\x00tab\\x09del\\x7f"},
      {"csi\xC2\x9B"
       "1m raw\x9B"
       "1m",
       "csi\\u009b1m raw\\x9b1m"},  // C1 as UTF-8 and raw
      {"\xC2\xA0\xC3\xA9\xE2\x82\xAC \\x1b", "\xC2\xA0\xC3\xA9\xE2\x82\xAC \\\\x1b"},
      {"two\nlines\n", "two\nlines\n"},
  };
  for (const auto& [in, out] : terminal) EXPECT_EQ(EscapeForTerminal(in), out) << in;
  EXPECT_EQ(detail::EscapeControls("a\nb", false), "a\\x0ab");

  const std::pair<double, std::string> numbers[] = {
      {-0.0, "0"},  {0.25, "0.25"},     {1e20, "1e+20"},     {4096000000, "4096000000"},
      {NAN, "NaN"}, {INFINITY, "+Inf"}, {-INFINITY, "-Inf"},
  };
  for (const auto& [value, text] : numbers) EXPECT_EQ(detail::Number(value), text) << value;
}

}  // namespace
}  // namespace zefo::format
