// /proc/<pid>/cmdline and the registration directory's name and pid files. The input holds up
// to four parts separated by 0xff bytes: cmdline, name file, pid file, the pid asked about.
#include "fuzz_support.h"
#include "process/procinfo_parse.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace zefo;
  const std::string_view input = fuzz::AsText(data, size);
  std::string parts[4];
  fuzz::SplitParts(input, parts);

  std::string cmd_line = "old";
  detail::ParseCmdLine(parts[0], cmd_line);
  const std::string_view first = detail::FirstLine(parts[0]);
  ZEFO_FUZZ_CHECK(cmd_line.size() == first.size(), input);
  for (std::size_t i = 0; i + 1 < cmd_line.size(); ++i) {
    ZEFO_FUZZ_CHECK(cmd_line[i] != '\0' && cmd_line[i] != '\n', input);
  }
  ZEFO_FUZZ_CHECK(cmd_line.empty() || cmd_line.back() == '\0', input);

  std::string name = "old";
  detail::ParseRegistration(parts[1], parts[2], parts[3], name);
  const bool matches = detail::RegisteredPidMatches(parts[2], parts[3]);
  if (!matches) ZEFO_FUZZ_CHECK(name == "old", input);
  if (name != "old") ZEFO_FUZZ_CHECK(name.find('\n') == std::string::npos, input);
  return 0;
}
