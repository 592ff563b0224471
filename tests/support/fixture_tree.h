#ifndef ZEFO_TESTS_SUPPORT_FIXTURE_TREE_H_
#define ZEFO_TESTS_SUPPORT_FIXTURE_TREE_H_

#include <cstdint>
#include <string>
#include <string_view>

#include "zefo/kernel_paths.h"

namespace zefo::testing {

// A throw-away directory holding a fake kernel: proc/, sys/, dev/, reg/ (the registration
// directory) and rootfs/ (where mount points are queried). Removed with everything in it when
// the object goes. Paths given to the methods are relative to the tree's root.
class FixtureTree {
 public:
  FixtureTree();
  ~FixtureTree();
  FixtureTree(const FixtureTree&) = delete;
  FixtureTree& operator=(const FixtureTree&) = delete;

  const std::string& root() const { return root_; }
  // The five roots, pointing into this tree.
  KernelPaths paths() const { return KernelPaths::UnderRoot(root_); }
  // Absolute path of `rel`.
  std::string Path(std::string_view rel) const;

  // Writes `content` to `rel`, replacing it, creating missing parent directories.
  void Write(std::string_view rel, std::string_view content) const;
  void Mkdir(std::string_view rel) const;
  // A symbolic link at `rel` pointing to `target` (taken as is).
  void Symlink(std::string_view target, std::string_view rel) const;
  void Fifo(std::string_view rel) const;
  // A sparse file of `size` bytes.
  void Sparse(std::string_view rel, long long size) const;
  // Removes `rel` and everything below it.
  void Remove(std::string_view rel) const;

 private:
  // Absolute path of `rel`, its missing parent directories made.
  std::string WithParents(std::string_view rel) const;
  std::string root_;
};

// The whole content of a file, as bytes; empty when it cannot be read.
std::string ReadFile(const std::string& path);

// A clock the tests set by hand, in milliseconds; monitors take it through SetClock(&FakeNow).
// It starts at 1 s, as a sample taken at time 0 would read as no sample at all.
inline int64_t g_fake_now = 1000;
inline int64_t FakeNow() {
  return g_fake_now;
}

}  // namespace zefo::testing

#endif  // ZEFO_TESTS_SUPPORT_FIXTURE_TREE_H_
