#ifndef ZEFO_ZEFO_TIMER_H_
#define ZEFO_ZEFO_TIMER_H_

#include <condition_variable>
#include <mutex>

#include "zefo/zefo_export.h"

namespace zefo {

/// A blocking wait that another thread can cut short. `start()` is called by one waiting thread;
/// `stop()` may be called from any thread at any time.
class ZEFO_EXPORT ZefoTimer {
 public:
  ZefoTimer() = default;
  virtual ~ZefoTimer() = default;

  ZefoTimer(const ZefoTimer&) = delete;
  ZefoTimer& operator=(const ZefoTimer&) = delete;

  /// Blocks for `milliseconds` (nothing for zero or less), or until `stop()`. Once stopped, the
  /// timer stays stopped and later calls return at once.
  virtual void start(long milliseconds);
  /// Wakes a waiting `start()` and makes every later one return at once.
  virtual void stop();

 private:
  std::mutex mutex_;
  std::condition_variable wake_;
  bool stopped_ = false;
};

}  // namespace zefo

#endif  // ZEFO_ZEFO_TIMER_H_
