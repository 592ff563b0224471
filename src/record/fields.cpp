// The figures of every item class, in the order a record writes them. A new figure is one line
// here; recordings made before it replay with the class's default for it.
#include "record/fields.h"

#define ZEFO_FIELD(Item, member) MakeField<Item, &Item::member>(#member)

namespace zefo::record::detail {

void SkipFigure(ByteReader& in, WireType wire) {
  const uint8_t mode = in.U8();
  if (mode == kSame || mode == kStep) return;
  if (mode != kRaw && mode != kDiff) {
    in.Fail();
    return;
  }
  switch (wire) {
    case WireType::kInt:
      in.Zigzag();
      break;
    case WireType::kDouble:
      in.F64();
      break;
    case WireType::kString:
      in.Str();
      break;
    case WireType::kPairMap:
      for (uint64_t n = in.Varint(); n > 0 && in.ok(); --n) {
        in.Str();
        in.Take(16);
      }
      break;
    default:
      in.Fail();
  }
}

const std::vector<Field<CpuResourceItem>>& Fields(const CpuResourceItem*) {
  using I = CpuResourceItem;
  static const std::vector<Field<I>> fields = {
      ZEFO_FIELD(I, count),    ZEFO_FIELD(I, label),    ZEFO_FIELD(I, user),
      ZEFO_FIELD(I, nice),     ZEFO_FIELD(I, system),   ZEFO_FIELD(I, idle),
      ZEFO_FIELD(I, iowait),   ZEFO_FIELD(I, irq),      ZEFO_FIELD(I, softirq),
      ZEFO_FIELD(I, steal),    ZEFO_FIELD(I, guest),    ZEFO_FIELD(I, guest_nice),
      ZEFO_FIELD(I, min_freq), ZEFO_FIELD(I, max_freq), ZEFO_FIELD(I, cur_freq),
  };
  return fields;
}

const std::vector<Field<BpuResourceItem>>& Fields(const BpuResourceItem*) {
  using I = BpuResourceItem;
  static const std::vector<Field<I>> fields = {
      ZEFO_FIELD(I, count),    ZEFO_FIELD(I, name),     ZEFO_FIELD(I, devfreq_name),
      ZEFO_FIELD(I, min_freq), ZEFO_FIELD(I, max_freq), ZEFO_FIELD(I, cur_freq),
      ZEFO_FIELD(I, ratio),
  };
  return fields;
}

const std::vector<Field<DiskResourceItem>>& Fields(const DiskResourceItem*) {
  using I = DiskResourceItem;
  static const std::vector<Field<I>> fields = {
      ZEFO_FIELD(I, count),          ZEFO_FIELD(I, name),
      ZEFO_FIELD(I, file_system),    ZEFO_FIELD(I, mount_point),
      ZEFO_FIELD(I, total_size),     ZEFO_FIELD(I, available_size),
      ZEFO_FIELD(I, read_bandwidth), ZEFO_FIELD(I, written_bandwidth),
  };
  return fields;
}

const std::vector<Field<MemoryResourceItem>>& Fields(const MemoryResourceItem*) {
  using I = MemoryResourceItem;
  static const std::vector<Field<I>> fields = {
      ZEFO_FIELD(I, count),     ZEFO_FIELD(I, total),        ZEFO_FIELD(I, free),
      ZEFO_FIELD(I, shared),    ZEFO_FIELD(I, buffers),      ZEFO_FIELD(I, cached),
      ZEFO_FIELD(I, shmem),     ZEFO_FIELD(I, sreclaimable), ZEFO_FIELD(I, swap_total),
      ZEFO_FIELD(I, swap_free), ZEFO_FIELD(I, used_percent),
  };
  return fields;
}

const std::vector<Field<NetworkResourceItem>>& Fields(const NetworkResourceItem*) {
  using I = NetworkResourceItem;
  static const std::vector<Field<I>> fields = {
      ZEFO_FIELD(I, count),
      ZEFO_FIELD(I, name),
      ZEFO_FIELD(I, tx_bandwidth),
      ZEFO_FIELD(I, rx_bandwidth),
  };
  return fields;
}

const std::vector<Field<TemperatureResourceItem>>& Fields(const TemperatureResourceItem*) {
  using I = TemperatureResourceItem;
  static const std::vector<Field<I>> fields = {
      ZEFO_FIELD(I, count),
      ZEFO_FIELD(I, zone_type),
      ZEFO_FIELD(I, temperature),
  };
  return fields;
}

const std::vector<Field<QeltDdrResourceItem>>& Fields(const QeltDdrResourceItem*) {
  using I = QeltDdrResourceItem;
  static const std::vector<Field<I>> fields = {
      ZEFO_FIELD(I, count),        ZEFO_FIELD(I, name),          ZEFO_FIELD(I, bandwidth),
      ZEFO_FIELD(I, cmd_sum_read), ZEFO_FIELD(I, cmd_sum_write), ZEFO_FIELD(I, total_read),
      ZEFO_FIELD(I, total_write),
  };
  return fields;
}

const std::vector<Field<ProcInfoResourceItem>>& Fields(const ProcInfoResourceItem*) {
  using I = ProcInfoResourceItem;
  static const std::vector<Field<I>> fields = {
      ZEFO_FIELD(I, count),
      ZEFO_FIELD(I, name),
      ZEFO_FIELD(I, zefo_name),
      ZEFO_FIELD(I, cmd_line),
      ZEFO_FIELD(I, pid),
      ZEFO_FIELD(I, state),
      ZEFO_FIELD(I, cpu_core),
      ZEFO_FIELD(I, user),
      ZEFO_FIELD(I, system),
      ZEFO_FIELD(I, start_time),
      ZEFO_FIELD(I, run_time),
      ZEFO_FIELD(I, iowait),
      ZEFO_FIELD(I, VmSize),
      ZEFO_FIELD(I, VmRss),
      ZEFO_FIELD(I, RssAnon),
      ZEFO_FIELD(I, RssFile),
      ZEFO_FIELD(I, RssShmem),
      ZEFO_FIELD(I, VmHwm),
      ZEFO_FIELD(I, VmData),
      ZEFO_FIELD(I, VmStk),
      ZEFO_FIELD(I, VmExe),
      ZEFO_FIELD(I, VmSwap),
      ZEFO_FIELD(I, memSize),
      ZEFO_FIELD(I, memResident),
      ZEFO_FIELD(I, memShared),
      ZEFO_FIELD(I, memText),
      ZEFO_FIELD(I, memLib),
      ZEFO_FIELD(I, memData),
      ZEFO_FIELD(I, fd_count),
      ZEFO_FIELD(I, io_read_bandwidth),
      ZEFO_FIELD(I, io_write_bandwidth),
      ZEFO_FIELD(I, net),
  };
  return fields;
}

}  // namespace zefo::record::detail
