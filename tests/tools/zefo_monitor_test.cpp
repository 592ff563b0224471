// Runs the built zefo-monitor as a child process: option errors, reports, and stopping on signals.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <string>
#include <vector>

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

Child Spawn(const std::vector<std::string>& args) {
  Child child;
  int out[2], err[2];
  if (pipe2(out, O_CLOEXEC) != 0 || pipe2(err, O_CLOEXEC) != 0) return child;
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
  posix_spawn_file_actions_adddup2(&actions, out[1], 1);
  posix_spawn_file_actions_adddup2(&actions, err[1], 2);
  std::vector<char*> argv{const_cast<char*>(ZEFO_MONITOR_BIN)};
  for (const auto& arg : args) argv.push_back(const_cast<char*>(arg.c_str()));
  argv.push_back(nullptr);
  if (posix_spawn(&child.pid, ZEFO_MONITOR_BIN, &actions, nullptr, argv.data(), environ) != 0) {
    child.pid = -1;
  }
  posix_spawn_file_actions_destroy(&actions);
  close(out[1]);
  close(err[1]);
  child.out = out[0];
  child.err = err[0];
  return child;
}

// Collects output until both pipes close, or until standard output holds `until`, or until
// `limit` has passed. Returns false on the time limit.
bool Drain(Child& child, milliseconds limit, const std::string& until = "") {
  const auto deadline = Clock::now() + limit;
  while (child.out >= 0 || child.err >= 0) {
    if (!until.empty() && child.out_text.find(until) != std::string::npos) return true;
    const auto left = std::chrono::duration_cast<milliseconds>(deadline - Clock::now()).count();
    if (left <= 0) return false;
    pollfd fds[2] = {{child.out, POLLIN, 0}, {child.err, POLLIN, 0}};
    if (poll(fds, 2, static_cast<int>(left)) < 0) continue;
    for (int i = 0; i < 2; ++i) {
      int& fd = i == 0 ? child.out : child.err;
      if (fd < 0 || fds[i].revents == 0) continue;
      char buffer[4096];
      const ssize_t n = read(fd, buffer, sizeof buffer);
      if (n > 0) {
        (i == 0 ? child.out_text : child.err_text).append(buffer, static_cast<size_t>(n));
      } else if (n == 0 || errno != EINTR) {
        close(fd);
        fd = -1;
      }
    }
  }
  return until.empty() || child.out_text.find(until) != std::string::npos;
}

// The exit status, or 128 + the signal that ended the child.
int Reap(Child& child) {
  int status = 0;
  while (waitpid(child.pid, &status, 0) < 0 && errno == EINTR) {
  }
  if (child.out >= 0) close(child.out);
  if (child.err >= 0) close(child.err);
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

struct Outcome {
  int code;
  std::string out, err;
};

Outcome RunToEnd(const std::vector<std::string>& args) {
  Child child = Spawn(args);
  if (child.pid < 0) return {-1, "", "spawn failed"};
  if (!Drain(child, milliseconds(60000))) kill(child.pid, SIGKILL);
  const int code = Reap(child);
  return {code, child.out_text, child.err_text};
}

TEST(ZefoMonitorToolTest, BadOptionsExitTwoWithAReason) {
  const struct {
    std::vector<std::string> args;
    const char* reason;
  } cases[] = {
      {{"--period", "x"}, "'x' is not a whole number"},
      {{"--period", "1.5"}, "'1.5' is not a whole number"},
      {{"--period", "-5"}, "'-5' is out of range"},
      {{"--count", "0"}, "'0' is out of range"},
      {{"--count"}, "--count"},
      {{"--pid", "abc"}, "'abc' is not a process id"},
      {{"--pid", "1", "--pid", ""}, "is not a process id"},
      {{"--bogus"}, "--bogus"},
      {{"stray"}, "stray"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.args[0] + (c.args.size() > 1 ? " " + c.args[1] : ""));
    const Outcome run = RunToEnd(c.args);
    EXPECT_EQ(run.code, 2);
    EXPECT_NE(run.err.find(c.reason), std::string::npos) << run.err;
    EXPECT_EQ(run.out, "");
  }
}

TEST(ZefoMonitorToolTest, HelpAndVersionExitZero) {
  const Outcome help = RunToEnd({"--help"});
  EXPECT_EQ(help.code, 0);
  for (const char* option : {"--period", "--count", "--pid", "--procfs", "--sysfs", "--devfs",
                             "--regdir", "--rootfs", "--version"}) {
    EXPECT_NE(help.out.find(option), std::string::npos) << option;
  }
  const Outcome version = RunToEnd({"--version"});
  EXPECT_EQ(version.code, 0);
  EXPECT_EQ(version.out.rfind("zefo-monitor ", 0), 0u) << version.out;
}

TEST(ZefoMonitorToolTest, CountPrintsThatManyWholeReports) {
  const Outcome run = RunToEnd({"--count", "2", "--period", "50"});
  ASSERT_EQ(run.code, 0) << run.err;
  EXPECT_EQ(run.err, "");
  // Each report starts with "update time: " and ends with an empty line, so every report after
  // the first follows a blank line.
  ASSERT_EQ(run.out.rfind("update time: ", 0), 0u) << run.out;
  ASSERT_GE(run.out.size(), 2u);
  EXPECT_EQ(run.out.substr(run.out.size() - 2), "\n\n");
  size_t reports = 0;
  for (size_t at = run.out.find("update time: "); at != std::string::npos;
       at = run.out.find("update time: ", at + 1)) {
    if (at > 0) {
      EXPECT_EQ(run.out.substr(at - 2, 2), "\n\n") << "report " << reports + 1;
    }
    ++reports;
  }
  EXPECT_EQ(reports, 2u) << run.out;
}

TEST(ZefoMonitorToolTest, StopSignalsEndItCleanlyWithoutWaitingThePeriodOut) {
  for (int sig : {SIGTERM, SIGINT}) {
    SCOPED_TRACE(strsignal(sig));
    Child child = Spawn({"--period", "2000"});
    ASSERT_GT(child.pid, 0);
    // The first report is printed right after the first pass; the tool then waits 2 s.
    ASSERT_TRUE(Drain(child, milliseconds(30000), "\n\n")) << child.err_text;
    const auto sent = Clock::now();
    kill(child.pid, sig);
    EXPECT_TRUE(Drain(child, milliseconds(30000)));
    const int code = Reap(child);
    EXPECT_EQ(code, 0) << child.err_text;
    EXPECT_LT(Clock::now() - sent, milliseconds(1500));
    EXPECT_EQ(child.err_text, "");
  }
}

}  // namespace
