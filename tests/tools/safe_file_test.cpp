// A directory anyone may write to, as /tmp: links, hard links and files planted by another user
// are never written through, and only our own stale temporaries are removed.
#include "safe_file.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <vector>

#include "support/fixture_tree.h"

namespace zefo::tools {
namespace {

constexpr uid_t kNobody = 65534;  // the attacker, when the tests run as root (as in CI)

TEST(SafeDirTest, SharedDirectoryWritesThroughNothingPlantedAndCleansOnlyOurOwnTemporaries) {
  testing::FixtureTree tree;
  const bool root = geteuid() == 0;
  tree.Write("victim", "secret");
  tree.Mkdir("shared");
  chmod(tree.Path("shared").c_str(), 01777);
  symlink(tree.Path("victim").c_str(), tree.Path("shared/link").c_str());
  lchown(tree.Path("shared/link").c_str(), kNobody, kNobody);
  link(tree.Path("victim").c_str(), tree.Path("shared/hard").c_str());
  const std::string temp = "shared/" + SafeDir::TempPrefix("zefo.prom");
  const struct timespec old[2] = {{time(nullptr) - 120, 0}, {time(nullptr) - 120, 0}};
  const struct {
    std::string name;
    bool old, theirs, removed;
  } files[] = {
      {temp + "stale", true, false, true},
      {temp + "fresh", false, false, false},
      {temp + "theirs", true, true, !root},
      {"shared/.other.tmp-stale", true, false, false},
  };
  for (const auto& f : files) {
    tree.Write(f.name, "x");
    if (f.old) utimensat(AT_FDCWD, tree.Path(f.name).c_str(), old, 0);
    if (f.theirs && root) chown(tree.Path(f.name).c_str(), kNobody, kNobody);
  }

  SafeDir dir;
  ASSERT_EQ(dir.Open(tree.Path("shared")), "");
  EXPECT_EQ(dir.Replace("out.prom", "pass", 0644), "");
  EXPECT_NE(dir.Replace("link", "pass", 0644).find("it is a symbolic link"), std::string::npos);
  std::string error;
  std::vector<std::string> baits{"link", "hard"};
  if (root) baits.push_back(files[2].name.substr(files[2].name.rfind('/') + 1));
  for (const std::string& bait : baits) {
    EXPECT_EQ(dir.OpenOwned(bait, O_WRONLY | O_CREAT | O_TRUNC, 0644, error), -1) << bait;
  }
  const int lock = dir.OpenOwned("lock", O_RDWR | O_CREAT, 0644, error);
  EXPECT_GE(lock, 0) << error;
  close(lock);
  EXPECT_EQ(std::filesystem::file_size(tree.Path("victim")), 6u);  // "secret", untouched
  EXPECT_EQ(std::filesystem::file_size(tree.Path("shared/out.prom")), 4u);

  dir.RemoveStaleTemporaries("zefo.prom", std::chrono::seconds(60));
  for (const auto& f : files) {
    EXPECT_EQ(!std::filesystem::exists(tree.Path(f.name)), f.removed) << f.name;
  }
}

}  // namespace
}  // namespace zefo::tools
