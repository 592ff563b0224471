#include "monitors/disk_parse.h"

#include <cstdio>

#include "monitors/word_scan.h"

namespace zefo {
namespace detail {

static_assert(BaseMonitor::kWordSize == 256, "the formats below bound words to 255 bytes");

int ParseMountLine(const char* line, std::string& file_system, std::string& mount_point) {
  char first[BaseMonitor::kWordSize] = {};
  char second[BaseMonitor::kWordSize] = {};
  int first_end = -1;
  int second_end = -1;
  const char* text = line;
  const int words = std::sscanf(text, "%255s%n %255s%n", first, &first_end, second, &second_end);
  if (words < 1) return 0;
  if (!WordFits(text, first_end)) return -1;
  if (words >= 2 && !WordFits(text, second_end)) return -1;
  file_system = first;
  if (words >= 2) mount_point = second;
  return words;
}

bool ParseDiskstatsKey(const char* line, uint64_t& key) {
  // Unsigned long long, not unsigned long: the key must be 64 bits on 32-bit boards too.
  unsigned long long major = 0;
  unsigned long long minor = 0;
  if (std::sscanf(line, "%llu %llu", &major, &minor) != 2) return false;
  key = static_cast<uint64_t>((major << 8) | minor);
  return true;
}

bool ParseDiskstatsLine(const char* line, DiskState& out) {
  long long major = 0, minor = 0;
  long long reads = 0, reads_merged = 0, sectors_read = 0, read_ms = 0;
  long long writes = 0, writes_merged = 0, sectors_written = 0, write_ms = 0;
  long long in_progress = 0, io_ms = 0, weighted_ms = 0;
  char name[BaseMonitor::kWordSize] = {};
  int name_end = -1;
  const char* text = line;
  const int fields = std::sscanf(
      text, "%lld %lld %255s%n %lld %lld %lld %lld %lld %lld %lld %lld %lld %lld %lld", &major,
      &minor, name, &name_end, &reads, &reads_merged, &sectors_read, &read_ms, &writes,
      &writes_merged, &sectors_written, &write_ms, &in_progress, &io_ms, &weighted_ms);
  if (fields < 2) return false;
  if (fields >= 3 && !WordFits(text, name_end)) return false;
  out.major = major;
  out.minor = minor;
  out.name = name;
  out.reads_completed = reads;
  out.reads_merged = reads_merged;
  out.sectors_read = sectors_read;
  out.read_time_ms = read_ms;
  out.writes_completed = writes;
  out.writes_merged = writes_merged;
  out.sectors_written = sectors_written;
  out.write_time_ms = write_ms;
  out.io_in_progress = in_progress;
  out.io_time_ms = io_ms;
  out.weighted_io_time_ms = weighted_ms;
  return true;
}

}  // namespace detail
}  // namespace zefo
