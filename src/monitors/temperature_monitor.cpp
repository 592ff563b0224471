#include "zefo/temperature_monitor.h"

#include <dirent.h>

#include <cstring>
#include <iomanip>

#include "core/file_reader.h"
#include "core/path_join.h"
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
    : BaseMonitor(Temperature, paths), info_(new TemperatureResourceInfo()) {
  SetSamples(info_);
}

TemperatureMonitor::~TemperatureMonitor() {
  delete info_;
}

namespace {

// Calls fn(path) with the path of every "thermal_zone*" entry of `dir`, in directory order,
// built in `path`. False only when the directory cannot be opened.
template <typename Fn>
bool ForEachZone(const std::string& dir, std::string& path, Fn&& fn) {
  DIR* handle = opendir(dir.c_str());
  if (handle == nullptr) return false;
  // Cooling devices and other entries share the directory; only the zones are wanted. The
  // entry's type is not checked: a stray "thermal_zone" file fails later, when it is read.
  static constexpr char kPrefix[] = "thermal_zone";
  while (const struct dirent* entry = readdir(handle)) {
    if (std::strncmp(entry->d_name, kPrefix, sizeof(kPrefix) - 1) != 0) continue;
    detail::AssignJoined(path, dir, entry->d_name);
    fn(path);
  }
  closedir(handle);
  return true;
}

}  // namespace

bool TemperatureMonitor::GetThermalZone(std::list<std::string>& zones) const {
  std::string path;
  return ForEachZone(Paths().Sys("class/thermal"), path,
                     [&zones](const std::string& zone) { zones.push_back(zone); });
}

bool TemperatureMonitor::ReadTemperatureValue(const std::string& zone) {
  file_.assign(zone).append("/type");
  detail::ReadWholeFile(file_, text_);
  if (text_.empty() || !detail::ParseZoneType(detail::FirstLineInPlace(text_), state_.zone_type)) {
    return false;
  }
  // The reader never blocks on a FIFO or device planted here, and a driver whose read fails
  // gives no line; either way only this zone is skipped.
  file_.assign(zone).append("/temp");
  detail::ReadWholeFile(file_, text_);
  if (text_.empty()) return false;
  state_.temp = detail::ParseZoneTemp(detail::FirstLineInPlace(text_));
  info_->Update(MutableItems(), state_.zone_type, state_, Now());
  return true;
}

bool TemperatureMonitor::DoMonitor() {
  detail::AssignJoined(dir_, Paths().sysfs, "class/thermal");
  return ForEachZone(dir_, zone_, [this](const std::string& zone) { ReadTemperatureValue(zone); });
}

}  // namespace zefo
