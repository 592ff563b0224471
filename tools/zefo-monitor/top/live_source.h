// The passes of a running monitor, for the terminal view.
#ifndef ZEFO_TOOLS_ZEFO_MONITOR_TOP_LIVE_SOURCE_H_
#define ZEFO_TOOLS_ZEFO_MONITOR_TOP_LIVE_SOURCE_H_

#include <cstdint>
#include <memory>
#include <string>

#include "top_terminal.h"
#include "zefo/format/snapshot.h"
#include "zefo/zefo_resource_monitor.h"

namespace zefo::top {

class LiveSource : public PassSource {
 public:
  explicit LiveSource(ZefoResourceMonitorApi& monitor) : monitor_(monitor) {}

  std::shared_ptr<const format::Snapshot> Poll() override {
    const uint64_t latest = monitor_.GetUpdateTime();
    if (latest == 0 || latest == shown_) return nullptr;
    // Copied under the library's lock; the copy may hold a newer pass than `latest`.
    auto pass = std::make_shared<const format::Snapshot>(
        format::TakeSnapshot(monitor_, format::SnapshotScope::kLive));
    shown_ = pass->update_time;
    return pass;
  }
  std::string Describe() const override { return "live"; }

 private:
  ZefoResourceMonitorApi& monitor_;
  uint64_t shown_ = 0;
};

}  // namespace zefo::top

#endif  // ZEFO_TOOLS_ZEFO_MONITOR_TOP_LIVE_SOURCE_H_
