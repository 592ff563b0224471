#include "http_server.h"

#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <sstream>

#include "dashboard_page.h"

namespace zefo::cli {

namespace {

// Handler threads. Each keep-alive connection holds one thread while open: a scraper holds one,
// and so does every open dashboard page, which asks once per period.
constexpr std::size_t kThreads = 8;

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

// The figures must come fresh on every poll, whatever a proxy or browser cache would like.
void NoStore(httplib::Response& res) {
  res.set_header("Cache-Control", "no-store");
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

}  // namespace

void PassStore::Publish(std::shared_ptr<const format::Snapshot> pass) {
  PassFigures figures = ChartFigures(*pass);
  std::lock_guard<std::mutex> lock(mutex_);
  latest_ = std::move(pass);
  history_.Push(std::move(figures));
}

std::string PassStore::History(double seconds) const {
  std::vector<PassHistory::Entry> entries;
  HistoryFacts facts;
  {
    // Copied under the lock (values and shared key lists), written out after it.
    std::lock_guard<std::mutex> lock(mutex_);
    entries = history_.Query(seconds);
    facts = {history_.window_ms(), history_.budget_bytes(), history_.bytes(), period_ms_};
  }
  return HistoryJson(entries, facts);
}

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
    const std::string_view page = DashboardPage();
    res.set_content(page.data(), page.size(), "text/html; charset=utf-8");
    NoStore(res);
  });
  routes.Get("/api/latest", [&store](const httplib::Request&, httplib::Response& res) {
    NoStore(res);
    const auto pass = store.Latest();
    if (pass == nullptr) {
      res.status = 503;
      res.set_content("{\"error\":\"no sampling pass yet\"}\n", "application/json");
      return;
    }
    res.set_content(format::FormatPass(*pass, format::Format::kJson), "application/json");
  });
  routes.Get("/api/history", [&store](const httplib::Request& req, httplib::Response& res) {
    NoStore(res);
    // Without ?seconds, the whole ring.
    double seconds = std::numeric_limits<double>::infinity();
    if (req.has_param("seconds") && !ParseSeconds(req.get_param_value("seconds"), seconds)) {
      res.status = 400;
      res.set_content("{\"error\":\"seconds must be a positive number\"}\n", "application/json");
      return;
    }
    res.set_content(store.History(seconds), "application/json");
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
