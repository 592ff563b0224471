#ifndef ZEFO_TOOLS_ZEFO_MONITOR_HTTP_ROUTES_H_
#define ZEFO_TOOLS_ZEFO_MONITOR_HTTP_ROUTES_H_

#include <string>
#include <utility>
#include <vector>

#include "pass_store.h"
#include "zefo/format/formats.h"

namespace zefo::cli {

// What the handlers look at in a request; the server fills it from the connection.
struct HttpRequest {
  std::string method;
  std::string target;  // the request line's path and query, still percent-encoded
  std::string accept;
  std::string accept_encoding;
  bool has_body = false;  // a Content-Length above 0, or any Transfer-Encoding
};

struct HttpAnswer {
  int status = 200;
  std::string content_type;
  std::string body;
  std::vector<std::pair<std::string, std::string>> headers;
};

// What the routes answer from: the passes, how to write them, and the Content-Security-Policy
// of the dashboard page.
struct RouteContext {
  const PassStore& store;
  format::FormatOptions options;
  std::string dashboard_policy;
};

// The longest request target, and the most a query may carry.
constexpr std::size_t kMaxTarget = 2048;
constexpr std::size_t kMaxQueryParams = 8;
constexpr std::size_t kMaxQueryValue = 64;

// The answer to one request: "/" is the dashboard, "/metrics" the newest pass in OpenMetrics or
// the Prometheus text format as the Accept header prefers, "/api/latest" the newest pass as JSON
// and "/api/history?seconds=N" the charted figures of the last N seconds. Only GET and HEAD, and
// no request body, are accepted. Large answers are gzipped (at the fastest level) when the client
// accepts it; no other coding is ever used. Any thread may call it.
HttpAnswer Answer(const HttpRequest& request, const RouteContext& context);

// Whether an Accept header prefers OpenMetrics to the Prometheus text format (by q-value; a tie
// goes to OpenMetrics, a header that names neither to the text format).
bool PrefersOpenMetrics(const std::string& accept);

// Whether an Accept-Encoding header accepts gzip (named, or through "*", with a q-value above 0).
bool AcceptsGzip(const std::string& accept_encoding);

// Splits "a=1&b=%20x" into decoded pairs; false if it is malformed (bad escapes) or over the
// limits above.
bool ParseQuery(const std::string& query, std::vector<std::pair<std::string, std::string>>& out);

}  // namespace zefo::cli

#endif  // ZEFO_TOOLS_ZEFO_MONITOR_HTTP_ROUTES_H_
