#ifndef ZEFO_TOOLS_ZEFO_MONITOR_OUTPUT_FILE_H_
#define ZEFO_TOOLS_ZEFO_MONITOR_OUTPUT_FILE_H_

#include <string>
#include <string_view>

namespace zefo::cli {

// A file that is replaced whole on every write: the text goes to a hidden temporary file in
// the same directory, which is then renamed over the target, so a reader (node_exporter's
// textfile collector, a script) sees either the old pass or the new one, never half of one.
// The temporary name does not end in ".prom", so the collector never reads it.
class OutputFile {
 public:
  explicit OutputFile(std::string path);

  // Whether a file can be created beside the target: "" or what is wrong.
  std::string Probe() const;
  // Replaces the target with `text`: "" or what went wrong (the target is then unchanged).
  std::string Write(std::string_view text) const;

  const std::string& path() const { return path_; }

 private:
  std::string path_;
  std::string temp_;
};

}  // namespace zefo::cli

#endif  // ZEFO_TOOLS_ZEFO_MONITOR_OUTPUT_FILE_H_
