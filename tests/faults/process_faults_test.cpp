// Fault injection into the process monitor's files: one process's files, the registration
// directory and the machine-wide files, damaged in every way of damage.h. The other process
// must read exactly as without the damage.
#include <gtest/gtest.h>

#include <string>

#include "damage.h"
#include "zefo/procinfo_monitor.h"

namespace zefo {
namespace {

using testing::FixtureTree;
using testing::Source;

std::string N(long long value) {
  return std::to_string(value);
}

// A stat line with every field up to 52; the monitor reads 1 to 15, 22, 39 and 42.
std::string StatLine(const std::string& pid, int pass) {
  std::string line = pid + " (app " + pid + ") S 1 " + pid + " " + pid + " 0 -1 4194560 150 0 0 0 ";
  line += N(10 * pass) + " " + N(5 * pass);  // utime, stime
  for (int field = 16; field <= 52; ++field) {
    line += " " + N(field == 22 ? 5000 : field == 39 ? 1 : field == 42 ? 7 : 0);
  }
  return line + "\n";
}

void WriteBoard(const FixtureTree& tree, int pass) {
  tree.Write("proc/stat", "cpu  " + N(1000 * pass) + " 0 0 " + N(9000 * pass) +
                              " 0 0 0 0 0 0\ncpu0 1 0 0 1\ncpu1 1 0 0 1\nintr 1 2\n");
  tree.Write("proc/uptime", N(1000 + 2 * pass) + ".50 200.00\n");
  for (const std::string pid : {"100", "300"}) {
    const std::string dir = "proc/" + pid + "/";
    tree.Write(dir + "stat", StatLine(pid, pass));
    tree.Write(dir + "statm", "1000 " + N(200 + pass) + " 50 10 0 300 0\n");
    tree.Write(dir + "status",
               "Name:\tapp\nUmask:\t0022\nVmPeak:\t 5000 kB\nVmSize:\t 4000 kB\n"
               "VmLck:\t 0 kB\nVmHWM:\t 900 kB\nVmRSS:\t " +
                   N(800 + pass) +
                   " kB\nRssAnon:\t 500 kB\nRssFile:\t 200 kB\nRssShmem:\t 100 kB\n"
                   "VmData:\t 300 kB\nVmStk:\t 132 kB\nVmExe:\t 40 kB\n"
                   "VmLib:\t 2000 kB\nVmSwap:\t 0 kB\nThreads:\t1\n");
    tree.Write(dir + "io",
               "rchar: 10\nwchar: 20\nsyscr: 3\nsyscw: 4\nread_bytes: " + N(4096 * pass) +
                   "\nwrite_bytes: " + N(8192 * pass) + "\ncancelled_write_bytes: 0\n");
    tree.Write(dir + "cmdline",
               std::string("/usr/bin/app\0--id\0", 18) + pid + std::string(1, '\0'));
    for (const char* fd : {"0", "1", "2"}) tree.Write(dir + "fd/" + fd, "");
    tree.Write("reg/" + pid + "/name", "svc" + pid + "\n");
    tree.Write("reg/" + pid + "/pid", pid + "\n");
  }
}

TEST(ProcessFaults, OneProcessFilesAndTheMachineWideOnes) {
  Source source{"process",
                [](const KernelPaths& paths) { return std::make_unique<ProcInfoMonitor>(paths); },
                &WriteBoard,
                {}};
  const std::set<std::string> victim = {"300"};
  source.targets = {
      testing::OneLine("proc/300/stat", "300 (victim) S", victim),
      testing::OneLine("proc/300/statm", "", victim),
      testing::ManyLines("proc/300/status", "VmLck:", 2, victim),
      testing::ManyLines("proc/300/io", "syscr:", 1, victim),
      testing::OneLine("proc/300/cmdline", "/bin/x", victim),
      testing::Entry("proc/300/fd", victim),
      // Anybody may write here: what stands at a process's entry must never stall the pass.
      testing::Entry("reg/300", victim),
      testing::OneLine("reg/300/name", "", victim),
      testing::ManyLines("proc/stat", "intr", 1),
      testing::OneLine("proc/uptime", "", {"*"}),
  };
  testing::RunAllDamages(source);
}

}  // namespace
}  // namespace zefo
