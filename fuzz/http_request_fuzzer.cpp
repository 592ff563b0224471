// zefo-monitor's request handling (routing, query parsing, Accept and Accept-Encoding
// negotiation) over arbitrary requests. The input is the method, target, Accept and
// Accept-Encoding on four lines, then a byte whose low bit says whether a body was announced.
#include <string>
#include <vector>

#include "fuzz_support.h"
#include "http_routes.h"

namespace {

std::string Field(std::string_view& text) {
  const std::size_t end = text.find('\n');
  const std::string field(text.substr(0, end));
  text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
  return field;
}

std::string HeaderValue(const zefo::cli::HttpAnswer& answer, const std::string& name) {
  for (const auto& [key, value] : answer.headers) {
    if (key == name) return value;
  }
  return std::string();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace zefo;
  const std::string_view input = fuzz::AsText(data, size);
  std::string_view rest = input;
  cli::HttpRequest request;
  request.method = Field(rest);
  request.target = Field(rest);
  request.accept = Field(rest);
  request.accept_encoding = Field(rest);
  request.has_body = !rest.empty() && (rest[0] & 1) != 0;

  // One store before its first pass, one with an empty pass.
  static const cli::PassStore empty(1000, 60000, 1 << 20);
  static const cli::PassStore* served = [] {
    auto* store = new cli::PassStore(1000, 60000, 1 << 20);
    auto pass = std::make_shared<format::Snapshot>();
    pass->update_time = 1700000000000;
    store->Publish(pass);
    return store;
  }();
  for (const cli::PassStore* store : {&empty, served}) {
    const cli::HttpAnswer answer = cli::Answer(request, {*store, {}, "default-src 'none'"});
    ZEFO_FUZZ_CHECK(answer.status >= 200 && answer.status < 600, input);
    ZEFO_FUZZ_CHECK(!answer.content_type.empty(), input);
    const bool read = request.method == "GET" || request.method == "HEAD";
    ZEFO_FUZZ_CHECK(read || answer.status == 405, input);
    ZEFO_FUZZ_CHECK(!(read && request.has_body) || answer.status == 413, input);
    const std::string coding = HeaderValue(answer, "Content-Encoding");
    ZEFO_FUZZ_CHECK(
        coding.empty() || (coding == "gzip" && cli::AcceptsGzip(request.accept_encoding)), input);
  }

  const std::size_t mark = request.target.find('?');
  std::vector<std::pair<std::string, std::string>> query;
  if (mark != std::string::npos && cli::ParseQuery(request.target.substr(mark + 1), query)) {
    ZEFO_FUZZ_CHECK(query.size() <= cli::kMaxQueryParams, input);
    for (const auto& [name, value] : query) {
      ZEFO_FUZZ_CHECK(name.size() <= cli::kMaxQueryValue && value.size() <= cli::kMaxQueryValue,
                      input);
    }
  }
  return 0;
}
