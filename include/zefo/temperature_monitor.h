#ifndef ZEFO_TEMPERATURE_MONITOR_H_
#define ZEFO_TEMPERATURE_MONITOR_H_

#include <list>
#include <ostream>
#include <string>

#include "zefo/base_monitor.h"
#include "zefo/zefo_export.h"

namespace zefo {

/// One reading of one thermal zone. A plain value.
struct TemperatureState {
  /// The zone's type text.
  std::string zone_type;
  /// The raw number from the zone's temp file; -1 if it held none.
  int temp = 0;
};

/// The temperature of one zone type. Written by the sampling thread and read by hosts, both
/// under the aggregator's lock.
class ZEFO_EXPORT TemperatureResourceItem : public ResourceItem {
 public:
  /// Writes the "Temperature Type: " block.
  void PrintToStream(std::ostream& os) override;

  std::string zone_type;
  /// Degrees Celsius.
  double temperature = 0;
};

/// Turns the latest reading of a zone type into its item; used only by the temperature monitor
/// on the sampling thread.
class ZEFO_EXPORT TemperatureResourceInfo
    : public ResourceInfo<TemperatureState, TemperatureResourceItem> {
 public:
  /// Uses `name` and `current` only.
  void DoUpdate(const std::string& name, TemperatureResourceItem* item,
                const TemperatureState& current, const TemperatureState& previous,
                double elapsed) override;
};

/// The temperature of every thermal zone under <sysfs>/class/thermal, one item per zone type;
/// driven by the sampling thread under the aggregator's lock.
class ZEFO_EXPORT TemperatureMonitor : public BaseMonitor {
 public:
  TemperatureMonitor();
  explicit TemperatureMonitor(const KernelPaths& paths);
  ~TemperatureMonitor() override;

  /// Appends the path of every "thermal_zone*" entry of <sysfs>/class/thermal, in directory
  /// order. False only when that directory cannot be opened.
  bool GetThermalZone(std::list<std::string>& zones) const;
  /// Reads one zone's type and temp files and updates the item of its type. False, with
  /// nothing stored, when either file gives no line or the type file holds no word.
  bool ReadTemperatureValue(const std::string& zone);
  /// Reads every zone; one that fails does not stop the others. The result of GetThermalZone.
  bool DoMonitor() override;

 private:
  TemperatureResourceInfo* info_;
  // Storage kept from pass to pass: the directory, a zone's path, a file's path and text, and
  // the sample being filled (both of its fields are written for every zone that is stored).
  std::string dir_;
  std::string zone_;
  std::string file_;
  std::string text_;
  TemperatureState state_;
};

}  // namespace zefo

#endif  // ZEFO_TEMPERATURE_MONITOR_H_
