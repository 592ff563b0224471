#ifndef ZEFO_TOOLS_ZEFO_MONITOR_HTTP_SERVER_H_
#define ZEFO_TOOLS_ZEFO_MONITOR_HTTP_SERVER_H_

#include <chrono>
#include <condition_variable>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include "basic_auth.h"
#include "http_routes.h"
#include "web_config.h"

struct MHD_Daemon;
struct MHD_Connection;

namespace zefo::cli {

// What one client may take of the server. A few event-driven threads serve every connection,
// so a socket that waits costs memory, never a thread.
struct HttpLimits {
  unsigned threads = 2;
  unsigned max_connections = 1000;
  unsigned max_per_address = 32;
  unsigned idle_seconds = 5;  // no byte either way: the connection is closed
  std::chrono::milliseconds request_deadline{10000};  // for a whole request line and headers
  std::size_t header_bytes = 16 * 1024;               // request line and headers together
};

// zefo-monitor's HTTP(S) server on one address. Listen and Stop belong to one thread; requests
// are answered on the server's own threads.
class HttpServer {
 public:
  HttpServer(RouteContext context, const WebConfig& web, HttpLimits limits = HttpLimits());
  ~HttpServer();
  HttpServer(const HttpServer&) = delete;
  HttpServer& operator=(const HttpServer&) = delete;

  // Binds `host`:`port` (host "": every address; port 0: a free one) and starts serving: "" or
  // what is wrong.
  std::string Listen(const std::string& host, int port);
  int port() const { return port_; }
  void Stop();

 private:
  struct Tracked {
    int fd;
    std::chrono::steady_clock::time_point deadline;
  };
  enum class Login { kUnchecked, kChecking, kPassed, kFailed, kBusy };
  // One request, from its request line to its answer.
  struct Pending {
    std::string target;
    bool seen = false;      // the headers are in
    bool answered = false;  // the answer is queued
    Login login = Login::kUnchecked;
    std::string user, password;
  };
  // True if the request's login needs a bcrypt round: the connection is then suspended until
  // the checker thread has done it (the server's threads never wait for one).
  bool Suspend(MHD_Connection* connection, Pending& pending);
  void CheckLogins();
  // The answer to a request whose headers have all arrived: true if it was queued.
  bool Serve(MHD_Connection* connection, const char* method, const Pending& pending);
  void Track(MHD_Connection* connection, bool waiting);
  void Forget(MHD_Connection* connection);
  void Sweep();
  friend struct HttpServerCallbacks;

  const RouteContext context_;
  const WebConfig web_;
  const HttpLimits limits_;
  BasicAuth auth_;
  MHD_Daemon* daemon_ = nullptr;
  int port_ = 0;

  // Connections still owing a whole request, and when they must have sent it; the sweeper shuts
  // down those past it (the server's thread then sees the socket end and closes it).
  std::mutex mutex_;
  std::condition_variable wake_;
  bool stopping_ = false;
  std::map<MHD_Connection*, Tracked> waiting_;
  std::thread sweeper_;
  // Logins waiting for their bcrypt round, checked one at a time on their own thread.
  std::deque<std::pair<MHD_Connection*, Pending*>> logins_;
  std::condition_variable login_wake_;
  std::thread checker_;
};

// The Content-Security-Policy of the dashboard `page`: nothing from outside the board, only the
// page's own inline scripts (by their SHA-256) and styles, and requests back to the board.
std::string DashboardPolicy(std::string_view page);

}  // namespace zefo::cli

#endif  // ZEFO_TOOLS_ZEFO_MONITOR_HTTP_SERVER_H_
