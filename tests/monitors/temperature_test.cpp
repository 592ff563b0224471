// The temperature monitor: raw readings to degrees, zones found under sysfs, zones that fail.
#include <sstream>
#include <string>

#include <gtest/gtest.h>

#include "monitors/temperature_parse.h"
#include "support/fixture_tree.h"
#include "support/golden.h"
#include "zefo/temperature_monitor.h"

namespace zefo {
namespace {

int64_t g_now = 0;
int64_t FakeNow() {
  return g_now;
}

TEST(TemperatureParseTest, RawReadingsToDegrees) {
  struct Case {
    const char* text;
    int raw;
    double celsius;
  } cases[] = {
      {"45000\n", 45000, 45.0},
      {"45", 45, 45.0},
      {"1000", 1000, 1000.0},
      {"1001", 1001, 1.001},
      {"-5000", -5000, -5000.0},
      {"n/a", -1, -1.0},
      {"", -1, -1.0},
      {"99999999999999", 2147483647, 2147483.647},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(detail::ParseZoneTemp(c.text), c.raw) << c.text;
    EXPECT_DOUBLE_EQ(detail::ZoneCelsius(c.raw), c.celsius) << c.text;
  }
}

class TemperatureMonitorTest : public ::testing::Test {
 protected:
  void Zone(const std::string& zone, const std::string& type, const std::string& temp) {
    tree.Write("sys/class/thermal/" + zone + "/type", type + "\n");
    tree.Write("sys/class/thermal/" + zone + "/temp", temp + "\n");
  }
  std::string Blocks() {
    std::ostringstream os;
    for (const auto& entry : monitor.Items()) entry.second->PrintToStream(os);
    return os.str();
  }
  testing::FixtureTree tree;
  TemperatureMonitor monitor{tree.paths()};
};

TEST_F(TemperatureMonitorTest, EveryReadableZoneByType) {
  Zone("thermal_zone0", "cpu-thermal", "45000");
  Zone("thermal_zone1", "gpu-thermal", "45");
  Zone("thermal_zone2", "ddr-thermal", "1000");
  Zone("thermal_zone3", "bpu-thermal", "1001");
  Zone("thermal_zone4", "cold-thermal", "-5000");
  Zone("thermal_zone5", "broken-thermal", "n/a");
  Zone("cooling_device0", "Processor", "0");
  // Zones that give nothing and must not hold up the rest: a temp file that is a FIFO nobody
  // writes, a temp that is a directory, a zone that is a plain file.
  tree.Write("sys/class/thermal/thermal_zone6/type", "fifo-thermal\n");
  tree.Fifo("sys/class/thermal/thermal_zone6/temp");
  tree.Write("sys/class/thermal/thermal_zone7/type", "dir-thermal\n");
  tree.Mkdir("sys/class/thermal/thermal_zone7/temp");
  tree.Write("sys/class/thermal/thermal_zone8", "not a zone\n");
  monitor.SetClock(&FakeNow);

  std::list<std::string> zones;
  ASSERT_TRUE(monitor.GetThermalZone(zones));
  EXPECT_EQ(zones.size(), 9u);
  for (const std::string& zone : zones) {
    EXPECT_EQ(zone.rfind(tree.paths().Sys("class/thermal/thermal_zone"), 0), 0u) << zone;
  }

  g_now = 1000;
  EXPECT_TRUE(monitor.DoMonitor());
  EXPECT_TRUE(monitor.Items().empty());
  g_now = 3000;
  EXPECT_TRUE(monitor.DoMonitor());
  testing::ExpectGolden("temperature_block.txt", Blocks());
}

TEST_F(TemperatureMonitorTest, ZonesOfOneTypeShareAnItemAndTheLaterZoneWins) {
  Zone("thermal_zone0", "soc-thermal", "41000");
  Zone("thermal_zone1", "soc-thermal", "52000");
  monitor.DoMonitor();
  monitor.DoMonitor();
  ASSERT_EQ(monitor.Items().size(), 1u);
  std::list<std::string> zones;
  monitor.GetThermalZone(zones);
  const double last = zones.back().back() == '0' ? 41.0 : 52.0;  // directory order decides
  const auto* item = dynamic_cast<TemperatureResourceItem*>(monitor.Items().at("soc-thermal"));
  ASSERT_NE(item, nullptr);
  EXPECT_DOUBLE_EQ(item->temperature, last);
  // Four samples under one name: the second, third and fourth each updated the item.
  EXPECT_EQ(item->count, 3u);
}

TEST_F(TemperatureMonitorTest, NoThermalClass) {
  EXPECT_FALSE(monitor.DoMonitor());
  EXPECT_TRUE(monitor.Items().empty());
}

}  // namespace
}  // namespace zefo
