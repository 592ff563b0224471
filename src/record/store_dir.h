// The store directory: segment file names and their listing.
#ifndef ZEFO_SRC_RECORD_STORE_DIR_H_
#define ZEFO_SRC_RECORD_STORE_DIR_H_

#include <cstdint>
#include <string>
#include <vector>

namespace zefo::record::detail {

// "segment-<20-digit ms>.zrec": names sort in the order the segments were started.
std::string SegmentName(uint64_t started_ms);
bool IsSegmentName(const std::string& name);

// The segment files in the directory open as `dir_fd`, oldest first.
std::vector<std::string> ListSegments(int dir_fd);

}  // namespace zefo::record::detail

#endif  // ZEFO_SRC_RECORD_STORE_DIR_H_
