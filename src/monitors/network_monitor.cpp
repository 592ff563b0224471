#include "zefo/network_monitor.h"

#include <iomanip>
#include <iterator>

#include "core/counter_math.h"
#include "core/file_reader.h"
#include "monitors/network_parse.h"

namespace zefo {

void NetworkResourceItem::PrintToStream(std::ostream& os) {
  os << "Network Interface: " << name << std::endl;
  os << "  tx bandwidth      : " << std::fixed << std::setprecision(2) << tx_bandwidth << std::endl;
  os << "  rx bandwidth      : " << std::fixed << std::setprecision(2) << rx_bandwidth << std::endl;
}

void NetworkResourceInfo::DoUpdate(const std::string& name, NetworkResourceItem* item,
                                   const NetworkState& current, const NetworkState& previous,
                                   double elapsed_seconds) {
  item->name = name;
  item->tx_bandwidth =
      static_cast<double>(detail::WrappingSub(current.tx_bytes, previous.tx_bytes)) /
      elapsed_seconds;
  item->rx_bandwidth =
      static_cast<double>(detail::WrappingSub(current.rx_bytes, previous.rx_bytes)) /
      elapsed_seconds;
  item->counters.rx_bytes = current.rx_bytes;
  item->counters.tx_bytes = current.tx_bytes;
}

NetworkMonitor::NetworkMonitor() : NetworkMonitor(KernelPaths()) {}

NetworkMonitor::NetworkMonitor(const KernelPaths& paths)
    : BaseMonitor(Network, paths), info_(new NetworkResourceInfo()) {
  SetSamples(info_);
}

NetworkMonitor::~NetworkMonitor() {
  delete info_;
}

bool NetworkMonitor::DoMonitor() {
  detail::ReadWholeFile(Paths().Proc("net/dev"), text_);
  // The first two lines are the column headers.
  int line_number = 0;
  detail::ForEachLineInPlace(text_, [this, &line_number](const char* line) {
    if (++line_number <= 2) return;
    NetworkState state;
    if (!detail::ParseNetDevLine(line, name_, state)) return;
    info_->Update(MutableItems(), name_, state, Now());
  });
  return line_number >= 2;
}

}  // namespace zefo
