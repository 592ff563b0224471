// What changes between 64-bit and 32-bit targets (arm64, armhf): the update time handed out
// through `unsigned long`, and the counter types the monitors keep.
#include <gtest/gtest.h>

#include <chrono>
#include <climits>
#include <sstream>
#include <string>
#include <thread>
#include <type_traits>

#include "zefo/cpu_monitor.h"
#include "zefo/memory_monitor.h"
#include "zefo/zefo_resource_monitor.h"

namespace zefo {
namespace {

// Kernel counters pass 2^32 on a running board (CPU ticks, bytes of memory): every field that
// holds one is 64 bits wide on every target, never `long`.
static_assert(std::is_same_v<decltype(CpuState::user), long long>);
static_assert(std::is_same_v<decltype(CpuState::total), long long>);
static_assert(std::is_same_v<decltype(CpuResourceItem::cur_freq), long long>);
static_assert(std::is_same_v<decltype(MemoryState::total), long long>);
static_assert(std::is_same_v<decltype(MemoryResourceItem::swap_total), long long>);
static_assert(sizeof(long long) == 8 && sizeof(ResourceItem::count) == 8);

class Idle : public BaseMonitor {
 public:
  Idle() : BaseMonitor(Cpu) {}
  bool DoMonitor() override { return true; }
};

template <typename Monitor>
uint64_t WaitForFirstPass(Monitor& monitor) {
  uint64_t update_time = 0;
  for (int i = 0; i < 5000 && update_time == 0; ++i) {
    update_time = monitor.GetUpdateTime();
    if (update_time == 0) std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  return update_time;
}

// Milliseconds since the epoch need 41 bits today. GetUpdateTime() gives them whole on every
// target; GetResourceInfo's `unsigned long` is 32 bits on armhf and carries them modulo 2^32
// there. The report prints the whole value.
TEST(UpdateTimeTest, WholeFromGetUpdateTimeAndCutToUnsignedLongByGetResourceInfo) {
  ZefoResourceMonitor monitor({new Idle()}, 60000);  // one pass within the test
  const uint64_t whole = WaitForFirstPass(monitor);
  ASSERT_GT(whole, uint64_t{1} << 40);

  unsigned long legacy = 0;
  monitor.GetResourceInfo(legacy, nullptr);
  if constexpr (sizeof(unsigned long) >= sizeof(uint64_t)) {
    EXPECT_EQ(legacy, whole);
  } else {
    EXPECT_EQ(legacy, static_cast<unsigned long>(whole & ULONG_MAX));
    EXPECT_NE(uint64_t{legacy}, whole);
  }

  std::ostringstream report;
  monitor.PrintToStream(report);
  EXPECT_EQ(report.str().rfind("update time: " + std::to_string(whole) + "\n", 0), 0u);
}

}  // namespace
}  // namespace zefo
