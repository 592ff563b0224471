#ifndef ZEFO_TOOLS_ZEFO_MONITOR_OUTPUT_FILE_H_
#define ZEFO_TOOLS_ZEFO_MONITOR_OUTPUT_FILE_H_

#include <string>
#include <string_view>

#include "safe_file.h"

namespace zefo::cli {

// A file that is replaced whole on every write: the text goes to a temporary in the same
// directory, which is then renamed over the target, so a reader (node_exporter's textfile
// collector, a script) sees either the old pass or the new one, never half of one. The
// temporary is hidden and does not end in ".prom", so the collector never reads it.
class OutputFile {
 public:
  explicit OutputFile(std::string path);

  // Opens the directory and makes sure a file can be created there and renamed onto the
  // target; removes temporaries that earlier runs left behind. "" or what is wrong.
  std::string Probe();
  // Replaces the target with `text`: "" or what went wrong (the target is then unchanged).
  std::string Write(std::string_view text) const;

  const std::string& path() const { return path_; }

 private:
  std::string path_;
  std::string name_;
  tools::SafeDir dir_;
};

}  // namespace zefo::cli

#endif  // ZEFO_TOOLS_ZEFO_MONITOR_OUTPUT_FILE_H_
