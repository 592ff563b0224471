#include "zefo/procinfo_monitor.h"

#include <dirent.h>
#include <unistd.h>

#include <iomanip>
#include <memory>
#include <utility>

#include "core/counter_math.h"
#include "core/file_reader.h"
#include "core/path_join.h"
#include "process/fd_count.h"
#include "process/procinfo_parse.h"
#include "zefo/zefo_utils.h"

namespace zefo {

namespace {

// Differences and products of kernel counters wrap rather than overflow when a counter is
// nonsense (or a reused process id pairs two unrelated samples).
using detail::WrappingSub;

int64_t Pages(long long pages, int64_t page_size) {
  return detail::WrappingMul(pages, static_cast<unsigned long long>(page_size));
}

// Makes `state` a fresh sample (strings empty, numbers zero, no interfaces) while its strings
// keep their storage, so that sampling a process does not allocate for its command line.
void ResetKeepingStorage(ProcInfoState& state) {
  std::string* strings[] = {&state.name, &state.state, &state.zefo_name, &state.cmd_line};
  std::string kept[4];
  for (int i = 0; i < 4; ++i) kept[i].swap(*strings[i]);
  state = ProcInfoState();
  for (int i = 0; i < 4; ++i) {
    kept[i].clear();
    strings[i]->swap(kept[i]);
  }
}

}  // namespace

// ---- figures -------------------------------------------------------------------------------

ProcInfoResourceInfo::ProcInfoResourceInfo()
    : page_size_(static_cast<int64_t>(sysconf(_SC_PAGESIZE))) {}

void ProcInfoResourceInfo::DoUpdate(const std::string& /*name*/, ProcInfoResourceItem* item,
                                    const ProcInfoState& current, const ProcInfoState& previous,
                                    double elapsed) {
  item->name = current.name;
  item->cmd_line = current.cmd_line;
  item->pid = static_cast<int32_t>(current.pid);
  item->zefo_name = current.zefo_name;
  item->state = current.state;
  item->cpu_core = current.processor;

  // The process times are in hundredths of a second and the machine total in clock ticks; the
  // two agree on the usual 100-tick kernel. Scaled by the core count, one busy core reads 100.
  const double span = static_cast<double>(WrappingSub(current.cpu.total, previous.cpu.total));
  item->user = static_cast<double>(WrappingSub(current.utime_cs, previous.utime_cs)) * 100.0 *
               current.cpu.cores / span;
  item->system = static_cast<double>(WrappingSub(current.stime_cs, previous.stime_cs)) * 100.0 *
                 current.cpu.cores / span;
  item->iowait = current.blkio_ticks;

  item->start_time = static_cast<double>(current.start_time_cs) * 0.01;
  item->run_time = current.uptime.uptime - item->start_time;

  item->VmSize = current.VmSize;
  item->VmRss = current.VmRSS;
  item->RssAnon = current.RssAnon;
  item->RssFile = current.RssFile;
  item->RssShmem = current.RssShmem;
  item->VmHwm = current.VmHWM;
  item->VmData = current.VmData;
  item->VmStk = current.VmStk;
  item->VmExe = current.VmExe;
  item->VmSwap = current.VmSwap;

  item->memSize = Pages(current.statm.size, page_size_);
  item->memResident = Pages(current.statm.resident, page_size_);
  item->memShared = Pages(current.statm.shared, page_size_);
  item->memText = Pages(current.statm.text, page_size_);
  item->memLib = Pages(current.statm.lib, page_size_);
  item->memData = Pages(current.statm.data, page_size_);

  item->fd_count = current.fd_count;

  // No guard on purpose: a zero interval shows as inf or nan rather than as a plausible figure.
  item->io_read_bandwidth =
      static_cast<double>(WrappingSub(current.read_bytes, previous.read_bytes)) / elapsed;
  item->io_write_bandwidth =
      static_cast<double>(WrappingSub(current.write_bytes, previous.write_bytes)) / elapsed;
  item->counters.utime_ticks = current.utime;
  item->counters.stime_ticks = current.stime;
  item->counters.read_bytes = current.read_bytes;
  item->counters.write_bytes = current.write_bytes;
}

// ---- report ----------------------------------------------------------------------------------

void ProcInfoResourceItem::PrintToStream(std::ostream& os) {
  // Each figure line: its 22-character label, then the value in fixed notation with two decimals
  // (set before every value and left set on the stream).
  const auto row = [&os](const char* label) -> std::ostream& {
    return os << label << std::fixed << std::setprecision(2);
  };
  os << "Proc Name: " << name << std::endl;
  row("  cmd_line          : ") << cmd_line << std::endl;
  row("  pid               : ") << pid << std::endl;
  row("  zefo_name         : ") << zefo_name << std::endl;
  row("  state             : ") << state << std::endl;
  row("  cpu_core          : ") << cpu_core << std::endl;
  row("  user              : ") << user << std::endl;
  row("  system            : ") << system << std::endl;
  row("  start_time        : ") << start_time << std::endl;
  row("  run_time          : ") << run_time << std::endl;
  row("  iowait            : ") << iowait << std::endl;
  row("  VmSize            : ") << VmSize << std::endl;
  row("  VmRss             : ") << VmRss << std::endl;
  row("  RssAnon           : ") << RssAnon << std::endl;
  row("  RssFile           : ") << RssFile << std::endl;
  row("  RssShmem          : ") << RssShmem << std::endl;
  row("  VmHwm             : ") << VmHwm << std::endl;
  row("  VmData            : ") << VmData << std::endl;
  row("  VmStk             : ") << VmStk << std::endl;
  row("  VmExe             : ") << VmExe << std::endl;
  row("  VmSwap            : ") << VmSwap << std::endl;
  row("  memSize           : ") << memSize << std::endl;
  row("  memResident       : ") << memResident << std::endl;
  row("  memShared         : ") << memShared << std::endl;
  row("  memText           : ") << memText << std::endl;
  row("  memLib            : ") << memLib << std::endl;
  row("  memData           : ") << memData << std::endl;
  row("  fd count          : ") << fd_count << std::endl;
  // The block's shape is fixed: the read bandwidth line appears twice, and the write bandwidth,
  // though computed, is not printed.
  row("  io_read_bandwidth : ") << io_read_bandwidth << std::endl;
  row("  io_read_bandwidth : ") << io_read_bandwidth << std::endl;
  for (const auto& entry : net) {
    os << "  Network Interface : " << entry.first << std::endl;
    row("    tx bandwidth    : ") << entry.second.tx_bandwidth << std::endl;
    row("    rx bandwidth    : ") << entry.second.rx_bandwidth << std::endl;
  }
}

// ---- monitor -------------------------------------------------------------------------------

ProcInfoMonitor::ProcInfoMonitor() : ProcInfoMonitor(KernelPaths()) {}

ProcInfoMonitor::ProcInfoMonitor(const KernelPaths& paths)
    : BaseMonitor(ProcInfo, paths), resource_info(new ProcInfoResourceInfo()) {
  SetSamples(resource_info);
}

ProcInfoMonitor::ProcInfoMonitor(const std::set<std::string>& procs)
    : ProcInfoMonitor(procs, KernelPaths()) {}

ProcInfoMonitor::ProcInfoMonitor(const std::set<std::string>& procs, const KernelPaths& paths)
    : ProcInfoMonitor(paths) {
  proc_set = procs;
}

ProcInfoMonitor::~ProcInfoMonitor() {
  delete resource_info;
}

bool ProcInfoMonitor::ReadText(const std::string& path, std::string& into,
                               bool follow_links) const {
  detail::ReadWholeFile(path, into,
                        follow_links ? detail::FollowLinks::kYes : detail::FollowLinks::kNo);
  return !into.empty();
}

bool ProcInfoMonitor::ReadProcFile(const std::string& pid, const char* file) {
  // Under a proc root checked to be procfs, a numeric pid's files are the kernel's own regular
  // files: the reader's fstat is spared. Any other root (a fixture tree, a directory someone
  // else may write to) or key gets the full check.
  const detail::FileKind kind = procfs_checked_ && common::util::IsNumeric(pid)
                                    ? detail::FileKind::kProcfsFile
                                    : detail::FileKind::kCheckRegular;
  detail::ReadWholeFile(ProcFile(pid, file), text_, detail::FollowLinks::kYes, kind);
  return !text_.empty();
}

const std::string& ProcInfoMonitor::ProcFile(const std::string& pid, const char* file) {
  // The readers of one process ask in turn; "<proc root>/<pid>/" is built once for them.
  if (path_base_ == 0 || pid != path_pid_) {
    detail::AssignJoined(path_, Paths().procfs, pid);
    path_ += '/';
    path_pid_ = pid;
    path_base_ = path_.size();
  }
  path_.resize(path_base_);
  path_ += file;
  return path_;
}

bool ProcInfoMonitor::DoMonitor() {
  // Once a pass, one statfs: is the proc root a real procfs (see ReadProcFile)?
  procfs_checked_ = detail::IsProcfsMount(Paths().procfs);
  if (procfs_checked_ && fd_rule_ == nullptr) {
    fd_rule_ = std::make_unique<detail::FdSizeRule>(detail::DetectFdSizeRule(Paths().procfs));
    own_pid_ = std::to_string(getpid());
  }
  // Both samples stay zero if their file cannot be read; the pass goes on regardless.
  ProcInfoCpuState cpu;
  ProcInfoUptimeState uptime;
  GetCpu(cpu);
  GetUptime(uptime);
  if (!proc_set.empty()) {
    for (const std::string& pid : proc_set) UpdateProc(pid, cpu, uptime);
    return true;
  }
  return MonitorAll(cpu, uptime);
}

bool ProcInfoMonitor::GetCpu(ProcInfoCpuState& out) {
  ReadText(Paths().Proc("stat"), text_);
  return detail::ParseCpuTotal(text_, out);
}

bool ProcInfoMonitor::GetUptime(ProcInfoUptimeState& out) {
  ReadText(Paths().Proc("uptime"), text_);
  return detail::ParseUptime(text_, out);
}

bool ProcInfoMonitor::MonitorAll(const ProcInfoCpuState& cpu, const ProcInfoUptimeState& uptime) {
  DIR* dir = opendir(Paths().Proc("").c_str());
  if (dir == nullptr) return false;
  std::string name;
  while (const struct dirent* entry = readdir(dir)) {
    name.assign(entry->d_name);
    if (common::util::IsNumeric(name)) UpdateProc(name, cpu, uptime);
  }
  closedir(dir);
  return true;
}

bool ProcInfoMonitor::UpdateProc(const std::string& pid, const ProcInfoCpuState& cpu,
                                 const ProcInfoUptimeState& uptime) {
  // A process that is gone (or was never there) fails at stat or statm and is skipped; one whose
  // other files cannot be read is still sampled with those fields at zero.
  ProcInfoState& state = scratch_;
  ResetKeepingStorage(state);
  if (GetStat(pid, state) && GetCmdLine(pid, state) && GetZefoName(pid, state) &&
      GetStatm(pid, state) && GetStatus(pid, state) && GetFd(pid, state) && GetIo(pid, state)) {
    state.cpu = cpu;
    state.uptime = uptime;
    resource_info->Update(MutableItems(), pid, state, Now());
  }
  return true;
}

bool ProcInfoMonitor::GetStat(const std::string& pid, ProcInfoState& state) {
  if (!ReadProcFile(pid, "stat")) return false;
  detail::ParseProcStat(text_, state);
  state.utime_cs = static_cast<long long>(LinuxProcessAdjustTime(state.utime));
  state.stime_cs = static_cast<long long>(LinuxProcessAdjustTime(state.stime));
  state.start_time_cs = static_cast<long long>(LinuxProcessAdjustTime(state.start_time));
  return true;
}

bool ProcInfoMonitor::GetCmdLine(const std::string& pid, ProcInfoState& state) {
  ReadProcFile(pid, "cmdline");
  detail::ParseCmdLine(text_, state.cmd_line);
  return true;
}

bool ProcInfoMonitor::GetZefoName(const std::string& pid, ProcInfoState& state) {
  // Any user may write under the registration directory, so a link planted at either file is
  // not followed, and only a regular file is read (never a FIFO or a device). The pid file is
  // read first: without a match there the name file does not matter.
  // A name is a name: a registration file is read no further than one page, and one that goes
  // on past it registers nothing.
  const auto read = [this](std::string& into) {
    if (detail::ReadWholeFile(reg_path_, into, detail::FollowLinks::kNo,
                              detail::FileKind::kCheckRegular,
                              detail::kMaxRegistrationFileBytes) != detail::ReadStatus::kOk) {
      into.clear();
    }
  };
  detail::AssignJoined(reg_path_, Paths().regdir, pid);
  reg_path_ += "/pid";
  read(text2_);
  if (!detail::RegisteredPidMatches(text2_, pid)) return true;
  reg_path_.resize(reg_path_.size() - 3);
  reg_path_ += "name";
  read(text_);
  detail::ParseRegistration(text_, text2_, pid, state.zefo_name);
  return true;
}

bool ProcInfoMonitor::GetStatm(const std::string& pid, ProcInfoState& state) {
  if (!ReadProcFile(pid, "statm")) return false;
  detail::ParseStatm(text_, state.statm);
  return true;
}

bool ProcInfoMonitor::GetStatus(const std::string& pid, ProcInfoState& state) {
  ReadProcFile(pid, "status");
  detail::ParseStatus(text_, state);
  return true;
}

bool ProcInfoMonitor::GetFd(const std::string& pid, ProcInfoState& state) {
  // One entry per open descriptor; another user's process cannot be listed and counts 0. Under a
  // real procfs on a kernel that gives the count as the directory's size, one stat() does
  // (see fd_count.h); a saved tree is always listed.
  const std::string& dir = ProcFile(pid, "fd");
  if (procfs_checked_ && fd_rule_ != nullptr) {
    state.fd_count = detail::FdCount(dir, *fd_rule_, pid == own_pid_);
  } else {
    state.fd_count = detail::ListFdCount(dir);
  }
  return true;
}

bool ProcInfoMonitor::GetIo(const std::string& pid, ProcInfoState& state) {
  // Another user's process's io is not readable: its fields stay as they are.
  ReadProcFile(pid, "io");
  detail::ParseIo(text_, state);
  return true;
}

bool ProcInfoMonitor::GetNet(const std::string& pid, ProcInfoState& state) {
  ReadText(ProcFile(pid, "net/dev"), text_);
  detail::ParseNetDev(text_, state.net);
  return true;
}

}  // namespace zefo
