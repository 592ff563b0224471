#ifndef ZEFO_TOOLS_ZEFO_MONITOR_HTTP_SERVER_H_
#define ZEFO_TOOLS_ZEFO_MONITOR_HTTP_SERVER_H_

#include <httplib.h>

#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include "pass_history.h"
#include "zefo/format/formats.h"
#include "zefo/format/snapshot.h"

namespace zefo::cli {

// The newest pass and the charted figures of the recent ones, handed from the sampling loop to
// the HTTP handlers. Publish, Latest and History may be called from any thread; a reader keeps
// the pass it got alive for as long as it needs it, and formats it without holding anything.
class PassStore {
 public:
  // Keeps the figures of the passes of the last `history_ms` (at most `budget_bytes` of them);
  // `period_ms` is the sampling period, told to the dashboard.
  PassStore(int period_ms, uint64_t history_ms, std::size_t budget_bytes)
      : period_ms_(period_ms), history_(history_ms, budget_bytes) {}

  void Publish(std::shared_ptr<const format::Snapshot> pass);
  // Null before the first pass.
  std::shared_ptr<const format::Snapshot> Latest() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return latest_;
  }
  // The passes of the last `seconds` seconds as HistoryJson writes them.
  std::string History(double seconds) const;

 private:
  mutable std::mutex mutex_;
  std::shared_ptr<const format::Snapshot> latest_;
  const int period_ms_;
  PassHistory history_;
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

// The routes of zefo-monitor's server: "/" is the dashboard (or, in a build without it, a page
// naming the endpoints), "/metrics" the newest pass in OpenMetrics or in the Prometheus text
// format, as the request's Accept header prefers, "/api/latest" the newest pass as JSON and
// "/api/history?seconds=N" the charted figures of the passes of the last N seconds.
void AddRoutes(HttpServer& server, const PassStore& store, const format::FormatOptions& options);

// Whether an Accept header prefers OpenMetrics to the Prometheus text format (by q-value; a tie
// goes to OpenMetrics, a header that names neither to the text format).
bool PrefersOpenMetrics(const std::string& accept);

}  // namespace zefo::cli

#endif  // ZEFO_TOOLS_ZEFO_MONITOR_HTTP_SERVER_H_
