#ifndef ZEFO_SRC_CORE_REPORT_FRAME_H_
#define ZEFO_SRC_CORE_REPORT_FRAME_H_

#include <cstdint>
#include <ostream>

namespace zefo {
namespace detail {

// The text report of one pass: "update time: " and the pass time in milliseconds, then for each
// kind its items' blocks (written by `blocks(kind)`) and a line of twenty hyphens. The report
// ends with an empty line, which the caller writes: the library writes it after letting go of
// its lock. The library's PrintToStream and the `report` format both write through this.
template <typename Kinds, typename Blocks>
void WriteReportFrame(std::ostream& os, uint64_t update_time, const Kinds& kinds, Blocks&& blocks) {
  os << "update time: " << update_time << std::endl;
  for (const auto& kind : kinds) {
    blocks(kind);
    os << "--------------------" << std::endl;
  }
}

}  // namespace detail
}  // namespace zefo

#endif  // ZEFO_SRC_CORE_REPORT_FRAME_H_
