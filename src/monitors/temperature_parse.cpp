#include "monitors/temperature_parse.h"

#include <climits>
#include <cstdio>
#include <cstdlib>

#include "zefo/base_monitor.h"

namespace zefo {
namespace detail {

static_assert(BaseMonitor::kWordSize == 256, "the format below bounds the type to 255 bytes");

bool ParseZoneType(const char* line, std::string& type) {
  char word[BaseMonitor::kWordSize] = {};
  if (std::sscanf(line, "%255s", word) != 1) return false;
  type = word;
  return true;
}

int ParseZoneTemp(const char* line) {
  // strtol rather than sscanf "%d": the same leading blanks, sign and digits, but an
  // out-of-range number is defined behaviour.
  const char* text = line;
  char* end = nullptr;
  const long value = std::strtol(text, &end, 10);
  if (end == text) return -1;
  if (value > INT_MAX) return INT_MAX;
  if (value < INT_MIN) return INT_MIN;
  return static_cast<int>(value);
}

double ZoneCelsius(int raw) {
  if (raw <= 1000) return static_cast<double>(raw);
  return raw * 0.001;
}

}  // namespace detail
}  // namespace zefo
