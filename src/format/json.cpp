// JSON Lines: one object per pass with every item of every kind and all of its figures, under
// the names the item classes give them.
#include <cmath>
#include <nlohmann/json.hpp>

#include "zefo/format/formats.h"

namespace zefo::format {

namespace {

using Json = nlohmann::ordered_json;

// Shares are NaN after two identical samples and may be infinite; JSON has no such numbers.
Json Real(double value) {
  return std::isfinite(value) ? Json(value) : Json(nullptr);
}

// The library presets a figure it could not read to -1; JSON says it does not know.
Json Known(long long value) {
  return value >= 0 ? Json(value) : Json(nullptr);
}

// The kernel ends a command line in a NUL, which the library keeps; it is no part of the text.
std::string_view CommandLine(const std::string& cmd_line) {
  std::string_view text(cmd_line);
  if (!text.empty() && text.back() == '\0') text.remove_suffix(1);
  return text;
}

Json ToJson(const CpuResourceItem& i) {
  return Json{{"count", i.count},
              {"label", i.label},
              {"user", Real(i.user)},
              {"nice", Real(i.nice)},
              {"system", Real(i.system)},
              {"idle", Real(i.idle)},
              {"iowait", Real(i.iowait)},
              {"irq", Real(i.irq)},
              {"softirq", Real(i.softirq)},
              {"steal", Real(i.steal)},
              {"guest", Real(i.guest)},
              {"guest_nice", Real(i.guest_nice)},
              {"min_freq", Known(i.min_freq)},
              {"max_freq", Known(i.max_freq)},
              {"cur_freq", Known(i.cur_freq)}};
}

Json ToJson(const BpuResourceItem& i) {
  return Json{{"count", i.count},       {"name", i.name},         {"devfreq_name", i.devfreq_name},
              {"min_freq", i.min_freq}, {"max_freq", i.max_freq}, {"cur_freq", i.cur_freq},
              {"ratio", i.ratio}};
}

Json ToJson(const DiskResourceItem& i) {
  return Json{{"count", i.count},
              {"name", i.name},
              {"file_system", i.file_system},
              {"mount_point", i.mount_point},
              {"total_size", i.total_size},
              {"available_size", i.available_size},
              {"read_bandwidth", Real(i.read_bandwidth)},
              {"written_bandwidth", Real(i.written_bandwidth)}};
}

Json ToJson(const MemoryResourceItem& i) {
  return Json{{"count", i.count},
              {"total", Known(i.total)},
              {"free", Known(i.free)},
              {"shared", Known(i.shared)},
              {"buffers", Known(i.buffers)},
              {"cached", Known(i.cached)},
              {"shmem", Known(i.shmem)},
              {"sreclaimable", Known(i.sreclaimable)},
              {"swap_total", Known(i.swap_total)},
              {"swap_free", Known(i.swap_free)},
              // Without a total (no meminfo) the share is the library's arithmetic on -1s.
              {"used_percent", i.total > 0 ? Real(i.used_percent) : Json(nullptr)}};
}

Json ToJson(const NetworkResourceItem& i) {
  return Json{{"count", i.count},
              {"name", i.name},
              {"tx_bandwidth", Real(i.tx_bandwidth)},
              {"rx_bandwidth", Real(i.rx_bandwidth)}};
}

Json ToJson(const TemperatureResourceItem& i) {
  return Json{{"count", i.count}, {"zone_type", i.zone_type}, {"temperature", Real(i.temperature)}};
}

Json ToJson(const QeltDdrResourceItem& i) {
  Json ports = Json::object();
  for (const auto& [port, bw] : i.bandwidth) {
    ports[port] = Json{{"read", Real(bw.read)}, {"write", Real(bw.write)}};
  }
  return Json{{"count", i.count},
              {"name", i.name},
              {"bandwidth", std::move(ports)},
              {"cmd_sum_read", Real(i.cmd_sum_read)},
              {"cmd_sum_write", Real(i.cmd_sum_write)},
              {"total_read", Real(i.total_read)},
              {"total_write", Real(i.total_write)}};
}

Json ToJson(const ProcInfoResourceItem& i) {
  Json net = Json::object();
  for (const auto& [name, bw] : i.net) {
    net[name] =
        Json{{"tx_bandwidth", Real(bw.tx_bandwidth)}, {"rx_bandwidth", Real(bw.rx_bandwidth)}};
  }
  return Json{{"count", i.count},
              {"name", i.name},
              {"zefo_name", i.zefo_name},
              {"cmd_line", CommandLine(i.cmd_line)},
              {"pid", i.pid},
              {"state", i.state},
              {"cpu_core", i.cpu_core},
              {"user", Real(i.user)},
              {"system", Real(i.system)},
              {"start_time", Real(i.start_time)},
              {"run_time", Real(i.run_time)},
              {"iowait", i.iowait},
              {"VmSize", i.VmSize},
              {"VmRss", i.VmRss},
              {"RssAnon", i.RssAnon},
              {"RssFile", i.RssFile},
              {"RssShmem", i.RssShmem},
              {"VmHwm", i.VmHwm},
              {"VmData", i.VmData},
              {"VmStk", i.VmStk},
              {"VmExe", i.VmExe},
              {"VmSwap", i.VmSwap},
              {"memSize", i.memSize},
              {"memResident", i.memResident},
              {"memShared", i.memShared},
              {"memText", i.memText},
              {"memLib", i.memLib},
              {"memData", i.memData},
              {"fd_count", i.fd_count},
              {"io_read_bandwidth", Real(i.io_read_bandwidth)},
              {"io_write_bandwidth", Real(i.io_write_bandwidth)},
              {"net", std::move(net)}};
}

template <typename Item>
Json Items(const std::map<std::string, Item>& items) {
  Json out = Json::object();
  for (const auto& [name, item] : items) out[name] = ToJson(item);
  return out;
}

}  // namespace

std::string FormatJson(const Snapshot& pass) {
  Json out;
  out["update_time"] = pass.update_time;
  Json kinds = Json::array();
  for (ResourceMonitorType type : pass.kinds) kinds.push_back(KindName(type));
  out["kinds"] = std::move(kinds);
  for (ResourceMonitorType type : pass.kinds) {
    const char* kind = KindName(type);
    switch (type) {
      case Cpu:
        out[kind] = Items(pass.cpu);
        break;
      case Bpu:
        out[kind] = Items(pass.bpu);
        break;
      case Disk:
        out[kind] = Items(pass.disk);
        break;
      case Memory:
        out[kind] = Items(pass.memory);
        break;
      case Network:
        out[kind] = Items(pass.network);
        break;
      case Temperature:
        out[kind] = Items(pass.temperature);
        break;
      case QeltDdr:
        out[kind] = Items(pass.ddr);
        break;
      case ProcInfo:
        out[kind] = Items(pass.process);
        break;
    }
  }
  if (!pass.costs.empty()) {
    Json costs = Json::object();
    for (const MonitorPassCost& cost : pass.costs) {
      costs[KindName(cost.type)] = {{"wall_seconds", Real(cost.wall_seconds)},
                                    {"cpu_seconds", Real(cost.cpu_seconds)}};
    }
    out["pass_cost"] = std::move(costs);
  }
  // Kernel strings are bytes: a process may name itself with anything. Bad UTF-8 becomes
  // U+FFFD instead of an exception, so every line is valid JSON.
  return out.dump(-1, ' ', false, Json::error_handler_t::replace) + "\n";
}

}  // namespace zefo::format
