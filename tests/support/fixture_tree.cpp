#include "support/fixture_tree.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>

#include <gtest/gtest.h>

namespace zefo::testing {

namespace fs = std::filesystem;

FixtureTree::FixtureTree() {
  std::string pattern = (fs::temp_directory_path() / "zefo-fixture-XXXXXX").string();
  char* made = mkdtemp(pattern.data());
  if (made == nullptr) ADD_FAILURE() << "mkdtemp failed";
  root_ = pattern;
  for (const char* dir : {"proc", "sys", "dev", "reg", "rootfs"}) Mkdir(dir);
}

FixtureTree::~FixtureTree() {
  std::error_code ignored;
  fs::remove_all(root_, ignored);
}

std::string FixtureTree::Path(std::string_view rel) const {
  return KernelPaths::Join(root_, rel);
}

void FixtureTree::MakeParents(const std::string& path) const {
  std::error_code ignored;
  fs::create_directories(fs::path(path).parent_path(), ignored);
}

void FixtureTree::Write(std::string_view rel, std::string_view content) const {
  const std::string path = Path(rel);
  MakeParents(path);
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out.write(content.data(), static_cast<std::streamsize>(content.size()));
  if (!out) ADD_FAILURE() << "cannot write " << path;
}

void FixtureTree::Mkdir(std::string_view rel) const {
  std::error_code ignored;
  fs::create_directories(Path(rel), ignored);
}

void FixtureTree::Symlink(std::string_view target, std::string_view rel) const {
  const std::string path = Path(rel);
  MakeParents(path);
  if (::symlink(std::string(target).c_str(), path.c_str()) != 0) {
    ADD_FAILURE() << "cannot link " << path;
  }
}

void FixtureTree::Fifo(std::string_view rel) const {
  const std::string path = Path(rel);
  MakeParents(path);
  if (::mkfifo(path.c_str(), 0600) != 0) ADD_FAILURE() << "cannot make FIFO " << path;
}

void FixtureTree::Sparse(std::string_view rel, long long size) const {
  const std::string path = Path(rel);
  MakeParents(path);
  const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
  if (fd < 0 || ::ftruncate(fd, size) != 0) ADD_FAILURE() << "cannot make sparse " << path;
  if (fd >= 0) ::close(fd);
}

void FixtureTree::Remove(std::string_view rel) const {
  std::error_code ignored;
  fs::remove_all(Path(rel), ignored);
}

std::string ReadFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

}  // namespace zefo::testing
