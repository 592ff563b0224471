// The hand-written per-process parsers against sscanf with the monitor's own formats: the same
// targets, field by field, on kernel text and on odd lines (the fuzzers in fuzz/ mutate further).
#include <gtest/gtest.h>

#include <climits>
#include <cstdint>
#include <cstdio>
#include <list>
#include <string>
#include <tuple>
#include <vector>

#include "core/file_reader.h"
#include "core/scan_cursor.h"
#include "process/procinfo_parse.h"
#include "support/proc_sscanf_reference.h"
#include "zefo/procinfo_monitor.h"

namespace zefo {
namespace {

using namespace std::string_literals;

using reference::SscanfCpuTotal;
using reference::SscanfIo;
using reference::SscanfStat;
using reference::SscanfStatm;
using reference::SscanfStatus;

// Runs both parsers of one kind over `text` from the same start and compares everything.
void ExpectSame(std::string_view text) {
  ProcInfoState fast = reference::Marked();
  ProcInfoState slow = reference::Marked();
  detail::ParseProcStat(text, fast);
  SscanfStat(text, slow);
  detail::ParseStatm(text, fast.statm);
  SscanfStatm(text, slow.statm);
  detail::ParseStatus(text, fast);
  SscanfStatus(text, slow);
  detail::ParseIo(text, fast);
  SscanfIo(text, slow);
  fast.cpu = slow.cpu = ProcInfoCpuState{-1, -1};
  const bool fast_cpu = detail::ParseCpuTotal(text, fast.cpu);
  const bool slow_cpu = SscanfCpuTotal(text, slow.cpu);
  const std::string shown = testing::PrintToString(std::string(text));
  ASSERT_EQ(fast_cpu, slow_cpu) << shown;
  ASSERT_EQ(fast.cpu.total, slow.cpu.total) << shown;
  ASSERT_EQ(fast.cpu.cores, slow.cpu.cores) << shown;
  ASSERT_TRUE(reference::SameNumbers(fast, slow)) << shown;
  const auto statm = [](const ProcInfoStatm& m) {
    return std::make_tuple(m.size, m.resident, m.shared, m.text, m.lib, m.data, m.dt);
  };
  ASSERT_EQ(statm(fast.statm), statm(slow.statm)) << shown;
  ASSERT_EQ(fast.name, slow.name) << shown;
  ASSERT_EQ(fast.state, slow.state) << shown;
}

const std::string kStat =
    "1234 (my proc) S 1 1234 1234 34816 1234 4194560 150 0 0 0 350 120 0 0 20 0 1 0 5000 "
    "5869568 410 18446744073709551615 94 95 140 0 0 0 65536 4 0 0 0 17 3 0 0 7 0 0 96 97 98 99 "
    "100 101 0\n";
const std::string kStatus =
    "Name:\tcat\nUmask:\t0022\nState:\tR (running)\nVmPeak:\t    3060 kB\nVmSize:\t    3060 kB\n"
    "VmLck:\t       0 kB\nVmPin:\t       0 kB\nVmHWM:\t    1640 kB\nVmRSS:\t    1640 kB\n"
    "RssAnon:\t     112 kB\nRssFile:\t    1528 kB\nRssShmem:\t       0 kB\nVmData:\t     360 kB\n"
    "VmStk:\t     132 kB\nVmExe:\t      20 kB\nVmLib:\t    1528 kB\nVmPTE:\t      44 kB\n"
    "VmSwap:\t       0 kB\nThreads:\t1\n";
const std::string kIo =
    "rchar: 4185\nwchar: 0\nsyscr: 10\nsyscw: 0\nread_bytes: 4096\nwrite_bytes: 8192\n"
    "cancelled_write_bytes: 100\n";
const std::string kStatm = "2795 410 343 39 0 161 0\n";
const std::string kProcStat =
    "cpu  2684811 115236 1094082 54162041 10674 0 890071 0 0 0\ncpu0 1 2 3 4 5 6 7 8 9 10\n"
    "cpu1 1 2 3 4 5 6 7 8 9 10\nintr 175064416 9 0 0\nctxt 338452716\n";

TEST(ProcInfoScan, OddLinesMatchSscanf) {
  const std::string cases[] = {
      kStat,
      kStatus,
      kIo,
      kStatm,
      kProcStat,
      "",
      // the machine's stat file: short, signed and huge counters, per-core lines out of order
      "cpu 1 2\ncpu7 1\ncpu3\n",
      "cpu  -1 +2 99999999999999999999 4\n",
      "cpux 5\ncpu -3\n",
      "cpu\n",
      " cpu 5 6\ncpu 2147483648\n",
      "intr 1\ncpu 1\n",
      // command names with blanks and parentheses; ")" ends the name where scanf ends it
      "7 (a b) R 1 2 3",
      "7 (a) b) R 1 2 3",
      "7 (()) R 1",
      "7 () R 1",
      "7 ( ) R 1",
      "7 (x",
      "7 x) R",
      "7(x) R 5",
      "7 (x)R 5",
      " \t7 (x) R 5",
      "7 (x) " + std::string(300, 'S') + " 1",
      "7 (" + std::string(255, 'n') + ") R 9",
      "7 (" + std::string(256, 'n') + ") R 9",
      // numbers: signs, huge, truncated, glued to letters
      "-7 (x) R -1 +2 - 3",
      "+ (x) R",
      "99999999999999999999 (x) R 9223372036854775807 "
      "9223372036854775808 -9223372036854775808 -9223372036854775809 000000000000000000000012",
      "7 (x) R 1 2 3 4 5 6 7 8 9 10 11 12 13 14 15 16 17 18 19 20 21 22 23 24 25 26 27 28 29 30 "
      "31 32 33 34 35 36 99999999999999999999 -9999999999 2147483648 40 41 42",
      "7 (x) R 1 2x 3",
      "7 (x) R 1\v2\f3\r4",
      "7 (x) R 1 2 3\0 4 5"s,
      "7 (x\0y) R 1"s,
      // status and io oddities: missing numbers and units, duplicates, blanks, NULs
      "VmRSS:\nVmRSS: 5\nVmRSS: 5 kB\nVmSwap: 3\n",
      "VmRSS:\t 2 MB\n\n  VmSize: 4 GB\nVmHWM:3 kB\n",
      "VmRSS: -5 kB\nVmRSS: 99999999999999999999 kB\nRssShmem: 1 KB\nVmRSS:x 1 kB\n",
      "VmRSS: 1 kB\0junk\nVmSize: 2\0 MB\n\0VmLck: 3 kB\n"s,
      "VmRSS: 7 " + std::string(300, 'k'),
      "rchar:\nwchar: x\nsyscr: -4\nread_bytes:9\n  write_bytes: 8\nrchar: 1\nrchar: 2\n",
      "read_bytes: 99999999999999999999\ncancelled_write_bytes:\n" + std::string(300, 'r') + " 5\n",
      "\n\n\n",
      "\t \n",
      "\0"s,
      "\0\n1 (x) R 5"s,
  };
  for (const std::string& text : cases) ExpectSame(text);
}

TEST(ScanCursor, NumbersClampAsStrtollAndIntTruncatesAsGlibc) {
  struct Case {
    std::string text;
    bool ok;
    long long value;
  };
  const Case cases[] = {
      {"  42 rest", true, 42},
      {"-0", true, 0},
      {"+17", true, 17},
      {"9223372036854775807", true, LLONG_MAX},
      {"9223372036854775808", true, LLONG_MAX},
      {"-9223372036854775808", true, LLONG_MIN},
      {"-99999999999999999999999", true, LLONG_MIN},
      {"", false, -1},
      {"-", false, -1},
      {"x1", false, -1},
      {"\0"
       "1"s,
       false, -1},
  };
  for (const Case& c : cases) {
    long long value = -1;
    detail::ScanCursor cursor(c.text);
    EXPECT_EQ(cursor.Number(value), c.ok) << c.text;
    EXPECT_EQ(value, c.value) << c.text;
  }
  for (const char* text : {"2147483648", "-2147483649", "4294967297", "99999999999999999999"}) {
    int fast = 5;
    int slow = 5;
    detail::ScanCursor cursor(text);
    cursor.Int(fast);
    std::sscanf(text, "%d", &slow);
    EXPECT_EQ(fast, slow) << text;
  }
}

}  // namespace
}  // namespace zefo
