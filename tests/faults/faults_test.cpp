// Fault injection: every kernel file a monitor reads is damaged in every way a hostile kernel,
// driver or user could damage it, one at a time. A pristine and a damaged tree run side by side
// through five passes of the fixture board (the damage in place for passes 3 and 4) and the
// damaged monitor is held to three things: every pass comes back quickly; after pass 4 every
// item the damage cannot have touched reads exactly as in the pristine run; after pass 5 every
// item is updated again. Then counters that wrap.

#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <sstream>

#include <gtest/gtest.h>

#include "support/board.h"

namespace zefo {
namespace {

using namespace std::string_literals;
using testing::FixtureTree;
using testing::MakeMonitor;
using Items = std::set<std::string>;

using Tree = const FixtureTree&;
using Rel = const std::string&;

struct Damage {
  std::string name;
  std::string line;  // what follows the target's key on a damaged line
  std::function<void(Tree, Rel)> plant = nullptr;  // or the whole file
  bool at_end = false;  // the line ends the file without a newline, like a short read
};

Damage File(std::string name, std::function<void(Tree, Rel)> plant) {
  return {std::move(name), "", std::move(plant)};
}

const std::vector<Damage>& Damages() {
  std::string numbers;
  while (numbers.size() < (1 << 20)) numbers += " 1234567";
  static const std::vector<Damage> damages = {
      {"binary and NULs", " 1\0 2 \x01\xff\xfe\x7f\0\0 3\x80\x9b"s},
      {"truncated line", " 12", nullptr, true},
      {"1 MB line", numbers},
      {"300-character word", std::string(300, 'w') + " 1 2 3 4"},
      {"tokens of 70000 characters", " " + std::string(70000, '7') + " " + std::string(70000, 't')},
      {"25-digit integers",
       " 1234567890123456789012345 -9999999999999999999999999 "
       "0000000000000000000000042 18446744073709551616 kB"},
      File("empty file", [](Tree t, Rel rel) { t.Write(rel, ""); }),
      File("missing file", [](Tree, Rel) {}),
      File("directory", [](Tree t, Rel rel) { t.Mkdir(rel); }),
      File("FIFO", [](Tree t, Rel rel) { t.Fifo(rel); }),
      File("link to /dev/zero", [](Tree t, Rel rel) { t.Symlink("/dev/zero", rel); }),
      File("10 GB sparse file", [](Tree t, Rel rel) { t.Sparse(rel, 10LL << 30); }),
  };
  return damages;
}

// A damaged file. Line damage goes after the first `after` lines, keyed so that the parser
// takes the line up; after < 0: a one-line file whose line is replaced. No key: a directory or
// entry, which only whole-file damage applies to. "*" affects every item.
struct Target {
  std::string rel, key;
  int after;
  Items line_affects, file_affects;
};

struct Source {
  std::string name;
  std::function<std::unique_ptr<BaseMonitor>(const KernelPaths&)> make;
  std::function<void(const FixtureTree&, int pass)> write;
  std::vector<Target> targets;
  std::vector<std::string> live_labels = {};  // report lines that follow the machine
};

// The board's files under `only`, t0 and t1 in turn.
std::function<void(const FixtureTree&, int)> Board(std::vector<std::string> only) {
  return [only](const FixtureTree& tree, int pass) { testing::LoadBoard(tree, pass % 2, only); };
}

void Apply(const FixtureTree& tree, const Target& target, const Damage& damage) {
  if (damage.plant) {
    tree.Remove(target.rel);
    damage.plant(tree, target.rel);
    return;
  }
  const std::string hostile = target.key + damage.line + (damage.at_end ? "" : "\n");
  std::string text = target.after < 0 ? "" : testing::ReadFile(tree.Path(target.rel));
  std::size_t at = 0;
  for (int i = 0; i < target.after && at < text.size(); ++i) {
    const std::size_t end = text.find('\n', at);
    at = end == std::string::npos ? text.size() : end + 1;
  }
  tree.Write(target.rel, damage.at_end ? text + hostile : text.insert(at, hostile));
}

// Every item's report block (less the live lines) and update count.
std::map<std::string, std::pair<std::string, uint64_t>> Take(const BaseMonitor& monitor,
                                                             const Source& source) {
  std::map<std::string, std::pair<std::string, uint64_t>> taken;
  for (const auto& [name, item] : monitor.Items()) {
    std::ostringstream block;
    item->PrintToStream(block);
    std::istringstream lines(block.str());
    std::string kept;
    for (std::string line; std::getline(lines, line);) {
      bool live = false;
      for (const std::string& label : source.live_labels) live |= line.rfind(label, 0) == 0;
      if (!live) kept += line + "\n";
    }
    taken[name] = {kept, item->count};
  }
  return taken;
}

void RunDamaged(const Source& source, const Target& target, const Damage& damage) {
  SCOPED_TRACE(source.name + ": " + damage.name + " at " + target.rel);
  FixtureTree pristine_tree, damaged_tree;
  std::unique_ptr<BaseMonitor> pristine = source.make(pristine_tree.paths());
  std::unique_ptr<BaseMonitor> damaged = source.make(damaged_tree.paths());
  pristine->SetClock(&testing::FakeNow);
  damaged->SetClock(&testing::FakeNow);
  std::map<std::string, std::pair<std::string, uint64_t>> at_pass4;
  for (int pass = 1; pass <= 5; ++pass) {
    testing::g_fake_now = pass * 2000;
    source.write(pristine_tree, pass);
    pristine->DoMonitor();
    // What the last pass planted (a FIFO, a directory) goes before healthy files are written.
    damaged_tree.Remove(target.rel);
    source.write(damaged_tree, pass);
    if (pass == 3 || pass == 4) Apply(damaged_tree, target, damage);
    const auto start = std::chrono::steady_clock::now();
    damaged->DoMonitor();
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(10)) << pass;
    const auto got = Take(*damaged, source), want = Take(*pristine, source);
    const Items& affected = damage.plant ? target.file_affects : target.line_affects;
    for (const auto& [name, block] : want) {
      if (pass == 4 && !affected.count("*") && !affected.count(name)) {
        ASSERT_EQ(got.count(name), 1u) << name << " is gone";
        EXPECT_EQ(got.at(name), block) << name;
      }
      // Healthy again: every item there at pass 4 is updated (not those made of garbage).
      if (pass == 5 && at_pass4.count(name)) {
        ASSERT_EQ(got.count(name), 1u) << name << " is gone";
        EXPECT_GT(got.at(name).second, at_pass4.at(name).second) << name << " not updated";
      }
    }
    if (pass == 4) at_pass4 = got;
  }
}

void RunAll(const Source& source) {
  for (const Target& target : source.targets) {
    for (const Damage& damage : Damages()) {
      if (!damage.plant && target.key.empty() && target.after >= 0) continue;  // an entry
      RunDamaged(source, target, damage);
    }
  }
}

std::vector<Source> Sources() {
  const Items all = {"*"}, cpu0 = {"cpu0"}, zone = {"bpu-thermal"}, core = {"bpu0"}, p = {"300"};
  const std::string cpufreq = "sys/devices/system/cpu/cpu0/cpufreq";
  const std::string thermal = "sys/class/thermal/thermal_zone1";
  const std::string bpu = "sys/devices/system/bpu/bpu0";
  return {
      {"cpu",
       MakeMonitor<CpuMonitor>,
       Board({"proc/stat", "sys/devices/system/cpu"}),
       {{"proc/stat", "cpu9", 1, {}, all},
        {cpufreq + "/cpuinfo_cur_freq", "", -1, cpu0, cpu0},
        {cpufreq, "", 0, {}, cpu0}}},
      {"memory",
       MakeMonitor<MemoryMonitor>,
       Board({"proc/meminfo"}),
       {{"proc/meminfo", "Hugepagesize:", 2, {}, all}}},
      {"network",
       MakeMonitor<NetworkMonitor>,
       Board({"proc/net"}),
       {{"proc/net/dev", "  bad0:", 3, {}, all}}},
      {"temperature",
       MakeMonitor<TemperatureMonitor>,
       Board({"sys/class/thermal"}),
       {{thermal + "/type", "", -1, zone, zone},
        {thermal + "/temp", "", -1, zone, zone},
        {thermal, "", 0, {}, zone}}},
      {"bpu",
       MakeMonitor<BpuMonitor>,
       Board({"sys/devices/system/bpu"}),
       {{bpu + "/ratio", "", -1, core, core},
        {bpu + "/devfreq/devfreq0/name", "", -1, core, core},
        {bpu + "/devfreq/devfreq0/cur_freq", "", -1, core, core},
        {bpu + "/devfreq", "", 0, {}, core}}},
      {"process",
       MakeMonitor<ProcInfoMonitor>,
       Board({"proc/stat", "proc/uptime", "proc/100", "proc/200", "proc/300", "reg"}),
       {{"proc/300/stat", "300 (victim) S", -1, p, p},
        {"proc/300/statm", "", -1, p, p},
        {"proc/300/status", "VmLck:", 2, p, p},
        {"proc/300/io", "syscr:", 1, p, p},
        {"proc/300/cmdline", "/bin/x", -1, p, p},
        {"proc/300/fd", "", 0, {}, p},
        // Anybody may write here: what stands at a process's entry must never stall the pass.
        {"reg/100", "", 0, {}, {"100"}},
        {"reg/100/name", "", -1, {"100"}, {"100"}},
        {"proc/stat", "intr", 1, {}, all},
        {"proc/uptime", "", -1, all, all}}},
  };
}

class Faults : public ::testing::TestWithParam<std::size_t> {};

TEST_P(Faults, EveryFileOfTheReader) {
  RunAll(Sources()[GetParam()]);
}

INSTANTIATE_TEST_SUITE_P(Board, Faults, ::testing::Range<std::size_t>(0, 6),
                         [](const auto& info) { return Sources()[info.param].name; });

TEST(FaultsOf, EveryFileOfTheDiskReader) {
  FixtureTree probe;
  if (!testing::WriteDisk(probe, {})) return;  // diskstats cannot name the tree's device
  const Items all = {"*"};
  Source disk{
      "disk",
      MakeMonitor<DiskMonitor>,
      [](const FixtureTree& tree, int pass) {
        testing::WriteDisk(tree, {"/data", "/logs"}, std::to_string(100 * pass), "0");
      },
      {{"proc/mounts", "/dev/bad", 1, {}, all}, {"proc/diskstats", "   7 99 x", 0, {}, all}},
      {"  available size", "  total size"}};
  RunAll(disk);
  // Mount points as the kernel escapes them, and far longer than any word the parser keeps.
  RunDamaged(disk, disk.targets[0],
             {"4000-character mount point",
              " /mnt/with\\040blank\\040" + std::string(4000, 'p') + " ext4 rw 0 0"});
}

// The kernel's counters are unsigned, read as signed 64-bit values and differenced modulo 2^64:
// a wrap reads as a large negative rate for one pass, but nothing overflows.
TEST(FaultsOf, CountersThatWrapOrRunBackwards) {
  const struct {
    const char *before, *after;
    double difference;
  } cases[] = {
      {"4294967000", "200", -4294966800.0},
      {"1000", "10", -990.0},
      {"18446744073709551615", "5", -9223372036854775802.0},  // past 2^63: read as its limit
      {"-9223372036854775808", "9223372036854775807", -1.0},
  };
  for (const auto& c : cases) {
    FixtureTree tree;
    bool disk = false;
    NetworkMonitor network(tree.paths());
    DiskMonitor disks(tree.paths());
    network.SetClock(&testing::FakeNow);
    disks.SetClock(&testing::FakeNow);
    for (const char* value : {c.before, c.after}) {
      tree.Write("proc/net/dev", "h1\nh2\n  eth0: "s + value + " 1 0 0 0 0 0 0 5 1 0 0 0 0 0 0\n");
      disk = testing::WriteDisk(tree, {"/data"}, value, "8");
      testing::g_fake_now += 2000;
      network.DoMonitor();
      disks.DoMonitor();
    }
    const auto* eth0 = dynamic_cast<NetworkResourceItem*>(network.Items().at("eth0:"));
    EXPECT_DOUBLE_EQ(eth0->rx_bandwidth, c.difference / 2.0) << c.before;
    EXPECT_DOUBLE_EQ(eth0->tx_bandwidth, 0.0);
    if (disk) {
      const auto* data = dynamic_cast<DiskResourceItem*>(disks.Items().at("/data"));
      EXPECT_DOUBLE_EQ(data->read_bandwidth, c.difference * 512 / 2.0) << c.before;
    }
  }
}

}  // namespace
}  // namespace zefo
