#include "zefo/zefo_thread.h"

#include <linux/futex.h>
#include <pthread.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <climits>

namespace zefo {

ZefoThread::ZefoThread(const std::string& name) : name_(name) {}

ZefoThread::~ZefoThread() {
  stop();
}

void ZefoThread::start() {
  if (running_.exchange(true, std::memory_order_acq_rel) || thread_.joinable()) return;
  thread_ = std::thread([this] {
    // Linux thread names hold 15 characters plus the terminating NUL.
    pthread_setname_np(pthread_self(), name_.substr(0, 15).c_str());
    do_run();
  });
}

void ZefoThread::stop() {
  running_.store(false, std::memory_order_release);
  if (!thread_.joinable()) return;
  do_stop();
  if (thread_.get_id() == std::this_thread::get_id()) {
    // Stopping from the worker itself: it cannot join itself, so let it finish on its own.
    thread_.detach();
    return;
  }
  thread_.join();
}

namespace {

// The kernel sleeps on a plain 32-bit word; std::atomic<unsigned int> has the same size and
// representation, which is what every futex-based lock relies on.
static_assert(sizeof(std::atomic<unsigned int>) == sizeof(unsigned int), "futex word");

unsigned int* FutexWord(std::atomic<unsigned int>& word) {
  return reinterpret_cast<unsigned int*>(&word);
}

// Sleeps while `word` still holds `expected` (the kernel checks that atomically).
void FutexWait(std::atomic<unsigned int>& word, unsigned int expected) {
  syscall(SYS_futex, FutexWord(word), FUTEX_WAIT_PRIVATE, expected, nullptr, nullptr, 0);
}

void FutexWakeAll(std::atomic<unsigned int>& word) {
  syscall(SYS_futex, FutexWord(word), FUTEX_WAKE_PRIVATE, INT_MAX, nullptr, nullptr, 0);
}

inline void CpuRelax() {
#if defined(__x86_64__) || defined(__i386__)
  __builtin_ia32_pause();
#elif defined(__aarch64__) || defined(__arm__)
  asm volatile("yield" ::: "memory");
#endif
}

// Short holds (a host reading one item) end within this many tries; longer ones (a whole
// sampling pass) are waited out asleep.
constexpr int kSpinTries = 200;

}  // namespace

void ZefoThreadSpin::lock() {
  const unsigned int ticket = next_.fetch_add(1, std::memory_order_relaxed);
  for (int i = 0; i < kSpinTries; ++i) {
    if (serving_.load(std::memory_order_acquire) == ticket) return;
    CpuRelax();
  }
  // Announce the sleeper before looking at `serving_` again; unlock() bumps `serving_` before
  // looking at `sleepers_`. Both are sequentially consistent, so one of the two sees the other.
  sleepers_.fetch_add(1, std::memory_order_seq_cst);
  for (;;) {
    const unsigned int now = serving_.load(std::memory_order_seq_cst);
    if (now == ticket) break;
    FutexWait(serving_, now);
  }
  // The load that saw our ticket is sequentially consistent, hence an acquire: it already orders
  // what the previous holder wrote before what we read (no separate fence, which ThreadSanitizer
  // could not follow either).
  sleepers_.fetch_sub(1, std::memory_order_relaxed);
}

void ZefoThreadSpin::unlock() {
  serving_.fetch_add(1, std::memory_order_seq_cst);
  // Every sleeper wakes and checks whether its turn has come; there are a few at most.
  if (sleepers_.load(std::memory_order_seq_cst) > 0) FutexWakeAll(serving_);
}

}  // namespace zefo
