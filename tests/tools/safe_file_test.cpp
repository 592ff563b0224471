// Files written into directories other users may write to: planted links and files are never
// written through, and temporaries of killed runs are cleaned up.
#include "safe_file.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <sstream>

#include "support/fixture_tree.h"

namespace zefo::tools {
namespace {

namespace fs = std::filesystem;

// The user an attacker is, when the tests run as root (they do in CI).
constexpr uid_t kNobody = 65534;

std::string Read(const fs::path& path) {
  std::ifstream in(path);
  std::ostringstream text;
  text << in.rdbuf();
  return text.str();
}

TEST(SafeDirTest, SharedDirectoryWritesNothingThroughWhatOthersPlanted) {
  testing::FixtureTree tree;
  tree.Write("victim", "secret");
  tree.Mkdir("shared");
  const fs::path dir = tree.Path("shared");
  chmod(dir.c_str(), 01777);
  const bool root = geteuid() == 0;
  ASSERT_EQ(symlink(tree.Path("victim").c_str(), (dir / "link").c_str()), 0);
  ASSERT_EQ(link(tree.Path("victim").c_str(), (dir / "hard").c_str()), 0);
  tree.Write("shared/theirs", "planted");
  if (root) {
    lchown((dir / "link").c_str(), kNobody, kNobody);
    chown((dir / "theirs").c_str(), kNobody, kNobody);
  }

  SafeDir shared;
  ASSERT_EQ(shared.Open(dir.string()), "");
  EXPECT_TRUE(shared.shared());
  EXPECT_EQ(shared.Replace("out", "pass", 0644), "");
  EXPECT_EQ(Read(dir / "out"), "pass");
  EXPECT_NE(shared.Replace("link", "pass", 0644).find("symbolic link"), std::string::npos);
  if (root) {
    EXPECT_NE(shared.Replace("theirs", "pass", 0644).find("another user"), std::string::npos);
  }
  std::string error;
  for (const char* bait : {"link", "hard", root ? "theirs" : "link"}) {
    EXPECT_EQ(shared.OpenOwned(bait, O_WRONLY | O_CREAT | O_TRUNC, 0644, error), -1) << bait;
  }
  const int lock = shared.OpenOwned("lock", O_RDWR | O_CREAT, 0644, error);
  EXPECT_GE(lock, 0) << error;
  close(lock);
  EXPECT_EQ(Read(tree.Path("victim")), "secret");
  // link, hard, theirs, out and lock: no temporaries are left.
  EXPECT_EQ(std::distance(fs::directory_iterator(dir), fs::directory_iterator()), 5);

  // In a directory of our own, a link at the target is ours: replaced, not written through.
  tree.Mkdir("private");
  chmod(tree.Path("private").c_str(), 0700);
  ASSERT_EQ(symlink(tree.Path("victim").c_str(), tree.Path("private/out").c_str()), 0);
  SafeDir own;
  ASSERT_EQ(own.Open(tree.Path("private")), "");
  EXPECT_EQ(own.Replace("out", "pass", 0644), "");
  EXPECT_TRUE(fs::is_regular_file(fs::symlink_status(tree.Path("private/out"))));
  EXPECT_EQ(Read(tree.Path("victim")), "secret");
}

TEST(SafeDirTest, RemovesOnlyOurOwnStaleTemporaries) {
  testing::FixtureTree tree;
  const std::string prefix = "out/" + SafeDir::TempPrefix("zefo.prom");
  const struct {
    std::string name;
    bool old, theirs, removed;
  } files[] = {
      {prefix + "stale", true, false, true},
      {prefix + "fresh", false, false, false},
      {prefix + "theirs", true, true, geteuid() != 0},
      {"out/.other.prom.tmp-stale", true, false, false},
  };
  for (const auto& f : files) {
    tree.Write(f.name, "x");
    const struct timespec times[2] = {{time(nullptr) - 120, 0}, {time(nullptr) - 120, 0}};
    if (f.old) utimensat(AT_FDCWD, tree.Path(f.name).c_str(), times, 0);
    if (f.theirs && geteuid() == 0) chown(tree.Path(f.name).c_str(), kNobody, kNobody);
  }
  SafeDir dir;
  ASSERT_EQ(dir.Open(tree.Path("out")), "");
  dir.RemoveStaleTemporaries("zefo.prom", std::chrono::seconds(60));
  for (const auto& f : files) EXPECT_EQ(!fs::exists(tree.Path(f.name)), f.removed) << f.name;
}

}  // namespace
}  // namespace zefo::tools
