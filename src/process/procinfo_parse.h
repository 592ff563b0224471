#ifndef ZEFO_SRC_PROCESS_PROCINFO_PARSE_H_
#define ZEFO_SRC_PROCESS_PROCINFO_PARSE_H_

// The text-to-state steps of the process monitor. Each function takes the whole text of one
// kernel file as the reader got it (possibly empty) and fills a state; none does I/O. Lines are
// parsed one at a time as scanf formats would read them, as the kernel writes them. The
// per-process files (stat, statm, status, io) are read thousands of times a pass, so their
// parsers follow the formats step by step with a ScanCursor instead of calling sscanf; the
// differential fuzzers hold them to sscanf with the formats (fuzz/proc_sscanf_reference.h) on
// any text, odd lines included.

#include <map>
#include <string>
#include <string_view>

#include "core/lines.h"
#include "zefo/procinfo_monitor.h"

namespace zefo {
namespace detail {

// One line of /proc/<pid>/stat; fills pid, name, state, ppid .. stime, start_time, processor and
// blkio_ticks as read (clock ticks; the hundredths are the monitor's business). The command name
// ends at the first ")", so a name that holds ")" misreads the fields after it.
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

// /proc/<pid>/statm: seven page counts.
void ParseStatm(std::string_view text, ProcInfoStatm& out);

// /proc/<pid>/status: the fifteen Vm and Rss lines, scaled to bytes by their unit word
// ("%*s %lld %255s" on each such line).
void ParseStatus(std::string_view text, ProcInfoState& out);

// /proc/<pid>/io: rchar, wchar, syscr, syscw, read_bytes, write_bytes, cancelled_write_bytes
// ("%255s %lld" on each line).
void ParseIo(std::string_view text, ProcInfoState& out);

// /proc/<pid>/net/dev: one record per interface line after the two header lines.
void ParseNetDev(std::string_view text, std::map<std::string, ProcInfoNetState>& out);

// /proc/stat: the aggregate line's ten counters summed, and the core count.
// False (with `out` untouched) if there is no line or the first word does not start with "cpu".
bool ParseCpuTotal(std::string_view text, ProcInfoCpuState& out);

// /proc/uptime. False (with `out` untouched) if there is no line.
bool ParseUptime(std::string_view text, ProcInfoUptimeState& out);

}  // namespace detail
}  // namespace zefo

#endif  // ZEFO_SRC_PROCESS_PROCINFO_PARSE_H_
