#ifndef ZEFO_ZEFO_THREAD_H_
#define ZEFO_ZEFO_THREAD_H_

#include <atomic>
#include <string>
#include <thread>

#include "zefo/zefo_export.h"

namespace zefo {

/// A named worker thread. `start()`, `stop()` and destruction belong to one owning thread;
/// `is_running()` may be called from any thread, the worker included.
class ZEFO_EXPORT ZefoThread {
 public:
  explicit ZefoThread(const std::string& name);
  virtual ~ZefoThread();

  ZefoThread(const ZefoThread&) = delete;
  ZefoThread& operator=(const ZefoThread&) = delete;

  /// Sets the running flag and runs `do_run()` on a new OS thread named after `name()`
  /// (cut to the kernel's 15-character limit). A second call while running does nothing.
  void start();
  /// Clears the running flag, calls `do_stop()` and joins the worker. Idempotent.
  void stop();
  bool is_running() const { return running_.load(std::memory_order_acquire); }
  const std::string& name() const { return name_; }

 protected:
  /// The thread body; it should return soon after `is_running()` turns false.
  virtual void do_run() {}
  /// Called by `stop()` after the flag is cleared, before the join: a place to wake the worker.
  virtual void do_stop() {}

 private:
  std::string name_;
  std::atomic<bool> running_{false};
  std::thread thread_;
};

/// A non-recursive, first-come-first-served lock that spins briefly, then sleeps in the kernel
/// until its turn, so a thread waiting behind a long holder costs no CPU and a sampler that
/// relocks at once cannot starve host threads. Any thread may lock or unlock it. `lock()` has
/// acquire and `unlock()` release semantics.
class ZEFO_EXPORT ZefoThreadSpin {
 public:
  ZefoThreadSpin() = default;
  virtual ~ZefoThreadSpin() = default;

  ZefoThreadSpin(const ZefoThreadSpin&) = delete;
  ZefoThreadSpin& operator=(const ZefoThreadSpin&) = delete;

  virtual void lock();
  virtual void unlock();

 private:
  // A ticket lock: each locker draws `next_` and holds the lock while `serving_` equals it.
  std::atomic<unsigned int> next_{0};
  std::atomic<unsigned int> serving_{0};
  // Lockers asleep on `serving_`; unlock() makes a system call only when there are some.
  std::atomic<int> sleepers_{0};
};

/// Scoped holder of a `ZefoThreadSpin`.
class ZefoSpinGuard {
 public:
  explicit ZefoSpinGuard(ZefoThreadSpin* spin) : spin_(spin) { spin_->lock(); }
  ~ZefoSpinGuard() { spin_->unlock(); }
  ZefoSpinGuard(const ZefoSpinGuard&) = delete;
  ZefoSpinGuard& operator=(const ZefoSpinGuard&) = delete;

 private:
  ZefoThreadSpin* spin_;
};

}  // namespace zefo

#endif  // ZEFO_ZEFO_THREAD_H_
