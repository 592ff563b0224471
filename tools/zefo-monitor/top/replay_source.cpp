#include "replay_source.h"

#include <algorithm>
#include <utility>

namespace zefo::top {

namespace {

// Passes decoded on each side of the one shown.
constexpr std::size_t kAround = 30;

}  // namespace

ReplaySource::ReplaySource(std::string dir, const record::ReplayRange& range)
    : dir_(std::move(dir)) {
  // Damaged records were reported by the caller's own replay, if any; here they are skipped.
  const record::ReplaySummary summary = record::Replay(
      dir_, range,
      [this](const format::Snapshot& pass) {
        times_.push_back(pass.update_time);
        return true;
      },
      [](const std::string&) {});
  if (times_.empty()) {
    problem_ = !summary.error.empty() ? summary.error : "no recorded pass in that time range";
    return;
  }
  Load(0);
}

void ReplaySource::Load(std::size_t around) {
  first_loaded_ = around > kAround ? around - kAround : 0;
  const std::size_t last = std::min(times_.size() - 1, around + kAround);
  loaded_.clear();
  record::Replay(
      dir_, {times_[first_loaded_], times_[last]},
      [this](const format::Snapshot& pass) {
        loaded_.push_back(std::make_shared<const format::Snapshot>(pass));
        return true;
      },
      [](const std::string&) {});
}

std::shared_ptr<const format::Snapshot> ReplaySource::Poll() {
  if (!moved_ || times_.empty()) return nullptr;
  moved_ = false;
  if (position_ < first_loaded_ || position_ - first_loaded_ >= loaded_.size()) Load(position_);
  const std::size_t index = position_ - first_loaded_;
  // A store changed under us (rotation) may have lost the pass: show an empty one at its time.
  if (index >= loaded_.size()) {
    auto gone = std::make_shared<format::Snapshot>();
    gone->update_time = times_[position_];
    return gone;
  }
  return loaded_[index];
}

std::string ReplaySource::Describe() const {
  return "replay " + std::to_string(position_ + 1) + "/" + std::to_string(times_.size()) +
         "  <- -> step";
}

bool ReplaySource::Step(int steps) {
  if (times_.empty()) return false;
  const long long target = static_cast<long long>(position_) + steps;
  const auto clamped = static_cast<std::size_t>(
      std::clamp<long long>(target, 0, static_cast<long long>(times_.size()) - 1));
  moved_ = moved_ || clamped != position_;
  position_ = clamped;
  return true;
}

}  // namespace zefo::top
