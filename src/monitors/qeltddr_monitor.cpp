#include "zefo/qeltddr_monitor.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cstdlib>
#include <iomanip>

#include "monitors/qeltddr_decode.h"

namespace zefo {

namespace {

// _IOW('m', 3, 8 bytes): hands the device its two configuration words.
constexpr unsigned long kDdrMonitorConfigure = 0x40086d03UL;

}  // namespace

void QeltDdrResourceItem::PrintToStream(std::ostream& os) {
  os << "DDR Device Name: " << name << std::endl;
  for (const auto& entry : bandwidth) {
    os << "  port              : " << std::fixed << std::setprecision(2) << entry.first
       << std::endl;
    os << "    read bandwidth  : " << std::fixed << std::setprecision(2) << entry.second.read
       << std::endl;
    os << "    write bandwidth : " << std::fixed << std::setprecision(2) << entry.second.write
       << std::endl;
  }
  os << "  cmd_sum           : " << std::endl;
  os << "    read bandwidth  : " << std::fixed << std::setprecision(2) << cmd_sum_read << std::endl;
  os << "    write bandwidth : " << std::fixed << std::setprecision(2) << cmd_sum_write
     << std::endl;
  os << "  total             : " << std::endl;
  os << "    read bandwidth  : " << std::fixed << std::setprecision(2) << total_read << std::endl;
  os << "    write bandwidth : " << std::fixed << std::setprecision(2) << total_write << std::endl;
}

void QeltDdrResourceInfo::DoUpdate(const std::string& name, QeltDdrResourceItem* item,
                                   const QeltDdrState& current, const QeltDdrState& /*previous*/,
                                   double /*elapsed*/) {
  item->name = name;
  item->total_read = 0;
  item->total_write = 0;
  for (const auto& entry : current.bandwidth) {
    QeltDdrResourceItem::BandWidth& port = item->bandwidth[entry.first];
    port.read = static_cast<double>(entry.second.read);
    port.write = static_cast<double>(entry.second.write);
    item->total_read += port.read;
    item->total_write += port.write;
  }
  item->cmd_sum_read = static_cast<double>(current.cmd_sum_read);
  item->cmd_sum_write = static_cast<double>(current.cmd_sum_write);
}

QeltDdrMonitor::DdrMonitorInfo::DdrMonitorInfo(int id, const std::string& device_path)
    : name("ddr" + std::to_string(id)),
      path(device_path),
      buffer(static_cast<unsigned char*>(std::malloc(buffer_size))) {
  fd = ::open(path.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC);
  // The device's answer is of no consequence: one that rejects the configuration is still read.
  if (fd >= 0) (void)::ioctl(fd, kDdrMonitorConfigure, config);
}

QeltDdrMonitor::DdrMonitorInfo::~DdrMonitorInfo() {
  if (fd >= 0) ::close(fd);
  std::free(buffer);
}

QeltDdrMonitor::QeltDdrMonitor() : QeltDdrMonitor(KernelPaths()) {}

QeltDdrMonitor::QeltDdrMonitor(const KernelPaths& paths)
    : BaseMonitor(QeltDdr, paths),
      ports_(detail::DdrPortNames()),
      info_(new QeltDdrResourceInfo()) {
  SetSamples(info_);
  // Devices are numbered from 0 without gaps; the first missing or unusable one ends the search.
  for (int id = 0;; ++id) {
    const std::string path = Paths().Dev("ddrmonitor" + std::to_string(id));
    if (!IsExists(path) || !AppendMonitorInfo(id, path)) break;
  }
}

QeltDdrMonitor::~QeltDdrMonitor() {
  delete info_;
  for (DdrMonitorInfo* device : infos_) delete device;
}

bool QeltDdrMonitor::AppendMonitorInfo(int id, const std::string& path) {
  DdrMonitorInfo* device = new DdrMonitorInfo(id, path);
  // Descriptor 0 is refused as well: a device should never land on standard input.
  if (device->fd < 1 || device->buffer == nullptr) {
    delete device;
    return false;
  }
  infos_.push_back(device);
  return true;
}

uint64_t QeltDdrMonitor::GetValue(unsigned int raw) {
  return static_cast<uint64_t>(raw >> 16) * UnitToBytes("MB");
}

void QeltDdrMonitor::GetDdrData(const MonitorData& data, QeltDdrState& state) const {
  detail::DecodeDdrRecord(data, ports_, state);
}

bool QeltDdrMonitor::DoMonitor() {
  if (infos_.empty()) return false;
  for (DdrMonitorInfo* device : infos_) {
    ssize_t n;
    do {
      n = ::read(device->fd, device->buffer, device->buffer_size);
    } while (n < 0 && errno == EINTR);
    // Nothing yet (the device is non-blocking), an error, or less than one whole record: the
    // device sits this pass out and its item keeps its figures.
    if (n <= 0) continue;
    QeltDdrCounters& counters = counters_[device->name];
    detail::AddDdrRecords(device->buffer, static_cast<std::size_t>(n), ports_, device->config[0],
                          counters);
    QeltDdrState state;
    if (!detail::DecodeNewestDdrRecord(device->buffer, static_cast<std::size_t>(n), ports_,
                                       state)) {
      continue;
    }
    info_->Update(MutableItems(), device->name, state, Now());
    if (auto* item = dynamic_cast<QeltDdrResourceItem*>(MutableItems()->Find(device->name))) {
      item->counters = counters;
    }
  }
  return true;
}

}  // namespace zefo
