#include "pass_history.h"

#include <charconv>
#include <cmath>
#include <cstring>
#include <limits>
#include <map>
#include <nlohmann/json.hpp>
#include <utility>

namespace zefo::cli {

namespace {

constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();

// What the ring charges for one pass besides its values, and for one list of keys besides its
// keys: the deque slot, the vectors' headers, the shared pointer's control block.
constexpr std::size_t kEntryBytes = sizeof(PassHistory::Entry);
constexpr std::size_t kLayoutBytes = sizeof(PassHistory::Layout) + 32;

std::size_t KeyBytes(const SeriesKey& key) {
  return sizeof(SeriesKey) + key.item.size() + key.part.size();
}

std::size_t LayoutBytes(const PassHistory::Layout& layout) {
  std::size_t bytes = kLayoutBytes;
  for (const SeriesKey& key : layout) bytes += KeyBytes(key);
  return bytes;
}

std::size_t EntryBytes(const PassHistory::Entry& entry) {
  return kEntryBytes + entry.values.size() * sizeof(float);
}

float Value(double value) {
  return std::isfinite(value) ? static_cast<float>(value) : kNaN;
}

void Add(PassFigures& out, const char* kind, const std::string& item, const std::string& part,
         const char* figure, double value) {
  out.keys.push_back(SeriesKey{kind, item, part, figure});
  out.values.push_back(Value(value));
}

std::string JsonString(const std::string& text) {
  return nlohmann::json(text).dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

void AppendNumber(std::string& out, float value) {
  if (!std::isfinite(value)) {
    out += "null";
    return;
  }
  char buffer[32];
  const auto result = std::to_chars(buffer, buffer + sizeof buffer, value);
  out.append(buffer, result.ptr);
}

}  // namespace

bool operator==(const SeriesKey& a, const SeriesKey& b) {
  return std::strcmp(a.kind, b.kind) == 0 && a.item == b.item && a.part == b.part &&
         std::strcmp(a.figure, b.figure) == 0;
}

bool operator<(const SeriesKey& a, const SeriesKey& b) {
  if (const int c = std::strcmp(a.kind, b.kind); c != 0) return c < 0;
  if (a.item != b.item) return a.item < b.item;
  if (a.part != b.part) return a.part < b.part;
  return std::strcmp(a.figure, b.figure) < 0;
}

PassFigures ChartFigures(const format::Snapshot& pass) {
  PassFigures out;
  out.time = pass.update_time;
  const std::string whole;
  for (const auto& [name, cpu] : pass.cpu) {
    Add(out, "cpu", name, whole, "busy", 100.0 - cpu.idle - cpu.iowait);
    // The machine-wide item and CPUs without cpufreq keep -1.
    if (cpu.cur_freq > 0)
      Add(out, "cpu", name, whole, "cur_freq", static_cast<double>(cpu.cur_freq));
  }
  for (const auto& [name, bpu] : pass.bpu) {
    Add(out, "bpu", name, whole, "ratio", static_cast<double>(bpu.ratio));
    if (bpu.cur_freq > 0)
      Add(out, "bpu", name, whole, "cur_freq", static_cast<double>(bpu.cur_freq));
  }
  for (const auto& [name, ddr] : pass.ddr) {
    Add(out, "ddr", name, whole, "read", ddr.cmd_sum_read);
    Add(out, "ddr", name, whole, "write", ddr.cmd_sum_write);
    for (const auto& [port, bandwidth] : ddr.bandwidth) {
      Add(out, "ddr", name, port, "read", bandwidth.read);
      Add(out, "ddr", name, port, "write", bandwidth.write);
    }
  }
  for (const auto& [name, memory] : pass.memory) {
    if (memory.total <= 0) continue;
    // -1 is a figure the kernel did not give.
    const auto known = [](long long bytes) { return bytes > 0 ? bytes : 0; };
    const long long used =
        memory.total - known(memory.free) - known(memory.buffers) - known(memory.cached);
    Add(out, "memory", name, whole, "used", static_cast<double>(used));
    Add(out, "memory", name, whole, "total", static_cast<double>(memory.total));
  }
  for (const auto& [name, disk] : pass.disk) {
    Add(out, "disk", name, whole, "read", disk.read_bandwidth);
    Add(out, "disk", name, whole, "write", disk.written_bandwidth);
  }
  for (const auto& [name, network] : pass.network) {
    Add(out, "network", name, whole, "rx", network.rx_bandwidth);
    Add(out, "network", name, whole, "tx", network.tx_bandwidth);
  }
  for (const auto& [name, zone] : pass.temperature) {
    Add(out, "temperature", name, whole, "celsius", zone.temperature);
  }
  return out;
}

PassHistory::PassHistory(uint64_t window_ms, std::size_t budget_bytes)
    : window_ms_(window_ms), budget_bytes_(budget_bytes) {}

void PassHistory::Push(PassFigures pass) {
  if (!entries_.empty() && pass.time <= entries_.back().time) return;
  Entry entry;
  entry.time = pass.time;
  std::size_t layout_bytes = 0;
  if (!entries_.empty() && *entries_.back().layout == pass.keys) {
    entry.layout = entries_.back().layout;
  } else {
    // A pass larger than the whole budget keeps the series that fit, in order.
    std::size_t bytes = kEntryBytes + kLayoutBytes;
    std::size_t fit = 0;
    while (fit < pass.keys.size() &&
           bytes + KeyBytes(pass.keys[fit]) + sizeof(float) <= budget_bytes_) {
      bytes += KeyBytes(pass.keys[fit]) + sizeof(float);
      ++fit;
    }
    if (bytes > budget_bytes_) return;
    pass.keys.resize(fit);
    pass.values.resize(fit);
    layout_bytes = LayoutBytes(pass.keys);
    entry.layout = std::make_shared<const Layout>(std::move(pass.keys));
  }
  pass.values.resize(entry.layout->size(), kNaN);
  pass.values.shrink_to_fit();
  entry.values = std::move(pass.values);
  bytes_ += EntryBytes(entry) + layout_bytes;
  entries_.push_back(std::move(entry));

  const uint64_t newest = entries_.back().time;
  while (entries_.size() > 1 &&
         (bytes_ > budget_bytes_ || entries_.front().time + window_ms_ <= newest)) {
    PopOldest();
  }
}

void PassHistory::PopOldest() {
  const Entry& oldest = entries_.front();
  bytes_ -= EntryBytes(oldest);
  if (entries_.size() < 2 || entries_[1].layout != oldest.layout) {
    bytes_ -= LayoutBytes(*oldest.layout);
  }
  entries_.pop_front();
}

std::vector<PassHistory::Entry> PassHistory::Query(double seconds) const {
  std::vector<Entry> out;
  if (entries_.empty() || !(seconds > 0)) return out;
  const uint64_t newest = entries_.back().time;
  const double span = seconds * 1000;
  const uint64_t after =
      span >= static_cast<double>(newest) ? 0 : newest - static_cast<uint64_t>(span);
  auto first = entries_.begin();
  while (first != entries_.end() && first->time <= after) ++first;
  out.assign(first, entries_.end());
  return out;
}

std::string HistoryJson(const std::vector<PassHistory::Entry>& entries, const HistoryFacts& facts) {
  // The union of the passes' series, in the order they first appear; each distinct layout is
  // mapped onto it once.
  std::vector<const SeriesKey*> series;
  std::map<SeriesKey, std::size_t> column_of;
  std::vector<std::vector<float>> columns;
  const PassHistory::Layout* mapped = nullptr;
  std::vector<std::size_t> mapping;
  for (std::size_t row = 0; row < entries.size(); ++row) {
    const PassHistory::Entry& entry = entries[row];
    if (entry.layout.get() != mapped) {
      mapped = entry.layout.get();
      mapping.clear();
      for (const SeriesKey& key : *mapped) {
        const auto [at, added] = column_of.emplace(key, series.size());
        if (added) {
          series.push_back(&key);
          columns.emplace_back(entries.size(), kNaN);
        }
        mapping.push_back(at->second);
      }
    }
    for (std::size_t i = 0; i < entry.values.size(); ++i)
      columns[mapping[i]][row] = entry.values[i];
  }

  std::string out = "{\"window_seconds\":" + std::to_string(facts.window_ms / 1000) +
                    ",\"budget_bytes\":" + std::to_string(facts.budget_bytes) +
                    ",\"bytes\":" + std::to_string(facts.bytes) +
                    ",\"period_ms\":" + std::to_string(facts.period_ms) + ",\"times\":[";
  for (std::size_t row = 0; row < entries.size(); ++row) {
    if (row > 0) out += ',';
    out += std::to_string(entries[row].time);
  }
  out += "],\"series\":[";
  for (std::size_t s = 0; s < series.size(); ++s) {
    const SeriesKey& key = *series[s];
    if (s > 0) out += ',';
    out += "{\"kind\":" + JsonString(key.kind) + ",\"item\":" + JsonString(key.item) +
           ",\"part\":" + JsonString(key.part) + ",\"figure\":" + JsonString(key.figure) +
           ",\"values\":[";
    for (std::size_t row = 0; row < columns[s].size(); ++row) {
      if (row > 0) out += ',';
      AppendNumber(out, columns[s][row]);
    }
    out += "]}";
  }
  out += "]}\n";
  return out;
}

}  // namespace zefo::cli
