// The line splitters: SplitLines (copies) and ForEachLineInPlace (C strings cut in place) must
// give the same lines, as a scanf-style parser sees them, and the first-line helpers the first.
#include <vector>

#include "core/scan_cursor.h"
#include "fuzz_support.h"
#include "process/procinfo_parse.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace zefo;
  const std::string_view text = fuzz::AsText(data, size);
  const std::list<std::string> lines = fuzz::Lines(text);
  std::size_t bytes = 0;
  for (const std::string& line : lines) {
    ZEFO_FUZZ_CHECK(line.find('\n') == std::string::npos, text);
    bytes += line.size() + 1;
  }
  // Every byte is in a line or is its newline; only the last line may lack one.
  ZEFO_FUZZ_CHECK(bytes == text.size() || bytes == text.size() + 1, text);

  std::string copy(text);
  std::vector<std::string> cut;
  detail::ForEachLineInPlace(copy, [&cut](const char* line) { cut.emplace_back(line); });
  ZEFO_FUZZ_CHECK(cut.size() == lines.size(), text);
  std::size_t i = 0;
  for (const std::string& line : lines) ZEFO_FUZZ_CHECK(cut[i++] == fuzz::CPrefix(line), text);

  const std::string_view first = detail::FirstLine(text);
  ZEFO_FUZZ_CHECK(lines.empty() ? first.empty() : first == lines.front(), text);
  return 0;
}
