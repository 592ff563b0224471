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

constexpr double kMiB = 1048576.0;
constexpr double kGiB = 1073741824.0;

// "cpu10" after "cpu9": names compare by their text before the trailing digits, then by the
// number those digits make.
bool NaturalLess(const std::string& a, const std::string& b) {
  const auto split = [](const std::string& s) {
    std::size_t digits = s.size();
    while (digits > 0 && s[digits - 1] >= '0' && s[digits - 1] <= '9') --digits;
    const bool has_number = digits < s.size() && s.size() - digits < 19;
    return std::make_pair(s.substr(0, digits),
                          has_number ? std::strtoll(s.c_str() + digits, nullptr, 10) : -1LL);
  };
  return split(a) < split(b);
}

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

std::string Time(uint64_t update_time_ms, bool utc) {
  const time_t seconds = static_cast<time_t>(update_time_ms / 1000);
  struct tm parts {};
  if ((utc ? gmtime_r(&seconds, &parts) : localtime_r(&seconds, &parts)) == nullptr) return "-";
  char buffer[32];
  return strftime(buffer, sizeof buffer, "%Y-%m-%d %H:%M:%S", &parts) > 0 ? buffer : "-";
}

double Busy(const CpuResourceItem& cpu) {
  return 100.0 - cpu.idle - cpu.iowait;
}

void AppendCpu(const Snapshot& pass, std::string& out) {
  out += " CPU";
  const auto total = pass.cpu.find("total");
  if (total != pass.cpu.end()) out += " " + Fixed(Busy(total->second), 0, "%");
  std::string cores;
  for (const auto* entry : NaturalOrder(pass.cpu)) {
    if (entry->first == "total") continue;
    const CpuResourceItem& cpu = entry->second;
    cores += cores.empty() ? "[" : ",";
    cores += Fixed(Busy(cpu), 0, "%");
    if (cpu.cur_freq > 0) cores += "@" + Printf("%.0fMHz", static_cast<double>(cpu.cur_freq) / 1e3);
  }
  if (!cores.empty()) out += " " + cores + "]";
}

void AppendMemory(const MemoryResourceItem& memory, std::string& out) {
  if (memory.total <= 0) return;
  const auto known = [](long long bytes) { return bytes > 0 ? bytes : 0; };
  const long long used =
      memory.total - known(memory.free) - known(memory.buffers) - known(memory.cached);
  out += " MEM " + Printf("%.0f", static_cast<double>(used) / kMiB) + "/" +
         Printf("%.0fMB", static_cast<double>(memory.total) / kMiB);
}

void AppendBpu(const Snapshot& pass, std::string& out) {
  std::string cores;
  for (const auto* entry : NaturalOrder(pass.bpu)) {
    const BpuResourceItem& bpu = entry->second;
    cores += cores.empty() ? " BPU [" : ",";
    cores += std::to_string(bpu.ratio) + "%";
    if (bpu.cur_freq > 0) cores += "@" + Printf("%.0fMHz", static_cast<double>(bpu.cur_freq) / 1e6);
  }
  if (!cores.empty()) out += cores + "]";
}

void AppendDdr(const Snapshot& pass, std::string& out) {
  out += " DDR";
  for (const auto* entry : NaturalOrder(pass.ddr)) {
    const QeltDdrResourceItem& ddr = entry->second;
    out += " " + Printable(entry->first) + " r" + Fixed(ddr.total_read / kGiB, 2, "GB/s") + " w" +
           Fixed(ddr.total_write / kGiB, 2, "GB/s");
  }
}

// The three hottest zones, hottest first.
void AppendTemperature(const Snapshot& pass, std::string& out) {
  std::vector<const TemperatureResourceItem*> zones;
  for (const auto& entry : pass.temperature) zones.push_back(&entry.second);
  const auto hotter = [](const TemperatureResourceItem* a, const TemperatureResourceItem* b) {
    // NaN sorts last.
    if (std::isnan(a->temperature) || std::isnan(b->temperature)) {
      return !std::isnan(a->temperature) && std::isnan(b->temperature);
    }
    return a->temperature > b->temperature;
  };
  const std::size_t shown = std::min<std::size_t>(3, zones.size());
  std::partial_sort(zones.begin(), zones.begin() + static_cast<std::ptrdiff_t>(shown), zones.end(),
                    hotter);
  out += " TEMP";
  for (std::size_t i = 0; i < shown; ++i) {
    out += " " + Printable(zones[i]->zone_type) + " " + Fixed(zones[i]->temperature, 1, "°C");
  }
}

// The three processes with the largest CPU share (user + system), largest first.
void AppendTop(const Snapshot& pass, std::string& out) {
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
  const std::size_t shown = std::min<std::size_t>(3, procs.size());
  std::partial_sort(procs.begin(), procs.begin() + static_cast<std::ptrdiff_t>(shown), procs.end(),
                    busier);
  out += " TOP";
  for (std::size_t i = 0; i < shown; ++i) {
    out += " " + Printable(procs[i]->name) + "[" + std::to_string(procs[i]->pid) + "] " +
           Fixed(procs[i]->user + procs[i]->system, 1, "%");
  }
}

}  // namespace

std::string FormatLine(const Snapshot& pass, const FormatOptions& options) {
  std::string out = Time(pass.update_time, options.utc);
  if (!pass.cpu.empty()) AppendCpu(pass, out);
  if (!pass.memory.empty()) AppendMemory(pass.memory.begin()->second, out);
  if (!pass.bpu.empty()) AppendBpu(pass, out);
  if (!pass.ddr.empty()) AppendDdr(pass, out);
  if (!pass.temperature.empty()) AppendTemperature(pass, out);
  if (!pass.process.empty()) AppendTop(pass, out);
  out += "\n";
  return out;
}

}  // namespace zefo::format
