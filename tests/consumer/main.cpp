// A minimal host: starts the monitor with a short period, waits until it has seen the update
// time advance twice, checks that every monitor answered the callback sweep, and prints the
// report. Exits 0 on success, 1 otherwise.
#include <chrono>
#include <iostream>
#include <thread>

#include "zefo/zefo_resource_monitor.h"

int main() {
  zefo::ZefoResourceMonitorApi api(50);

  unsigned long seen = 0;
  int advances = -1;  // the first non-zero time is the first pass, not an advance
  int monitors = 0;
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
  while (advances < 2 && std::chrono::steady_clock::now() < deadline) {
    unsigned long update_time = 0;
    int answered = 0;
    api.GetResourceInfo(update_time,
                        [&](zefo::ResourceMonitorType,
                            const std::map<std::string, zefo::ResourceItem*>&) { ++answered; });
    if (update_time != 0 && update_time != seen) {
      if (update_time < seen) {
        std::cerr << "update time went back from " << seen << " to " << update_time << "\n";
        return 1;
      }
      seen = update_time;
      monitors = answered;
      ++advances;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  if (advances < 2) {
    std::cerr << "the update time advanced " << (advances < 0 ? 0 : advances) << " times\n";
    return 1;
  }
  if (monitors != 8) {
    std::cerr << monitors << " monitors answered the callback, expected 8\n";
    return 1;
  }
  // Present from the second pass on when the machine has /proc/stat.
  zefo::ResourceItem* total = api.GetResourceItem(zefo::Cpu, "total");
  std::cout << "cpu total item: " << (total != nullptr ? "present" : "absent") << "\n";
  api.Print();
  return 0;
}
