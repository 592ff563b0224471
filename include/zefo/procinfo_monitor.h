#ifndef ZEFO_PROCINFO_MONITOR_H_
#define ZEFO_PROCINFO_MONITOR_H_

#include <cstdint>
#include <map>
#include <memory>
#include <ostream>
#include <set>
#include <string>

#include "zefo/base_monitor.h"
#include "zefo/item_counters.h"
#include "zefo/zefo_export.h"

namespace zefo {

namespace detail {
struct FdSizeRule;
}  // namespace detail

/// One machine-wide CPU sample, taken once per pass and copied into every process's state.
/// A plain value; no thread rules of its own.
struct ZEFO_EXPORT ProcInfoCpuState {
  /// Sum of the ten counters of the aggregate "cpu" line of the kernel's stat file, clock ticks.
  int64_t total = 0;
  /// Core count from the per-core lines: the number of the last one plus one, except that a
  /// machine whose only per-core line is cpu0 reads 0 (see GetCpu).
  int32_t cores = 0;
};

/// One sample of the kernel's uptime file. A plain value.
struct ZEFO_EXPORT ProcInfoUptimeState {
  /// Seconds since boot.
  double uptime = 0;
  /// The second number of the file; kept, not used.
  double idle = 0;
};

/// One interface line of a process's net/dev. A plain value.
struct ZEFO_EXPORT ProcInfoNetState {
  /// The first word of the line as read, usually with its trailing ":".
  std::string name;
  int64_t rx_bytes = 0;
  int64_t tx_bytes = 0;
};

/// The seven numbers of a process's statm file, in pages. A plain value.
struct ZEFO_EXPORT ProcInfoStatm {
  long long size = 0;
  long long resident = 0;
  long long shared = 0;
  long long text = 0;
  long long lib = 0;
  long long data = 0;
  long long dt = 0;
};

/// One sample of one process, as its files under the process directory gave it. Numeric fields
/// start at zero and keep it when their line is missing. Integer fields that are sscanf targets
/// are `long long` so that "%lld" matches them on every ABI. A plain value; built and read on the
/// sampling thread.
struct ZEFO_EXPORT ProcInfoState {
  long long pid = 0;
  /// The command name (between the parentheses of the stat line).
  std::string name;
  /// The one-letter state word.
  std::string state;
  long long ppid = 0;
  long long pgrp = 0;
  long long sid = 0;
  long long tty_nr = 0;
  long long tpgid = 0;
  long long flags = 0;
  long long minflt = 0;
  long long cminflt = 0;
  long long majflt = 0;
  long long cmajflt = 0;
  /// User time in clock ticks, and in hundredths of a second.
  long long utime = 0;
  long long utime_cs = 0;
  /// System time in clock ticks, and in hundredths of a second.
  long long stime = 0;
  long long stime_cs = 0;
  /// Start in clock ticks after boot, and in hundredths of a second.
  long long start_time = 0;
  long long start_time_cs = 0;
  /// The CPU the process last ran on.
  int processor = 0;
  /// Aggregated block-I/O delay, clock ticks.
  long long blkio_ticks = 0;
  /// The name other software registered for this process; empty if none.
  std::string zefo_name;
  /// The command line, arguments separated by blanks, ending in one NUL byte.
  std::string cmd_line;
  /// The machine-wide samples of the pass in which this state was taken.
  ProcInfoCpuState cpu;
  ProcInfoUptimeState uptime;
  ProcInfoStatm statm;
  /// The status lines of the same names, in bytes.
  long long VmPeak = 0;
  long long VmSize = 0;
  long long VmLck = 0;
  long long VmPin = 0;
  long long VmHWM = 0;
  long long VmRSS = 0;
  long long RssAnon = 0;
  long long RssFile = 0;
  long long RssShmem = 0;
  long long VmData = 0;
  long long VmStk = 0;
  long long VmExe = 0;
  long long VmLib = 0;
  long long VmPTE = 0;
  long long VmSwap = 0;
  /// Open descriptors.
  long long fd_count = 0;
  /// The io lines of the same names, as read.
  long long rchar = 0;
  long long wchar = 0;
  long long syscr = 0;
  long long syscw = 0;
  long long read_bytes = 0;
  long long write_bytes = 0;
  long long cancelled_write_bytes = 0;
  /// Per interface, from net/dev; the sampling pass leaves it empty.
  std::map<std::string, ProcInfoNetState> net;
};

/// Transmit and receive bandwidth of one interface of a process, bytes per second.
/// Read by hosts under the aggregator's lock.
class ZEFO_EXPORT ProcInfoNetResourceItem {
 public:
  double tx_bandwidth = 0;
  double rx_bandwidth = 0;
};

/// The figures of one process between its last two samples. Written by the sampling thread and
/// read by hosts, both under the aggregator's lock.
class ZEFO_EXPORT ProcInfoResourceItem : public ResourceItem {
 public:
  ProcInfoResourceItem() = default;
  ~ProcInfoResourceItem() override = default;
  /// Writes the process's block of the report; leaves `os` in fixed notation, precision 2.
  void PrintToStream(std::ostream& os) override;

  std::string name;
  std::string zefo_name;
  /// Printed with its final NUL byte.
  std::string cmd_line;
  int32_t pid = 0;
  std::string state;
  /// The CPU the process last ran on; -1 before the first update.
  int32_t cpu_core = -1;
  /// Shares of one core in percent: a process keeping one core busy reads 100.
  double user = 0;
  double system = 0;
  /// Seconds after boot.
  double start_time = 0;
  /// Seconds since the process started.
  double run_time = 0;
  /// Accumulated block-I/O delay, clock ticks.
  int64_t iowait = 0;
  /// From the status file, bytes.
  int64_t VmSize = 0;
  int64_t VmRss = 0;
  int64_t RssAnon = 0;
  int64_t RssFile = 0;
  int64_t RssShmem = 0;
  int64_t VmHwm = 0;
  int64_t VmData = 0;
  int64_t VmStk = 0;
  int64_t VmExe = 0;
  int64_t VmSwap = 0;
  /// From the statm file, pages times the page size, bytes.
  int64_t memSize = 0;
  int64_t memResident = 0;
  int64_t memShared = 0;
  int64_t memText = 0;
  int64_t memLib = 0;
  int64_t memData = 0;
  int64_t fd_count = 0;
  /// Storage bytes read and written per second.
  double io_read_bandwidth = 0;
  double io_write_bandwidth = 0;
  /// Per interface; nothing fills it during sampling.
  std::map<std::string, ProcInfoNetResourceItem> net;
  /// Extension (see item_counters.h): CPU time and storage I/O at the newest sample.
  ProcInfoCounters counters;
};

/// Turns two samples of one process into its item. Driven by the process monitor on the
/// sampling thread.
class ZEFO_EXPORT ProcInfoResourceInfo : public ResourceInfo<ProcInfoState, ProcInfoResourceItem> {
 public:
  /// Asks the system's page size once.
  ProcInfoResourceInfo();
  /// Uses `page_size` bytes per page (replays of trees taken on another machine).
  explicit ProcInfoResourceInfo(int64_t page_size) : page_size_(page_size) {}
  ~ProcInfoResourceInfo() override = default;

  void DoUpdate(const std::string& name, ProcInfoResourceItem* item, const ProcInfoState& current,
                const ProcInfoState& previous, double elapsed) override;

  int64_t PageSize() const { return page_size_; }
  void SetPageSize(int64_t page_size) { page_size_ = page_size; }

 private:
  int64_t page_size_;
};

/// Per-process figures: every numeric directory of the proc root, or a fixed set of process ids.
/// Driven by one thread at a time (the sampling thread, under the aggregator's lock); its items
/// are read under the same lock.
class ZEFO_EXPORT ProcInfoMonitor : public BaseMonitor {
 public:
  /// Watches every process.
  ProcInfoMonitor();
  explicit ProcInfoMonitor(const KernelPaths& paths);
  /// Watches exactly the processes whose ids (in decimal, as directory names) are in `procs`,
  /// every pass, in string order, whether or not they exist.
  explicit ProcInfoMonitor(const std::set<std::string>& procs);
  ProcInfoMonitor(const std::set<std::string>& procs, const KernelPaths& paths);
  ~ProcInfoMonitor() override;

  /// One pass: the machine-wide samples, then every watched process. False only when the proc
  /// root cannot be listed.
  bool DoMonitor() override;

  /// Bytes per statm page used for the mem* figures (defaults to the system's).
  void SetPageSize(int64_t page_size) { resource_info->SetPageSize(page_size); }

  /// The machine-wide CPU sample; false (with `out` untouched) if the stat file has no
  /// aggregate "cpu" first line.
  bool GetCpu(ProcInfoCpuState& out);
  /// The uptime file; false (with `out` untouched) if it yields no line.
  bool GetUptime(ProcInfoUptimeState& out);
  /// Samples every numeric entry of the proc root; false if it cannot be opened.
  bool MonitorAll(const ProcInfoCpuState& cpu, const ProcInfoUptimeState& uptime);
  /// Samples one process; a process whose stat or statm cannot be read is skipped. Always true.
  bool UpdateProc(const std::string& pid, const ProcInfoCpuState& cpu,
                  const ProcInfoUptimeState& uptime);

  /// Per-file readers. Only GetStat and GetStatm return false (their file yields no line).
  bool GetStat(const std::string& pid, ProcInfoState& state);
  bool GetCmdLine(const std::string& pid, ProcInfoState& state);
  bool GetZefoName(const std::string& pid, ProcInfoState& state);
  bool GetStatm(const std::string& pid, ProcInfoState& state);
  bool GetStatus(const std::string& pid, ProcInfoState& state);
  bool GetFd(const std::string& pid, ProcInfoState& state);
  bool GetIo(const std::string& pid, ProcInfoState& state);
  /// Not part of the sampling pass.
  bool GetNet(const std::string& pid, ProcInfoState& state);

 private:
  /// Reads `path` whole into `into` (a reused buffer); false if it yields nothing.
  bool ReadText(const std::string& path, std::string& into, bool follow_links = true) const;
  /// Reads "<proc root>/<pid>/<file>" whole into `text_`; false if it yields nothing.
  bool ReadProcFile(const std::string& pid, const char* file);
  /// "<proc root>/<pid>/<file>", built in `path_` (valid until the next call).
  const std::string& ProcFile(const std::string& pid, const char* file);

  ProcInfoResourceInfo* resource_info;
  std::set<std::string> proc_set;
  // Scratch reused from file to file and process to process, so that a pass in the steady state
  // does not allocate per file: the file texts, the path, and the sample being filled.
  std::string text_;
  std::string text2_;
  std::string path_;           // "<proc root>/<pid>/<file>"
  std::string path_pid_;       // the pid whose directory path_ starts with
  std::size_t path_base_ = 0;  // length of "<proc root>/<pid>/" in path_; 0 before the first
  std::string reg_path_;
  ProcInfoState scratch_;
  // Set by DoMonitor when the proc root is a procfs mount; until then every file is checked.
  bool procfs_checked_ = false;
  // Whether (and for which processes) an fd directory's size is its descriptor count; asked
  // of the kernel once, at the first pass under a real procfs (null until then).
  std::unique_ptr<detail::FdSizeRule> fd_rule_;
  std::string own_pid_;
};

}  // namespace zefo

#endif  // ZEFO_PROCINFO_MONITOR_H_
