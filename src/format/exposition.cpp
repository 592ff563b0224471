// Metric families named by Prometheus conventions: a "zefo_" prefix, the kind, the figure and
// its base unit; ratios 0-1 instead of percents; one label per naming dimension.
#include "format/exposition.h"

#include <unistd.h>

#include <deque>
#include <iterator>
#include <type_traits>

#include "format/fleet_metrics.h"
#include "format/item_fields.h"
#include "format/text.h"

namespace zefo::format {

namespace detail {

namespace {

using Labels = std::vector<std::pair<std::string, std::string>>;

// Builds the family list in order and hands out the family to fill.
class Builder {
 public:
  explicit Builder(std::deque<Family>& families) : families_(families) {}

  Family& Gauge(const char* name, const char* unit, const char* help) {
    return Add(name, MetricType::kGauge, unit, help);
  }
  Family& Counter(const char* name, const char* unit, const char* help) {
    return Add(name, MetricType::kCounter, unit, help);
  }
  Family& Info(const char* name, const char* help) {
    return Add(name, MetricType::kInfo, "", help);
  }
  Family& Of(const Metric& metric) {
    return Add(metric.name, metric.type, metric.unit, metric.help);
  }

 private:
  Family& Add(const char* name, MetricType type, const char* unit, const char* help) {
    families_.push_back(Family{name, type, unit, help, {}});
    return families_.back();
  }
  std::deque<Family>& families_;  // a deque: handed-out references stay valid
};

void Put(Family& family, Labels labels, double value) {
  family.samples.push_back(Sample{std::move(labels), value});
}

Labels With(Labels labels, const char* name, std::string value) {
  labels.emplace_back(name, std::move(value));
  return labels;
}

// The families of the figures of `Item` that are metrics of their own, in table order.
template <typename Item>
std::vector<Family*> FigureFamilies(Builder& b) {
  std::vector<Family*> families;
  ForEachField<Item>([&](const auto& field) {
    if (field.metric.name != nullptr) families.push_back(&b.Of(field.metric));
  });
  return families;
}

// Puts the figures of `item` into the families FigureFamilies made, leaving out those that mean
// nothing for the item. `ticks` is the clock tick rate, 0 where unknown.
template <typename Item>
void PutFigures(const std::vector<Family*>& families, const Labels& l, const Item& item,
                double ticks = 0) {
  std::size_t i = 0;
  ForEachField<Item>([&](const auto& field) {
    if constexpr (std::is_arithmetic_v<typename std::decay_t<decltype(field)>::Type>) {
      if (field.metric.name == nullptr) return;
      Family& family = *families[i++];
      const double divisor = field.metric.per_tick ? ticks : field.metric.divisor;
      if (divisor > 0 && Known(field, item)) {
        Put(family, l, static_cast<double>(item.*field.member) / divisor);
      }
    }
  });
}

constexpr char kUpdates[] = "Two-sample updates of the item since the monitor started.";

void Cpu(const Snapshot& pass, const FormatOptions& options, Builder& b) {
  Family& time = b.Gauge("zefo_cpu_time_ratio", "ratio",
                         "Share of the CPU's time spent in each mode between the last two "
                         "passes; guest time is also counted in user and nice.");
  Family& cur = b.Gauge("zefo_cpu_frequency_hertz", "hertz", "Current frequency of the CPU.");
  Family& min = b.Gauge("zefo_cpu_frequency_min_hertz", "hertz", "Lowest frequency of the CPU.");
  Family& max = b.Gauge("zefo_cpu_frequency_max_hertz", "hertz", "Highest frequency of the CPU.");
  Family& updates = b.Counter("zefo_cpu_updates", "", kUpdates);
  Family& machine = b.Gauge("zefo_cpu_machine_time_ratio", "ratio",
                            "Share of all CPUs' time spent in each mode between the last two "
                            "passes; guest time is also counted in user and nice.");
  for (const auto& [name, cpu] : pass.cpu) {
    // With counters, the machine total leaves the per-CPU series: a sum over them then counts
    // every CPU once.
    if (options.counters && name == "total") {
      for (const auto& [mode, percent] :
           std::initializer_list<std::pair<const char*, double>>{{"user", cpu.user},
                                                                 {"nice", cpu.nice},
                                                                 {"system", cpu.system},
                                                                 {"idle", cpu.idle},
                                                                 {"iowait", cpu.iowait},
                                                                 {"irq", cpu.irq},
                                                                 {"softirq", cpu.softirq},
                                                                 {"steal", cpu.steal},
                                                                 {"guest", cpu.guest},
                                                                 {"guest_nice", cpu.guest_nice}}) {
        Put(machine, {{"mode", mode}}, percent / 100.0);
      }
      continue;
    }
    const Labels l{{"cpu", name}};
    const std::pair<const char*, double> modes[] = {
        {"user", cpu.user},       {"nice", cpu.nice},
        {"system", cpu.system},   {"idle", cpu.idle},
        {"iowait", cpu.iowait},   {"irq", cpu.irq},
        {"softirq", cpu.softirq}, {"steal", cpu.steal},
        {"guest", cpu.guest},     {"guest_nice", cpu.guest_nice}};
    for (const auto& [mode, percent] : modes) Put(time, With(l, "mode", mode), percent / 100.0);
    // cpufreq gives kHz; -1 marks a file that could not be read (always for "total").
    if (cpu.cur_freq >= 0) Put(cur, l, static_cast<double>(cpu.cur_freq) * 1000.0);
    if (cpu.min_freq >= 0) Put(min, l, static_cast<double>(cpu.min_freq) * 1000.0);
    if (cpu.max_freq >= 0) Put(max, l, static_cast<double>(cpu.max_freq) * 1000.0);
    Put(updates, l, static_cast<double>(cpu.count));
  }
}

void Bpu(const Snapshot& pass, Builder& b) {
  Family& info = b.Info("zefo_bpu", "The frequency-scaling device of each BPU core.");
  Family& load = b.Gauge("zefo_bpu_load_ratio", "ratio", "Load of the BPU core.");
  Family& cur = b.Gauge("zefo_bpu_frequency_hertz", "hertz", "Current frequency of the BPU core.");
  Family& min =
      b.Gauge("zefo_bpu_frequency_min_hertz", "hertz", "Lowest frequency of the BPU core.");
  Family& max =
      b.Gauge("zefo_bpu_frequency_max_hertz", "hertz", "Highest frequency of the BPU core.");
  Family& updates = b.Counter("zefo_bpu_updates", "", kUpdates);
  for (const auto& [name, bpu] : pass.bpu) {
    const Labels l{{"core", name}};
    Put(info, With(l, "devfreq", bpu.devfreq_name), 1);
    // The driver's load is a percentage; devfreq frequencies are in Hz already.
    Put(load, l, static_cast<double>(bpu.ratio) / 100.0);
    Put(cur, l, static_cast<double>(bpu.cur_freq));
    Put(min, l, static_cast<double>(bpu.min_freq));
    Put(max, l, static_cast<double>(bpu.max_freq));
    Put(updates, l, static_cast<double>(bpu.count));
  }
}

void Disk(const Snapshot& pass, Builder& b) {
  Family& info = b.Info("zefo_disk", "The device and file system mounted at each mount point.");
  const std::vector<Family*> figures = FigureFamilies<DiskResourceItem>(b);
  Family& updates = b.Counter("zefo_disk_updates", "", kUpdates);
  for (const auto& [name, disk] : pass.disk) {
    const Labels l{{"mount", name}, {"device", disk.name}};
    Put(info, With(l, "file_system", disk.file_system), 1);
    PutFigures(figures, l, disk);
    Put(updates, l, static_cast<double>(disk.count));
  }
}

void Memory(const Snapshot& pass, Builder& b) {
  const std::vector<Family*> figures = FigureFamilies<MemoryResourceItem>(b);
  Family& updates = b.Counter("zefo_memory_updates", "", kUpdates);
  for (const auto& entry : pass.memory) {
    PutFigures(figures, {}, entry.second);
    Put(updates, {}, static_cast<double>(entry.second.count));
  }
}

void Network(const Snapshot& pass, Builder& b) {
  Family& rx = b.Gauge("zefo_network_receive_bytes_per_second", "bytes_per_second",
                       "Bytes received on the interface per second.");
  Family& tx = b.Gauge("zefo_network_transmit_bytes_per_second", "bytes_per_second",
                       "Bytes transmitted on the interface per second.");
  Family& updates = b.Counter("zefo_network_updates", "", kUpdates);
  for (const auto& [name, net] : pass.network) {
    // The kernel writes "eth0:"; the colon is not part of the name.
    std::string interface = name;
    if (!interface.empty() && interface.back() == ':') interface.pop_back();
    const Labels l{{"interface", interface}};
    Put(rx, l, net.rx_bandwidth);
    Put(tx, l, net.tx_bandwidth);
    Put(updates, l, static_cast<double>(net.count));
  }
}

void Temperature(const Snapshot& pass, Builder& b) {
  const std::vector<Family*> figures = FigureFamilies<TemperatureResourceItem>(b);
  Family& updates = b.Counter("zefo_temperature_updates", "", kUpdates);
  for (const auto& [name, zone] : pass.temperature) {
    const Labels l{{"zone", name}};
    PutFigures(figures, l, zone);
    Put(updates, l, static_cast<double>(zone.count));
  }
}

void Ddr(const Snapshot& pass, Builder& b) {
  Family& port_read = b.Gauge("zefo_ddr_port_read_bytes_per_second", "bytes_per_second",
                              "DDR read bandwidth of the port, as the monitor device reports it.");
  Family& port_write =
      b.Gauge("zefo_ddr_port_write_bytes_per_second", "bytes_per_second",
              "DDR write bandwidth of the port, as the monitor device reports it.");
  const std::vector<Family*> figures = FigureFamilies<QeltDdrResourceItem>(b);
  Family& updates = b.Counter("zefo_ddr_updates", "", kUpdates);
  for (const auto& [name, ddr] : pass.ddr) {
    const Labels l{{"device", name}};
    for (const auto& [port, bw] : ddr.bandwidth) {
      Put(port_read, With(l, "port", port), bw.read);
      Put(port_write, With(l, "port", port), bw.write);
    }
    PutFigures(figures, l, ddr);
    Put(updates, l, static_cast<double>(ddr.count));
  }
}

void Process(const Snapshot& pass, const FormatOptions& options, Builder& b) {
  Family& info = b.Info("zefo_process", "The registered name and command line of the process.");
  Family& state =
      b.Gauge("zefo_process_state", "", "The process's state letter, as a label; always 1.");
  Family& cpu = b.Gauge("zefo_process_cpu_ratio", "ratio",
                        "CPU time of the process between the last two passes, in cores (1 is "
                        "one core kept busy).");
  const std::vector<Family*> figures = FigureFamilies<ProcInfoResourceItem>(b);
  Family& net_rx = b.Gauge("zefo_process_network_receive_bytes_per_second", "bytes_per_second",
                           "Bytes received per second on an interface of the process's network "
                           "namespace.");
  Family& net_tx = b.Gauge("zefo_process_network_transmit_bytes_per_second", "bytes_per_second",
                           "Bytes transmitted per second on an interface of the process's "
                           "network namespace.");
  Family& updates = b.Counter("zefo_process_updates", "", kUpdates);

  const long ticks = options.clock_ticks > 0 ? options.clock_ticks : sysconf(_SC_CLK_TCK);
  for (const ProcessEntry* chosen : SelectProcesses(pass, options)) {
    const ProcessEntry& entry = *chosen;
    const ProcInfoResourceItem& p = entry.second;
    const Labels l{{"pid", entry.first}, {"process", p.name}};
    // The command line ends in a NUL byte; a label has no use for it.
    std::string cmd_line = p.cmd_line;
    while (!cmd_line.empty() && cmd_line.back() == '\0') cmd_line.pop_back();
    cmd_line = std::string(CutUtf8(ValidUtf8(cmd_line), options.max_cmd_line_bytes));
    Put(info, With(With(l, "zefo_name", p.zefo_name), "cmd_line", std::move(cmd_line)), 1);
    Put(state, With(l, "state", p.state), 1);
    Put(cpu, With(l, "mode", "user"), p.user / 100.0);
    Put(cpu, With(l, "mode", "system"), p.system / 100.0);
    PutFigures(figures, l, p, static_cast<double>(ticks));
    for (const auto& [interface, bw] : p.net) {
      std::string name = interface;
      if (!name.empty() && name.back() == ':') name.pop_back();
      Put(net_rx, With(l, "interface", name), bw.rx_bandwidth);
      Put(net_tx, With(l, "interface", name), bw.tx_bandwidth);
    }
    Put(updates, l, static_cast<double>(p.count));
  }
}

}  // namespace

std::vector<Family> Families(const Snapshot& pass, const FormatOptions& options) {
  std::deque<Family> families;
  Builder b(families);
  Put(b.Gauge("zefo_update_time_seconds", "seconds",
              "End of the sampling pass, in seconds since the Unix epoch."),
      {}, static_cast<double>(pass.update_time) / 1000.0);
  Family& wall = b.Gauge("zefo_monitor_pass_seconds", "seconds",
                         "Time the monitor took in the sampling pass.");
  Family& cpu = b.Gauge("zefo_monitor_pass_cpu_seconds", "seconds",
                        "CPU time the sampling thread spent in the monitor in the pass.");
  for (const MonitorPassCost& cost : pass.costs) {
    Put(wall, {{"monitor", KindName(cost.type)}}, cost.wall_seconds);
    Put(cpu, {{"monitor", KindName(cost.type)}}, cost.cpu_seconds);
  }
  if (Exported(options, zefo::Cpu)) Cpu(pass, options, b);
  if (Exported(options, zefo::Bpu)) Bpu(pass, b);
  if (Exported(options, zefo::Disk)) Disk(pass, b);
  if (Exported(options, zefo::Memory)) Memory(pass, b);
  if (Exported(options, zefo::Network)) Network(pass, b);
  if (Exported(options, zefo::Temperature)) Temperature(pass, b);
  if (Exported(options, zefo::QeltDdr)) Ddr(pass, b);
  if (Exported(options, zefo::ProcInfo)) {
    Process(pass, options, b);
    if (options.processes == ProcessMetrics::kByName) {
      for (Family& group : ProcessGroupFamilies(pass)) families.push_back(std::move(group));
    }
  }
  if (options.counters) {
    for (Family& counter : CounterFamilies(pass, options)) families.push_back(std::move(counter));
  }
  return std::vector<Family>(std::make_move_iterator(families.begin()),
                             std::make_move_iterator(families.end()));
}

}  // namespace detail

namespace {

using detail::Family;
using detail::MetricType;

// Label values and HELP texts: backslash, double quote and newline escaped (the 0.0.4 format
// leaves quotes in HELP alone).
std::string Escape(std::string_view text, bool quotes) {
  std::string out;
  out.reserve(text.size());
  for (char c : text) {
    if (c == '\\') {
      out += "\\\\";
    } else if (c == '\n') {
      out += "\\n";
    } else if (c == '"' && quotes) {
      out += "\\\"";
    } else {
      out += c;
    }
  }
  return out;
}

std::string LabelSet(const detail::Sample& sample, std::size_t max_bytes) {
  if (sample.labels.empty()) return std::string();
  std::string out = "{";
  for (const auto& [name, value] : sample.labels) {
    if (out.size() > 1) out += ",";
    const std::string valid = detail::ValidUtf8(value);
    out += name + "=\"" + Escape(detail::CutUtf8(valid, max_bytes), true) + "\"";
  }
  return out + "}";
}

const char* TypeName(MetricType type, bool openmetrics) {
  switch (type) {
    case MetricType::kGauge:
      return "gauge";
    case MetricType::kCounter:
      return "counter";
    case MetricType::kInfo:
      return openmetrics ? "info" : "gauge";
  }
  return "unknown";
}

std::string SampleName(const Family& family) {
  switch (family.type) {
    case MetricType::kCounter:
      return family.name + "_total";
    case MetricType::kInfo:
      return family.name + "_info";
    case MetricType::kGauge:
      break;
  }
  return family.name;
}

std::string Exposition(const Snapshot& pass, const FormatOptions& options, bool openmetrics) {
  std::string out;
  for (const Family& family : detail::Families(pass, options)) {
    if (family.samples.empty()) continue;
    const std::string sample_name = SampleName(family);
    if (openmetrics) {
      // OpenMetrics describes the family, whose name a counter's or info's samples extend.
      out += "# TYPE " + family.name + " " + TypeName(family.type, true) + "\n";
      if (!family.unit.empty()) out += "# UNIT " + family.name + " " + family.unit + "\n";
      out += "# HELP " + family.name + " " + Escape(family.help, true) + "\n";
    } else {
      // The 0.0.4 format describes the samples' own name and knows no units.
      out += "# HELP " + sample_name + " " + Escape(family.help, false) + "\n";
      out += "# TYPE " + sample_name + " " + TypeName(family.type, false) + "\n";
    }
    for (const detail::Sample& sample : family.samples) {
      out += sample_name + LabelSet(sample, options.max_label_bytes) + " " +
             detail::Number(sample.value) + "\n";
    }
  }
  if (openmetrics) out += "# EOF\n";
  return out;
}

}  // namespace

std::string FormatOpenMetrics(const Snapshot& pass, const FormatOptions& options) {
  return Exposition(pass, options, true);
}

std::string FormatPrometheus(const Snapshot& pass, const FormatOptions& options) {
  return Exposition(pass, options, false);
}

}  // namespace zefo::format
