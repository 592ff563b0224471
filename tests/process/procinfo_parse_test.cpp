// The process monitor's text parsers, over inline kernel text.
#include <gtest/gtest.h>

#include <string>

#include "process/procinfo_parse.h"

namespace zefo::detail {
namespace {

using namespace std::string_literals;

const ProcInfoFormats& Formats() {
  static const ProcInfoFormats formats = MakeProcInfoFormats();
  return formats;
}

TEST(ProcInfoParse, StatLineWithBlankInName) {
  // Fields 16..21 are 0, 23..38 are 0, 40 and 41 are 0; the rest are chosen to show.
  const std::string line =
      "1234 (my proc) S 1 1234 1234 0 -1 4194560 11 12 13 14 350 120 0 0 20 0 1 0 5000"s +
      " 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 3 0 0 7 0 0\n";
  ProcInfoState s;
  ParseProcStat(line, Formats().stat, s);
  EXPECT_EQ(s.pid, 1234);
  EXPECT_EQ(s.name, "my proc");
  EXPECT_EQ(s.state, "S");
  EXPECT_EQ(s.ppid, 1);
  EXPECT_EQ(s.tpgid, -1);
  EXPECT_EQ(s.cmajflt, 14);
  EXPECT_EQ(s.utime, 350);
  EXPECT_EQ(s.stime, 120);
  EXPECT_EQ(s.start_time, 5000);
  EXPECT_EQ(s.processor, 3);
  EXPECT_EQ(s.blkio_ticks, 7);

  // An overlong name is cut at the buffer; a short line leaves the later fields alone.
  ProcInfoState t;
  t.blkio_ticks = 9;
  ParseProcStat("5 (" + std::string(400, 'n') + ") R 1", Formats().stat, t);
  EXPECT_EQ(t.name.size(), 255u);
  EXPECT_EQ(t.blkio_ticks, 9);
}

TEST(ProcInfoParse, CmdLineBlanksSeparatorsAndEndsInNul) {
  const struct {
    std::string text, expected;
  } cases[] = {
      {"a\0b\0"s, "a b\0"s},
      {"", ""},
      {"sleep\0"
       "10"s,
       "sleep 1\0"s},                   // no trailing NUL: the last byte is still replaced
      {"a\0b\0\nsecond\0"s, "a b\0"s},  // only the first line counts
  };
  for (const auto& c : cases) {
    std::string out = "stale";
    ParseCmdLine(c.text, out);
    EXPECT_EQ(out, c.expected);
  }
}

TEST(ProcInfoParse, RegistrationMatchesByteForByte) {
  const struct {
    std::string name, pid;
    bool match;
  } cases[] = {
      {"camera\n", "1234\n", true},    {"camera", "1234", true},
      {"camera\n", "1234 \n", false},  {"camera\n", " 1234\n", false},
      {"camera\n", "12345\n", false},  {"camera\nx\n", "1234\n", false},
      {"camera\n", "1234\n\n", false}, {"", "1234\n", false},
      {"camera\n", "", false},
  };
  for (const auto& c : cases) {
    std::string out;
    ParseRegistration(c.name, c.pid, "1234", out);
    EXPECT_EQ(out, c.match ? "camera" : "") << c.name << "|" << c.pid;
  }
}

TEST(ProcInfoParse, StatusScalesByUnit) {
  const std::string text =
      "Name:\tcat\nVmPeak:\t       1 MB\nVmRSS:\t    2048 kB\nVmSwap:\t       3\n"
      "VmLckX:\t      5 kB\nRssFile:\t 7 B\nThreads:\t1\n";
  ProcInfoState s;
  ParseStatus(text, Formats().status, s);
  EXPECT_EQ(s.VmPeak, 1048576);
  EXPECT_EQ(s.VmRSS, 2048 * 1024);
  EXPECT_EQ(s.VmSwap, 3 * 1024);  // no unit word: the last one read still applies
  EXPECT_EQ(s.VmLck, 0);
  EXPECT_EQ(s.RssFile, 7);
  EXPECT_EQ(s.VmSize, 0);
}

TEST(ProcInfoParse, IoKeys) {
  ProcInfoState s;
  ParseIo(
      "rchar: 10\nwchar: 20\nsyscr: 3\nsyscw: 4\nread_bytes: 4096\nwrite_bytes: 8192\n"
      "cancelled_write_bytes: 100\nbogus: 5\n",
      Formats().io, s);
  EXPECT_EQ(s.rchar, 10);
  EXPECT_EQ(s.wchar, 20);
  EXPECT_EQ(s.syscr, 3);
  EXPECT_EQ(s.syscw, 4);
  EXPECT_EQ(s.read_bytes, 4096);
  EXPECT_EQ(s.write_bytes, 8192);
  EXPECT_EQ(s.cancelled_write_bytes, 100);
}

TEST(ProcInfoParse, NetDev) {
  const std::string header =
      "Inter-|   Receive                            |  Transmit\n"
      " face |bytes    packets errs drop fifo frame compressed multicast|bytes    packets\n";
  std::map<std::string, ProcInfoNetState> net;
  ParseNetDev(header, Formats().net, net);
  EXPECT_TRUE(net.empty());
  ParseNetDev(header + "    lo: 100 1 0 0 0 0 0 0 200 2 0 0 0 0 0 0\n  eth0: 5 1 0 0 0 0 0 0 9\n",
              Formats().net, net);
  ASSERT_EQ(net.size(), 2u);
  EXPECT_EQ(net["lo:"].rx_bytes, 100);
  EXPECT_EQ(net["lo:"].tx_bytes, 200);
  EXPECT_EQ(net["eth0:"].tx_bytes, 9);
}

TEST(ProcInfoParse, CpuTotalAndCores) {
  const std::string agg = "cpu  10 20 30 40 50 60 70 80 90 100\n";
  const struct {
    std::string text;
    bool ok;
    long long total;
    int cores;
  } cases[] = {
      {agg + "cpu0 1\ncpu1 1\ncpu2 1\ncpu3 1\nintr 5 6\n", true, 550, 4},
      {agg + "cpu0 1\nintr 5\n", true, 550, 0},  // a lone cpu0 reads 0 cores
      {agg, true, 550, 11},                      // no per-core line: the first counter, plus one
      {"intr 1 2\n" + agg, false, -1, -1},
      {"", false, -1, -1},
  };
  for (const auto& c : cases) {
    ProcInfoCpuState out{-1, -1};
    EXPECT_EQ(ParseCpuTotal(c.text, Formats().cpu, out), c.ok) << c.text;
    EXPECT_EQ(out.total, c.total) << c.text;
    EXPECT_EQ(out.cores, c.cores) << c.text;
  }
}

TEST(ProcInfoParse, Uptime) {
  ProcInfoUptimeState u;
  EXPECT_FALSE(ParseUptime("", Formats().uptime, u));
  EXPECT_TRUE(ParseUptime("350.25 1201.50\n", Formats().uptime, u));
  EXPECT_DOUBLE_EQ(u.uptime, 350.25);
  EXPECT_DOUBLE_EQ(u.idle, 1201.50);
}

}  // namespace
}  // namespace zefo::detail
