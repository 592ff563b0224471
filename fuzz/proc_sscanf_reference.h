#ifndef ZEFO_FUZZ_PROC_SSCANF_REFERENCE_H_
#define ZEFO_FUZZ_PROC_SSCANF_REFERENCE_H_

// The process monitor's scanf formats applied with sscanf, line by line: what the hand-written
// scanners of procinfo_parse.h must equal, field for field, on any text. The differential
// fuzzers hold the scanners to it.

#include <climits>
#include <cstdint>
#include <cstdio>
#include <list>
#include <string>
#include <string_view>
#include <tuple>
#include <utility>

#include "core/file_reader.h"
#include "process/procinfo_parse.h"
#include "zefo/base_monitor.h"
#include "zefo/procinfo_monitor.h"

namespace zefo::reference {

inline std::list<std::string> Lines(std::string_view text) {
  std::list<std::string> lines;
  detail::SplitLines(text, lines);
  return lines;
}

// The scanf formats the process monitor's scanners follow. Every word target is a 256-byte
// buffer, so every word conversion carries the width 255 ("%255s", "%255[^)]") to stay inside it.
struct ProcFormats {
  std::string stat;
  std::string cpu;
  std::string statm;
  std::string status;
  std::string io;
};

inline ProcFormats MakeFormats() {
  ProcFormats f;
  // "1234 (my proc) S 1 1234 1234 0 -1 4194560 150 0 0 0 350 120 0 0 20 0 1 0 5000 ..."
  //  pid  comm      state ppid pgrp sid tty_nr tpgid flags minflt cminflt majflt cmajflt
  //  utime stime | cutime cstime priority nice num_threads itrealvalue | starttime (22) | ...
  //  processor (39) rt_priority policy delayacct_blkio_ticks (42)
  // Fields 1 to 15 are converted, 16 to 21 skipped, 22 converted, 23 to 38 skipped, 39 converted,
  // 40 and 41 skipped, 42 converted.
  f.stat = "%lld (%255[^)]) %255s %lld %lld %lld %lld %lld %lld %lld %lld %lld %lld %lld %lld";
  for (int i = 0; i < 6; ++i) f.stat += " %*lld";
  f.stat += " %lld";
  for (int i = 0; i < 16; ++i) f.stat += " %*lld";
  f.stat += " %d %*lld %*lld %lld";
  f.cpu = "%255s %lld %lld %lld %lld %lld %lld %lld %lld %lld %lld";
  f.statm = "%lld %lld %lld %lld %lld %lld %lld";
  f.status = "%*s %lld %255s";
  f.io = "%255s %lld";
  return f;
}

inline const ProcFormats& Formats() {
  static const ProcFormats formats = MakeFormats();
  return formats;
}

inline void SscanfStat(std::string_view text, ProcInfoState& out) {
  const std::string line(detail::FirstLine(text));
  char name[256] = {};
  char state[256] = {};
  std::sscanf(line.c_str(), Formats().stat.c_str(), &out.pid, name, state, &out.ppid, &out.pgrp,
              &out.sid, &out.tty_nr, &out.tpgid, &out.flags, &out.minflt, &out.cminflt, &out.majflt,
              &out.cmajflt, &out.utime, &out.stime, &out.start_time, &out.processor,
              &out.blkio_ticks);
  out.name = name;
  out.state = state;
}

inline void SscanfStatm(std::string_view text, ProcInfoStatm& out) {
  const std::string line(detail::FirstLine(text));
  std::sscanf(line.c_str(), Formats().statm.c_str(), &out.size, &out.resident, &out.shared,
              &out.text, &out.lib, &out.data, &out.dt);
}

inline void SscanfStatus(std::string_view text, ProcInfoState& out) {
  static const std::pair<const char*, long long ProcInfoState::*> kKeys[] = {
      {"VmPeak:", &ProcInfoState::VmPeak},     {"VmSize:", &ProcInfoState::VmSize},
      {"VmLck:", &ProcInfoState::VmLck},       {"VmPin:", &ProcInfoState::VmPin},
      {"VmHWM:", &ProcInfoState::VmHWM},       {"VmRSS:", &ProcInfoState::VmRSS},
      {"RssAnon:", &ProcInfoState::RssAnon},   {"RssFile:", &ProcInfoState::RssFile},
      {"RssShmem:", &ProcInfoState::RssShmem}, {"VmData:", &ProcInfoState::VmData},
      {"VmStk:", &ProcInfoState::VmStk},       {"VmExe:", &ProcInfoState::VmExe},
      {"VmLib:", &ProcInfoState::VmLib},       {"VmPTE:", &ProcInfoState::VmPTE},
      {"VmSwap:", &ProcInfoState::VmSwap}};
  char unit[256] = {};
  for (const std::string& line : Lines(text)) {
    char word[256] = {};
    std::sscanf(line.c_str(), "%255s", word);
    for (const auto& [key, field] : kKeys) {
      if (std::string_view(word) != key) continue;
      std::sscanf(line.c_str(), Formats().status.c_str(), &(out.*field), unit);
      out.*field = static_cast<long long>(static_cast<uint64_t>(out.*field) *
                                          BaseMonitor::UnitToBytes(unit));
      break;
    }
  }
}

inline void SscanfIo(std::string_view text, ProcInfoState& out) {
  static const std::pair<const char*, long long ProcInfoState::*> kKeys[] = {
      {"rchar:", &ProcInfoState::rchar},
      {"wchar:", &ProcInfoState::wchar},
      {"syscr:", &ProcInfoState::syscr},
      {"syscw:", &ProcInfoState::syscw},
      {"read_bytes:", &ProcInfoState::read_bytes},
      {"write_bytes:", &ProcInfoState::write_bytes},
      {"cancelled_write_bytes:", &ProcInfoState::cancelled_write_bytes}};
  for (const std::string& line : Lines(text)) {
    char word[256] = {};
    long long value = 0;
    std::sscanf(line.c_str(), Formats().io.c_str(), word, &value);
    for (const auto& [key, field] : kKeys) {
      if (std::string_view(word) == key) {
        out.*field = value;
        break;
      }
    }
  }
}

inline bool SscanfCpuTotal(std::string_view text, ProcInfoCpuState& out) {
  const std::list<std::string> lines = Lines(text);
  if (lines.empty()) return false;
  char first[256] = {};
  std::sscanf(lines.front().c_str(), "%255s", first);
  if (std::string_view(first).substr(0, 3) != "cpu") return false;
  long long c[10] = {};
  std::sscanf(lines.front().c_str(), Formats().cpu.c_str(), first, &c[0], &c[1], &c[2], &c[3],
              &c[4], &c[5], &c[6], &c[7], &c[8], &c[9]);
  int cores = 0;
  for (const std::string& line : lines) std::sscanf(line.c_str(), "cpu%d", &cores);
  out.cores = cores > 0 && cores < INT_MAX ? cores + 1 : cores;
  uint64_t total = 0;
  for (long long counter : c) total += static_cast<uint64_t>(counter);
  out.total = static_cast<long long>(total);
  return true;
}

// A state whose fields hold a marker, so that "left alone" and "set to 0" differ.
inline ProcInfoState Marked() {
  ProcInfoState s;
  s.pid = s.ppid = s.pgrp = s.sid = s.tty_nr = s.tpgid = s.flags = s.minflt = s.cminflt = 77;
  s.majflt = s.cmajflt = s.utime = s.stime = s.start_time = s.blkio_ticks = s.VmPeak = 77;
  s.VmSize = s.VmLck = s.VmPin = s.VmHWM = s.VmRSS = s.RssAnon = s.RssFile = s.RssShmem = 77;
  s.VmData = s.VmStk = s.VmExe = s.VmLib = s.VmPTE = s.VmSwap = s.rchar = s.wchar = 77;
  s.syscr = s.syscw = s.read_bytes = s.write_bytes = s.cancelled_write_bytes = 77;
  s.statm.size = s.statm.resident = s.statm.shared = s.statm.text = s.statm.lib = 77;
  s.statm.data = s.statm.dt = 77;
  s.processor = 77;
  s.name = "old";
  s.state = "old";
  return s;
}

inline bool SameNumbers(const ProcInfoState& a, const ProcInfoState& b) {
  const auto row = [](const ProcInfoState& s) {
    return std::make_tuple(s.pid, s.ppid, s.pgrp, s.sid, s.tty_nr, s.tpgid, s.flags, s.minflt,
                           s.cminflt, s.majflt, s.cmajflt, s.utime, s.stime, s.start_time,
                           s.processor, s.blkio_ticks, s.VmPeak, s.VmSize, s.VmLck, s.VmPin,
                           s.VmHWM, s.VmRSS, s.RssAnon, s.RssFile, s.RssShmem, s.VmData, s.VmStk,
                           s.VmExe, s.VmLib, s.VmPTE, s.VmSwap, s.rchar, s.wchar, s.syscr, s.syscw,
                           s.read_bytes, s.write_bytes, s.cancelled_write_bytes);
  };
  return row(a) == row(b);
}

}  // namespace zefo::reference

#endif  // ZEFO_FUZZ_PROC_SSCANF_REFERENCE_H_
