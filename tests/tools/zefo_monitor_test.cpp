// Runs the built zefo-monitor as a child process: option errors, reports, output files, replay,
// and stopping on signals (what --listen serves: tests/http/http_hostile_test.py).
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <pty.h>
#include <signal.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "support/fixture_tree.h"

extern char** environ;

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

struct Child {
  pid_t pid = -1;
  int out = -1;  // the child's standard output
  int err = -1;  // the child's standard error
  std::string out_text, err_text;
};

// Standard output goes to a pipe the test reads, or to `stdout_fd` (a terminal, /dev/full).
Child Spawn(const std::vector<std::string>& args, int stdout_fd = -1) {
  Child child;
  int out[2], err[2];
  if (pipe2(out, O_CLOEXEC) != 0 || pipe2(err, O_CLOEXEC) != 0) return child;
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
  posix_spawn_file_actions_adddup2(&actions, stdout_fd >= 0 ? stdout_fd : out[1], 1);
  posix_spawn_file_actions_adddup2(&actions, err[1], 2);
#ifdef ZEFO_MONITOR_EMULATOR
  // A cross build's zefo-monitor runs under the same emulator as the tests.
  std::vector<std::string> command{ZEFO_MONITOR_EMULATOR};
#else
  std::vector<std::string> command;
#endif
  command.push_back(ZEFO_MONITOR_BIN);
  command.insert(command.end(), args.begin(), args.end());
  std::vector<char*> argv;
  for (auto& word : command) argv.push_back(word.data());
  argv.push_back(nullptr);
  if (posix_spawnp(&child.pid, argv[0], &actions, nullptr, argv.data(), environ) != 0) {
    child.pid = -1;
  }
  posix_spawn_file_actions_destroy(&actions);
  close(out[1]);
  close(err[1]);
  child.out = out[0];
  child.err = err[0];
  return child;
}

// Collects output until both pipes close, or until standard output (or error) holds `until`, or
// until `limit` has passed. Returns false on the time limit.
bool Drain(Child& child, milliseconds limit, const std::string& until = "") {
  const auto deadline = Clock::now() + limit;
  const auto found = [&] {
    return !until.empty() && (child.out_text.find(until) != std::string::npos ||
                              child.err_text.find(until) != std::string::npos);
  };
  while ((child.out >= 0 || child.err >= 0) && !found()) {
    const auto left = std::chrono::duration_cast<milliseconds>(deadline - Clock::now()).count();
    pollfd fds[2] = {{child.out, POLLIN, 0}, {child.err, POLLIN, 0}};
    if (left <= 0) return false;
    if (poll(fds, 2, static_cast<int>(left)) < 0) continue;
    for (int i = 0; i < 2; ++i) {
      int& fd = i == 0 ? child.out : child.err;
      char buffer[4096];
      const ssize_t n = fds[i].revents != 0 ? read(fd, buffer, sizeof buffer) : -2;
      if (n > 0) {
        (i == 0 ? child.out_text : child.err_text).append(buffer, static_cast<size_t>(n));
      } else if (n == 0 || (n == -1 && errno != EINTR)) {
        close(fd);
        fd = -1;
      }
    }
  }
  return until.empty() || found();
}

// The exit status, or 128 + the signal that ended the child.
int Reap(Child& child, struct rusage* usage = nullptr) {
  int status = 0;
  while (wait4(child.pid, &status, 0, usage) < 0 && errno == EINTR) {
  }
  if (child.out >= 0) close(child.out);
  if (child.err >= 0) close(child.err);
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

struct Outcome {
  int code;
  std::string out, err;
};

Outcome RunToEnd(const std::vector<std::string>& args, int stdout_fd = -1,
                 struct rusage* usage = nullptr) {
  Child child = Spawn(args, stdout_fd);
  if (child.pid < 0) return {-1, "", "spawn failed"};
  if (!Drain(child, milliseconds(60000))) kill(child.pid, SIGKILL);
  const int code = Reap(child, usage);
  return {code, child.out_text, child.err_text};
}

// Each case is one run: bad options exit 2 with the reason on standard error, --help and
// --version exit 0, --output replaces its file whole with one pass of its format, a failed
// write ends the run with a message and status 1, and a reader that left ends it quietly.
TEST(ZefoMonitorToolTest, OneRunPerOption) {
  zefo::testing::FixtureTree tree;
  const std::string dir = tree.Path("out/");
  std::filesystem::create_directory(dir);
  const int full = open("/dev/full", O_WRONLY | O_CLOEXEC);
  int left_pipe[2];
  ASSERT_EQ(pipe2(left_pipe, O_CLOEXEC), 0);
  close(left_pipe[0]);
  const struct {
    std::vector<std::string> args;
    int code;
    const char* text;  // in standard error, or with exit 0 in standard output
    int out_fd = -1;   // standard output, when not the test's pipe
  } cases[] = {
      {{"--period", "1.5"}, 2, "'1.5' is not a whole number"},
      {{"--period", "-5"}, 2, "'-5' is out of range"},
      {{"--count", "0"}, 2, "'0' is out of range"},
      {{"--count"}, 2, "--count"},
      {{"--pid", "1", "--pid", ""}, 2, "'' is not a process id"},
      {{"stray"}, 2, "stray"},
      {{"--format", "xml"},
       2,
       "'xml' is not a format (report, line, json, openmetrics, prometheus)"},
      {{"--output", "/nonexistent-zefo-dir/x.prom"},
       2,
       "cannot write --output /nonexistent-zefo-dir/x.prom: cannot create files in "
       "/nonexistent-zefo-dir: No such file or directory"},
      {{"--output", "/"}, 2, "/ is a directory"},
      {{"--output", ""}, 2, "the file name is empty"},
      {{"--listen", "127.0.0.1"}, 2, "'127.0.0.1' is not an address and port"},
      {{"--web-config", "web.yml"}, 2, "--web-config needs --listen"},
      {{"--listen", "127.0.0.1:65536"}, 2, "'65536' is not a port"},
      {{"--listen", "[::1"}, 2, "is not an address and port"},
#ifdef ZEFO_WITH_HTTP
      {{"--listen", "no.such.host.invalid:9464"}, 2, "cannot listen on no.such.host.invalid:9464"},
#endif
      {{"--from", "1", "--count", "1"}, 2, "--from requires --replay"},
      {{"--replay", "/tmp", "--to", "2024-05-01T25:00"}, 2, "is not a time"},
      {{"--replay", "/tmp", "--from", "20", "--to", "10"}, 2, "--from 20 lies after --to 10"},
      {{"--replay", "/tmp", "--record", "/tmp"}, 2, "--record excludes --replay"},
      {{"--record-max-size", "1K", "--record", "/tmp/x"}, 2, "'1K' is too small"},
      {{"--record-max-age", "7y", "--record", "/tmp/x"}, 2, "'7y' is not a duration"},
      {{"--metrics-processes", "top:0"}, 2, "'0' is not a process count (1 to 10000)"},
      {{"--metrics-monitors", "cpu,gpu"}, 2, "'gpu' is not a monitor"},
      {{"--output-interval", "5"}, 2, "--output-interval needs --output"},
      {{"--count", "3", "--period", "50"},
       1,
       "cannot write to standard output: No space left on device",
       full},
      {{"--period", "50"}, 0, "", left_pipe[1]},
      {{"--help"}, 0, "--rootfs DIR"},
      {{"--version"}, 0, "zefo-monitor "},
      {{"--count", "3", "--period", "50", "--format", "json", "--output", dir + "pass.json"},
       0,
       ""},
      // --output-interval keeps the first pass, which has no two-sample figures yet.
      {{"--count", "3", "--period", "50", "--format", "json", "--output-interval", "3600",
        "--output", dir + "kept.json"},
       0,
       ""},
      // For node_exporter: a .prom file gets the 0.0.4 text format, not OpenMetrics.
      {{"--count", "3", "--period", "50", "--format", "openmetrics", "--output", dir + "z.prom"},
       0,
       ""},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.args[0] + (c.args.size() > 1 ? " " + c.args[1] : ""));
    const Outcome run = RunToEnd(c.args, c.out_fd);
    EXPECT_EQ(run.code, c.code) << run.err;
    EXPECT_NE((c.code == 0 ? run.out : run.err).find(c.text), std::string::npos) << run.err;
    if (c.code != 0) {
      EXPECT_EQ(run.out, "");
    } else if (c.out_fd >= 0) {
      EXPECT_EQ(run.err, "");
    }
  }
  close(full);
  close(left_pipe[1]);
  const std::string json = zefo::testing::ReadFile(dir + "pass.json");
  EXPECT_EQ(json.find('\n'), json.size() - 1);
  EXPECT_TRUE(nlohmann::json::parse(json)["cpu"].contains("total")) << json;
  EXPECT_FALSE(
      nlohmann::json::parse(zefo::testing::ReadFile(dir + "kept.json"))["cpu"].contains("total"));
  const std::string prom = zefo::testing::ReadFile(dir + "z.prom");
  const std::size_t at = prom.find("\nzefo_update_time_seconds ");  // one pass: once
  ASSERT_NE(at, std::string::npos);
  EXPECT_EQ(prom.find("\nzefo_update_time_seconds ", at + 1), std::string::npos);
  EXPECT_EQ(prom.find("# EOF"), std::string::npos);
  std::vector<std::string> left;  // no temporary file stays behind
  for (const auto& entry : std::filesystem::directory_iterator(dir)) {
    left.push_back(entry.path().filename().string());
  }
  std::sort(left.begin(), left.end());
  EXPECT_EQ(left, (std::vector<std::string>{"kept.json", "pass.json", "z.prom"}));
}

#ifdef ZEFO_WITH_RECORD
// What --record stored, --replay writes byte for byte as the live run wrote it.
TEST(ZefoMonitorToolTest, ReplayRepeatsTheLiveOutput) {
  char pattern[] = "/tmp/zefo-record-XXXXXX";
  ASSERT_NE(mkdtemp(pattern), nullptr);
  const std::string dir = pattern, self = std::to_string(getpid());
  for (const char* format : {"report", "json"}) {
    const std::string store = dir + "/" + format;
    const Outcome live = RunToEnd({"--record", store, "--format", format, "--count", "3",
                                   "--period", "50", "--pid", self, "--pid", "1"});
    ASSERT_EQ(live.code, 0) << live.err;
    const Outcome replay = RunToEnd({"--replay", store, "--format", format});
    EXPECT_EQ(replay.code, 0) << replay.err;
    EXPECT_EQ(replay.err, "");
    EXPECT_EQ(replay.out, live.out) << format;
  }
  std::filesystem::remove_all(dir);
}
#endif

// A process that exits leaves the output from the pass after its exit. What is live is chosen
// once for every format (the snapshot), so JSON stands for them all. SIGINT then ends the run at
// once and cleanly, without waiting the period out.
TEST(ZefoMonitorToolTest, AnExitedProcessLeavesTheOutputAndSigintEndsTheRun) {
  const pid_t busy = fork();
  ASSERT_GE(busy, 0);
  if (busy == 0) {
    for (;;) {
    }
  }
  const std::string needle = "\"" + std::to_string(busy) + "\":{";
  Child child = Spawn({"--pid", std::to_string(busy), "--period", "2000", "--format", "json"});
  ASSERT_GT(child.pid, 0);
  const bool seen = Drain(child, milliseconds(30000), needle);
  kill(busy, SIGKILL);
  waitpid(busy, nullptr, 0);
  ASSERT_TRUE(seen) << child.out_text << child.err_text;
  // The pass under way at the exit may still have sampled it; the one after may not.
  for (int pass = 0; pass < 2; ++pass) {
    child.out_text.erase(0, child.out_text.find('\n') + 1);
    ASSERT_TRUE(Drain(child, milliseconds(30000), "\n"));
  }
  EXPECT_EQ(child.out_text.substr(0, child.out_text.find('\n')).find(needle), std::string::npos);
  const auto sent = Clock::now();
  kill(child.pid, SIGINT);
  EXPECT_TRUE(Drain(child, milliseconds(30000)));
  EXPECT_EQ(Reap(child), 0);
  EXPECT_LT(Clock::now() - sent, milliseconds(1500));
  EXPECT_EQ(child.err_text, "");
}

// What other users control (a registration directory anyone may write, a process's own command
// line) cannot make the monitor's memory or output grow with it; and a terminal gets names
// escaped where a pipe gets the library's bytes.
TEST(ZefoMonitorToolTest, HostileNamesAndCommandLinesStayBoundedAndReachTerminalsEscaped) {
  // A 1.8 MB command line (the kernel allows a quarter of the default 8 MB stack).
  // sleep adds up its arguments, however many zeros they hold; it forks nothing that could
  // outlive it holding the test's output open.
  std::vector<std::string> words{"/bin/sleep", "30"};
  words.insert(words.end(), 14, std::string(130000, '0'));
  std::vector<char*> argv;
  for (auto& word : words) argv.push_back(word.data());
  argv.push_back(nullptr);
  pid_t hostile = -1;
  ASSERT_EQ(posix_spawn(&hostile, argv[0], nullptr, nullptr, argv.data(), environ), 0);
  zefo::testing::FixtureTree tree;
  const std::string self = std::to_string(getpid()), other = std::to_string(hostile);
  const std::string name = "cam\x1b]0;owned\x07\x1b[2J\r\xC2\x9B" + std::string(300, 'x');
  for (const auto& [pid, registered] :
       {std::pair(self, name + "\n"), std::pair(other, std::string(4 << 20, 'n') + "\n")}) {
    tree.Write("reg/" + pid + "/pid", pid + "\n");
    tree.Write("reg/" + pid + "/name", registered);
  }
  std::vector<std::string> args{"--pid",   self, "--pid",    other, "--regdir", tree.Path("reg"),
                                "--count", "2",  "--period", "50",  "--format", "json"};
  struct rusage usage {};
  const Outcome run = RunToEnd(args, -1, &usage);
  ASSERT_EQ(run.code, 0) << run.err;
  EXPECT_LT(run.out.size(), 32u << 10);
// Sanitizers and an emulator (whose own memory counts in the child's) add their own.
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__) && \
    !defined(ZEFO_MONITOR_EMULATOR)
  EXPECT_LT(usage.ru_maxrss, 24 << 10) << "kB";  // a few times the hostile 1.8 MB
#endif
  const auto json = nlohmann::json::parse(run.out.substr(run.out.rfind('\n', run.out.size() - 2)));
  EXPECT_EQ(json["process"][self]["zefo_name"], name.substr(0, 255));
  EXPECT_EQ(json["process"][other]["zefo_name"], "");
  const std::string cmd_line = json["process"][other]["cmd_line"];
  EXPECT_EQ(cmd_line.size(), 4096u);
  EXPECT_EQ(cmd_line.rfind("/bin/sleep 30 000", 0), 0u);

  args.resize(args.size() - 2);  // the report, on a terminal and through a pipe
  int terminal = -1, replica = -1;
  ASSERT_EQ(openpty(&terminal, &replica, nullptr, nullptr, nullptr), 0);
  Child child = Spawn(args, replica);
  close(replica);
  std::string shown;
  char buffer[4096];
  for (ssize_t n; (n = read(terminal, buffer, sizeof buffer)) != 0;) {
    if (n < 0 && errno != EINTR) break;  // EIO: the tool closed the terminal
    if (n > 0) shown.append(buffer, static_cast<std::size_t>(n));
  }
  close(terminal);
  Drain(child, milliseconds(30000));
  EXPECT_EQ(Reap(child), 0) << child.err_text;
  EXPECT_NE(shown.find(": cam\\x1b]0;owned\\x07\\x1b[2J\\x0d\\u009bxxx"), std::string::npos);
  EXPECT_EQ(shown.find_first_of("\x1b\x07"), std::string::npos);
  EXPECT_NE(RunToEnd(args).out.find(": " + name.substr(0, 255) + "\n"), std::string::npos);
  kill(hostile, SIGKILL);
  waitpid(hostile, nullptr, 0);
}

}  // namespace
