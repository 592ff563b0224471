// The formatters over a whole simulated board: golden outputs, JSON that parses back, the two
// expositions agreeing, and the report matching the library's own.
#include <gtest/gtest.h>

#include <chrono>
#include <cmath>
#include <cstring>
#include <nlohmann/json.hpp>
#include <set>
#include <sstream>
#include <thread>

#include "board.h"
#include "format/text.h"
#include "support/golden.h"
#include "zefo/zefo_resource_monitor.h"

namespace zefo::format {
namespace {

using testing::BoardPass;
using testing::FixedOptions;

class BoardFormats : public ::testing::Test {
 protected:
  void SetUp() override { pass = BoardPass(tree); }
  testing::FixtureTree tree;
  Snapshot pass;
};

TEST_F(BoardFormats, GoldenOutputs) {
  ASSERT_EQ(pass.kinds.size(), 8u);
  ASSERT_EQ(pass.cpu.size(), 5u);
  ASSERT_EQ(pass.ddr.size(), 1u) << "the DDR FIFO gave no second sample";
  ASSERT_EQ(pass.process.size(), 3u);
  const FormatOptions options = FixedOptions();
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
  // JSON is one line per pass; the golden file holds it indented, for review.
  const std::string json = FormatPass(pass, Format::kJson, options);
  EXPECT_EQ(json.find('\n'), json.size() - 1);
  testing::ExpectGolden("format_json.txt", nlohmann::ordered_json::parse(json).dump(2) + "\n");
}

// The two expositions are one set of samples with different metadata.
TEST_F(BoardFormats, ExpositionsAgreeOnSamplesAndDifferInMetadata) {
  const std::string om = FormatOpenMetrics(pass, FixedOptions());
  const std::string prom = FormatPrometheus(pass, FixedOptions());
  std::vector<std::string> om_samples, prom_samples;
  std::set<std::string> typed;  // families with a TYPE line so far
  std::istringstream om_lines(om);
  for (std::string line; std::getline(om_lines, line);) {
    if (line.rfind("# TYPE ", 0) == 0) {
      typed.insert(line.substr(7, line.find(' ', 7) - 7));
    } else if (line.rfind("# UNIT ", 0) == 0) {
      const std::string family = line.substr(7, line.find(' ', 7) - 7);
      const std::string unit = line.substr(line.rfind(' ') + 1);
      EXPECT_EQ(family.substr(family.size() - unit.size() - 1), "_" + unit) << line;
      EXPECT_TRUE(typed.count(family)) << line;
    } else if (line[0] != '#') {
      om_samples.push_back(line);
      std::string name = line.substr(0, line.find_first_of("{ "));
      for (const char* suffix : {"_total", "_info"}) {
        if (!typed.count(name) && name.size() > std::strlen(suffix) &&
            name.compare(name.size() - std::strlen(suffix), std::string::npos, suffix) == 0) {
          name.resize(name.size() - std::strlen(suffix));
        }
      }
      EXPECT_TRUE(typed.count(name)) << "no TYPE before " << line;
    }
  }
  ASSERT_GE(om.size(), 6u);
  EXPECT_EQ(om.substr(om.size() - 6), "# EOF\n");
  std::istringstream prom_lines(prom);
  for (std::string line; std::getline(prom_lines, line);) {
    EXPECT_NE(line.rfind("# UNIT", 0), 0u) << line;
    EXPECT_NE(line, "# EOF");
    if (line[0] != '#') prom_samples.push_back(line);
  }
  EXPECT_EQ(om_samples, prom_samples);
  EXPECT_GT(om_samples.size(), 100u);
}

TEST(FormatTest, FirstPassHasOnlyTheTime) {
  Snapshot pass;
  pass.update_time = testing::kBoardUpdateTime;
  for (int type = Cpu; type <= ProcInfo; ++type) {
    pass.Add(static_cast<ResourceMonitorType>(type), {});
  }
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

TEST(FormatTextTest, Utf8AndNumbers) {
  const std::pair<std::string, std::string> utf8[] = {
      {"plain", "plain"},
      {"\xC3\xA9t\xC3\xA9", "\xC3\xA9t\xC3\xA9"},                          // two-byte characters
      {"\xE2\x82\xAC \xF0\x9F\x98\x80", "\xE2\x82\xAC \xF0\x9F\x98\x80"},  // three and four
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
  EXPECT_EQ(detail::CutUtf8("abc", 5), "abc");
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
      {0, "0"},        {-0.0, "0"},        {42, "42"},          {0.25, "0.25"},
      {1e20, "1e+20"}, {0.1, "0.1"},       {-1.5, "-1.5"},      {4096000000, "4096000000"},
      {NAN, "NaN"},    {INFINITY, "+Inf"}, {-INFINITY, "-Inf"},
  };
  for (const auto& [value, text] : numbers) EXPECT_EQ(detail::Number(value), text) << value;
}

}  // namespace
}  // namespace zefo::format
