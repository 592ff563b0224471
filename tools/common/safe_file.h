// Creating and replacing files in directories other users may write to (/tmp, a shared
// textfile-collector directory), without letting them redirect, truncate or pre-empt what the
// tools write.
//
// Every operation works relative to a descriptor of the directory, opened once, so renaming or
// replacing a component of the directory's path later cannot send a write elsewhere.
// Temporaries are created exclusively (O_TMPFILE, or O_CREAT|O_EXCL|O_NOFOLLOW under a random
// name), so a link planted ahead of time is never followed and a planted file is never reused.
#ifndef ZEFO_TOOLS_COMMON_SAFE_FILE_H_
#define ZEFO_TOOLS_COMMON_SAFE_FILE_H_

#include <sys/types.h>

#include <chrono>
#include <string>
#include <string_view>

namespace zefo::tools {

class SafeDir {
 public:
  SafeDir() = default;
  ~SafeDir();
  SafeDir(const SafeDir&) = delete;
  SafeDir& operator=(const SafeDir&) = delete;
  SafeDir(SafeDir&& other) noexcept;
  SafeDir& operator=(SafeDir&& other) noexcept;

  // Opens `path` ("" is the working directory): "" or what is wrong. Also tells whether
  // unnamed temporaries (O_TMPFILE) can be created and linked there.
  std::string Open(const std::string& path);

  bool is_open() const { return fd_ >= 0; }
  int fd() const { return fd_; }
  const std::string& path() const { return path_; }
  // Other users (group or others) may create and remove names here.
  bool shared() const { return shared_; }

  // Creates a new file `name` that did not exist: never follows or reuses what is there.
  // Returns the descriptor (write-only, close-on-exec), or -1 with `error` set.
  int CreateExclusive(const std::string& name, mode_t mode, std::string& error) const;

  // Opens `name`, creating it if `flags` hold O_CREAT, without following a link; refuses what
  // is not a regular file, and in a shared directory a file another user owns (someone may have
  // planted it for us to write into). For a recorder's files and lock. -1 with `error` set.
  int OpenOwned(const std::string& name, int flags, mode_t mode, std::string& error) const;

  // Whether a file may be renamed onto `name`: "" or why not. Nothing there is fine; in a
  // shared directory a symbolic link, or a file of another user, is refused.
  std::string CheckReplaceable(const std::string& name) const;

  // Replaces `name` whole with `text`: written to a temporary in this directory, then renamed
  // over it, so readers see the old contents or the new, never a mix. The temporary's name
  // starts with TempPrefix(name). "" or what went wrong (`name` is then unchanged).
  std::string Replace(const std::string& name, std::string_view text, mode_t mode) const;

  // Removes temporaries of earlier runs (killed before they could clean up): regular files
  // whose names start with TempPrefix(name), owned by us, last changed over `age` ago.
  void RemoveStaleTemporaries(const std::string& name, std::chrono::seconds age) const;

  // ".NAME.tmp-": hidden, and not ending in the target's suffix (a collector reading *.prom
  // never reads a half-written temporary).
  static std::string TempPrefix(const std::string& name);

 private:
  // `name` in this directory, as the user gave it ("" shows the directory itself).
  std::string Shown(std::string_view name) const;
  // Creates an unnamed or randomly named temporary; `temp` gets its name ("" when unnamed).
  int CreateTemp(const std::string& name, mode_t mode, std::string& temp, std::string& error) const;

  int fd_ = -1;
  std::string path_;
  bool shared_ = false;
  bool unnamed_temps_ = false;
};

// Splits "dir/name" into "dir" ("" for none, "/" for the root) and "name".
void SplitPath(const std::string& path, std::string& dir, std::string& name);

}  // namespace zefo::tools

#endif  // ZEFO_TOOLS_COMMON_SAFE_FILE_H_
