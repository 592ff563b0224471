// The one-line format: a glance at the board per pass, in human units and a fixed order.
#include <time.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <vector>

#include "format/text.h"
#include "zefo/format/formats.h"

namespace zefo::format {

namespace {

// One convention for every human view: rates in decimal units (MB/s is 10^6 bytes per second,
// GB/s 10^9), sizes in binary ones (MiB is 2^20 bytes).
constexpr double kMiB = 1048576.0;
constexpr double kGB = 1e9;

// ANSI colours for a terminal: section names, and figures by how worrying they are.
constexpr const char* kLabelColour = "\033[36m";
constexpr const char* kMidColour = "\033[33m";
constexpr const char* kHighColour = "\033[31m";
constexpr const char* kReset = "\033[0m";

template <typename Item>
std::vector<const std::pair<const std::string, Item>*> NaturalOrder(
    const std::map<std::string, Item>& items) {
  std::vector<const std::pair<const std::string, Item>*> order;
  for (const auto& entry : items) order.push_back(&entry);
  std::stable_sort(order.begin(), order.end(),
                   [](const auto* a, const auto* b) { return NaturalLess(a->first, b->first); });
  return order;
}

std::string Printf(const char* format, double value) {
  char buffer[64];
  std::snprintf(buffer, sizeof buffer, format, value);
  return buffer;
}

// A figure that may be missing (NaN after identical samples): "-" then.
std::string Fixed(double value, int decimals, const char* unit) {
  if (!std::isfinite(value)) return "-";
  char buffer[64];
  std::snprintf(buffer, sizeof buffer, "%.*f%s", decimals, value, unit);
  return buffer;
}

// A name as a terminal can show it: control characters and bytes that are not UTF-8 escaped,
// so the line stays one line and a process cannot send the terminal commands.
std::string Printable(const std::string& name) {
  return detail::EscapeControls(name, false);
}

std::string Time(uint64_t update_time_ms, bool utc, bool date) {
  const time_t seconds = static_cast<time_t>(update_time_ms / 1000);
  struct tm parts {};
  if ((utc ? gmtime_r(&seconds, &parts) : localtime_r(&seconds, &parts)) == nullptr) return "-";
  char buffer[32];
  return strftime(buffer, sizeof buffer, date ? "%Y-%m-%d %H:%M:%S" : "%H:%M:%S", &parts) > 0
             ? buffer
             : "-";
}

double Busy(const CpuResourceItem& cpu) {
  return 100.0 - cpu.idle - cpu.iowait;
}

// Writes one line. Every field has a fixed width, so that passes line up under each other.
class LineWriter {
 public:
  explicit LineWriter(const FormatOptions& options) : options_(options) {}

  void Label(const char* name) {
    out_ += ' ';
    Coloured(name, kLabelColour);
  }
  // `text` right-aligned in `width` columns, coloured by `level` (0 calm, 1 mid, 2 high).
  void Figure(const std::string& text, std::size_t width, int level = 0) {
    out_ += ' ';
    std::size_t columns = 0;
    for (const char c : text) columns += (static_cast<unsigned char>(c) & 0xC0) != 0x80;
    const std::string padded = columns < width ? std::string(width - columns, ' ') + text : text;
    Coloured(padded, level == 2 ? kHighColour : level == 1 ? kMidColour : nullptr);
  }
  void Text(const std::string& text) { out_ += text; }
  std::string& out() { return out_; }

 private:
  void Coloured(const std::string& text, const char* colour) {
    if (options_.color && colour != nullptr) {
      out_ += colour + text + kReset;
    } else {
      out_ += text;
    }
  }

  const FormatOptions& options_;
  std::string out_;
};

int BusyLevel(double percent) {
  return !std::isfinite(percent) || percent < 50 ? 0 : percent < 80 ? 1 : 2;
}

int HeatLevel(double celsius) {
  return !std::isfinite(celsius) || celsius < 70 ? 0 : celsius < 85 ? 1 : 2;
}

// "CPU  45% max  99%": all CPUs, and the busiest one; with details each CPU and its frequency.
void AppendCpu(const Snapshot& pass, bool details, LineWriter& line) {
  line.Label("CPU");
  const auto total = pass.cpu.find("total");
  const double busy = total != pass.cpu.end() ? Busy(total->second) : NAN;
  line.Figure(Fixed(busy, 0, "%"), 4, BusyLevel(busy));
  double busiest = NAN;
  std::string cores;
  for (const auto* entry : NaturalOrder(pass.cpu)) {
    if (entry->first == "total") continue;
    const CpuResourceItem& cpu = entry->second;
    if (std::isfinite(Busy(cpu)) && !(Busy(cpu) <= busiest)) busiest = Busy(cpu);
    cores += cores.empty() ? "[" : ",";
    cores += Fixed(Busy(cpu), 0, "%");
    if (cpu.cur_freq > 0) cores += "@" + Printf("%.0fMHz", static_cast<double>(cpu.cur_freq) / 1e3);
  }
  line.Text(" max");
  line.Figure(Fixed(busiest, 0, "%"), 4, BusyLevel(busiest));
  if (details && !cores.empty()) line.Text(" " + cores + "]");
}

// "MEM  1080/ 2000MiB": used (total less free, buffers and page cache) over total.
void AppendMemory(const MemoryResourceItem& memory, LineWriter& line) {
  if (memory.total <= 0) return;
  const auto known = [](long long bytes) { return bytes > 0 ? bytes : 0; };
  const long long used =
      memory.total - known(memory.free) - known(memory.buffers) - known(memory.cached);
  line.Label("MEM");
  line.Figure(Printf("%.0f", static_cast<double>(used) / kMiB), 5,
              BusyLevel(100.0 * static_cast<double>(used) / static_cast<double>(memory.total)));
  line.Text("/" + Printf("%5.0fMiB", static_cast<double>(memory.total) / kMiB));
}

// "BPU  45%  85%": each core's load; with details its frequency too.
void AppendBpu(const Snapshot& pass, bool details, LineWriter& line) {
  line.Label("BPU");
  for (const auto* entry : NaturalOrder(pass.bpu)) {
    const BpuResourceItem& bpu = entry->second;
    std::string text = std::to_string(bpu.ratio) + "%";
    if (details && bpu.cur_freq > 0) {
      text += "@" + Printf("%.0fMHz", static_cast<double>(bpu.cur_freq) / 1e6);
    }
    line.Figure(text, details ? 11 : 4, BusyLevel(static_cast<double>(bpu.ratio)));
  }
}

// "DDR r16.11 w 4.03GB/s": read and write of all devices together (each device's ports
// summed); with details each device on its own.
void AppendDdr(const Snapshot& pass, bool details, LineWriter& line) {
  line.Label("DDR");
  if (details) {
    for (const auto* entry : NaturalOrder(pass.ddr)) {
      const QeltDdrResourceItem& ddr = entry->second;
      line.Text(" " + Printable(entry->first) + " r" + Fixed(ddr.total_read / kGB, 2, "") + " w" +
                Fixed(ddr.total_write / kGB, 2, "GB/s"));
    }
    return;
  }
  double read = 0, write = 0;
  for (const auto& entry : pass.ddr) {
    read += entry.second.total_read;
    write += entry.second.total_write;
  }
  line.Text(" r" + Printf("%5.2f", read / kGB) + " w" + Printf("%5.2fGB/s", write / kGB));
}

// The hottest zone; with details the three hottest and their names, hottest first.
void AppendTemperature(const Snapshot& pass, bool details, LineWriter& line) {
  std::vector<const TemperatureResourceItem*> zones;
  for (const auto& entry : pass.temperature) zones.push_back(&entry.second);
  const auto hotter = [](const TemperatureResourceItem* a, const TemperatureResourceItem* b) {
    // NaN sorts last.
    if (std::isnan(a->temperature) || std::isnan(b->temperature)) {
      return !std::isnan(a->temperature) && std::isnan(b->temperature);
    }
    return a->temperature > b->temperature;
  };
  const std::size_t shown = std::min<std::size_t>(details ? 3 : 1, zones.size());
  std::partial_sort(zones.begin(), zones.begin() + static_cast<std::ptrdiff_t>(shown), zones.end(),
                    hotter);
  line.Label("TEMP");
  for (std::size_t i = 0; i < shown; ++i) {
    if (details) line.Text(" " + Printable(zones[i]->zone_type));
    line.Figure(Fixed(zones[i]->temperature, 1, "°C"), 7, HeatLevel(zones[i]->temperature));
  }
}

// The process with the largest CPU share (user + system, percent of one core); with details the
// three largest and their ids, largest first.
void AppendTop(const Snapshot& pass, bool details, LineWriter& line) {
  std::vector<const ProcInfoResourceItem*> procs;
  for (const auto& entry : pass.process) procs.push_back(&entry.second);
  const auto share = [](const ProcInfoResourceItem* p) {
    const double s = p->user + p->system;
    return std::isnan(s) ? -1.0 : s;
  };
  const auto busier = [&share](const ProcInfoResourceItem* a, const ProcInfoResourceItem* b) {
    if (share(a) != share(b)) return share(a) > share(b);
    return a->pid < b->pid;
  };
  const std::size_t shown = std::min<std::size_t>(details ? 3 : 1, procs.size());
  std::partial_sort(procs.begin(), procs.begin() + static_cast<std::ptrdiff_t>(shown), procs.end(),
                    busier);
  line.Label("TOP");
  for (std::size_t i = 0; i < shown; ++i) {
    const std::string name = Printable(procs[i]->name);
    if (details) {
      line.Text(" " + name + "[" + std::to_string(procs[i]->pid) + "]");
    } else {
      // Cut to 12 characters (whole UTF-8 sequences) and padded, for the fixed width.
      std::size_t bytes = 0, chars = 0;
      while (bytes < name.size() && chars < 12) {
        ++chars;
        ++bytes;
        while (bytes < name.size() && (static_cast<unsigned char>(name[bytes]) & 0xC0) == 0x80) {
          ++bytes;
        }
      }
      line.Text(" " + name.substr(0, bytes) + std::string(12 - chars, ' '));
    }
    const double cpu = procs[i]->user + procs[i]->system;
    line.Figure(Fixed(cpu, 1, "%"), 6, BusyLevel(cpu));
  }
}

}  // namespace

std::string FormatLine(const Snapshot& pass, const FormatOptions& options) {
  const bool details = options.line_details;
  LineWriter line(options);
  line.Text(Time(pass.update_time, options.utc, details));
  if (!pass.cpu.empty()) AppendCpu(pass, details, line);
  if (!pass.memory.empty()) AppendMemory(pass.memory.begin()->second, line);
  if (!pass.bpu.empty()) AppendBpu(pass, details, line);
  if (!pass.ddr.empty()) AppendDdr(pass, details, line);
  if (!pass.temperature.empty()) AppendTemperature(pass, details, line);
  if (!pass.process.empty()) AppendTop(pass, details, line);
  line.Text("\n");
  return std::move(line.out());
}

}  // namespace zefo::format
