// Counters carry the kernel's own totals, so a scrape that misses passes loses nothing and a
// wrapped or restarted counter drops, which Prometheus reads as a reset. Per-CPU series leave
// the machine total out and disk counters go by device, so sums count nothing twice.
#include "format/fleet_metrics.h"

#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <deque>
#include <iterator>
#include <map>
#include <set>

namespace zefo::format::detail {

namespace {

using Labels = std::vector<std::pair<std::string, std::string>>;

// A deque: the references handed out stay valid as more families are added.
Family& Add(std::deque<Family>& families, const char* name, MetricType type, const char* unit,
            const char* help) {
  families.push_back(Family{name, type, unit, help, {}});
  return families.back();
}

// The kernel writes "eth0:"; the colon is not part of the name.
std::string InterfaceName(std::string name) {
  if (!name.empty() && name.back() == ':') name.pop_back();
  return name;
}

void CpuCounters(const Snapshot& pass, double ticks, std::deque<Family>& out) {
  Family& f = Add(out, "zefo_cpu_seconds", MetricType::kCounter, "seconds",
                  "CPU time spent in each mode since boot; guest time is inside user and nice "
                  "and not repeated.");
  for (const auto& [name, cpu] : pass.cpu) {
    if (name == "total") continue;  // the sum of the others: summing by mode counts it once
    const CpuState& c = cpu.counters;
    const std::pair<const char*, long long> modes[] = {
        {"user", c.user},     {"nice", c.nice}, {"system", c.system},   {"idle", c.idle},
        {"iowait", c.iowait}, {"irq", c.irq},   {"softirq", c.softirq}, {"steal", c.steal}};
    for (const auto& [mode, value] : modes) {
      f.samples.push_back({{{"cpu", name}, {"mode", mode}}, static_cast<double>(value) / ticks});
    }
  }
}

void DiskCounters(const Snapshot& pass, std::deque<Family>& out) {
  Family& read = Add(out, "zefo_disk_read_bytes", MetricType::kCounter, "bytes",
                     "Bytes read from the block device since boot.");
  Family& written = Add(out, "zefo_disk_written_bytes", MetricType::kCounter, "bytes",
                        "Bytes written to the block device since boot.");
  // A device mounted at several points is one disk: its first mount speaks for it.
  std::set<std::string> seen;
  for (const auto& entry : pass.disk) {
    const DiskResourceItem& disk = entry.second;
    if (!seen.insert(disk.name).second) continue;
    const Labels l{{"device", disk.name}};
    read.samples.push_back({l, static_cast<double>(disk.counters.read_bytes)});
    written.samples.push_back({l, static_cast<double>(disk.counters.written_bytes)});
  }
}

void NetworkCounters(const Snapshot& pass, std::deque<Family>& out) {
  Family& rx = Add(out, "zefo_network_receive_bytes", MetricType::kCounter, "bytes",
                   "Bytes received on the interface, as the kernel counts them.");
  Family& tx = Add(out, "zefo_network_transmit_bytes", MetricType::kCounter, "bytes",
                   "Bytes transmitted on the interface, as the kernel counts them.");
  for (const auto& [name, net] : pass.network) {
    const Labels l{{"interface", InterfaceName(name)}};
    rx.samples.push_back({l, static_cast<double>(net.counters.rx_bytes)});
    tx.samples.push_back({l, static_cast<double>(net.counters.tx_bytes)});
  }
}

void DdrCounters(const Snapshot& pass, std::deque<Family>& out) {
  Family& port_read = Add(out, "zefo_ddr_port_read_bytes", MetricType::kCounter, "bytes",
                          "DDR bytes read through the port since the monitor opened the device.");
  Family& port_write =
      Add(out, "zefo_ddr_port_write_bytes", MetricType::kCounter, "bytes",
          "DDR bytes written through the port since the monitor opened the device.");
  Family& device_read =
      Add(out, "zefo_ddr_device_read_bytes", MetricType::kCounter, "bytes",
          "DDR bytes read on the whole device since the monitor opened it (its own figure).");
  Family& device_write =
      Add(out, "zefo_ddr_device_write_bytes", MetricType::kCounter, "bytes",
          "DDR bytes written on the whole device since the monitor opened it (its own figure).");
  for (const auto& [name, ddr] : pass.ddr) {
    for (const auto& [port, bytes] : ddr.counters.ports) {
      const Labels l{{"device", name}, {"port", port}};
      port_read.samples.push_back({l, static_cast<double>(bytes.read)});
      port_write.samples.push_back({l, static_cast<double>(bytes.write)});
    }
    const Labels l{{"device", name}};
    device_read.samples.push_back({l, static_cast<double>(ddr.counters.cmd_sum.read)});
    device_write.samples.push_back({l, static_cast<double>(ddr.counters.cmd_sum.write)});
  }
}

void ProcessCounters(const Snapshot& pass, const FormatOptions& options, double ticks,
                     std::deque<Family>& out) {
  Family& cpu = Add(out, "zefo_process_cpu_seconds", MetricType::kCounter, "seconds",
                    "CPU time of the process in user and system mode.");
  Family& read = Add(out, "zefo_process_io_read_bytes", MetricType::kCounter, "bytes",
                     "Bytes the process read from storage.");
  Family& write = Add(out, "zefo_process_io_write_bytes", MetricType::kCounter, "bytes",
                      "Bytes the process wrote to storage.");
  for (const ProcessEntry* entry : SelectProcesses(pass, options)) {
    const ProcInfoResourceItem& p = entry->second;
    const Labels l{{"pid", entry->first}, {"process", p.name}};
    Labels user = l, system = l;
    user.emplace_back("mode", "user");
    system.emplace_back("mode", "system");
    cpu.samples.push_back({user, static_cast<double>(p.counters.utime_ticks) / ticks});
    cpu.samples.push_back({system, static_cast<double>(p.counters.stime_ticks) / ticks});
    read.samples.push_back({l, static_cast<double>(p.counters.read_bytes)});
    write.samples.push_back({l, static_cast<double>(p.counters.write_bytes)});
  }
}

}  // namespace

bool Exported(const FormatOptions& options, ResourceMonitorType type) {
  return (options.kinds >> static_cast<unsigned>(type) & 1u) != 0;
}

std::vector<const ProcessEntry*> SelectProcesses(const Snapshot& pass,
                                                 const FormatOptions& options) {
  std::vector<const ProcessEntry*> chosen;
  if (!Exported(options, ProcInfo)) return chosen;
  for (const ProcessEntry& entry : pass.process) {
    switch (options.processes) {
      case ProcessMetrics::kNone:
      case ProcessMetrics::kByName:
        return chosen;
      case ProcessMetrics::kRegistered:
        if (!entry.second.zefo_name.empty()) chosen.push_back(&entry);
        break;
      case ProcessMetrics::kTop:
      case ProcessMetrics::kAll:
        chosen.push_back(&entry);
        break;
    }
  }
  if (options.processes == ProcessMetrics::kTop && chosen.size() > options.top_processes) {
    // The busiest first; equal shares keep the pass's order, so a quiet board's choice is steady.
    // A share that is not a number (two identical samples) counts as the least, so that the
    // order stays a strict one.
    const auto share = [](const ProcessEntry* e) {
      const double cores = e->second.user + e->second.system;
      return std::isnan(cores) ? -1.0 : cores;
    };
    const auto busier = [&share](const ProcessEntry* a, const ProcessEntry* b) {
      return share(a) > share(b);
    };
    std::stable_sort(chosen.begin(), chosen.end(), busier);
    chosen.resize(options.top_processes);
    // Back to the pass's order.
    std::sort(chosen.begin(), chosen.end(),
              [](const ProcessEntry* a, const ProcessEntry* b) { return a->first < b->first; });
  }
  return chosen;
}

std::vector<Family> CounterFamilies(const Snapshot& pass, const FormatOptions& options) {
  std::deque<Family> out;
  const long ticks_setting = options.clock_ticks > 0 ? options.clock_ticks : sysconf(_SC_CLK_TCK);
  const double ticks = ticks_setting > 0 ? static_cast<double>(ticks_setting) : 100.0;
  if (Exported(options, Cpu)) CpuCounters(pass, ticks, out);
  if (Exported(options, Disk)) DiskCounters(pass, out);
  if (Exported(options, Network)) NetworkCounters(pass, out);
  if (Exported(options, QeltDdr)) DdrCounters(pass, out);
  if (Exported(options, ProcInfo) && options.processes != ProcessMetrics::kNone &&
      options.processes != ProcessMetrics::kByName) {
    ProcessCounters(pass, options, ticks, out);
  }
  return std::vector<Family>(std::make_move_iterator(out.begin()),
                             std::make_move_iterator(out.end()));
}

std::vector<Family> ProcessGroupFamilies(const Snapshot& pass) {
  struct Group {
    double count = 0, cpu = 0, rss = 0, read = 0, write = 0;
  };
  std::map<std::string, Group> groups;
  for (const auto& entry : pass.process) {
    const ProcInfoResourceItem& p = entry.second;
    Group& g = groups[p.name];
    g.count += 1;
    g.cpu += (p.user + p.system) / 100.0;
    g.rss += static_cast<double>(p.VmRss);
    g.read += p.io_read_bandwidth;
    g.write += p.io_write_bandwidth;
  }
  // Gauges, not counters: a group's summed counter would drop whenever a member exits.
  std::deque<Family> out;
  const struct {
    const char* name;
    const char* unit;
    double Group::*value;
    const char* help;
  } kinds[] = {
      {"zefo_process_group_processes", "", &Group::count, "Processes of the name."},
      {"zefo_process_group_cpu_ratio", "ratio", &Group::cpu,
       "CPU time of the name's processes between the last two passes, in cores."},
      {"zefo_process_group_rss_bytes", "bytes", &Group::rss,
       "Resident memory of the name's processes (VmRSS summed)."},
      {"zefo_process_group_io_read_bytes_per_second", "bytes_per_second", &Group::read,
       "Bytes the name's processes read from storage per second."},
      {"zefo_process_group_io_write_bytes_per_second", "bytes_per_second", &Group::write,
       "Bytes the name's processes wrote to storage per second."},
  };
  for (const auto& kind : kinds) {
    Family& f = Add(out, kind.name, MetricType::kGauge, kind.unit, kind.help);
    for (const auto& [name, group] : groups)
      f.samples.push_back({{{"process", name}}, group.*kind.value});
  }
  return std::vector<Family>(std::make_move_iterator(out.begin()),
                             std::make_move_iterator(out.end()));
}

}  // namespace zefo::format::detail
