#include "monitors/qeltddr_decode.h"

#include <cstddef>
#include <cstring>
#include <type_traits>

namespace zefo {
namespace detail {

namespace {

using MonitorData = QeltDdrMonitor::MonitorData;

// The record is the device's wire format: these sizes and offsets must never move.
static_assert(std::is_trivially_copyable<MonitorData>::value, "records are copied as bytes");
static_assert(std::is_standard_layout<MonitorData>::value, "offsetof needs a standard layout");
static_assert(sizeof(MonitorData) == MonitorData::kSize, "a record is 376 bytes");
static_assert(sizeof(MonitorData::PortBlock) == 64, "port blocks are 64 bytes apart");
static_assert(offsetof(MonitorData::PortBlock, read) == 0, "read figure at 12 + 64 i");
static_assert(offsetof(MonitorData::PortBlock, write) == 32, "write figure at 44 + 64 i");
static_assert(offsetof(MonitorData::LastPortBlock, read) == 0, "last port read at 268");
static_assert(offsetof(MonitorData::LastPortBlock, write) == 32, "last port write at 300");
static_assert(offsetof(MonitorData, port) == 12, "port 0 starts at 12");
static_assert(offsetof(MonitorData, last_port) == 12 + 64 * (MonitorData::kPorts - 1),
              "the last port starts at 268");
static_assert(offsetof(MonitorData, cmd_sum_read) == 328, "whole-device read at 328");
static_assert(offsetof(MonitorData, cmd_sum_write) == 332, "whole-device write at 332");

}  // namespace

const std::vector<std::string>& DdrPortNames() {
  static const std::vector<std::string> names = {"CPU", "BPU", "CV", "APV", "CAM"};
  return names;
}

void DecodeDdrRecord(const MonitorData& record, const std::vector<std::string>& ports,
                     QeltDdrState& state) {
  const std::size_t count = ports.size() < MonitorData::kPorts ? ports.size() : MonitorData::kPorts;
  for (std::size_t i = 0; i < count; ++i) {
    QeltDdrState::BandWidth& port = state.bandwidth[ports[i]];
    port.read = static_cast<int64_t>(QeltDdrMonitor::GetValue(record.PortRead(i)));
    port.write = static_cast<int64_t>(QeltDdrMonitor::GetValue(record.PortWrite(i)));
  }
  state.cmd_sum_read = static_cast<int64_t>(QeltDdrMonitor::GetValue(record.cmd_sum_read));
  state.cmd_sum_write = static_cast<int64_t>(QeltDdrMonitor::GetValue(record.cmd_sum_write));
}

bool DecodeNewestDdrRecord(const unsigned char* bytes, std::size_t length,
                           const std::vector<std::string>& ports, QeltDdrState& state) {
  if (bytes == nullptr || length < MonitorData::kSize) return false;
  const std::size_t newest = length / MonitorData::kSize - 1;
  // Copied out rather than cast: the records in a read buffer need not be aligned for uint32_t.
  MonitorData record;
  std::memcpy(&record, bytes + newest * MonitorData::kSize, MonitorData::kSize);
  DecodeDdrRecord(record, ports, state);
  return true;
}

void AddDdrRecords(const unsigned char* bytes, std::size_t length,
                   const std::vector<std::string>& ports, uint32_t interval_us,
                   QeltDdrCounters& counters) {
  if (bytes == nullptr) return;
  // Bytes per second times microseconds, kept whole: a figure is a multiple of 1 MiB.
  const auto scale = [interval_us](int64_t per_second) {
    return static_cast<uint64_t>(per_second) / 1000000 * interval_us +
           static_cast<uint64_t>(per_second) % 1000000 * interval_us / 1000000;
  };
  for (std::size_t at = 0; at + MonitorData::kSize <= length; at += MonitorData::kSize) {
    MonitorData record;
    std::memcpy(&record, bytes + at, MonitorData::kSize);
    QeltDdrState state;
    DecodeDdrRecord(record, ports, state);
    for (const auto& [port, bw] : state.bandwidth) {
      QeltDdrCounters::Bytes& sum = counters.ports[port];
      sum.read += scale(bw.read);
      sum.write += scale(bw.write);
    }
    counters.cmd_sum.read += scale(state.cmd_sum_read);
    counters.cmd_sum.write += scale(state.cmd_sum_write);
    ++counters.records;
  }
}

}  // namespace detail
}  // namespace zefo
