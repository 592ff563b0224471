#include "zefo/bpu_monitor.h"

#include <iomanip>
#include <list>

#include "core/path_join.h"

namespace zefo {

namespace {

// Reads a signed figure into `field`, leaving it as it was when the file yields no line.
void ReadFigure(const BaseMonitor& monitor, const std::string& path, int64_t& field) {
  long long value = 0;
  if (monitor.ReadValue(path, value)) field = value;
}

}  // namespace

void BpuResourceItem::PrintToStream(std::ostream& os) {
  os << "Bpu Label: " << name << std::endl;
  os << "  name              : " << std::fixed << std::setprecision(2) << devfreq_name << std::endl;
  os << "  min freq          : " << std::fixed << std::setprecision(2) << min_freq << std::endl;
  os << "  max freq          : " << std::fixed << std::setprecision(2) << max_freq << std::endl;
  os << "  current freq      : " << std::fixed << std::setprecision(2) << cur_freq << std::endl;
  os << "  ratio             : " << std::fixed << std::setprecision(2) << ratio << std::endl;
}

void BpuResourceInfo::DoUpdate(const std::string& name, BpuResourceItem* item,
                               const BpuState& current, const BpuState& /*previous*/,
                               double /*elapsed_seconds*/) {
  item->name = name;
  item->devfreq_name = current.name;
  item->min_freq = current.min_freq;
  item->max_freq = current.max_freq;
  item->cur_freq = current.cur_freq;
  item->ratio = current.ratio;
}

BpuMonitor::BpuMonitor() : BpuMonitor(KernelPaths()) {}

BpuMonitor::BpuMonitor(const KernelPaths& paths)
    : BaseMonitor(Bpu, paths), info_(new BpuResourceInfo()) {
  SetSamples(info_);
}

BpuMonitor::~BpuMonitor() {
  delete info_;
}

bool BpuMonitor::GetBpuPath(int id, std::string& path) const {
  // Built in place: the path is asked for on every pass, usually to find no BPU at all.
  detail::AssignJoined(path, Paths().sysfs, "devices/system/bpu/bpu");
  path += std::to_string(id);
  return IsExists(path);
}

// <core>/devfreq/<device>/{name,min_freq,max_freq,cur_freq} and <core>/ratio:
//   bpu0/devfreq/devfreq0/name      "bpu0"
//   bpu0/devfreq/devfreq0/cur_freq  "1000000000"
//   bpu0/ratio                      "37"
bool BpuMonitor::GetBpuState(const std::string& path, BpuState& state) const {
  const std::string devfreq_dir = path + "/devfreq";
  const std::list<std::string> devices = SubDirs(devfreq_dir);
  // The first device whose name file reads is the core's; the others are not looked at.
  std::string device;
  char name[kWordSize] = {};
  for (const std::string& entry : devices) {
    if (ReadValue(devfreq_dir + "/" + entry + "/name", name)) {
      device = devfreq_dir + "/" + entry;
      break;
    }
  }
  if (device.empty()) return false;
  state.name = name;
  ReadFigure(*this, device + "/min_freq", state.min_freq);
  ReadFigure(*this, device + "/max_freq", state.max_freq);
  ReadFigure(*this, device + "/cur_freq", state.cur_freq);
  ReadFigure(*this, path + "/ratio", state.ratio);
  return true;
}

bool BpuMonitor::DoMonitor() {
  for (int id = 0; GetBpuPath(id, path_); ++id) {
    // A fresh state per core, so a missing file shows 0 rather than the previous core's figure.
    BpuState state;
    if (GetBpuState(path_, state)) {
      info_->Update(MutableItems(), "bpu" + std::to_string(id), state, Now());
    }
  }
  return true;
}

}  // namespace zefo
