// One table of figures per item class, which every writer walks: the name JSON and the recorder
// give each figure, the member it lives in, when it means nothing, and, for a figure that is a
// metric family of its own, that family's name, unit and help. A new figure is one line here.
// Also the one list of kinds: each kind's short name and its map in a Snapshot.
#ifndef ZEFO_SRC_FORMAT_ITEM_FIELDS_H_
#define ZEFO_SRC_FORMAT_ITEM_FIELDS_H_

#include <tuple>
#include <type_traits>

#include "format/exposition.h"
#include "zefo/format/snapshot.h"

namespace zefo::format::detail {

// Calls f(type, name, &Snapshot::<map>) for every kind, in type order.
template <typename F>
void ForEachKind(F&& f) {
  f(Cpu, "cpu", &Snapshot::cpu);
  f(Bpu, "bpu", &Snapshot::bpu);
  f(Disk, "disk", &Snapshot::disk);
  f(Memory, "memory", &Snapshot::memory);
  f(Network, "network", &Snapshot::network);
  f(Temperature, "temperature", &Snapshot::temperature);
  f(QeltDdr, "ddr", &Snapshot::ddr);
  f(ProcInfo, "process", &Snapshot::process);
}

// Calls f(&Snapshot::<map>) for the kind `type`.
template <typename F>
void ForKind(ResourceMonitorType type, F&& f) {
  ForEachKind([&](ResourceMonitorType kind, const char*, auto member) {
    if (kind == type) f(member);
  });
}

// A figure that is a metric family of its own in the expositions, where such families follow
// the table's order. Families that join several figures (CPU modes, info labels, ports), and
// those that scrapers already see in another order than the table's (CPU and BPU frequencies,
// network rates), are written out in exposition.cpp.
struct Metric {
  const char* name = nullptr;  // none: the figure shows only inside other families, if at all
  const char* unit = "";
  const char* help = "";
  double divisor = 1;     // from the item's unit to the family's base unit
  bool per_tick = false;  // clock ticks: divided by the tick rate, left out when that is unknown
  MetricType type = MetricType::kGauge;
};

enum FieldFlags : unsigned {
  // The library presets a figure it could not read to -1.
  kNegativeUnknown = 1u,
  // A command line: the kernel ends it in a NUL, which the library keeps; it is no part of the
  // text.
  kNulEnded = 2u,
};

template <typename Item, typename T>
struct Field {
  using Type = T;
  const char* name;
  T Item::*member;
  unsigned flags = 0;
  Metric metric{};
  // When set, the figure means something only where this holds.
  bool (*known)(const Item&) = nullptr;
};

template <typename Item, typename T>
bool Known(const Field<Item, T>& field, const Item& item) {
  if (field.known != nullptr && !field.known(item)) return false;
  if constexpr (std::is_arithmetic_v<T>) {
    if ((field.flags & kNegativeUnknown) != 0) return item.*field.member >= 0;
  }
  return true;
}

// clang-format off
#define ZEFO_FIGURE(Item, member) Field<Item, decltype(Item::member)>{#member, &Item::member}
#define ZEFO_FIGURE_AS(Item, member, ...) \
  Field<Item, decltype(Item::member)>{#member, &Item::member, __VA_ARGS__}
// clang-format on

template <typename Item>
struct ItemFields;

template <>
struct ItemFields<CpuResourceItem> {
  using I = CpuResourceItem;
  static constexpr auto kAll = std::make_tuple(
      ZEFO_FIGURE(I, count), ZEFO_FIGURE(I, label), ZEFO_FIGURE(I, user), ZEFO_FIGURE(I, nice),
      ZEFO_FIGURE(I, system), ZEFO_FIGURE(I, idle), ZEFO_FIGURE(I, iowait), ZEFO_FIGURE(I, irq),
      ZEFO_FIGURE(I, softirq), ZEFO_FIGURE(I, steal), ZEFO_FIGURE(I, guest),
      ZEFO_FIGURE(I, guest_nice), ZEFO_FIGURE_AS(I, min_freq, kNegativeUnknown),
      ZEFO_FIGURE_AS(I, max_freq, kNegativeUnknown), ZEFO_FIGURE_AS(I, cur_freq, kNegativeUnknown));
};

template <>
struct ItemFields<BpuResourceItem> {
  using I = BpuResourceItem;
  static constexpr auto kAll =
      std::make_tuple(ZEFO_FIGURE(I, count), ZEFO_FIGURE(I, name), ZEFO_FIGURE(I, devfreq_name),
                      ZEFO_FIGURE(I, min_freq), ZEFO_FIGURE(I, max_freq), ZEFO_FIGURE(I, cur_freq),
                      ZEFO_FIGURE(I, ratio));
};

template <>
struct ItemFields<DiskResourceItem> {
  using I = DiskResourceItem;
  static constexpr auto kAll = std::make_tuple(
      ZEFO_FIGURE(I, count), ZEFO_FIGURE(I, name), ZEFO_FIGURE(I, file_system),
      ZEFO_FIGURE(I, mount_point),
      ZEFO_FIGURE_AS(I, total_size, 0,
                     {"zefo_disk_size_bytes", "bytes", "Size of the mounted file system."}),
      ZEFO_FIGURE_AS(I, available_size, 0,
                     {"zefo_disk_available_bytes", "bytes",
                      "Space of the file system available to unprivileged users."}),
      ZEFO_FIGURE_AS(I, read_bandwidth, 0,
                     {"zefo_disk_read_bytes_per_second", "bytes_per_second",
                      "Bytes read from the file system's disk per second."}),
      ZEFO_FIGURE_AS(I, written_bandwidth, 0,
                     {"zefo_disk_written_bytes_per_second", "bytes_per_second",
                      "Bytes written to the file system's disk per second."}));
};

template <>
struct ItemFields<MemoryResourceItem> {
  using I = MemoryResourceItem;
  static constexpr unsigned kBytes = kNegativeUnknown;
  static constexpr auto kAll = std::make_tuple(
      ZEFO_FIGURE(I, count),
      ZEFO_FIGURE_AS(I, total, kBytes,
                     {"zefo_memory_total_bytes", "bytes", "Usable memory (MemTotal)."}),
      ZEFO_FIGURE_AS(I, free, kBytes,
                     {"zefo_memory_free_bytes", "bytes", "Unused memory (MemFree)."}),
      ZEFO_FIGURE_AS(I, shared, kBytes,
                     {"zefo_memory_shared_bytes", "bytes",
                      "Shared memory (MemShared, which current kernels no longer report)."}),
      ZEFO_FIGURE_AS(I, buffers, kBytes,
                     {"zefo_memory_buffers_bytes", "bytes", "Block device buffers."}),
      ZEFO_FIGURE_AS(I, cached, kBytes,
                     {"zefo_memory_cached_bytes", "bytes", "Page cache (Cached)."}),
      ZEFO_FIGURE_AS(I, shmem, kBytes,
                     {"zefo_memory_shmem_bytes", "bytes", "Shared memory and tmpfs (Shmem)."}),
      ZEFO_FIGURE_AS(
          I, sreclaimable, kBytes,
          {"zefo_memory_sreclaimable_bytes", "bytes", "Reclaimable slab memory (SReclaimable)."}),
      ZEFO_FIGURE_AS(I, swap_total, kBytes,
                     {"zefo_memory_swap_total_bytes", "bytes", "Swap space (SwapTotal)."}),
      ZEFO_FIGURE_AS(I, swap_free, kBytes,
                     {"zefo_memory_swap_free_bytes", "bytes", "Unused swap space (SwapFree)."}),
      // Without a total (no meminfo) the share is the library's arithmetic on -1s.
      ZEFO_FIGURE_AS(I, used_percent, 0,
                     {"zefo_memory_used_ratio", "ratio",
                      "Memory in use: total less free, buffers and page cache, over total.", 100},
                     [](const I& memory) { return memory.total > 0; }));
};

template <>
struct ItemFields<NetworkResourceItem> {
  using I = NetworkResourceItem;
  static constexpr auto kAll =
      std::make_tuple(ZEFO_FIGURE(I, count), ZEFO_FIGURE(I, name), ZEFO_FIGURE(I, tx_bandwidth),
                      ZEFO_FIGURE(I, rx_bandwidth));
};

template <>
struct ItemFields<TemperatureResourceItem> {
  using I = TemperatureResourceItem;
  static constexpr auto kAll = std::make_tuple(
      ZEFO_FIGURE(I, count), ZEFO_FIGURE(I, zone_type),
      ZEFO_FIGURE_AS(I, temperature, 0,
                     {"zefo_temperature_celsius", "celsius", "Temperature of the thermal zone."}));
};

template <>
struct ItemFields<QeltDdrResourceItem> {
  using I = QeltDdrResourceItem;
  static constexpr auto kAll = std::make_tuple(
      ZEFO_FIGURE(I, count), ZEFO_FIGURE(I, name), ZEFO_FIGURE(I, bandwidth),
      ZEFO_FIGURE_AS(
          I, cmd_sum_read, 0,
          {"zefo_ddr_device_read_bytes_per_second", "bytes_per_second",
           "DDR read bandwidth of the whole device, its own figure (may exceed the ports' "
           "sum)."}),
      ZEFO_FIGURE_AS(I, cmd_sum_write, 0,
                     {"zefo_ddr_device_write_bytes_per_second", "bytes_per_second",
                      "DDR write bandwidth of the whole device, its own figure (may exceed the "
                      "ports' sum)."}),
      ZEFO_FIGURE_AS(I, total_read, 0,
                     {"zefo_ddr_total_read_bytes_per_second", "bytes_per_second",
                      "DDR read bandwidth summed over the ports."}),
      ZEFO_FIGURE_AS(I, total_write, 0,
                     {"zefo_ddr_total_write_bytes_per_second", "bytes_per_second",
                      "DDR write bandwidth summed over the ports."}));
};

template <>
struct ItemFields<ProcInfoResourceItem> {
  using I = ProcInfoResourceItem;
  static constexpr auto kAll = std::make_tuple(
      ZEFO_FIGURE(I, count), ZEFO_FIGURE(I, name), ZEFO_FIGURE(I, zefo_name),
      ZEFO_FIGURE_AS(I, cmd_line, kNulEnded), ZEFO_FIGURE(I, pid), ZEFO_FIGURE(I, state),
      ZEFO_FIGURE_AS(I, cpu_core, 0,
                     {"zefo_process_last_cpu", "", "The CPU the process last ran on."}),
      ZEFO_FIGURE(I, user), ZEFO_FIGURE(I, system),
      ZEFO_FIGURE_AS(I, start_time, 0,
                     {"zefo_process_start_after_boot_seconds", "seconds",
                      "When the process started, in seconds after boot."}),
      ZEFO_FIGURE_AS(
          I, run_time, 0,
          {"zefo_process_run_time_seconds", "seconds", "Seconds since the process started."}),
      ZEFO_FIGURE_AS(I, iowait, 0,
                     {"zefo_process_blkio_delay_seconds", "seconds",
                      "Time the process waited for block I/O.", 1, true, MetricType::kCounter}),
      ZEFO_FIGURE_AS(I, VmSize, 0,
                     {"zefo_process_vm_size_bytes", "bytes", "Virtual memory (VmSize)."}),
      ZEFO_FIGURE_AS(I, VmRss, 0,
                     {"zefo_process_vm_rss_bytes", "bytes", "Resident memory (VmRSS)."}),
      ZEFO_FIGURE_AS(
          I, RssAnon, 0,
          {"zefo_process_rss_anon_bytes", "bytes", "Resident anonymous memory (RssAnon)."}),
      ZEFO_FIGURE_AS(I, RssFile, 0,
                     {"zefo_process_rss_file_bytes", "bytes", "Resident file mappings (RssFile)."}),
      ZEFO_FIGURE_AS(
          I, RssShmem, 0,
          {"zefo_process_rss_shmem_bytes", "bytes", "Resident shared memory (RssShmem)."}),
      ZEFO_FIGURE_AS(I, VmHwm, 0,
                     {"zefo_process_vm_hwm_bytes", "bytes", "Peak resident memory (VmHWM)."}),
      ZEFO_FIGURE_AS(I, VmData, 0,
                     {"zefo_process_vm_data_bytes", "bytes", "Data segment (VmData)."}),
      ZEFO_FIGURE_AS(I, VmStk, 0, {"zefo_process_vm_stk_bytes", "bytes", "Stack (VmStk)."}),
      ZEFO_FIGURE_AS(I, VmExe, 0, {"zefo_process_vm_exe_bytes", "bytes", "Text segment (VmExe)."}),
      ZEFO_FIGURE_AS(I, VmSwap, 0,
                     {"zefo_process_vm_swap_bytes", "bytes", "Swapped-out memory (VmSwap)."}),
      ZEFO_FIGURE_AS(I, memSize, 0,
                     {"zefo_process_statm_size_bytes", "bytes", "Program size from statm."}),
      ZEFO_FIGURE_AS(I, memResident, 0,
                     {"zefo_process_statm_resident_bytes", "bytes", "Resident set from statm."}),
      ZEFO_FIGURE_AS(
          I, memShared, 0,
          {"zefo_process_statm_shared_bytes", "bytes", "Resident file-backed pages from statm."}),
      ZEFO_FIGURE_AS(I, memText, 0, {"zefo_process_statm_text_bytes", "bytes", "Text from statm."}),
      ZEFO_FIGURE_AS(I, memLib, 0,
                     {"zefo_process_statm_lib_bytes", "bytes", "Library from statm."}),
      ZEFO_FIGURE_AS(I, memData, 0,
                     {"zefo_process_statm_data_bytes", "bytes", "Data and stack from statm."}),
      ZEFO_FIGURE_AS(I, fd_count, 0, {"zefo_process_open_fds", "", "Open file descriptors."}),
      ZEFO_FIGURE_AS(I, io_read_bandwidth, 0,
                     {"zefo_process_io_read_bytes_per_second", "bytes_per_second",
                      "Bytes the process read from storage per second."}),
      ZEFO_FIGURE_AS(I, io_write_bandwidth, 0,
                     {"zefo_process_io_write_bytes_per_second", "bytes_per_second",
                      "Bytes the process wrote to storage per second."}),
      ZEFO_FIGURE(I, net));
};

#undef ZEFO_FIGURE
#undef ZEFO_FIGURE_AS

// Calls f(field) for every figure of `Item`, in table order.
template <typename Item, typename F>
void ForEachField(F&& f) {
  std::apply([&f](const auto&... field) { (f(field), ...); }, ItemFields<Item>::kAll);
}

}  // namespace zefo::format::detail

#endif  // ZEFO_SRC_FORMAT_ITEM_FIELDS_H_
