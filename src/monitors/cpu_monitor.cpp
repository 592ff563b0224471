#include "zefo/cpu_monitor.h"

#include <iomanip>
#include <list>

#include "core/counter_math.h"
#include "core/file_reader.h"
#include "core/path_join.h"
#include "core/scan_cursor.h"
#include "monitors/cpu_parse.h"

namespace zefo {

namespace {

// The eight counters that together make up all of a CPU's time. guest and guest_nice are
// left out: the kernel already counts guest time inside user and nice.
long long BusyAndIdle(const CpuState& s) {
  long long sum = 0;
  for (long long counter :
       {s.user, s.nice, s.system, s.idle, s.iowait, s.irq, s.softirq, s.steal}) {
    sum = detail::WrappingAdd(sum, counter);
  }
  return sum;
}

double Share(long long current, long long previous, double whole) {
  return static_cast<double>(detail::WrappingSub(current, previous)) * 100.0 / whole;
}

}  // namespace

void CpuResourceItem::PrintToStream(std::ostream& os) {
  os << "Cpu Label: " << label << std::endl;
  os << "  user              : " << std::fixed << std::setprecision(2) << user << std::endl;
  os << "  nice              : " << std::fixed << std::setprecision(2) << nice << std::endl;
  os << "  system            : " << std::fixed << std::setprecision(2) << system << std::endl;
  os << "  idle              : " << std::fixed << std::setprecision(2) << idle << std::endl;
  os << "  iowait            : " << std::fixed << std::setprecision(2) << iowait << std::endl;
  os << "  irq               : " << std::fixed << std::setprecision(2) << irq << std::endl;
  os << "  softirq           : " << std::fixed << std::setprecision(2) << softirq << std::endl;
  os << "  steal             : " << std::fixed << std::setprecision(2) << steal << std::endl;
  os << "  guest             : " << std::fixed << std::setprecision(2) << guest << std::endl;
  os << "  guest nice        : " << std::fixed << std::setprecision(2) << guest_nice << std::endl;
  os << "  min freq          : " << std::fixed << std::setprecision(2) << min_freq << std::endl;
  os << "  max freq          : " << std::fixed << std::setprecision(2) << max_freq << std::endl;
  os << "  current freq      : " << std::fixed << std::setprecision(2) << cur_freq << std::endl;
}

void CpuResourceInfo::DoUpdate(const std::string& name, CpuResourceItem* item,
                               const CpuState& current, const CpuState& previous,
                               double /*elapsed*/) {
  const double whole =
      static_cast<double>(detail::WrappingSub(BusyAndIdle(current), BusyAndIdle(previous)));
  item->label = name;
  item->user = Share(current.user, previous.user, whole);
  item->nice = Share(current.nice, previous.nice, whole);
  item->system = Share(current.system, previous.system, whole);
  item->idle = Share(current.idle, previous.idle, whole);
  item->iowait = Share(current.iowait, previous.iowait, whole);
  item->irq = Share(current.irq, previous.irq, whole);
  item->softirq = Share(current.softirq, previous.softirq, whole);
  item->steal = Share(current.steal, previous.steal, whole);
  item->guest = Share(current.guest, previous.guest, whole);
  item->guest_nice = Share(current.guest_nice, previous.guest_nice, whole);
  item->min_freq = current.min_freq;
  item->max_freq = current.max_freq;
  item->cur_freq = current.cur_freq;
  item->counters = current;
}

CpuMonitor::CpuMonitor() : CpuMonitor(KernelPaths()) {}

CpuMonitor::CpuMonitor(const KernelPaths& paths)
    : BaseMonitor(Cpu, paths), info_(new CpuResourceInfo()) {
  SetSamples(info_);
}

CpuMonitor::~CpuMonitor() {
  delete info_;
}

bool CpuMonitor::DoMonitor() {
  detail::ReadWholeFile(Paths().Proc("stat"), text_);
  CpuState state;
  detail::ForEachLineInPlace(text_, [this, &state](const char* line) {
    if (!detail::ParseCpuStatLine(line, word_, state)) return;
    if (word_ == "cpu") {
      name_ = "total";
    } else {
      name_ = word_;
    }
    GetCpuFreq(name_, state);
    info_->Update(MutableItems(), name_, state, Now());
  });
  // A CPU taken offline drops out of /proc/stat; its item stays with its last figures.
  return true;
}

void CpuMonitor::GetCpuFreq(const std::string& name, CpuState& state) const {
  state.min_freq = -1;
  state.max_freq = -1;
  state.cur_freq = -1;
  // A name with a slash is no CPU directory; do not let it lead the reader elsewhere in sysfs.
  if (name.find('/') != std::string::npos) return;
  // There is no directory for "total", so the machine-wide item keeps -1. Reading
  // cpuinfo_cur_freq needs privileges on many kernels; without them it stays -1 as well.
  detail::AssignJoined(path_, Paths().sysfs, "devices/system/cpu/");
  path_ += name;
  path_ += "/cpufreq/";
  const std::size_t dir = path_.size();
  const auto read = [this, dir](const char* file, long long& out) {
    // As ReadValue(path, out): the first line's "%lld", -1 when the file gives nothing.
    path_.resize(dir);
    path_ += file;
    detail::ReadWholeFile(path_, value_text_);
    out = -1;
    detail::ScanCursor(detail::FirstLine(value_text_)).Number(out);
  };
  read("cpuinfo_min_freq", state.min_freq);
  read("cpuinfo_max_freq", state.max_freq);
  read("cpuinfo_cur_freq", state.cur_freq);
}

}  // namespace zefo
