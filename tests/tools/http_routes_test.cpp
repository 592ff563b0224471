// zefo-monitor's request handling without a server: query decoding and its limits, and the
// formats and codings it agrees to.
#include <gtest/gtest.h>

#include "http_routes.h"

namespace zefo::cli {
namespace {

TEST(HttpRoutesTest, QueriesDecodeWithinTheirLimits) {
  const std::string long_value(kMaxQueryValue + 1, '1');
  const struct {
    std::string query;
    bool ok;
    std::vector<std::pair<std::string, std::string>> pairs;
  } cases[] = {
      {"seconds=%36%30&&x", true, {{"seconds", "60"}, {"x", ""}}},
      {"a+b=c%2Bd", true, {{"a b", "c+d"}}},
      {"seconds=%3", false, {}},
      {"seconds=%zz", false, {}},
      {"seconds=" + long_value, false, {}},
      {"a&b&c&d&e&f&g&h&i", false, {}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.query);
    std::vector<std::pair<std::string, std::string>> pairs;
    EXPECT_EQ(ParseQuery(c.query, pairs), c.ok);
    if (c.ok) {
      EXPECT_EQ(pairs, c.pairs);
    }
  }
}

// By q-value; a tie goes to OpenMetrics, a header that names neither to the text format.
TEST(HttpRoutesTest, AcceptHeaderPicksTheExposition) {
  for (const auto& [accept, openmetrics] : std::vector<std::pair<std::string, bool>>{
           // What Prometheus 2.42 sends.
           {"application/openmetrics-text;version=1.0.0,application/openmetrics-text;"
            "version=0.0.1;q=0.75,text/plain;version=0.0.4;q=0.5,*/*;q=0.1",
            true},
           {"text/plain;version=0.0.4;q=0.9, application/openmetrics-text;q=0.5", false},
           {"application/openmetrics-text; version=1.0.0; q=0", false},
           {"*/*", false}}) {
    EXPECT_EQ(PrefersOpenMetrics(accept), openmetrics) << accept;
  }
}

TEST(HttpRoutesTest, OnlyGzipAndOnlyWhenAccepted) {
  PassStore store(1000, 60000, 1 << 20);
  const RouteContext context{store, {}, "default-src 'none'"};
  for (const auto& [coding, gzip] :
       std::vector<std::pair<std::string, bool>>{{"br, zstd", false},
                                                 {"gzip;q=0, *", false},
                                                 {"br;q=1, *;q=0.1", true},
                                                 {"GZIP", true}}) {
    SCOPED_TRACE(coding);
    const HttpAnswer page = Answer({"GET", "/", "", coding, false}, context);
    bool coded = false;
    for (const auto& [name, value] : page.headers) coded |= name == "Content-Encoding";
    EXPECT_EQ(coded, gzip);
    EXPECT_EQ(page.body.rfind("\x1f\x8b", 0) == 0, gzip);
  }
}

}  // namespace
}  // namespace zefo::cli
