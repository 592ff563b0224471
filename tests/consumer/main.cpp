// A minimal host: starts the monitor with a short period, waits until it has seen the update
// time advance twice, checks that every monitor answered the callback sweep, and prints the
// report. Built with ZEFO_CONSUMER_FORMAT against the formatters, it then also writes the latest
// pass in every format of zefo::format. Exits 0 on success, 1 otherwise.
#include <chrono>
#include <iostream>
#include <thread>

#include "zefo/zefo_resource_monitor.h"
#ifdef ZEFO_CONSUMER_FORMAT
#include "zefo/format/formats.h"
#endif

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
    if (update_time < seen) {
      std::cerr << "update time went back from " << seen << " to " << update_time << "\n";
      return 1;
    }
    if (update_time != seen) {
      seen = update_time;
      monitors = answered;
      ++advances;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  if (advances < 2 || monitors != 8) {
    std::cerr << "the update time advanced " << advances << " times, " << monitors
              << " monitors answered the callback (expected 8)\n";
    return 1;
  }
#ifdef ZEFO_CONSUMER_FORMAT
  // From the second pass on, the machine's /proc/stat gives the CPUs their figures.
  const zefo::format::Snapshot pass = zefo::format::TakeSnapshot(api);
  for (auto format : {zefo::format::Format::kLine, zefo::format::Format::kJson,
                      zefo::format::Format::kOpenMetrics}) {
    const std::string text = zefo::format::FormatPass(pass, format);
    if (pass.cpu.empty() || text.size() < 2) return 1;
    std::cout << zefo::format::FormatName(format) << ": " << text.size() << " bytes\n";
  }
  std::cout << zefo::format::FormatLine(pass);
#else
  // Present from the second pass on when the machine has /proc/stat.
  zefo::ResourceItem* total = api.GetResourceItem(zefo::Cpu, "total");
  std::cout << "cpu total item: " << (total != nullptr ? "present" : "absent") << "\n";
  api.Print();
#endif
  return 0;
}
