#ifndef ZEFO_FORMAT_FORMATS_H_
#define ZEFO_FORMAT_FORMATS_H_

#include <cstddef>
#include <string>
#include <string_view>

#include "zefo/format/snapshot.h"
#include "zefo/zefo_export.h"

namespace zefo::format {

/// The ways a pass can be written out.
enum class Format {
  /// The library's text report, byte for byte as `PrintToStream` writes it.
  kReport,
  /// One line for watching a board live, in human units.
  kLine,
  /// One JSON object on one line (JSON Lines), every item with every figure.
  kJson,
  /// OpenMetrics 1.0 text, ending in "# EOF".
  kOpenMetrics,
  /// The Prometheus text format 0.0.4, which node_exporter's textfile collector reads.
  kPrometheus,
};

/// Options of the formatters. A plain value.
struct ZEFO_EXPORT FormatOptions {
  /// The line format writes the time in UTC rather than in the local time zone.
  bool utc = false;
  /// Clock ticks per second, to turn a process's block-I/O delay into seconds; 0 asks the
  /// system (sysconf(_SC_CLK_TCK)).
  long clock_ticks = 0;
  /// Longest label value written in the exposition formats, in bytes (longer command lines
  /// are cut at a character boundary).
  std::size_t max_label_bytes = 512;
  /// The line format colours its figures with ANSI escape sequences (for a terminal).
  bool color = false;
  /// The line format adds every CPU with its frequency, every DDR device, the three hottest
  /// zones and the three busiest processes.
  bool line_details = false;
};

/// "report", "line", "json", "openmetrics", "prometheus".
ZEFO_EXPORT const char* FormatName(Format format);
/// The format named `name` (as FormatName gives it); false, with `out` untouched, if none is.
ZEFO_EXPORT bool ParseFormat(std::string_view name, Format& out);

/// Writes `pass` in `format`. Every function here is a pure function of its arguments: safe to
/// call from any thread, on snapshots no other thread is changing. Each result ends in a newline.
ZEFO_EXPORT std::string FormatPass(const Snapshot& pass, Format format,
                                   const FormatOptions& options = FormatOptions());

ZEFO_EXPORT std::string FormatReport(const Snapshot& pass);
/// "18:51:02 CPU  40% max  90% MEM  1080/ 2000MiB BPU  45%  85% DDR r16.11 w 4.03GB/s TEMP
/// 61.5°C TOP camera_app    165.0%": fixed-width fields that fit 120 columns on a board with
/// a few cores; sections of kinds without items are left out. `line_details` adds the date,
/// every CPU and its frequency, each DDR device, three zones and three processes. MiB is 2^20
/// bytes, GB/s 10^9 bytes per second.
ZEFO_EXPORT std::string FormatLine(const Snapshot& pass,
                                   const FormatOptions& options = FormatOptions());
/// Non-finite figures are null; strings that are not valid UTF-8 get U+FFFD in place of the
/// bad bytes, so the result is always valid JSON.
ZEFO_EXPORT std::string FormatJson(const Snapshot& pass);
/// The exposition formats. Figures are in base units (bytes, seconds, hertz, celsius, ratios
/// 0-1) and named "zefo_<kind>_<figure>_<unit>"; figures the kernel did not give (-1) are left
/// out.
ZEFO_EXPORT std::string FormatOpenMetrics(const Snapshot& pass,
                                          const FormatOptions& options = FormatOptions());
ZEFO_EXPORT std::string FormatPrometheus(const Snapshot& pass,
                                         const FormatOptions& options = FormatOptions());

/// `text` made safe to show on a terminal, for views meant for people (the report on a
/// terminal, a live table): control characters (C0 but the newline, DEL, C1) and bytes that
/// are not UTF-8 become escapes such as "\x1b", "\u009b" or "\xff", a backslash "\\".
/// The line format does this to the names it shows.
ZEFO_EXPORT std::string EscapeForTerminal(std::string_view text);

/// The order the views meant for people list names in: "cpu9" before "cpu10". Names compare
/// by their text before the trailing digits, then by the number those digits make.
ZEFO_EXPORT bool NaturalLess(const std::string& a, const std::string& b);

/// The HTTP Content-Type of each format.
ZEFO_EXPORT const char* ContentType(Format format);

}  // namespace zefo::format

#endif  // ZEFO_FORMAT_FORMATS_H_
