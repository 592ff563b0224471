#ifndef ZEFO_SRC_PROCESS_PROCINFO_PARSE_H_
#define ZEFO_SRC_PROCESS_PROCINFO_PARSE_H_

// The text-to-state steps of the process monitor. Each function takes the whole text of one
// kernel file as the reader got it (possibly empty) and fills a state; none does I/O. Lines are
// parsed one at a time with the monitor's scanf formats, as the kernel writes them. The per-process
// files (stat, statm, status, io) are read thousands of times a pass, so their parsers follow the
// formats step by step with a ScanCursor instead of calling sscanf; the tests hold them to the
// formats' results line by line, odd lines included.

#include <map>
#include <string>
#include <string_view>

#include "core/lines.h"
#include "zefo/procinfo_monitor.h"

namespace zefo {
namespace detail {

// The seven scanf formats of the process monitor. Every word target is a 256-byte buffer, so
// every word conversion carries the width 255 ("%255s", "%255[^)]") to stay inside it.
struct ProcInfoFormats {
  std::string stat;
  std::string cpu;
  std::string uptime;
  std::string statm;
  std::string status;
  std::string io;
  std::string net;
};
ProcInfoFormats MakeProcInfoFormats();

// One line of /proc/<pid>/stat; fills pid, name, state, ppid .. stime, start_time, processor and
// blkio_ticks as read (clock ticks; the hundredths are the monitor's business). The command name
// ends at the first ")", so a name that holds ")" misreads the fields after it.
// Follows ProcInfoFormats::stat.
void ParseProcStat(std::string_view text, ProcInfoState& out);

// /proc/<pid>/cmdline: the first line with every NUL made a blank, then its last byte made a NUL
// (the blanked trailing separator). Empty text gives an empty string.
void ParseCmdLine(std::string_view text, std::string& out);

// Whether the registration pid file holds exactly one line equal to `pid`, byte for byte.
bool RegisteredPidMatches(std::string_view pid_text, std::string_view pid);
// Sets `zefo_name` to the single line of `name_text` if that file and the pid file each hold
// exactly one line and the pid line is `pid`; otherwise leaves `zefo_name` alone.
void ParseRegistration(std::string_view name_text, std::string_view pid_text, std::string_view pid,
                       std::string& zefo_name);

// /proc/<pid>/statm: seven page counts (ProcInfoFormats::statm).
void ParseStatm(std::string_view text, ProcInfoStatm& out);

// /proc/<pid>/status: the fifteen Vm and Rss lines, scaled to bytes by their unit word
// (ProcInfoFormats::status on each such line).
void ParseStatus(std::string_view text, ProcInfoState& out);

// /proc/<pid>/io: rchar, wchar, syscr, syscw, read_bytes, write_bytes, cancelled_write_bytes
// (ProcInfoFormats::io on each line).
void ParseIo(std::string_view text, ProcInfoState& out);

// /proc/<pid>/net/dev: one record per interface line after the two header lines.
void ParseNetDev(std::string_view text, const std::string& format,
                 std::map<std::string, ProcInfoNetState>& out);

// /proc/stat: the aggregate line's ten counters summed (ProcInfoFormats::cpu), and the core count.
// False (with `out` untouched) if there is no line or the first word does not start with "cpu".
bool ParseCpuTotal(std::string_view text, ProcInfoCpuState& out);

// /proc/uptime. False (with `out` untouched) if there is no line.
bool ParseUptime(std::string_view text, const std::string& format, ProcInfoUptimeState& out);

}  // namespace detail
}  // namespace zefo

#endif  // ZEFO_SRC_PROCESS_PROCINFO_PARSE_H_
