// What one read of a DDR monitor device returned, decoded: only the newest whole record counts
// for the figures, every whole record for the byte counters, each figure the upper 16 bits of
// its word in MiB. Checked against the record's offsets read
// directly, then turned into an item and its report block.
#include <cstring>
#include <sstream>

#include "fuzz_support.h"
#include "monitors/qeltddr_decode.h"

namespace {

uint64_t WordAt(const uint8_t* record, std::size_t offset) {
  uint32_t raw;
  std::memcpy(&raw, record + offset, sizeof raw);
  return static_cast<uint64_t>(raw >> 16) * 1048576u;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace zefo;
  constexpr std::size_t kRecord = QeltDdrMonitor::MonitorData::kSize;
  const std::string_view input = fuzz::AsText(data, size);
  const std::vector<std::string>& ports = detail::DdrPortNames();
  // Summed at the monitor's 1 s interval, every whole record adds its figures once.
  QeltDdrCounters counters;
  detail::AddDdrRecords(data, size, ports, 1000000, counters);
  ZEFO_FUZZ_CHECK(counters.records == size / kRecord, input);
  uint64_t read = 0;
  for (std::size_t at = 0; at + kRecord <= size; at += kRecord) read += WordAt(data + at, 328);
  ZEFO_FUZZ_CHECK(counters.cmd_sum.read == read, input);
  QeltDdrState state;
  state.cmd_sum_read = -5;
  const bool decoded = detail::DecodeNewestDdrRecord(data, size, ports, state);
  ZEFO_FUZZ_CHECK(decoded == (size >= kRecord), input);
  if (!decoded) {
    ZEFO_FUZZ_CHECK(state.cmd_sum_read == -5 && state.bandwidth.empty(), input);
    return 0;
  }
  const uint8_t* newest = data + (size / kRecord - 1) * kRecord;
  ZEFO_FUZZ_CHECK(state.bandwidth.size() == ports.size(), input);
  for (std::size_t i = 0; i < ports.size(); ++i) {
    const QeltDdrState::BandWidth& port = state.bandwidth.at(ports[i]);
    ZEFO_FUZZ_CHECK(static_cast<uint64_t>(port.read) == WordAt(newest, 12 + 64 * i), input);
    ZEFO_FUZZ_CHECK(static_cast<uint64_t>(port.write) == WordAt(newest, 44 + 64 * i), input);
  }
  ZEFO_FUZZ_CHECK(static_cast<uint64_t>(state.cmd_sum_read) == WordAt(newest, 328), input);
  ZEFO_FUZZ_CHECK(static_cast<uint64_t>(state.cmd_sum_write) == WordAt(newest, 332), input);

  QeltDdrResourceInfo info;
  ResourceItems items;
  info.Update(&items, "ddr0", state, 1);
  info.Update(&items, "ddr0", state, 1);
  std::ostringstream report;
  items.Items().begin()->second->PrintToStream(report);
  return 0;
}
