#include "zefo/zefo_timer.h"

#include <chrono>

namespace zefo {

void ZefoTimer::start(long milliseconds) {
  std::unique_lock<std::mutex> lock(mutex_);
  if (milliseconds <= 0) return;
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(milliseconds);
  wake_.wait_until(lock, deadline, [this] { return stopped_; });
}

void ZefoTimer::stop() {
  {
    std::lock_guard<std::mutex> lock(mutex_);
    stopped_ = true;
  }
  wake_.notify_all();
}

}  // namespace zefo
