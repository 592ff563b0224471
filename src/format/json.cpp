// JSON Lines: one object per pass with every item of every kind and all of its figures, under
// the names the item classes give them.
#include <cmath>
#include <nlohmann/json.hpp>
#include <type_traits>

#include "format/item_fields.h"
#include "zefo/format/formats.h"

namespace zefo::format {

namespace {

using Json = nlohmann::ordered_json;

// Shares are NaN after two identical samples and may be infinite; JSON has no such numbers.
Json Real(double value) {
  return std::isfinite(value) ? Json(value) : Json(nullptr);
}

template <typename T>
std::enable_if_t<std::is_integral_v<T>, Json> Value(T value, unsigned) {
  return Json(value);
}

Json Value(double value, unsigned) {
  return Real(value);
}

Json Value(const std::string& text, unsigned flags) {
  if ((flags & detail::kNulEnded) == 0) return Json(text);
  std::string_view line(text);
  if (!line.empty() && line.back() == '\0') line.remove_suffix(1);
  return Json(line);
}

Json Value(const std::map<std::string, QeltDdrResourceItem::BandWidth>& ports, unsigned) {
  Json out = Json::object();
  for (const auto& [port, bw] : ports)
    out[port] = Json{{"read", Real(bw.read)}, {"write", Real(bw.write)}};
  return out;
}

Json Value(const std::map<std::string, ProcInfoNetResourceItem>& net, unsigned) {
  Json out = Json::object();
  for (const auto& [name, bw] : net) {
    out[name] =
        Json{{"tx_bandwidth", Real(bw.tx_bandwidth)}, {"rx_bandwidth", Real(bw.rx_bandwidth)}};
  }
  return out;
}

template <typename Item>
Json ToJson(const Item& item) {
  Json out = Json::object();
  detail::ForEachField<Item>([&](const auto& field) {
    out.emplace(field.name, detail::Known(field, item) ? Value(item.*field.member, field.flags)
                                                       : Json(nullptr));
  });
  return out;
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
    detail::ForKind(type, [&](auto member) { out[KindName(type)] = Items(pass.*member); });
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
