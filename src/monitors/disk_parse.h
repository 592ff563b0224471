#ifndef ZEFO_SRC_MONITORS_DISK_PARSE_H_
#define ZEFO_SRC_MONITORS_DISK_PARSE_H_

#include <cstdint>
#include <string>

#include "zefo/disk_monitor.h"

namespace zefo {
namespace detail {

// One line of /proc/mounts; only the first two words are taken.
// "/dev/vda / ext4 rw,relatime 0 0"
//  device   mount_point type options dump pass
// A word the line lacks leaves its argument as it was, so a line of one word keeps the mount
// point of the line before. Returns the number of words taken, or -1 (nothing changed) when
// one of them is longer than 255 bytes: such a line cannot be queried as written.
int ParseMountLine(const char* line, std::string& file_system, std::string& mount_point);

// One line of /proc/diskstats. Kernels up to 4.18 give 14 fields; newer ones add four discard
// counters and then two flush counters, which are not read.
// " 254       0 vda 25954 5022 2215610 21489 2610 7082 752312 2201 0 12912 24040 4457 43 597904 345
// 212 4"
//  major minor name reads merged sectors ms writes merged sectors ms in_flight io_ms weighted_ms
//  [discards merged sectors ms] [flushes ms]
//
// The key the mount table is searched with: major << 8 | minor. It equals the mount point's
// st_dev only for minor numbers below 256 and major numbers below 4096, the old 16-bit device
// numbering; a device outside it never matches its mounts. False when the line does not start
// with two numbers.
bool ParseDiskstatsKey(const char* line, uint64_t& key);

// Fills `out`'s major, minor, name and eleven counters from the line; the mount fields are left
// alone. Every one of those fields is reset first, so one the line lacks reads 0 (or empty).
// False, with `out` unchanged, when the line does not start with two numbers or its name is
// longer than 255 bytes.
bool ParseDiskstatsLine(const char* line, DiskState& out);

}  // namespace detail
}  // namespace zefo

#endif  // ZEFO_SRC_MONITORS_DISK_PARSE_H_
