#include "top_model.h"

#include <time.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <functional>

#include "zefo/format/formats.h"

namespace zefo::top {

namespace {

// The units every human view of zefo-monitor uses: rates in decimal megabytes and gigabytes
// per second, sizes in binary mebibytes, frequencies in MHz.
constexpr double kMB = 1e6;
constexpr double kGB = 1e9;
constexpr double kMiB = 1048576.0;

std::string Printf(const char* format, double value) {
  char buffer[64];
  std::snprintf(buffer, sizeof buffer, format, value);
  return buffer;
}

// A figure that may be missing (NaN after two identical samples): "-" then, right-aligned.
std::string Figure(double value, const char* format, int width) {
  const std::string text = std::isfinite(value) ? Printf(format, value) : "-";
  return text.size() < static_cast<std::size_t>(width)
             ? std::string(static_cast<std::size_t>(width) - text.size(), ' ') + text
             : text;
}

Style Level(double percent) {
  if (!std::isfinite(percent) || percent < 50) return Style::kLow;
  return percent < 80 ? Style::kMid : Style::kHigh;
}

template <typename Item>
std::vector<std::pair<std::string, const Item*>> Natural(const std::map<std::string, Item>& items) {
  std::vector<std::pair<std::string, const Item*>> order;
  for (const auto& [name, item] : items) order.emplace_back(name, &item);
  std::stable_sort(order.begin(), order.end(), [](const auto& a, const auto& b) {
    return format::NaturalLess(a.first, b.first);
  });
  return order;
}

// A bar of `width` cells ("[|||||     ]" less the brackets) for a share in percent.
std::string Bar(double percent, std::size_t width) {
  const double share = std::isfinite(percent) ? std::clamp(percent, 0.0, 100.0) / 100.0 : 0.0;
  const auto filled = static_cast<std::size_t>(std::lround(share * static_cast<double>(width)));
  return std::string(filled, '|') + std::string(width - filled, ' ');
}

std::string Lower(std::string text) {
  for (char& c : text) {
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  }
  return text;
}

// Cuts a row of spans to `width` characters.
Row CutRow(Row row, std::size_t width) {
  std::size_t used = 0;
  Row out;
  for (Span& span : row) {
    if (used >= width) break;
    const std::size_t columns = Columns(span.text);
    if (used + columns > width) span.text = Fit(span.text, width - used);
    used += std::min(columns, width - used);
    out.push_back(std::move(span));
  }
  return out;
}

// Cells of equal width, as many to a row as fit; each cell is the spans `cell(i, width)` makes.
void Grid(std::size_t count, std::size_t min_cell, std::size_t width,
          const std::function<Row(std::size_t, std::size_t)>& cell, std::vector<Row>& rows) {
  if (count == 0) return;
  const std::size_t per_row = std::clamp<std::size_t>((width + 2) / (min_cell + 2), 1, count);
  const std::size_t cell_width = std::clamp((width + 2) / per_row - 2, min_cell, 2 * min_cell);
  for (std::size_t first = 0; first < count; first += per_row) {
    Row row;
    for (std::size_t i = first; i < std::min(count, first + per_row); ++i) {
      if (i > first) row.push_back({"  "});
      for (Span& span : cell(i, cell_width)) row.push_back(std::move(span));
    }
    rows.push_back(std::move(row));
  }
}

// "name [|||||   ] 45% 1500MHz" in `width` characters; the bar takes what the rest leaves.
Row CoreCell(const std::string& name, double percent, double mhz, std::size_t width) {
  const std::string label = Fit(name, 6);
  const std::string figures =
      Figure(percent, "%.0f%%", 5) + (mhz > 0 ? Figure(mhz, "%.0fMHz", 8) : std::string(8, ' '));
  const std::size_t fixed = 6 + 2 + figures.size();
  const std::size_t bar = width > fixed + 4 ? width - fixed : 4;
  return {{label, Style::kLabel},
          {"["},
          {Bar(percent, bar), Level(percent)},
          {"]"},
          {figures, Level(percent)}};
}

double CpuBusy(const CpuResourceItem& cpu) {
  return 100.0 - cpu.idle - cpu.iowait;
}

double ProcessCpu(const ProcInfoResourceItem& p) {
  const double share = p.user + p.system;
  return std::isnan(share) ? -1.0 : share;
}

double ProcessIo(const ProcInfoResourceItem& p) {
  const double io = p.io_read_bandwidth + p.io_write_bandwidth;
  return std::isnan(io) ? -1.0 : io;
}

std::string Clock(uint64_t update_time_ms) {
  const time_t seconds = static_cast<time_t>(update_time_ms / 1000);
  struct tm parts {};
  char buffer[32];
  if (update_time_ms == 0 || localtime_r(&seconds, &parts) == nullptr ||
      strftime(buffer, sizeof buffer, "%H:%M:%S", &parts) == 0) {
    return "--:--:--";
  }
  return buffer;
}

const char* SortName(SortKey key) {
  switch (key) {
    case SortKey::kCpu:
      return "CPU";
    case SortKey::kMemory:
      return "memory";
    case SortKey::kIo:
      return "I/O";
    case SortKey::kPid:
      return "pid";
    case SortKey::kName:
      return "name";
  }
  return "";
}

void TitleRow(const format::Snapshot& pass, const ViewState& view, std::vector<Row>& rows) {
  rows.push_back(
      {{"zefo-monitor", Style::kTitle},
       {" " + Clock(pass.update_time) + " " + view.source},
       {" sort " + std::string(SortName(view.sort)) + (view.reverse ? " (reversed)" : ""),
        Style::kDim},
       {"  q quit  c/m/i/p/n sort  r reverse  / filter", Style::kDim}});
}

void CpuPanel(const format::Snapshot& pass, std::size_t width, std::vector<Row>& rows) {
  if (pass.cpu.empty()) return;
  std::vector<std::pair<std::string, const CpuResourceItem*>> cores;
  const CpuResourceItem* total = nullptr;
  for (const auto& entry : Natural(pass.cpu)) {
    if (entry.first == "total") {
      total = entry.second;
    } else {
      cores.push_back(entry);
    }
  }
  Row title = {{"CPU", Style::kTitle}};
  if (total != nullptr) {
    title.push_back({" busy " + Figure(CpuBusy(*total), "%.0f%%", 4), Level(CpuBusy(*total))});
  }
  title.push_back({"  (busy: not idle or waiting for I/O; MHz now)", Style::kDim});
  rows.push_back(std::move(title));
  Grid(
      cores.size(), 30, width,
      [&](std::size_t i, std::size_t cell) {
        const CpuResourceItem& cpu = *cores[i].second;
        return CoreCell(cores[i].first, CpuBusy(cpu), static_cast<double>(cpu.cur_freq) / 1e3,
                        cell);
      },
      rows);
}

void BpuPanel(const format::Snapshot& pass, std::size_t width, std::vector<Row>& rows) {
  if (pass.bpu.empty()) return;
  const auto cores = Natural(pass.bpu);
  rows.push_back({{"BPU", Style::kTitle}, {"  (load; MHz now)", Style::kDim}});
  Grid(
      cores.size(), 30, width,
      [&](std::size_t i, std::size_t cell) {
        const BpuResourceItem& bpu = *cores[i].second;
        return CoreCell(cores[i].first, static_cast<double>(bpu.ratio),
                        static_cast<double>(bpu.cur_freq) / 1e6, cell);
      },
      rows);
}

// A table: one row per device, read/write of the whole device and of each port, under a key
// row naming the ports (the same five on every device of a board).
// A table: one row per device, read/write of the whole device and of each port, under a key
// row naming the ports (the same five on every device of a board).
void DdrPanel(const format::Snapshot& pass, bool ascii, std::vector<Row>& rows) {
  if (pass.ddr.empty()) return;
  const auto devices = Natural(pass.ddr);
  const auto heading = [](const std::string& text) { return Fit("    " + text, 12); };
  // "DDR r/w" over the device names: every figure below is read/write, in GB/s.
  Row key = {{"DDR", Style::kTitle},
             {" "},
             {"r", Style::kRead},
             {"/", Style::kDim},
             {"w", Style::kWrite},
             {" "},
             {heading("all GB/s"), Style::kLabel}};
  for (const auto& [port, bandwidth] : Natural(devices.front().second->bandwidth)) {
    key.push_back({heading(Escape(port, ascii)), Style::kLabel});
  }
  key.push_back({"  read/write, GB/s = 10^9 bytes/s", Style::kDim});
  rows.push_back(std::move(key));
  const auto pair = [](double read, double write, Row& row) {
    row.push_back({" " + Figure(read / kGB, "%.2f", 6), Style::kRead});
    row.push_back({"/", Style::kDim});
    row.push_back({Fit(Figure(write / kGB, "%.2f", 0), 4), Style::kWrite});
  };
  for (const auto& [name, ddr] : devices) {
    Row row = {{Fit(Escape(name, ascii), 8), Style::kLabel}};
    pair(ddr->total_read, ddr->total_write, row);
    for (const auto& [port, bandwidth] : Natural(ddr->bandwidth)) {
      pair(bandwidth->read, bandwidth->write, row);
    }
    rows.push_back(std::move(row));
  }
}

void MemoryPanel(const format::Snapshot& pass, std::size_t width, std::vector<Row>& rows) {
  if (pass.memory.empty()) return;
  const MemoryResourceItem& memory = pass.memory.begin()->second;
  if (memory.total <= 0) return;
  const auto known = [](long long bytes) { return static_cast<double>(bytes > 0 ? bytes : 0); };
  const double total = static_cast<double>(memory.total);
  const double used = total - known(memory.free) - known(memory.buffers) - known(memory.cached);
  const double percent = 100.0 * used / total;
  std::string figures = Figure(used / kMiB, "%.0f", 7) + "/" + Printf("%.0f MiB", total / kMiB);
  if (memory.swap_total > 0) {
    figures += "  swap " +
               Printf("%.0f", (known(memory.swap_total) - known(memory.swap_free)) / kMiB) + "/" +
               Printf("%.0f MiB", known(memory.swap_total) / kMiB);
  }
  const std::size_t fixed = 6 + 2 + 6 + figures.size();
  const std::size_t bar = width > fixed + 10 ? std::min<std::size_t>(width - fixed, 40) : 10;
  rows.push_back({{"MEM   ", Style::kTitle},
                  {"["},
                  {Bar(percent, bar), Level(percent)},
                  {"]"},
                  {Figure(percent, "%.0f%%", 5) + " ", Level(percent)},
                  {figures}});
}

// Items packed on rows of `width` after a title, at most `max_rows` rows; what does not fit is
// counted at the end.
void Packed(const std::string& title, Row unit, const std::vector<Row>& items, std::size_t width,
            std::size_t max_rows, std::vector<Row>& rows) {
  if (items.empty()) return;
  Row row = {{Fit(title, 6), Style::kTitle}};
  std::size_t used = 6, placed = 0, made = 0;
  for (Span& span : unit) {
    used += Columns(span.text);
    row.push_back(std::move(span));
  }
  for (const Row& item : items) {
    std::size_t columns = 2;
    for (const Span& span : item) columns += Columns(span.text);
    if (used + columns > width && placed > 0) {
      if (++made == max_rows) break;
      rows.push_back(std::move(row));
      row = {{std::string(6, ' ')}};
      used = 6;
    }
    row.push_back({"  "});
    row.insert(row.end(), item.begin(), item.end());
    used += columns;
    ++placed;
  }
  if (placed < items.size())
    row.push_back({" +" + std::to_string(items.size() - placed), Style::kDim});
  rows.push_back(std::move(row));
}

void TemperaturePanel(const format::Snapshot& pass, std::size_t width, bool ascii,
                      std::vector<Row>& rows) {
  std::vector<const TemperatureResourceItem*> zones;
  for (const auto& [name, zone] : Natural(pass.temperature)) zones.push_back(zone);
  std::vector<Row> items;
  for (const TemperatureResourceItem* zone : zones) {
    const double celsius = zone->temperature;
    const Style style = !std::isfinite(celsius) || celsius < 70 ? Style::kNormal
                        : celsius < 85                          ? Style::kMid
                                                                : Style::kHigh;
    items.push_back({{Escape(zone->zone_type, ascii), Style::kLabel},
                     {" " + Figure(celsius, "%.1f", 0) + (ascii ? "C" : "°C"), style}});
  }
  Packed("TEMP", {}, items, width, 2, rows);
}

// Disks and interfaces, busiest first.
void DiskPanel(const format::Snapshot& pass, std::size_t width, bool ascii,
               std::vector<Row>& rows) {
  std::vector<const DiskResourceItem*> disks;
  for (const auto& entry : pass.disk) disks.push_back(&entry.second);
  const auto rate = [](const DiskResourceItem* d) {
    const double r = d->read_bandwidth + d->written_bandwidth;
    return std::isnan(r) ? -1.0 : r;
  };
  std::stable_sort(disks.begin(), disks.end(),
                   [&](const auto* a, const auto* b) { return rate(a) > rate(b); });
  std::vector<Row> items;
  for (const DiskResourceItem* disk : disks) {
    items.push_back({{Escape(disk->mount_point, ascii), Style::kLabel},
                     {" r" + Figure(disk->read_bandwidth / kMB, "%.1f", 0), Style::kRead},
                     {" w" + Figure(disk->written_bandwidth / kMB, "%.1f", 0), Style::kWrite}});
  }
  Packed("DISK", {{{"MB/s", Style::kDim}}}, items, width, 1, rows);
}

void NetworkPanel(const format::Snapshot& pass, std::size_t width, bool ascii,
                  std::vector<Row>& rows) {
  std::vector<std::pair<std::string, const NetworkResourceItem*>> links;
  for (const auto& [name, link] : pass.network) links.emplace_back(name, &link);
  const auto rate = [](const NetworkResourceItem* n) {
    const double r = n->rx_bandwidth + n->tx_bandwidth;
    return std::isnan(r) ? -1.0 : r;
  };
  std::stable_sort(links.begin(), links.end(),
                   [&](const auto& a, const auto& b) { return rate(a.second) > rate(b.second); });
  std::vector<Row> items;
  for (const auto& [name, link] : links) {
    const bool colon = !name.empty() && name.back() == ':';  // as /proc/net/dev writes it
    items.push_back({{Escape(colon ? name.substr(0, name.size() - 1) : name, ascii), Style::kLabel},
                     {" rx" + Figure(link->rx_bandwidth / kMB, "%.2f", 0), Style::kRead},
                     {" tx" + Figure(link->tx_bandwidth / kMB, "%.2f", 0), Style::kWrite}});
  }
  Packed("NET", {{{"MB/s", Style::kDim}}}, items, width, 1, rows);
}

struct Columns_ {
  std::size_t name, registered, command;
};

Columns_ ProcessColumns(std::size_t width) {
  // "    PID " + name + " " + registered + " S  CPU%  RSS MiB  RD MB/s  WR MB/s" + command
  constexpr std::size_t kFixed = 8 + 1 + 1 + 2 + 6 + 9 + 9 + 9;
  Columns_ c{15, 12, 0};
  if (width > kFixed + 27 + 20) {
    c.name = 16;
    c.registered = 16;
    c.command = width - kFixed - c.name - c.registered - 1;
  } else if (width > kFixed + 27) {
    c.name += width - kFixed - 27;
  }
  return c;
}

Row ProcessHeader(const ViewState& view, const Columns_& c) {
  const auto mark = [&](SortKey key, const std::string& text) {
    return view.sort == key ? text + (view.reverse ? "^" : "v") : text + " ";
  };
  std::string text =
      "    PID" + mark(SortKey::kPid, "") + Fit(mark(SortKey::kName, "NAME"), c.name) + " " +
      Fit("REGISTERED", c.registered) + "S " + mark(SortKey::kCpu, "  CPU%") +
      mark(SortKey::kMemory, " RSS MiB") + mark(SortKey::kIo, " RD MB/s") + " WR MB/s ";
  if (c.command > 0) text += " COMMAND";
  return {{text, Style::kHeader}};
}

Row ProcessRow(const ProcInfoResourceItem& p, const Columns_& c, bool ascii) {
  Row row = {{Figure(p.pid, "%.0f", 7) + " ", Style::kNormal},
             {Fit(Escape(p.name, ascii), c.name) + " ", Style::kLabel},
             {Fit(Escape(p.zefo_name, ascii), c.registered) + " "},
             {Fit(Escape(p.state, ascii), 1) + " "},
             {Figure(p.user + p.system, "%.1f", 6) + " ", Level(p.user + p.system)},
             {Figure(static_cast<double>(p.VmRss) / kMiB, "%.1f", 8) + " "},
             {Figure(p.io_read_bandwidth / kMB, "%.2f", 8) + " ", Style::kRead},
             {Figure(p.io_write_bandwidth / kMB, "%.2f", 8) + " ", Style::kWrite}};
  if (c.command > 0) {
    std::string command = p.cmd_line;
    while (!command.empty() && command.back() == '\0') command.pop_back();
    std::replace(command.begin(), command.end(), '\0', ' ');
    row.push_back({" " + Escape(command, ascii), Style::kDim});
  }
  return row;
}

}  // namespace

std::string Escape(const std::string& text, bool ascii) {
  std::string out = format::EscapeForTerminal(text);
  if (!ascii) return out;
  // What is left is UTF-8: one '?' for each character beyond ASCII.
  std::string narrow;
  for (const char c : out) {
    const auto byte = static_cast<unsigned char>(c);
    if (byte < 0x80) {
      narrow += c;
    } else if ((byte & 0xC0) != 0x80) {
      narrow += '?';
    }
  }
  return narrow;
}

std::size_t Columns(const std::string& text) {
  std::size_t count = 0;
  for (const char c : text) count += (static_cast<unsigned char>(c) & 0xC0) != 0x80;
  return count;
}

std::string Fit(const std::string& text, std::size_t width) {
  std::size_t columns = 0, i = 0;
  for (; i < text.size(); ++i) {
    if ((static_cast<unsigned char>(text[i]) & 0xC0) != 0x80 && columns++ == width) break;
  }
  std::string out = text.substr(0, i);
  if (columns < width) out.append(width - columns, ' ');
  return out;
}

std::vector<const ProcInfoResourceItem*> ListedProcesses(const format::Snapshot& pass,
                                                         const ViewState& view) {
  const std::string needle = Lower(view.filter);
  std::vector<const ProcInfoResourceItem*> list;
  for (const auto& entry : pass.process) {
    const ProcInfoResourceItem& p = entry.second;
    if (!needle.empty() && Lower(p.name).find(needle) == std::string::npos &&
        Lower(p.zefo_name).find(needle) == std::string::npos &&
        std::to_string(p.pid).find(needle) == std::string::npos) {
      continue;
    }
    list.push_back(&p);
  }
  // Each key has its natural direction (largest first for figures, A to Z for names and
  // pids); ties go by pid so the list does not jump between passes.
  const auto before = [&view](const ProcInfoResourceItem* a, const ProcInfoResourceItem* b) {
    switch (view.sort) {
      case SortKey::kCpu:
        if (ProcessCpu(*a) != ProcessCpu(*b)) return ProcessCpu(*a) > ProcessCpu(*b);
        break;
      case SortKey::kMemory:
        if (a->VmRss != b->VmRss) return a->VmRss > b->VmRss;
        break;
      case SortKey::kIo:
        if (ProcessIo(*a) != ProcessIo(*b)) return ProcessIo(*a) > ProcessIo(*b);
        break;
      case SortKey::kName:
        if (a->name != b->name) return a->name < b->name;
        break;
      case SortKey::kPid:
        break;
    }
    return a->pid < b->pid;
  };
  std::stable_sort(list.begin(), list.end(), before);
  if (view.reverse) std::reverse(list.begin(), list.end());
  return list;
}

std::vector<Row> Layout(const format::Snapshot& pass, ViewState& view, int width, int height) {
  const auto w = static_cast<std::size_t>(std::max(width, 1));
  const auto h = static_cast<std::size_t>(std::max(height, 1));
  std::vector<Row> rows;
  TitleRow(pass, view, rows);
  CpuPanel(pass, w, rows);
  BpuPanel(pass, w, rows);
  DdrPanel(pass, view.ascii, rows);
  MemoryPanel(pass, w, rows);
  TemperaturePanel(pass, w, view.ascii, rows);
  DiskPanel(pass, w, view.ascii, rows);
  NetworkPanel(pass, w, view.ascii, rows);

  // The process list keeps at least its header, three rows and the status line; the panels
  // above give up their last rows for that on a short terminal.
  const bool processes =
      std::find(pass.kinds.begin(), pass.kinds.end(), ProcInfo) != pass.kinds.end();
  const std::size_t reserve = processes ? 5 : 0;
  if (rows.size() + reserve > h)
    rows.resize(h > reserve ? h - reserve : std::min<std::size_t>(h, 1));
  if (processes && rows.size() + 2 < h) {
    const Columns_ columns = ProcessColumns(w);
    const auto list = ListedProcesses(pass, view);
    const std::size_t room = h - rows.size() - 2;
    view.scroll = std::min(view.scroll, list.size() > room ? list.size() - room : 0);
    rows.push_back(ProcessHeader(view, columns));
    const std::size_t end = std::min(list.size(), view.scroll + room);
    for (std::size_t i = view.scroll; i < end; ++i)
      rows.push_back(ProcessRow(*list[i], columns, view.ascii));
    while (rows.size() + 1 < h) rows.push_back({});
    std::string status = list.empty()
                             ? "no processes"
                             : "processes " + std::to_string(view.scroll + 1) + "-" +
                                   std::to_string(end) + " of " + std::to_string(list.size());
    if (view.editing) {
      rows.push_back({{"filter: " + Escape(view.filter, view.ascii) + "_", Style::kPrompt},
                      {"  Enter keeps it, Esc clears it", Style::kDim}});
    } else {
      if (!view.filter.empty()) status += " matching \"" + Escape(view.filter, view.ascii) + "\"";
      rows.push_back({{status, Style::kDim}});
    }
  }
  for (Row& row : rows) row = CutRow(std::move(row), w);
  return rows;
}

bool HandleKey(int key, ViewState& view, std::size_t list_rows) {
  if (view.editing) {
    if (key == kKeyEnter) {
      view.editing = false;
    } else if (key == kKeyEscape) {
      view.editing = false;
      view.filter.clear();
    } else if (key == kKeyBackspace) {
      if (!view.filter.empty()) view.filter.pop_back();
    } else if (key >= 0x20 && key < 0x7F && view.filter.size() < 64) {
      view.filter += static_cast<char>(key);
    }
    view.scroll = 0;
    return true;
  }
  const auto sort = [&view](SortKey key) {
    view.reverse = view.sort == key ? !view.reverse : false;
    view.sort = key;
    view.scroll = 0;
  };
  const std::size_t page = std::max<std::size_t>(list_rows, 1);
  switch (key) {
    case 'q':
    case 'Q':
      return false;
    case 'c':
    case 'C':
      sort(SortKey::kCpu);
      break;
    case 'm':
    case 'M':
      sort(SortKey::kMemory);
      break;
    case 'i':
    case 'I':
      sort(SortKey::kIo);
      break;
    case 'p':
    case 'P':
      sort(SortKey::kPid);
      break;
    case 'n':
    case 'N':
      sort(SortKey::kName);
      break;
    case 'r':
    case 'R':
      view.reverse = !view.reverse;
      break;
    case '/':
      view.editing = true;
      break;
    case kKeyEscape:
      view.filter.clear();
      view.scroll = 0;
      break;
    case kKeyUp:
    case 'k':
      view.scroll -= std::min<std::size_t>(view.scroll, 1);
      break;
    case kKeyDown:
    case 'j':
      ++view.scroll;
      break;  // Layout clamps it
    case kKeyPageUp:
      view.scroll -= std::min(view.scroll, page);
      break;
    case kKeyPageDown:
      view.scroll += page;
      break;
    case kKeyHome:
      view.scroll = 0;
      break;
    case kKeyEnd:
      view.scroll = static_cast<std::size_t>(-1) / 2;
      break;
    default:
      break;
  }
  return true;
}

}  // namespace zefo::top
