// A thermal zone's type and temp files (first line of each, parts separated by a 0xff byte):
// the type word, the reading against sscanf "%d" wherever that is defined, and the degrees.
#include <climits>
#include <cmath>
#include <cstdio>

#include "fuzz_support.h"
#include "monitors/temperature_parse.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace zefo;
  const std::string_view input = fuzz::AsText(data, size);
  std::string parts[2];
  fuzz::SplitParts(input, parts);
  std::string type_line(parts[0].substr(0, parts[0].find('\n')));
  std::string temp_line(parts[1].substr(0, parts[1].find('\n')));

  std::string type = "keep";
  const bool typed = detail::ParseZoneType(type_line.c_str(), type);
  char word[256] = {};
  ZEFO_FUZZ_CHECK(typed == (std::sscanf(type_line.c_str(), "%255s", word) == 1), input);
  ZEFO_FUZZ_CHECK(typed ? type == word : type == "keep", input);

  const int raw = detail::ParseZoneTemp(temp_line.c_str());
  long long wide = 0;
  const int read = std::sscanf(temp_line.c_str(), "%lld", &wide);
  if (read != 1) {
    ZEFO_FUZZ_CHECK(raw == -1, input);
  } else if (wide > INT_MIN && wide < INT_MAX) {
    int narrow = -1;
    std::sscanf(temp_line.c_str(), "%d", &narrow);
    ZEFO_FUZZ_CHECK(raw == narrow, input);
  } else {
    ZEFO_FUZZ_CHECK(raw == (wide > 0 ? INT_MAX : INT_MIN), input);
  }
  const double celsius = detail::ZoneCelsius(raw);
  ZEFO_FUZZ_CHECK(std::isfinite(celsius), input);
  return 0;
}
