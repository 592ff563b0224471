#include "http_routes.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <limits>
#include <sstream>

#include "dashboard_page.h"
#include "gzip.h"

namespace zefo::cli {

namespace {

// Below this an answer fits a packet or two and compressing it gains nothing.
constexpr std::size_t kGzipFrom = 1024;

std::string Trim(const std::string& text) {
  const std::size_t begin = text.find_first_not_of(" \t");
  if (begin == std::string::npos) return std::string();
  return text.substr(begin, text.find_last_not_of(" \t") - begin + 1);
}

std::string Lower(std::string text) {
  for (char& c : text) {
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  }
  return text;
}

// Each ","-separated entry of an Accept or Accept-Encoding header: its lower-cased value and its
// q-value (1 without one; anything unreadable counts as 0).
template <typename Visit>
void ForEachRange(const std::string& header, Visit visit) {
  std::istringstream ranges(header);
  std::string range;
  while (std::getline(ranges, range, ',')) {
    std::istringstream parts(range);
    std::string value;
    std::getline(parts, value, ';');
    double q = 1;
    for (std::string param; std::getline(parts, param, ';');) {
      param = Lower(Trim(param));
      if (param.rfind("q=", 0) == 0) {
        char* end = nullptr;
        q = std::strtod(param.c_str() + 2, &end);
        if (end == param.c_str() + 2 || !std::isfinite(q)) q = 0;
      }
    }
    visit(Lower(Trim(value)), q);
  }
}

int HexDigit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

bool Decode(const std::string& text, std::string& out) {
  out.clear();
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '+') {
      out += ' ';
    } else if (text[i] != '%') {
      out += text[i];
    } else {
      if (i + 2 >= text.size()) return false;
      const int high = HexDigit(text[i + 1]), low = HexDigit(text[i + 2]);
      if (high < 0 || low < 0) return false;
      out += static_cast<char>(high * 16 + low);
      i += 2;
    }
  }
  return true;
}

// "N" of ?seconds=N: a positive number of seconds; false if the text is something else.
bool ParseSeconds(const std::string& text, double& out) {
  char* end = nullptr;
  errno = 0;
  const double value = std::strtod(text.c_str(), &end);
  if (text.empty() || end != text.c_str() + text.size() || errno != 0 || !std::isfinite(value) ||
      value <= 0) {
    return false;
  }
  out = value;
  return true;
}

HttpAnswer Text(int status, const std::string& message) {
  return {status, "text/plain; charset=utf-8", message + "\n", {}};
}

HttpAnswer Json(int status, std::string body) {
  return {status, "application/json", std::move(body), {}};
}

HttpAnswer Route(const HttpRequest& request, const RouteContext& context) {
  if (request.method != "GET" && request.method != "HEAD") {
    HttpAnswer answer = Text(405, "only GET and HEAD are served here");
    answer.headers.emplace_back("Allow", "GET, HEAD");
    return answer;
  }
  // Refused before any of it is read: the server never waits for, or keeps, a body.
  if (request.has_body) return Text(413, "requests with a body are not accepted");
  if (request.target.size() > kMaxTarget) {
    return Text(414, "the request target is longer than " + std::to_string(kMaxTarget) + " bytes");
  }
  const std::size_t mark = request.target.find('?');
  const std::string path = request.target.substr(0, mark);
  std::vector<std::pair<std::string, std::string>> query;
  if (mark != std::string::npos && !ParseQuery(request.target.substr(mark + 1), query)) {
    return Text(400, "the query is malformed, or has more than " + std::to_string(kMaxQueryParams) +
                         " parameters or a value over " + std::to_string(kMaxQueryValue) +
                         " bytes");
  }

  if (path == "/") {
    const std::string_view page = DashboardPage();
    HttpAnswer answer{200, "text/html; charset=utf-8", std::string(page), {}};
    if (!context.dashboard_policy.empty()) {
      answer.headers.emplace_back("Content-Security-Policy", context.dashboard_policy);
    }
    return answer;
  }
  if (path == "/metrics") {
    const auto pass = context.store.Latest();
    if (pass == nullptr) return Text(503, "no sampling pass yet");
    const format::Format format = PrefersOpenMetrics(request.accept) ? format::Format::kOpenMetrics
                                                                     : format::Format::kPrometheus;
    return {
        200, format::ContentType(format), format::FormatPass(*pass, format, context.options), {}};
  }
  if (path == "/api/latest") {
    const auto pass = context.store.Latest();
    if (pass == nullptr) return Json(503, "{\"error\":\"no sampling pass yet\"}\n");
    return Json(200, format::FormatPass(*pass, format::Format::kJson));
  }
  if (path == "/api/history") {
    // Without ?seconds, the whole ring.
    double seconds = std::numeric_limits<double>::infinity();
    for (const auto& [name, value] : query) {
      if (name == "seconds" && !ParseSeconds(value, seconds)) {
        return Json(400, "{\"error\":\"seconds must be a positive number\"}\n");
      }
    }
    return Json(200, context.store.History(seconds));
  }
  return Text(404, "no such page; the figures are at /metrics, /api/latest and /api/history");
}

}  // namespace

bool PrefersOpenMetrics(const std::string& accept) {
  double openmetrics = 0, text = 0;
  ForEachRange(accept, [&](const std::string& type, double q) {
    if (type == "application/openmetrics-text") {
      openmetrics = std::max(openmetrics, q);
    } else if (type == "text/plain" || type == "text/*" || type == "*/*") {
      text = std::max(text, q);
    }
  });
  return openmetrics > 0 && openmetrics >= text;
}

bool AcceptsGzip(const std::string& accept_encoding) {
  double gzip = -1, any = 0;
  ForEachRange(accept_encoding, [&](const std::string& coding, double q) {
    if (coding == "gzip" || coding == "x-gzip") {
      gzip = std::max(gzip, q);
    } else if (coding == "*") {
      any = std::max(any, q);
    }
  });
  return gzip >= 0 ? gzip > 0 : any > 0;
}

bool ParseQuery(const std::string& query, std::vector<std::pair<std::string, std::string>>& out) {
  out.clear();
  std::size_t start = 0;
  while (start <= query.size()) {
    std::size_t end = query.find('&', start);
    if (end == std::string::npos) end = query.size();
    const std::string field = query.substr(start, end - start);
    start = end + 1;
    if (field.empty()) continue;
    const std::size_t equals = field.find('=');
    std::string name, value;
    if (!Decode(field.substr(0, equals), name)) return false;
    if (equals != std::string::npos && !Decode(field.substr(equals + 1), value)) return false;
    if (out.size() == kMaxQueryParams || name.size() > kMaxQueryValue ||
        value.size() > kMaxQueryValue) {
      return false;
    }
    out.emplace_back(std::move(name), std::move(value));
  }
  return true;
}

HttpAnswer Answer(const HttpRequest& request, const RouteContext& context) {
  HttpAnswer answer = Route(request, context);
  // The figures must come fresh on every poll, whatever a proxy or browser cache would like.
  answer.headers.emplace_back("Cache-Control", "no-store");
  answer.headers.emplace_back("X-Content-Type-Options", "nosniff");
  if (answer.body.size() >= kGzipFrom) {
    answer.headers.emplace_back("Vary", "Accept-Encoding");
    std::string packed;
    if (AcceptsGzip(request.accept_encoding) && Gzip(answer.body, packed)) {
      answer.body = std::move(packed);
      answer.headers.emplace_back("Content-Encoding", "gzip");
    }
  }
  return answer;
}

}  // namespace zefo::cli
