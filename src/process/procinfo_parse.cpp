#include "process/procinfo_parse.h"

#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstring>

#include "core/counter_math.h"
#include "core/lines.h"
#include "core/scan_cursor.h"
#include "zefo/base_monitor.h"

namespace zefo {
namespace detail {

namespace {

static_assert(BaseMonitor::kWordSize == 256, "the word widths in the formats assume 256 bytes");

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

// Whether the lines of `text` need their NUL search (a NUL ends a line for scanf).
ScanCursor::Nul NulIn(std::string_view text) {
  return std::memchr(text.data(), '\0', text.size()) != nullptr ? ScanCursor::kMayHoldNul
                                                                : ScanCursor::kHasNoNul;
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

void ParseProcStat(std::string_view text, ProcInfoState& out) {
  // The steps of the stat format, one by one; the first that fails ends the line, leaving the
  // fields after it as they were. The name and the state start empty, as the zeroed buffers of
  // the format's targets would.
  constexpr std::size_t kWidth = BaseMonitor::kWordSize - 1;
  ScanCursor c(FirstLine(text));
  std::string_view name;
  std::string_view state;
  [&] {
    // "%lld (%255[^)]) %255s"
    if (!c.Number(out.pid)) return;
    c.SkipSpace();
    if (!c.Literal('(') || !c.Until(')', kWidth, name) || !c.Literal(')')) return;
    if (!c.Word(kWidth, state)) return;
    // " %lld" for fields 4 to 15
    for (long long* field :
         {&out.ppid, &out.pgrp, &out.sid, &out.tty_nr, &out.tpgid, &out.flags, &out.minflt,
          &out.cminflt, &out.majflt, &out.cmajflt, &out.utime, &out.stime}) {
      if (!c.Number(*field)) return;
    }
    // " %*lld" six times, " %lld" for field 22
    for (int i = 16; i <= 21; ++i) {
      if (!c.SkipNumber()) return;
    }
    if (!c.Number(out.start_time)) return;
    // " %*lld" sixteen times, " %d" for field 39, " %*lld %*lld", " %lld" for field 42
    for (int i = 23; i <= 38; ++i) {
      if (!c.SkipNumber()) return;
    }
    if (!c.Int(out.processor) || !c.SkipNumber() || !c.SkipNumber()) return;
    c.Number(out.blkio_ticks);
  }();
  out.name.assign(name);
  out.state.assign(state);
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
void ParseStatm(std::string_view text, ProcInfoStatm& out) {
  // "%lld %lld %lld %lld %lld %lld %lld", stopping at the first that fails.
  ScanCursor c(FirstLine(text));
  for (long long* field :
       {&out.size, &out.resident, &out.shared, &out.text, &out.lib, &out.data, &out.dt}) {
    if (!c.Number(*field)) return;
  }
}

namespace {

// Whether `word` is its first `at` bytes, then `name`, then a colon. Fixed lengths, so the
// comparison compiles to a few integer compares.
template <std::size_t N>
bool NameAt(std::string_view word, std::size_t at, const char (&name)[N]) {
  return word.size() == at + N && std::memcmp(word.data() + at, name, N - 1) == 0;
}

// The status field a first word names ("VmRSS:" gives VmRSS), or null. Every key is "Vm" or "Rss"
// followed by a short name and a colon.
long long ProcInfoState::*StatusField(std::string_view word) {
  if (word.size() < 6 || word.size() > 9 || word.back() != ':') return nullptr;
  if (word[0] == 'V' && word[1] == 'm') {
    if (NameAt(word, 2, "Lck")) return &ProcInfoState::VmLck;
    if (NameAt(word, 2, "Pin")) return &ProcInfoState::VmPin;
    if (NameAt(word, 2, "HWM")) return &ProcInfoState::VmHWM;
    if (NameAt(word, 2, "RSS")) return &ProcInfoState::VmRSS;
    if (NameAt(word, 2, "Stk")) return &ProcInfoState::VmStk;
    if (NameAt(word, 2, "Exe")) return &ProcInfoState::VmExe;
    if (NameAt(word, 2, "Lib")) return &ProcInfoState::VmLib;
    if (NameAt(word, 2, "PTE")) return &ProcInfoState::VmPTE;
    if (NameAt(word, 2, "Peak")) return &ProcInfoState::VmPeak;
    if (NameAt(word, 2, "Size")) return &ProcInfoState::VmSize;
    if (NameAt(word, 2, "Data")) return &ProcInfoState::VmData;
    if (NameAt(word, 2, "Swap")) return &ProcInfoState::VmSwap;
  } else if (word[0] == 'R' && word[1] == 's' && word[2] == 's') {
    if (NameAt(word, 3, "Anon")) return &ProcInfoState::RssAnon;
    if (NameAt(word, 3, "File")) return &ProcInfoState::RssFile;
    if (NameAt(word, 3, "Shmem")) return &ProcInfoState::RssShmem;
  }
  return nullptr;
}

}  // namespace

// "VmRSS:	    1640 kB"
//  key         number unit
void ParseStatus(std::string_view text, ProcInfoState& out) {
  constexpr std::size_t kWidth = BaseMonitor::kWordSize - 1;
  const ScanCursor::Nul nul = NulIn(text);
  // One unit for the whole file: a line without a unit word keeps the last one read. It points
  // into `text`, which outlives the loop.
  std::string_view unit;
  LineWalker lines(text);
  while (lines.Next()) {
    // Every key starts "Vm" or "Rss"; most status lines are rejected on their first byte.
    const std::string_view line = lines.View();
    const char lead = line.empty() ? '\0' : line[0];
    if (lead != 'V' && lead != 'R' && !ScanCursor::IsSpace(lead)) continue;
    ScanCursor c(line, nul);
    std::string_view word;
    if (!c.Word(kWidth, word)) continue;
    long long ProcInfoState::*const key = StatusField(word);
    if (key == nullptr) continue;
    // "%*s %lld %255s", then the number scaled by the unit (even when it was not read). A key is
    // short, so "%*s" stops where the word above did; the cursor goes on from there.
    long long& field = out.*key;
    std::string_view word_unit;
    if (c.Number(field) && c.Word(kWidth, word_unit)) unit = word_unit;
    field = WrappingMul(field, UnitMultiplier(unit));
  }
}

// "read_bytes: 4096"
//  key         value
void ParseIo(std::string_view text, ProcInfoState& out) {
  struct Key {
    std::string_view word;
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
  const ScanCursor::Nul nul = NulIn(text);
  LineWalker lines(text);
  while (lines.Next()) {
    // "%255s %lld": a key line whose number does not read stores 0.
    ScanCursor c(lines.View(), nul);
    std::string_view word;
    if (!c.Word(BaseMonitor::kWordSize - 1, word)) continue;
    for (const Key& key : kKeys) {
      if (word == key.word) {
        long long value = 0;
        c.Number(value);
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
void ParseNetDev(std::string_view text, std::map<std::string, ProcInfoNetState>& out) {
  LineWalker lines(text);
  if (!lines.Next() || !lines.Next()) return;  // the two header lines
  while (lines.Next()) {
    char name[BaseMonitor::kWordSize] = {};
    long long rx = 0, tx = 0;  // what %lld stores into, whatever width int64_t has here
    std::sscanf(lines.CStr(), "%255s %lld %*d %*d %*d %*d %*d %*d %*d %lld", name, &rx, &tx);
    ProcInfoNetState record;
    record.name = name;
    record.rx_bytes = rx;
    record.tx_bytes = tx;
    out[record.name] = std::move(record);
  }
}

// "cpu  2684811 115236 1094082 54162041 10674 0 890071 0 0 0"
//  name user    nice   system  idle     iowait irq softirq steal guest guest_nice
// "cpu0 1342405 57618 547041 27081020 5337 0 445035 0 0 0"
bool ParseCpuTotal(std::string_view text, ProcInfoCpuState& out) {
  if (text.empty()) return false;
  const ScanCursor::Nul nul = NulIn(text);
  LineWalker lines(text);
  lines.Next();
  if (FirstWord(lines.View()).substr(0, 3) != "cpu") return false;
  // As "%255s" and ten "%lld" would read it, stopping at the first that fails.
  long long counters[10] = {};
  ScanCursor first(lines.View(), nul);
  std::string_view word;
  if (first.Word(BaseMonitor::kWordSize - 1, word)) {
    for (long long& counter : counters) {
      if (!first.Number(counter)) break;
    }
  }
  // "cpu%d" on every line, the aggregate one included: on "cpu  2684811 ..." it takes the first
  // counter, and each per-core line after it overwrites the value with its number. The last
  // per-core number plus one is the core count, except that a lone "cpu0" gives 0.
  int cores = 0;
  LineWalker all(text);
  while (all.Next()) {
    ScanCursor c(all.View(), nul);
    if (c.Literal('c') && c.Literal('p') && c.Literal('u')) c.Int(cores);
  }
  // A number as large as INT_MAX (no kernel has that many CPUs, but the line can say so) stays
  // there rather than overflowing.
  if (cores > 0 && cores < INT_MAX) cores += 1;
  out.cores = cores;
  long long total = 0;
  for (long long counter : counters) total = WrappingAdd(total, counter);
  out.total = total;
  return true;
}

// "350.25 1201.50"
//  uptime idle   (seconds)
bool ParseUptime(std::string_view text, ProcInfoUptimeState& out) {
  if (text.empty()) return false;
  const std::string line(FirstLine(text));
  std::sscanf(line.c_str(), "%lf %lf", &out.uptime, &out.idle);
  return true;
}

}  // namespace detail
}  // namespace zefo
