#include "output_file.h"

#include <chrono>

namespace zefo::cli {

namespace {

// A temporary lives for the moment between its creation and its rename; one older than this
// was left by a run that was killed.
constexpr std::chrono::seconds kStaleAfter{60};

}  // namespace

OutputFile::OutputFile(std::string path) : path_(std::move(path)) {}

std::string OutputFile::Probe() {
  std::string dir;
  tools::SplitPath(path_, dir, name_);
  if (name_.empty() || name_ == "." || name_ == "..") return path_ + " is a directory";
  std::string problem = dir_.Open(dir);
  if (problem.empty()) problem = dir_.CheckReplaceable(name_);
  if (problem.empty()) dir_.RemoveStaleTemporaries(name_, kStaleAfter);
  return problem;
}

std::string OutputFile::Write(std::string_view text) const {
  // 0644 (less the umask): the collector usually runs as another user.
  return dir_.Replace(name_, text, 0644);
}

}  // namespace zefo::cli
