#ifndef ZEFO_SRC_MONITORS_QELTDDR_DECODE_H_
#define ZEFO_SRC_MONITORS_QELTDDR_DECODE_H_

#include <cstddef>
#include <string>
#include <vector>

#include "zefo/qeltddr_monitor.h"

namespace zefo {
namespace detail {

/// The DDR monitor's port names, in the order of their blocks in a record.
const std::vector<std::string>& DdrPortNames();

/// Decodes one record: per port (names in record order, at most MonitorData::kPorts are used)
/// and the whole-device figures, converted to bytes.
void DecodeDdrRecord(const QeltDdrMonitor::MonitorData& record,
                     const std::vector<std::string>& ports, QeltDdrState& state);

/// Decodes the newest complete record among the `length` bytes at `bytes`, as one read of a
/// device returned them (records back to back, the newest last). False, with `state` untouched,
/// when fewer than one whole record is there. `bytes` need not be aligned.
bool DecodeNewestDdrRecord(const unsigned char* bytes, std::size_t length,
                           const std::vector<std::string>& ports, QeltDdrState& state);

/// Adds every complete record among the `length` bytes at `bytes` to `counters`: each record's
/// figures are bytes per second over the device's sampling interval, `interval_us`
/// microseconds, so each adds figure * interval. Trailing bytes short of a record are ignored.
void AddDdrRecords(const unsigned char* bytes, std::size_t length,
                   const std::vector<std::string>& ports, uint32_t interval_us,
                   QeltDdrCounters& counters);

}  // namespace detail
}  // namespace zefo

#endif  // ZEFO_SRC_MONITORS_QELTDDR_DECODE_H_
