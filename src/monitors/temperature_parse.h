#ifndef ZEFO_SRC_MONITORS_TEMPERATURE_PARSE_H_
#define ZEFO_SRC_MONITORS_TEMPERATURE_PARSE_H_

#include <string>

namespace zefo {
namespace detail {

// The first line of a zone's type file, e.g. "x86_pkg_temp" or "cpu-thermal": its first word,
// cut to 255 bytes. False when the line holds no word.
bool ParseZoneType(const char* line, std::string& type);

// The first line of a zone's temp file: millidegrees on most drivers ("45000"), whole degrees
// on some ("45"). The leading integer, as "%d" reads it; -1 when the line does not start with
// one, and clamped to the range of int when it is too long.
int ParseZoneTemp(const char* line);

// Degrees Celsius from a raw reading. Drivers that report whole degrees stay far below 1000,
// millidegree drivers far above it at any working temperature; so up to 1000 (inclusive) the
// number is taken as degrees and above it as millidegrees. A raw 1000 reads 1000.00 and 1001
// reads 1.001; negative readings are never scaled.
double ZoneCelsius(int raw);

}  // namespace detail
}  // namespace zefo

#endif  // ZEFO_SRC_MONITORS_TEMPERATURE_PARSE_H_
