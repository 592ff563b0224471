#ifndef ZEFO_TOOLS_ZEFO_MONITOR_HTTP_SERVER_H_
#define ZEFO_TOOLS_ZEFO_MONITOR_HTTP_SERVER_H_

#include <httplib.h>

#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include "zefo/format/formats.h"
#include "zefo/format/snapshot.h"

namespace zefo::cli {

// The newest pass, handed from the sampling loop to the HTTP handlers. Publish and Latest may
// be called from any thread; a reader keeps the pass it got alive for as long as it needs it,
// and formats it without holding anything.
class PassStore {
 public:
  void Publish(std::shared_ptr<const format::Snapshot> pass) {
    std::lock_guard<std::mutex> lock(mutex_);
    latest_ = std::move(pass);
  }
  // Null before the first pass.
  std::shared_ptr<const format::Snapshot> Latest() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return latest_;
  }

 private:
  mutable std::mutex mutex_;
  std::shared_ptr<const format::Snapshot> latest_;
};

// An HTTP server on one address, answering on a thread of its own. Register routes on
// `routes()` before Start; Bind, Start and Stop belong to one thread.
class HttpServer {
 public:
  HttpServer();
  ~HttpServer();
  HttpServer(const HttpServer&) = delete;
  HttpServer& operator=(const HttpServer&) = delete;

  httplib::Server& routes() { return server_; }

  // Binds `host`:`port` (port 0: a free one): "" or what is wrong.
  std::string Bind(const std::string& host, int port);
  // The bound port.
  int port() const { return port_; }
  // Serves on a new thread until Stop.
  void Start();
  void Stop();

 private:
  httplib::Server server_;
  std::thread thread_;
  int port_ = 0;
};

// The routes of zefo-monitor's server: "/" names the endpoints, "/metrics" is the newest pass in
// OpenMetrics or in the Prometheus text format, as the request's Accept header prefers. Further
// routes go here, next to these, reading passes from `store`.
void AddRoutes(HttpServer& server, const PassStore& store, const format::FormatOptions& options);

// Whether an Accept header prefers OpenMetrics to the Prometheus text format (by q-value; a tie
// goes to OpenMetrics, a header that names neither to the text format).
bool PrefersOpenMetrics(const std::string& accept);

}  // namespace zefo::cli

#endif  // ZEFO_TOOLS_ZEFO_MONITOR_HTTP_SERVER_H_
