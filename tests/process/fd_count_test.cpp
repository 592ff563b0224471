// Descriptor counts from the size of /proc/<pid>/fd agree with listing the directory.
#include "process/fd_count.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/utsname.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>

namespace zefo::detail {
namespace {

TEST(FdCountTest, KernelReleases) {
  const struct {
    const char* release;
    bool at_least_6_2;
  } cases[] = {{"6.2.0", true},
               {"6.1.99", false},
               {"5.10.110-rt63", false},
               {"6.18.44-fc-v782", true},
               {"10.0", true},
               {"6", false},
               {"", false}};
  for (const auto& c : cases)
    EXPECT_EQ(ReleaseAtLeast(c.release, 6, 2), c.at_least_6_2) << c.release;
}

TEST(FdCountTest, SizeAndListingGiveTheSameCount) {
  const FdSizeRule rule = DetectFdSizeRule("/proc");
  struct utsname name;
  ASSERT_EQ(uname(&name), 0);
  EXPECT_EQ(rule.size_is_count, ReleaseAtLeast(name.release, 6, 2));
  // A child whose descriptors never change after the fork (it closes nothing, only waits for a
  // byte), so listing it and sizing it must agree whatever moment each of them runs.
  int pipe_fds[2];
  ASSERT_EQ(pipe(pipe_fds), 0);
  const pid_t child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    char byte;
    while (read(pipe_fds[0], &byte, 1) < 0) {
    }
    _exit(0);
  }
  const std::string dir = "/proc/" + std::to_string(child) + "/fd";
  const long long listed = ListFdCount(dir);
  EXPECT_GT(listed, 0);
  EXPECT_EQ(FdCount(dir, rule, false), listed);
  const char wake = 0;
  EXPECT_EQ(write(pipe_fds[1], &wake, 1), 1);
  close(pipe_fds[1]);
  close(pipe_fds[0]);
  waitpid(child, nullptr, 0);
  // Our own directory is listed, so it counts the descriptor that lists it, as always.
  const std::string self = "/proc/" + std::to_string(getpid()) + "/fd";
  EXPECT_EQ(FdCount(self, rule, true), ListFdCount(self));
  // A process that does not exist counts 0 either way.
  EXPECT_EQ(FdCount("/proc/999999999/fd", rule, false), 0);
}

}  // namespace
}  // namespace zefo::detail
