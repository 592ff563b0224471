#include "http_server.h"

#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <sstream>

namespace zefo::cli {

namespace {

// Handler threads. Scrapers are few; each keep-alive connection holds one thread while open.
constexpr std::size_t kThreads = 4;

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

}  // namespace

HttpServer::HttpServer() {
  server_.new_task_queue = [] { return new httplib::ThreadPool(kThreads); };
  // The library's default also sets SO_REUSEPORT, which would let a second zefo-monitor share
  // the port silently; address reuse alone only spares waiting out TIME_WAIT after a restart.
  server_.set_socket_options([](socket_t sock) {
    int yes = 1;
    setsockopt(sock, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
  });
}

HttpServer::~HttpServer() {
  Stop();
}

std::string HttpServer::Bind(const std::string& host, int port) {
  errno = 0;
  if (port == 0) {
    port_ = server_.bind_to_any_port(host);
    if (port_ > 0) return std::string();
  } else if (server_.bind_to_port(host, port)) {
    port_ = port;
    return std::string();
  }
  return errno != 0 ? std::strerror(errno) : "no such address, or it cannot be bound";
}

void HttpServer::Start() {
  thread_ = std::thread([this] { server_.listen_after_bind(); });
}

void HttpServer::Stop() {
  server_.stop();
  if (thread_.joinable()) thread_.join();
}

bool PrefersOpenMetrics(const std::string& accept) {
  double openmetrics = 0, text = 0;
  std::istringstream ranges(accept);
  std::string range;
  while (std::getline(ranges, range, ',')) {
    std::istringstream parts(range);
    std::string type;
    std::getline(parts, type, ';');
    type = Lower(Trim(type));
    double q = 1;
    for (std::string param; std::getline(parts, param, ';');) {
      param = Lower(Trim(param));
      if (param.rfind("q=", 0) == 0) q = std::strtod(param.c_str() + 2, nullptr);
    }
    if (type == "application/openmetrics-text") {
      openmetrics = std::max(openmetrics, q);
    } else if (type == "text/plain" || type == "text/*" || type == "*/*") {
      text = std::max(text, q);
    }
  }
  return openmetrics > 0 && openmetrics >= text;
}

void AddRoutes(HttpServer& server, const PassStore& store, const format::FormatOptions& options) {
  httplib::Server& routes = server.routes();
  routes.Get("/", [](const httplib::Request&, httplib::Response& res) {
    res.set_content(
        "<!DOCTYPE html>\n<html><head><title>zefo-monitor</title></head><body>\n"
        "<h1>zefo-monitor</h1>\n"
        "<p>The board's newest sampling pass: <a href=\"/metrics\">/metrics</a> "
        "(OpenMetrics or Prometheus text format).</p>\n</body></html>\n",
        "text/html; charset=utf-8");
  });
  routes.Get("/metrics", [&store, options](const httplib::Request& req, httplib::Response& res) {
    const auto pass = store.Latest();
    if (pass == nullptr) {
      res.status = 503;
      res.set_content("no sampling pass yet\n", "text/plain; charset=utf-8");
      return;
    }
    const format::Format format = PrefersOpenMetrics(req.get_header_value("Accept"))
                                      ? format::Format::kOpenMetrics
                                      : format::Format::kPrometheus;
    res.set_content(format::FormatPass(*pass, format, options), format::ContentType(format));
  });
}

}  // namespace zefo::cli
