// A host that writes the board's latest pass in every format of zefo::format, built against the
// installed copy. Exits 0 when each format gave text, 1 otherwise.
#include <chrono>
#include <iostream>
#include <thread>

#include "zefo/format/formats.h"
#include "zefo/zefo_resource_monitor.h"

int main() {
  zefo::ZefoResourceMonitorApi api(50);
  zefo::format::Snapshot pass;
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
  while (pass.cpu.empty() && std::chrono::steady_clock::now() < deadline) {
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    pass = zefo::format::TakeSnapshot(api);
  }
  for (auto format : {zefo::format::Format::kLine, zefo::format::Format::kJson,
                      zefo::format::Format::kOpenMetrics}) {
    const std::string text = zefo::format::FormatPass(pass, format);
    if (text.size() < 2) return 1;
    std::cout << zefo::format::FormatName(format) << ": " << text.size() << " bytes\n";
  }
  std::cout << zefo::format::FormatLine(pass);
  return 0;
}
