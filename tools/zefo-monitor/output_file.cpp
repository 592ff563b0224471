#include "output_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace zefo::cli {

namespace {

std::string Reason(const std::string& what) {
  return what + ": " + std::strerror(errno);
}

}  // namespace

OutputFile::OutputFile(std::string path) : path_(std::move(path)) {
  const std::size_t slash = path_.rfind('/');
  const std::string dir = slash == std::string::npos ? "" : path_.substr(0, slash + 1);
  const std::string base = slash == std::string::npos ? path_ : path_.substr(slash + 1);
  temp_ = dir + "." + base + "." + std::to_string(getpid()) + ".tmp";
}

std::string OutputFile::Probe() const {
  struct stat st;
  if (stat(path_.c_str(), &st) == 0 && S_ISDIR(st.st_mode)) return path_ + " is a directory";
  const int fd = open(temp_.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
  if (fd < 0) {
    const std::size_t slash = temp_.rfind('/');
    return Reason("cannot create files in " + (slash == std::string::npos ? "."
                                               : slash == 0               ? "/"
                                                            : temp_.substr(0, slash)));
  }
  close(fd);
  unlink(temp_.c_str());
  return std::string();
}

std::string OutputFile::Write(std::string_view text) const {
  // 0644 (less the umask): the collector usually runs as another user.
  const int fd = open(temp_.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
  if (fd < 0) return Reason("cannot create " + temp_);
  std::string error;
  while (!text.empty()) {
    const ssize_t n = write(fd, text.data(), text.size());
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) {
      error = Reason("cannot write " + temp_);
      break;
    }
    text.remove_prefix(static_cast<std::size_t>(n));
  }
  if (close(fd) != 0 && error.empty()) error = Reason("cannot write " + temp_);
  if (error.empty() && rename(temp_.c_str(), path_.c_str()) != 0) {
    error = Reason("cannot rename " + temp_ + " to " + path_);
  }
  if (!error.empty()) unlink(temp_.c_str());
  return error;
}

}  // namespace zefo::cli
