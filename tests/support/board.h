// The fixture board (tests/fixtures/board): a healthy board's kernel files at two moments, t0
// and t1, two seconds apart. CPUs cpu0, cpu1, cpu2 and cpu10 (whose counters stand still, so
// its shares are NaN); two BPU cores; memory without MemShared; lo and eth0; four thermal
// zones; one DDR device (ddrmonitor0.bin, one record, fed through a FIFO); three processes, one
// registered and one whose name holds a quote, a backslash and a byte that is not UTF-8.
#ifndef ZEFO_TESTS_SUPPORT_BOARD_H_
#define ZEFO_TESTS_SUPPORT_BOARD_H_

#include <memory>
#include <string>
#include <vector>

#include "support/fixture_tree.h"
#include "zefo/format/formats.h"
#include "zefo/format/snapshot.h"

namespace zefo::testing {

// 2024-05-01 18:51:02 UTC, in milliseconds.
constexpr uint64_t kBoardUpdateTime = 1714589462000;

// Copies the board's files at t0 (`pass` 0) or t1 (1) over `tree`: all of them, or only the
// files and directories named in `only` (relative to the tree's root).
void LoadBoard(const FixtureTree& tree, int pass, const std::vector<std::string>& only = {});
// The DDR device's record.
std::vector<unsigned char> BoardDdrRecord();

// A disk for the disk monitor, which asks statvfs about real mount points: rootfs/<mount> for
// each of `mounts`, all of "/dev/fake" (the device of the tree's own file system, whose
// diskstats line, after a loop device's, reads `read` and `written` sectors), then /proc. False
// when the 16-bit key of diskstats cannot name that device.
bool WriteDisk(const FixtureTree& tree, const std::vector<std::string>& mounts,
               const std::string& read = "100", const std::string& written = "200");

// Loads the board into `tree`, runs every monitor at t0 and t1 and returns the second pass. The
// disk monitor asks statvfs about real mount points, so its two items are made from samples.
format::Snapshot BoardPass(const FixtureTree& tree);

// A monitor of type M over `paths`; a process monitor takes the board's 4 KiB pages.
template <typename M>
std::unique_ptr<BaseMonitor> MakeMonitor(const KernelPaths& paths) {
  return std::make_unique<M>(paths);
}
template <>
inline std::unique_ptr<BaseMonitor> MakeMonitor<ProcInfoMonitor>(const KernelPaths& paths) {
  auto monitor = std::make_unique<ProcInfoMonitor>(paths);
  monitor->SetPageSize(4096);
  return monitor;
}

// The item `name` of `monitor` as a T; null when there is none.
template <typename T = ResourceItem>
const T* Item(const BaseMonitor& monitor, const std::string& name) {
  const auto it = monitor.Items().find(name);
  return it == monitor.Items().end() ? nullptr : dynamic_cast<const T*>(it->second);
}

// Every item of `monitor`: its name and the samples taken, then its report block (NUL bytes
// written \x00).
std::string ItemsShown(const BaseMonitor& monitor);

// Options that make the output the same on every machine.
format::FormatOptions FixedOptions();

}  // namespace zefo::testing

#endif  // ZEFO_TESTS_SUPPORT_BOARD_H_
