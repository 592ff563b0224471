// The BPU monitor over files holding the input: up to five parts separated by 0xff bytes go to
// a core's devfreq name, min_freq, max_freq and cur_freq files and its ratio file. Each figure
// must be what sscanf "%lld" makes of the file's first line (-1 when it does not start with a
// number, 0 when the file is empty), and the report must come out.
#include <stdlib.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "fuzz_support.h"
#include "zefo/bpu_monitor.h"

namespace {

namespace fs = std::filesystem;

// A throw-away board, made once per fuzzing process (under /dev/shm where there is one, so the
// writes stay in memory) and removed at exit.
struct Board {
  Board() {
    const char* base = fs::is_directory("/dev/shm") ? "/dev/shm" : "/tmp";
    std::string pattern = std::string(base) + "/zefo-bpu-fuzz-XXXXXX";
    if (mkdtemp(pattern.data()) == nullptr) std::abort();
    root = pattern;
    core = root + "/sys/devices/system/bpu/bpu0";
    device = core + "/devfreq/devfreq0";
    fs::create_directories(device);
    monitor = new zefo::BpuMonitor(zefo::KernelPaths::UnderRoot(root));
  }
  ~Board() {
    delete monitor;
    std::error_code ignored;
    fs::remove_all(root, ignored);
  }
  std::string root, core, device;
  zefo::BpuMonitor* monitor;
};

void Put(const std::string& path, const std::string& content) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out.write(content.data(), static_cast<std::streamsize>(content.size()));
}

// What ReadValue(path, long long&) leaves for a file holding `content`, or `absent` when the
// file yields no line.
long long Expected(const std::string& content, long long absent) {
  if (content.empty()) return absent;
  const std::string line = content.substr(0, content.find('\n'));
  long long value = -1;
  std::sscanf(line.c_str(), "%lld", &value);
  return value;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static Board board;
  const std::string_view input = zefo::fuzz::AsText(data, size);
  std::string parts[5];
  zefo::fuzz::SplitParts(input, parts);
  // The name file must give a line, or the core is skipped and nothing is checked.
  if (parts[0].empty()) parts[0] = "bpu0";
  Put(board.device + "/name", parts[0]);
  Put(board.device + "/min_freq", parts[1]);
  Put(board.device + "/max_freq", parts[2]);
  Put(board.device + "/cur_freq", parts[3]);
  Put(board.core + "/ratio", parts[4]);

  // Two passes: the second fills the item from this input whatever the one before left.
  board.monitor->DoMonitor();
  board.monitor->DoMonitor();
  const auto found = board.monitor->Items().find("bpu0");
  ZEFO_FUZZ_CHECK(found != board.monitor->Items().end(), input);
  auto* item = dynamic_cast<zefo::BpuResourceItem*>(found->second);
  ZEFO_FUZZ_CHECK(item != nullptr, input);
  ZEFO_FUZZ_CHECK(item->min_freq == Expected(parts[1], 0), input);
  ZEFO_FUZZ_CHECK(item->max_freq == Expected(parts[2], 0), input);
  ZEFO_FUZZ_CHECK(item->cur_freq == Expected(parts[3], 0), input);
  ZEFO_FUZZ_CHECK(item->ratio == Expected(parts[4], 0), input);
  ZEFO_FUZZ_CHECK(item->devfreq_name.size() <= 255, input);
  std::ostringstream report;
  item->PrintToStream(report);
  return 0;
}
