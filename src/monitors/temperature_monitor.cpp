#include "zefo/temperature_monitor.h"

#include <dirent.h>

#include <cstring>
#include <iomanip>

#include "monitors/temperature_parse.h"

namespace zefo {

void TemperatureResourceItem::PrintToStream(std::ostream& os) {
  os << "Temperature Type: " << zone_type << std::endl;
  os << "  temperature       : " << std::fixed << std::setprecision(2) << temperature << std::endl;
}

void TemperatureResourceInfo::DoUpdate(const std::string& name, TemperatureResourceItem* item,
                                       const TemperatureState& current,
                                       const TemperatureState& /*previous*/, double /*elapsed*/) {
  item->zone_type = name;
  item->temperature = detail::ZoneCelsius(current.temp);
}

TemperatureMonitor::TemperatureMonitor() : TemperatureMonitor(KernelPaths()) {}

TemperatureMonitor::TemperatureMonitor(const KernelPaths& paths)
    : BaseMonitor(Temperature, paths), info_(new TemperatureResourceInfo()) {}

TemperatureMonitor::~TemperatureMonitor() {
  delete info_;
}

bool TemperatureMonitor::GetThermalZone(std::list<std::string>& zones) const {
  const std::string dir = Paths().Sys("class/thermal");
  DIR* handle = opendir(dir.c_str());
  if (handle == nullptr) return false;
  // Cooling devices and other entries share the directory; only the zones are wanted. The
  // entry's type is not checked: a stray "thermal_zone" file fails later, when it is read.
  static constexpr char kPrefix[] = "thermal_zone";
  while (const struct dirent* entry = readdir(handle)) {
    if (std::strncmp(entry->d_name, kPrefix, sizeof(kPrefix) - 1) != 0) continue;
    zones.push_back(KernelPaths::Join(dir, entry->d_name));
  }
  closedir(handle);
  return true;
}

bool TemperatureMonitor::ReadTemperatureValue(const std::string& zone) {
  TemperatureState state;
  const std::list<std::string> type = ReadFile(zone + "/type");
  if (type.empty() || !detail::ParseZoneType(type.front(), state.zone_type)) return false;
  // The reader never blocks on a FIFO or device planted here, and a driver whose read fails
  // gives no line; either way only this zone is skipped.
  const std::list<std::string> temp = ReadFile(zone + "/temp");
  if (temp.empty()) return false;
  state.temp = detail::ParseZoneTemp(temp.front());
  info_->Update(MutableItems(), state.zone_type, state, Now());
  return true;
}

bool TemperatureMonitor::DoMonitor() {
  std::list<std::string> zones;
  const bool listed = GetThermalZone(zones);
  for (const std::string& zone : zones) ReadTemperatureValue(zone);
  return listed;
}

}  // namespace zefo
