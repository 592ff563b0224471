// A whole board on a fixture tree: every kind of item, taken by the real monitors over two
// passes two seconds apart, copied into a Snapshot.
#ifndef ZEFO_TESTS_FORMAT_BOARD_H_
#define ZEFO_TESTS_FORMAT_BOARD_H_

#include "support/fixture_tree.h"
#include "zefo/format/formats.h"
#include "zefo/format/snapshot.h"

namespace zefo::testing {

// 2024-05-01 18:51:02 UTC, in milliseconds.
constexpr uint64_t kBoardUpdateTime = 1714589462000;

// Builds the board's files in `tree`, runs the monitors twice and returns the second pass.
// CPUs cpu0, cpu1, cpu2 and cpu10 (whose counters stand still, so its shares are NaN); two BPU
// cores; two mounts (one with a blank, escaped as the mount table writes it); memory without
// MemShared; lo and eth0; four thermal zones; one DDR device; three processes, one registered
// and one whose name holds a quote, a backslash and a byte that is not UTF-8.
format::Snapshot BoardPass(const FixtureTree& tree);

// Options that make the output the same on every machine.
format::FormatOptions FixedOptions();

}  // namespace zefo::testing

#endif  // ZEFO_TESTS_FORMAT_BOARD_H_
