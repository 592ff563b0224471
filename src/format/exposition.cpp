// Metric families named by Prometheus conventions: a "zefo_" prefix, the kind, the figure and
// its base unit; ratios 0-1 instead of percents; one label per naming dimension.
#include "format/exposition.h"

#include <unistd.h>

#include <deque>
#include <iterator>

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

constexpr char kUpdates[] = "Two-sample updates of the item since the monitor started.";

void Cpu(const Snapshot& pass, Builder& b) {
  Family& time = b.Gauge("zefo_cpu_time_ratio", "ratio",
                         "Share of the CPU's time spent in each mode between the last two "
                         "passes; guest time is also counted in user and nice.");
  Family& cur = b.Gauge("zefo_cpu_frequency_hertz", "hertz", "Current frequency of the CPU.");
  Family& min = b.Gauge("zefo_cpu_frequency_min_hertz", "hertz", "Lowest frequency of the CPU.");
  Family& max = b.Gauge("zefo_cpu_frequency_max_hertz", "hertz", "Highest frequency of the CPU.");
  Family& updates = b.Counter("zefo_cpu_updates", "", kUpdates);
  for (const auto& [name, cpu] : pass.cpu) {
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
  Family& size = b.Gauge("zefo_disk_size_bytes", "bytes", "Size of the mounted file system.");
  Family& avail = b.Gauge("zefo_disk_available_bytes", "bytes",
                          "Space of the file system available to unprivileged users.");
  Family& read = b.Gauge("zefo_disk_read_bytes_per_second", "bytes_per_second",
                         "Bytes read from the file system's disk per second.");
  Family& written = b.Gauge("zefo_disk_written_bytes_per_second", "bytes_per_second",
                            "Bytes written to the file system's disk per second.");
  Family& updates = b.Counter("zefo_disk_updates", "", kUpdates);
  for (const auto& [name, disk] : pass.disk) {
    const Labels l{{"mount", name}, {"device", disk.name}};
    Put(info, With(l, "file_system", disk.file_system), 1);
    Put(size, l, static_cast<double>(disk.total_size));
    Put(avail, l, static_cast<double>(disk.available_size));
    Put(read, l, disk.read_bandwidth);
    Put(written, l, disk.written_bandwidth);
    Put(updates, l, static_cast<double>(disk.count));
  }
}

void Memory(const Snapshot& pass, Builder& b) {
  const struct {
    const char* name;
    long long MemoryResourceItem::*field;
    const char* help;
  } sizes[] = {
      {"zefo_memory_total_bytes", &MemoryResourceItem::total, "Usable memory (MemTotal)."},
      {"zefo_memory_free_bytes", &MemoryResourceItem::free, "Unused memory (MemFree)."},
      {"zefo_memory_shared_bytes", &MemoryResourceItem::shared,
       "Shared memory (MemShared, which current kernels no longer report)."},
      {"zefo_memory_buffers_bytes", &MemoryResourceItem::buffers, "Block device buffers."},
      {"zefo_memory_cached_bytes", &MemoryResourceItem::cached, "Page cache (Cached)."},
      {"zefo_memory_shmem_bytes", &MemoryResourceItem::shmem, "Shared memory and tmpfs (Shmem)."},
      {"zefo_memory_sreclaimable_bytes", &MemoryResourceItem::sreclaimable,
       "Reclaimable slab memory (SReclaimable)."},
      {"zefo_memory_swap_total_bytes", &MemoryResourceItem::swap_total, "Swap space (SwapTotal)."},
      {"zefo_memory_swap_free_bytes", &MemoryResourceItem::swap_free,
       "Unused swap space (SwapFree)."},
  };
  std::vector<Family*> families;
  for (const auto& s : sizes) families.push_back(&b.Gauge(s.name, "bytes", s.help));
  Family& used = b.Gauge("zefo_memory_used_ratio", "ratio",
                         "Memory in use: total less free, buffers and page cache, over total.");
  Family& updates = b.Counter("zefo_memory_updates", "", kUpdates);
  for (const auto& entry : pass.memory) {
    const MemoryResourceItem& memory = entry.second;
    for (std::size_t i = 0; i < families.size(); ++i) {
      // -1: the kernel did not write the line.
      const long long bytes = memory.*(sizes[i].field);
      if (bytes >= 0) Put(*families[i], {}, static_cast<double>(bytes));
    }
    if (memory.total > 0) Put(used, {}, memory.used_percent / 100.0);
    Put(updates, {}, static_cast<double>(memory.count));
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
  Family& temp = b.Gauge("zefo_temperature_celsius", "celsius", "Temperature of the thermal zone.");
  Family& updates = b.Counter("zefo_temperature_updates", "", kUpdates);
  for (const auto& [name, zone] : pass.temperature) {
    const Labels l{{"zone", name}};
    Put(temp, l, zone.temperature);
    Put(updates, l, static_cast<double>(zone.count));
  }
}

void Ddr(const Snapshot& pass, Builder& b) {
  Family& port_read = b.Gauge("zefo_ddr_port_read_bytes_per_second", "bytes_per_second",
                              "DDR read bandwidth of the port, as the monitor device reports it.");
  Family& port_write =
      b.Gauge("zefo_ddr_port_write_bytes_per_second", "bytes_per_second",
              "DDR write bandwidth of the port, as the monitor device reports it.");
  Family& device_read = b.Gauge(
      "zefo_ddr_device_read_bytes_per_second", "bytes_per_second",
      "DDR read bandwidth of the whole device, its own figure (may exceed the ports' sum).");
  Family& device_write = b.Gauge(
      "zefo_ddr_device_write_bytes_per_second", "bytes_per_second",
      "DDR write bandwidth of the whole device, its own figure (may exceed the ports' sum).");
  Family& total_read = b.Gauge("zefo_ddr_total_read_bytes_per_second", "bytes_per_second",
                               "DDR read bandwidth summed over the ports.");
  Family& total_write = b.Gauge("zefo_ddr_total_write_bytes_per_second", "bytes_per_second",
                                "DDR write bandwidth summed over the ports.");
  Family& updates = b.Counter("zefo_ddr_updates", "", kUpdates);
  for (const auto& [name, ddr] : pass.ddr) {
    const Labels l{{"device", name}};
    for (const auto& [port, bw] : ddr.bandwidth) {
      Put(port_read, With(l, "port", port), bw.read);
      Put(port_write, With(l, "port", port), bw.write);
    }
    Put(device_read, l, ddr.cmd_sum_read);
    Put(device_write, l, ddr.cmd_sum_write);
    Put(total_read, l, ddr.total_read);
    Put(total_write, l, ddr.total_write);
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
  Family& last_cpu = b.Gauge("zefo_process_last_cpu", "", "The CPU the process last ran on.");
  Family& start = b.Gauge("zefo_process_start_after_boot_seconds", "seconds",
                          "When the process started, in seconds after boot.");
  Family& run =
      b.Gauge("zefo_process_run_time_seconds", "seconds", "Seconds since the process started.");
  Family& blkio = b.Counter("zefo_process_blkio_delay_seconds", "seconds",
                            "Time the process waited for block I/O.");
  const struct {
    const char* name;
    int64_t ProcInfoResourceItem::*field;
    const char* help;
  } sizes[] = {
      {"zefo_process_vm_size_bytes", &ProcInfoResourceItem::VmSize, "Virtual memory (VmSize)."},
      {"zefo_process_vm_rss_bytes", &ProcInfoResourceItem::VmRss, "Resident memory (VmRSS)."},
      {"zefo_process_rss_anon_bytes", &ProcInfoResourceItem::RssAnon,
       "Resident anonymous memory (RssAnon)."},
      {"zefo_process_rss_file_bytes", &ProcInfoResourceItem::RssFile,
       "Resident file mappings (RssFile)."},
      {"zefo_process_rss_shmem_bytes", &ProcInfoResourceItem::RssShmem,
       "Resident shared memory (RssShmem)."},
      {"zefo_process_vm_hwm_bytes", &ProcInfoResourceItem::VmHwm, "Peak resident memory (VmHWM)."},
      {"zefo_process_vm_data_bytes", &ProcInfoResourceItem::VmData, "Data segment (VmData)."},
      {"zefo_process_vm_stk_bytes", &ProcInfoResourceItem::VmStk, "Stack (VmStk)."},
      {"zefo_process_vm_exe_bytes", &ProcInfoResourceItem::VmExe, "Text segment (VmExe)."},
      {"zefo_process_vm_swap_bytes", &ProcInfoResourceItem::VmSwap, "Swapped-out memory (VmSwap)."},
      {"zefo_process_statm_size_bytes", &ProcInfoResourceItem::memSize, "Program size from statm."},
      {"zefo_process_statm_resident_bytes", &ProcInfoResourceItem::memResident,
       "Resident set from statm."},
      {"zefo_process_statm_shared_bytes", &ProcInfoResourceItem::memShared,
       "Resident file-backed pages from statm."},
      {"zefo_process_statm_text_bytes", &ProcInfoResourceItem::memText, "Text from statm."},
      {"zefo_process_statm_lib_bytes", &ProcInfoResourceItem::memLib, "Library from statm."},
      {"zefo_process_statm_data_bytes", &ProcInfoResourceItem::memData,
       "Data and stack from statm."},
  };
  std::vector<Family*> memory;
  for (const auto& s : sizes) memory.push_back(&b.Gauge(s.name, "bytes", s.help));
  Family& fds = b.Gauge("zefo_process_open_fds", "", "Open file descriptors.");
  Family& io_read = b.Gauge("zefo_process_io_read_bytes_per_second", "bytes_per_second",
                            "Bytes the process read from storage per second.");
  Family& io_write = b.Gauge("zefo_process_io_write_bytes_per_second", "bytes_per_second",
                             "Bytes the process wrote to storage per second.");
  Family& net_rx = b.Gauge("zefo_process_network_receive_bytes_per_second", "bytes_per_second",
                           "Bytes received per second on an interface of the process's network "
                           "namespace.");
  Family& net_tx = b.Gauge("zefo_process_network_transmit_bytes_per_second", "bytes_per_second",
                           "Bytes transmitted per second on an interface of the process's "
                           "network namespace.");
  Family& updates = b.Counter("zefo_process_updates", "", kUpdates);

  const long ticks = options.clock_ticks > 0 ? options.clock_ticks : sysconf(_SC_CLK_TCK);
  for (const auto& entry : pass.process) {
    const ProcInfoResourceItem& p = entry.second;
    const Labels l{{"pid", entry.first}, {"process", p.name}};
    // The command line ends in a NUL byte; a label has no use for it.
    std::string cmd_line = p.cmd_line;
    while (!cmd_line.empty() && cmd_line.back() == '\0') cmd_line.pop_back();
    Put(info, With(With(l, "zefo_name", p.zefo_name), "cmd_line", std::move(cmd_line)), 1);
    Put(state, With(l, "state", p.state), 1);
    Put(cpu, With(l, "mode", "user"), p.user / 100.0);
    Put(cpu, With(l, "mode", "system"), p.system / 100.0);
    Put(last_cpu, l, p.cpu_core);
    Put(start, l, p.start_time);
    Put(run, l, p.run_time);
    if (ticks > 0) Put(blkio, l, static_cast<double>(p.iowait) / static_cast<double>(ticks));
    for (std::size_t i = 0; i < memory.size(); ++i) {
      Put(*memory[i], l, static_cast<double>(p.*(sizes[i].field)));
    }
    Put(fds, l, static_cast<double>(p.fd_count));
    Put(io_read, l, p.io_read_bandwidth);
    Put(io_write, l, p.io_write_bandwidth);
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
  Cpu(pass, b);
  Bpu(pass, b);
  Disk(pass, b);
  Memory(pass, b);
  Network(pass, b);
  Temperature(pass, b);
  Ddr(pass, b);
  Process(pass, options, b);
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
