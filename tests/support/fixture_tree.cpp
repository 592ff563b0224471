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
  if (mkdtemp(pattern.data()) == nullptr) ADD_FAILURE() << "mkdtemp failed";
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

std::string FixtureTree::WithParents(std::string_view rel) const {
  const std::string path = Path(rel);
  std::error_code ignored;
  fs::create_directories(fs::path(path).parent_path(), ignored);
  return path;
}

void FixtureTree::Write(std::string_view rel, std::string_view content) const {
  std::ofstream out(WithParents(rel), std::ios::binary | std::ios::trunc);
  if (!out.write(content.data(), static_cast<std::streamsize>(content.size()))) {
    ADD_FAILURE() << "cannot write " << rel;
  }
}

void FixtureTree::Mkdir(std::string_view rel) const {
  std::error_code ignored;
  fs::create_directories(Path(rel), ignored);
}

void FixtureTree::Symlink(std::string_view target, std::string_view rel) const {
  if (::symlink(std::string(target).c_str(), WithParents(rel).c_str()) != 0) {
    ADD_FAILURE() << "cannot link " << rel;
  }
}

void FixtureTree::Fifo(std::string_view rel) const {
  if (::mkfifo(WithParents(rel).c_str(), 0600) != 0) ADD_FAILURE() << "cannot make FIFO " << rel;
}

void FixtureTree::Sparse(std::string_view rel, long long size) const {
  const int fd = ::open(WithParents(rel).c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
  if (fd < 0 || ::ftruncate(fd, size) != 0) ADD_FAILURE() << "cannot make sparse " << rel;
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
