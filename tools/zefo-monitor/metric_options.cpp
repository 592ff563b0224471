#include "metric_options.h"

#include <cerrno>
#include <cstdlib>

#include "zefo/format/snapshot.h"
#include "zefo/zefo_utils.h"

namespace zefo::cli {

std::string ParseProcessMetrics(const std::string& text, format::ProcessMetrics& which,
                                std::size_t& top) {
  using format::ProcessMetrics;
  const struct {
    const char* word;
    ProcessMetrics which;
  } words[] = {{"none", ProcessMetrics::kNone},
               {"registered", ProcessMetrics::kRegistered},
               {"by-name", ProcessMetrics::kByName},
               {"all", ProcessMetrics::kAll}};
  for (const auto& w : words) {
    if (text == w.word) {
      which = w.which;
      return std::string();
    }
  }
  if (text.rfind("top:", 0) == 0) {
    const std::string count = text.substr(4);
    errno = 0;
    const long n = common::util::IsNumeric(count) && count.size() <= 6
                       ? std::strtol(count.c_str(), nullptr, 10)
                       : 0;
    if (n < 1 || n > 10000) return "'" + count + "' is not a process count (1 to 10000)";
    which = ProcessMetrics::kTop;
    top = static_cast<std::size_t>(n);
    return std::string();
  }
  return "'" + text + "' is not a choice of processes (none, registered, top:N, by-name, all)";
}

std::string ParseMonitorList(const std::string& text, unsigned& kinds) {
  if (text == "all") {
    kinds = ~0u;
    return std::string();
  }
  unsigned chosen = 0;
  for (std::size_t start = 0; start <= text.size();) {
    std::size_t end = text.find(',', start);
    if (end == std::string::npos) end = text.size();
    const std::string word = text.substr(start, end - start);
    bool known = false;
    for (int type = Cpu; type <= ProcInfo; ++type) {
      if (word == format::KindName(static_cast<ResourceMonitorType>(type))) {
        chosen |= 1u << type;
        known = true;
      }
    }
    if (!known) {
      return "'" + word +
             "' is not a monitor (cpu, bpu, disk, memory, network, temperature, ddr, process, "
             "or all)";
    }
    start = end + 1;
  }
  kinds = chosen;
  return std::string();
}

}  // namespace zefo::cli
