#include "process/procinfo_parse.h"

#include <cstdint>
#include <cstdio>
#include <cstring>

#include "zefo/base_monitor.h"

namespace zefo {
namespace detail {

namespace {

static_assert(BaseMonitor::kWordSize == 256, "the word widths in the formats assume 256 bytes");

// Walks a file's text line by line, splitting as a line reader does (no newlines, an empty line
// kept, a last line without a newline kept, nothing after a final newline). sscanf needs C
// strings, so a line is copied into one reused buffer, and only when asked for.
class LineWalker {
 public:
  explicit LineWalker(std::string_view text) : text_(text) {}

  bool Next() {
    if (pos_ >= text_.size()) return false;
    const std::size_t end = text_.find('\n', pos_);
    const std::size_t stop = end == std::string_view::npos ? text_.size() : end;
    line_ = text_.substr(pos_, stop - pos_);
    pos_ = end == std::string_view::npos ? text_.size() : end + 1;
    return true;
  }
  std::string_view View() const { return line_; }
  const char* CStr() {
    buffer_.assign(line_.data(), line_.size());
    return buffer_.c_str();
  }

 private:
  std::string_view text_;
  std::size_t pos_ = 0;
  std::string_view line_;
  std::string buffer_;
};

// The blanks of scanf's "%s" in the C locale.
bool IsBlank(char c) {
  return c == ' ' || c == '\t' || c == '\n' || c == '\v' || c == '\f' || c == '\r';
}

// The word scanf's "%255s" would read from `line`: leading blanks skipped, then up to 255
// non-blank bytes. (A NUL ends the line for scanf, so it ends the word here too.)
std::string_view FirstWord(std::string_view line) {
  std::size_t i = 0;
  while (i < line.size() && IsBlank(line[i])) ++i;
  std::size_t j = i;
  while (j < line.size() && j - i < BaseMonitor::kWordSize - 1 && !IsBlank(line[j]) &&
         line[j] != '\0') {
    ++j;
  }
  return line.substr(i, j - i);
}

// Counter arithmetic that wraps instead of overflowing on nonsense input.
long long WrappingSum(const long long* values, int count) {
  uint64_t sum = 0;
  for (int i = 0; i < count; ++i) sum += static_cast<uint64_t>(values[i]);
  return static_cast<long long>(sum);
}

long long WrappingScale(long long value, uint64_t factor) {
  return static_cast<long long>(static_cast<uint64_t>(value) * factor);
}

// One text is exactly one line: non-empty, and nothing after its first newline.
bool SingleLine(std::string_view text, std::string_view& line) {
  if (text.empty()) return false;
  const std::size_t end = text.find('\n');
  if (end != std::string_view::npos && end + 1 != text.size()) return false;
  line = text.substr(0, end == std::string_view::npos ? text.size() : end);
  return true;
}

}  // namespace

ProcInfoFormats MakeProcInfoFormats() {
  ProcInfoFormats f;
  // "1234 (my proc) S 1 1234 1234 0 -1 4194560 150 0 0 0 350 120 0 0 20 0 1 0 5000 ..."
  //  pid  comm      state ppid pgrp sid tty_nr tpgid flags minflt cminflt majflt cmajflt
  //  utime stime | cutime cstime priority nice num_threads itrealvalue | starttime (22) | ...
  //  processor (39) rt_priority policy delayacct_blkio_ticks (42)
  // Fields 1 to 15 are converted, 16 to 21 skipped, 22 converted, 23 to 38 skipped, 39 converted,
  // 40 and 41 skipped, 42 converted. The command name and the state go into 256-byte buffers,
  // hence "%255[^)]" and "%255s" rather than the unbounded "%[^)]" and "%s"; likewise for every
  // word below.
  f.stat = "%lld (%255[^)]) %255s %lld %lld %lld %lld %lld %lld %lld %lld %lld %lld %lld %lld";
  for (int i = 0; i < 6; ++i) f.stat += " %*lld";
  f.stat += " %lld";
  for (int i = 0; i < 16; ++i) f.stat += " %*lld";
  f.stat += " %d %*lld %*lld %lld";
  f.cpu = "%255s %lld %lld %lld %lld %lld %lld %lld %lld %lld %lld";
  f.uptime = "%lf %lf";
  f.statm = "%lld %lld %lld %lld %lld %lld %lld";
  f.status = "%*s %lld %255s";
  f.io = "%255s %lld";
  f.net = "%255s %lld %*lld %*lld %*lld %*lld %*lld %*lld %*lld %lld";
  return f;
}

std::string_view FirstLine(std::string_view text) {
  return text.substr(0, text.find('\n'));
}

void ParseProcStat(std::string_view text, const std::string& format, ProcInfoState& out) {
  const std::string line(FirstLine(text));
  char name[BaseMonitor::kWordSize] = {};
  char state[BaseMonitor::kWordSize] = {};
  std::sscanf(line.c_str(), format.c_str(), &out.pid, name, state, &out.ppid, &out.pgrp, &out.sid,
              &out.tty_nr, &out.tpgid, &out.flags, &out.minflt, &out.cminflt, &out.majflt,
              &out.cmajflt, &out.utime, &out.stime, &out.start_time, &out.processor,
              &out.blkio_ticks);
  out.name = name;
  out.state = state;
}

// "/usr/bin/app\0--flag\0value\0" -> "/usr/bin/app --flag value\0"
void ParseCmdLine(std::string_view text, std::string& out) {
  out.assign(FirstLine(text));
  for (char& c : out) {
    if (c == '\0' || c == '\n') c = ' ';
  }
  if (!out.empty()) out.back() = '\0';
}

bool RegisteredPidMatches(std::string_view pid_text, std::string_view pid) {
  std::string_view line;
  return SingleLine(pid_text, line) && line == pid;
}

// <regdir>/<pid>/name: "camera\n"    <regdir>/<pid>/pid: "1234\n"
void ParseRegistration(std::string_view name_text, std::string_view pid_text, std::string_view pid,
                       std::string& zefo_name) {
  std::string_view name;
  if (!SingleLine(name_text, name) || !RegisteredPidMatches(pid_text, pid)) return;
  zefo_name.assign(name);
}

// "2795 410 343 39 0 161 0"
//  size resident shared text lib data dt   (pages)
void ParseStatm(std::string_view text, const std::string& format, ProcInfoStatm& out) {
  const std::string line(FirstLine(text));
  std::sscanf(line.c_str(), format.c_str(), &out.size, &out.resident, &out.shared, &out.text,
              &out.lib, &out.data, &out.dt);
}

// "VmRSS:	    1640 kB"
//  key         number unit
void ParseStatus(std::string_view text, const std::string& format, ProcInfoState& out) {
  struct Key {
    std::string_view word;
    long long ProcInfoState::*field;
  };
  static constexpr Key kKeys[] = {
      {"VmPeak:", &ProcInfoState::VmPeak},     {"VmSize:", &ProcInfoState::VmSize},
      {"VmLck:", &ProcInfoState::VmLck},       {"VmPin:", &ProcInfoState::VmPin},
      {"VmHWM:", &ProcInfoState::VmHWM},       {"VmRSS:", &ProcInfoState::VmRSS},
      {"RssAnon:", &ProcInfoState::RssAnon},   {"RssFile:", &ProcInfoState::RssFile},
      {"RssShmem:", &ProcInfoState::RssShmem}, {"VmData:", &ProcInfoState::VmData},
      {"VmStk:", &ProcInfoState::VmStk},       {"VmExe:", &ProcInfoState::VmExe},
      {"VmLib:", &ProcInfoState::VmLib},       {"VmPTE:", &ProcInfoState::VmPTE},
      {"VmSwap:", &ProcInfoState::VmSwap},
  };
  // One unit buffer for the whole file: a line without a unit word keeps the last one read.
  char unit[BaseMonitor::kWordSize] = {};
  LineWalker lines(text);
  while (lines.Next()) {
    // Every key starts "Vm" or "Rss"; most status lines are rejected on their first byte.
    const std::string_view line = lines.View();
    const char lead = line.empty() ? '\0' : line[0];
    if (lead != 'V' && lead != 'R' && !IsBlank(lead)) continue;
    const std::string_view word = FirstWord(line);
    for (const Key& key : kKeys) {
      if (word != key.word) continue;
      long long& field = out.*key.field;
      std::sscanf(lines.CStr(), format.c_str(), &field, unit);
      field = WrappingScale(field, BaseMonitor::UnitToBytes(unit));
      break;
    }
  }
}

// "read_bytes: 4096"
//  key         value
void ParseIo(std::string_view text, const std::string& format, ProcInfoState& out) {
  struct Key {
    const char* word;
    long long ProcInfoState::*field;
  };
  static constexpr Key kKeys[] = {
      {"rchar:", &ProcInfoState::rchar},
      {"wchar:", &ProcInfoState::wchar},
      {"syscr:", &ProcInfoState::syscr},
      {"syscw:", &ProcInfoState::syscw},
      {"read_bytes:", &ProcInfoState::read_bytes},
      {"write_bytes:", &ProcInfoState::write_bytes},
      {"cancelled_write_bytes:", &ProcInfoState::cancelled_write_bytes},
  };
  LineWalker lines(text);
  while (lines.Next()) {
    char word[BaseMonitor::kWordSize] = {};
    long long value = 0;
    std::sscanf(lines.CStr(), format.c_str(), word, &value);
    for (const Key& key : kKeys) {
      if (std::strcmp(word, key.word) == 0) {
        out.*key.field = value;
        break;
      }
    }
  }
}

// "Inter-|   Receive                                                |  Transmit"
// " face |bytes    packets errs drop fifo frame compressed multicast|bytes    packets ..."
// "  eth0: 1024      8    0    0    0     0          0         0     2048     16 ..."
//   name   rx_bytes  (seven skipped)                                 tx_bytes
void ParseNetDev(std::string_view text, const std::string& format,
                 std::map<std::string, ProcInfoNetState>& out) {
  LineWalker lines(text);
  if (!lines.Next() || !lines.Next()) return;  // the two header lines
  while (lines.Next()) {
    char name[BaseMonitor::kWordSize] = {};
    ProcInfoNetState record;
    std::sscanf(lines.CStr(), format.c_str(), name, &record.rx_bytes, &record.tx_bytes);
    record.name = name;
    out[record.name] = std::move(record);
  }
}

// "cpu  2684811 115236 1094082 54162041 10674 0 890071 0 0 0"
//  name user    nice   system  idle     iowait irq softirq steal guest guest_nice
// "cpu0 1342405 57618 547041 27081020 5337 0 445035 0 0 0"
bool ParseCpuTotal(std::string_view text, const std::string& format, ProcInfoCpuState& out) {
  if (text.empty()) return false;
  LineWalker lines(text);
  lines.Next();
  if (FirstWord(lines.View()).substr(0, 3) != "cpu") return false;
  char word[BaseMonitor::kWordSize] = {};
  long long counters[10] = {};
  std::sscanf(lines.CStr(), format.c_str(), word, &counters[0], &counters[1], &counters[2],
              &counters[3], &counters[4], &counters[5], &counters[6], &counters[7], &counters[8],
              &counters[9]);
  // "cpu%d" on every line, the aggregate one included: on "cpu  2684811 ..." it takes the first
  // counter, and each per-core line after it overwrites the value with its number. The last
  // per-core number plus one is the core count, except that a lone "cpu0" gives 0.
  int cores = 0;
  LineWalker all(text);
  while (all.Next()) {
    if (all.View().substr(0, 3) != "cpu") continue;  // "cpu%d" cannot match such a line
    std::sscanf(all.CStr(), "cpu%d", &cores);
  }
  if (cores > 0) cores += 1;
  out.cores = cores;
  out.total = WrappingSum(counters, 10);
  return true;
}

// "350.25 1201.50"
//  uptime idle   (seconds)
bool ParseUptime(std::string_view text, const std::string& format, ProcInfoUptimeState& out) {
  if (text.empty()) return false;
  const std::string line(FirstLine(text));
  std::sscanf(line.c_str(), format.c_str(), &out.uptime, &out.idle);
  return true;
}

}  // namespace detail
}  // namespace zefo
