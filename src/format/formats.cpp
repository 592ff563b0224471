// The format names, the dispatcher and the text report.
#include "zefo/format/formats.h"

#include <sstream>

#include "core/report_frame.h"
#include "format/item_fields.h"
#include "format/text.h"

namespace zefo::format {

namespace {

constexpr struct {
  Format format;
  const char* name;
  const char* content_type;
} kFormats[] = {
    {Format::kReport, "report", "text/plain; charset=utf-8"},
    {Format::kLine, "line", "text/plain; charset=utf-8"},
    {Format::kJson, "json", "application/json"},
    {Format::kOpenMetrics, "openmetrics",
     "application/openmetrics-text; version=1.0.0; charset=utf-8"},
    {Format::kPrometheus, "prometheus", "text/plain; version=0.0.4; charset=utf-8"},
};

template <typename Item>
void PrintItems(std::ostream& os, const std::map<std::string, Item>& items) {
  for (const auto& entry : items) {
    Item copy = entry.second;  // PrintToStream is not const
    copy.PrintToStream(os);
  }
}

}  // namespace

const char* FormatName(Format format) {
  for (const auto& f : kFormats) {
    if (f.format == format) return f.name;
  }
  return "";
}

bool ParseFormat(std::string_view name, Format& out) {
  for (const auto& f : kFormats) {
    if (name == f.name) {
      out = f.format;
      return true;
    }
  }
  return false;
}

const char* ContentType(Format format) {
  for (const auto& f : kFormats) {
    if (f.format == format) return f.content_type;
  }
  return "application/octet-stream";
}

std::string EscapeForTerminal(std::string_view text) {
  return detail::EscapeControls(text, true);
}

std::string FormatPass(const Snapshot& pass, Format format, const FormatOptions& options) {
  switch (format) {
    case Format::kReport:
      return FormatReport(pass);
    case Format::kLine:
      return FormatLine(pass, options);
    case Format::kJson:
      return FormatJson(pass);
    case Format::kOpenMetrics:
      return FormatOpenMetrics(pass, options);
    case Format::kPrometheus:
      return FormatPrometheus(pass, options);
  }
  return std::string();
}

std::string FormatReport(const Snapshot& pass) {
  std::ostringstream os;
  zefo::detail::WriteReportFrame(os, pass.update_time, pass.kinds, [&](ResourceMonitorType type) {
    detail::ForKind(type, [&](auto member) { PrintItems(os, pass.*member); });
  });
  os << std::endl;
  return os.str();
}

}  // namespace zefo::format
