#include "http_server.h"

#include <gnutls/crypto.h>
#include <gnutls/gnutls.h>
#include <microhttpd.h>
#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <vector>

namespace zefo::cli {

namespace {

using Clock = std::chrono::steady_clock;

// The TLS versions offered: 1.2 and 1.3, with the system's choice of ciphers.
// bcrypt rounds that may wait for the checker thread; past it a login gets 503.
constexpr std::size_t kMaxLoginsQueued = 16;

constexpr const char* kTlsPriorities = "NORMAL:-VERS-ALL:+VERS-TLS1.3:+VERS-TLS1.2";

std::string Base64(const std::string& bytes) {
  static const char kDigits[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string out;
  for (std::size_t i = 0; i < bytes.size(); i += 3) {
    uint32_t group = static_cast<uint32_t>(static_cast<unsigned char>(bytes[i])) << 16;
    if (i + 1 < bytes.size()) group |= static_cast<unsigned char>(bytes[i + 1]) << 8;
    if (i + 2 < bytes.size()) group |= static_cast<unsigned char>(bytes[i + 2]);
    out += kDigits[(group >> 18) & 63];
    out += kDigits[(group >> 12) & 63];
    out += i + 1 < bytes.size() ? kDigits[(group >> 6) & 63] : '=';
    out += i + 2 < bytes.size() ? kDigits[group & 63] : '=';
  }
  return out;
}

// A listening socket on `host`:`port` ("" : every address, IPv6 and IPv4 where the system has
// both); -1 with `problem` set when there is none.
int OpenListener(const std::string& host, int port, std::string& problem) {
  addrinfo hints{};
  hints.ai_family = AF_UNSPEC;
  hints.ai_socktype = SOCK_STREAM;
  hints.ai_flags = AI_PASSIVE | AI_NUMERICSERV;
  addrinfo* found = nullptr;
  const std::string service = std::to_string(port);
  const int result =
      getaddrinfo(host.empty() ? nullptr : host.c_str(), service.c_str(), &hints, &found);
  if (result != 0) {
    problem = gai_strerror(result);
    return -1;
  }
  // For every address, the IPv6 wildcard also takes IPv4: try it first.
  std::vector<addrinfo*> candidates;
  for (addrinfo* at = found; at != nullptr; at = at->ai_next) {
    if (host.empty() && at->ai_family == AF_INET6)
      candidates.insert(candidates.begin(), at);
    else
      candidates.push_back(at);
  }
  int fd = -1;
  problem = "no such address";
  for (addrinfo* at : candidates) {
    fd = socket(at->ai_family, at->ai_socktype | SOCK_CLOEXEC, at->ai_protocol);
    if (fd < 0) {
      problem = std::strerror(errno);
      continue;
    }
    // Address reuse spares waiting out TIME_WAIT after a restart; SO_REUSEPORT is left off, so
    // that a second zefo-monitor cannot share the port silently.
    int yes = 1, no = 0;
    setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
    if (at->ai_family == AF_INET6 && host.empty()) {
      setsockopt(fd, IPPROTO_IPV6, IPV6_V6ONLY, &no, sizeof no);
    }
    if (bind(fd, at->ai_addr, at->ai_addrlen) == 0 && listen(fd, 1024) == 0) break;
    problem = std::strerror(errno);
    close(fd);
    fd = -1;
  }
  freeaddrinfo(found);
  return fd;
}

std::string Header(MHD_Connection* connection, const char* name) {
  const char* value = MHD_lookup_connection_value(connection, MHD_HEADER_KIND, name);
  return value != nullptr ? std::string(value) : std::string();
}

// A Content-Length above 0, or any Transfer-Encoding.
bool HasBody(MHD_Connection* connection) {
  const std::string length = Header(connection, MHD_HTTP_HEADER_CONTENT_LENGTH);
  return (!length.empty() && length.find_first_not_of('0') != std::string::npos) ||
         !Header(connection, MHD_HTTP_HEADER_TRANSFER_ENCODING).empty();
}

}  // namespace

// The server library's callbacks, handed to the server object they belong to.
struct HttpServerCallbacks {
  using Pending = HttpServer::Pending;

  // Called when a request line has arrived: its target, kept for the request's whole life.
  static void* Begin(void*, const char* uri, MHD_Connection*) {
    auto* pending = new Pending;
    pending->target = uri != nullptr ? uri : "";
    return pending;
  }

  static MHD_Result Request(void* self, MHD_Connection* connection, const char*, const char* method,
                            const char*, const char*, std::size_t* upload_size, void** request) {
    auto* server = static_cast<HttpServer*>(self);
    auto* pending = static_cast<Pending*>(*request);
    if (pending == nullptr) return MHD_NO;
    if (pending->answered) {
      *upload_size = 0;
      return MHD_YES;
    }
    // The first call comes with the headers. A request without a body is answered on the next
    // one, which keeps the connection alive for another; a body is refused at once, unread (the
    // connection is closed after the answer instead).
    if (!pending->seen) {
      pending->seen = true;
      server->Track(connection, false);
      if (!HasBody(connection)) return MHD_YES;
    } else if (server->Suspend(connection, *pending)) {
      return MHD_YES;
    }
    pending->answered = true;
    return server->Serve(connection, method, *pending) ? MHD_YES : MHD_NO;
  }

  static void Completed(void* self, MHD_Connection* connection, void** request,
                        MHD_RequestTerminationCode) {
    delete static_cast<Pending*>(*request);
    *request = nullptr;
    // A kept-alive connection owes the next request within the deadline again.
    static_cast<HttpServer*>(self)->Track(connection, true);
  }

  static void Connection(void* self, MHD_Connection* connection, void**,
                         MHD_ConnectionNotificationCode code) {
    auto* server = static_cast<HttpServer*>(self);
    if (code == MHD_CONNECTION_NOTIFY_STARTED) {
      server->Track(connection, true);
    } else {
      server->Forget(connection);
    }
  }
};

bool HttpServer::Suspend(MHD_Connection* connection, Pending& pending) {
  if (!auth_.enabled() || pending.login != Login::kUnchecked) return false;
  char* password = nullptr;
  char* user = MHD_basic_auth_get_username_password(connection, &password);
  if (user != nullptr && password != nullptr) {
    pending.user = user;
    pending.password = password;
  }
  MHD_free(user);
  MHD_free(password);
  if (user == nullptr || password == nullptr) {
    pending.login = Login::kFailed;
  } else if (auth_.Remembered(pending.user, pending.password)) {
    pending.login = Login::kPassed;
  } else {
    {
      // A few rounds queued are a few scrapers logging in; more are someone guessing.
      std::lock_guard<std::mutex> lock(mutex_);
      if (logins_.size() >= kMaxLoginsQueued || stopping_) {
        pending.login = Login::kBusy;
        return false;
      }
    }
    // The server library is never called with our lock held: its callbacks take it.
    pending.login = Login::kChecking;
    MHD_suspend_connection(connection);
    std::lock_guard<std::mutex> lock(mutex_);
    logins_.emplace_back(connection, &pending);
    login_wake_.notify_one();
    return true;
  }
  return false;
}

void HttpServer::CheckLogins() {
  std::unique_lock<std::mutex> lock(mutex_);
  while (true) {
    login_wake_.wait(lock, [this] { return stopping_ || !logins_.empty(); });
    if (logins_.empty()) return;
    const auto [connection, pending] = logins_.front();
    logins_.pop_front();
    const bool stopping = stopping_;
    lock.unlock();
    if (stopping) {
      pending->login = Login::kBusy;
    } else {
      pending->login =
          auth_.Check(pending->user, pending->password) ? Login::kPassed : Login::kFailed;
    }
    pending->password.clear();
    MHD_resume_connection(connection);
    lock.lock();
  }
}

HttpServer::HttpServer(RouteContext context, const WebConfig& web, HttpLimits limits)
    : context_(std::move(context)), web_(web), limits_(limits), auth_(web.users) {}

HttpServer::~HttpServer() {
  Stop();
}

void HttpServer::Track(MHD_Connection* connection, bool waiting) {
  const MHD_ConnectionInfo* info =
      MHD_get_connection_info(connection, MHD_CONNECTION_INFO_CONNECTION_FD);
  std::lock_guard<std::mutex> lock(mutex_);
  if (!waiting) {
    waiting_.erase(connection);
  } else if (info != nullptr) {
    waiting_[connection] = {info->connect_fd, Clock::now() + limits_.request_deadline};
  }
}

void HttpServer::Forget(MHD_Connection* connection) {
  std::lock_guard<std::mutex> lock(mutex_);
  waiting_.erase(connection);
}

void HttpServer::Sweep() {
  std::unique_lock<std::mutex> lock(mutex_);
  while (!stopping_) {
    wake_.wait_for(lock, std::chrono::milliseconds(250));
    const auto now = Clock::now();
    for (auto at = waiting_.begin(); at != waiting_.end();) {
      if (at->second.deadline > now) {
        ++at;
        continue;
      }
      // Still registered, so the server has not closed the socket yet: ending it here makes
      // the server's thread see it end and close it.
      shutdown(at->second.fd, SHUT_RDWR);
      at = waiting_.erase(at);
    }
  }
}

bool HttpServer::Serve(MHD_Connection* connection, const char* method, const Pending& pending) {
  HttpRequest request;
  request.method = method != nullptr ? method : "";
  request.target = pending.target;
  request.accept = Header(connection, MHD_HTTP_HEADER_ACCEPT);
  request.accept_encoding = Header(connection, MHD_HTTP_HEADER_ACCEPT_ENCODING);
  request.has_body = HasBody(connection);

  HttpAnswer answer;
  bool refused = false;
  if (web_.tls() && web_.client_auth_type != "NoClientCert") {
    const MHD_ConnectionInfo* info =
        MHD_get_connection_info(connection, MHD_CONNECTION_INFO_GNUTLS_SESSION);
    auto session = info != nullptr ? static_cast<gnutls_session_t>(info->tls_session) : nullptr;
    unsigned count = 0, status = 0;
    const bool shown =
        session != nullptr && gnutls_certificate_get_peers(session, &count) != nullptr;
    if (!shown && web_.client_cert_required()) {
      answer = {403, "text/plain; charset=utf-8", "a client certificate is required\n", {}};
      refused = true;
    } else if (shown && (gnutls_certificate_verify_peers2(session, &status) < 0 || status != 0)) {
      answer = {403,
                "text/plain; charset=utf-8",
                "the client certificate is not signed by a trusted CA\n",
                {}};
      refused = true;
    }
  }
  // A request with a body is refused whoever sends it; its login is never looked at.
  const bool unauthorized = !refused && !request.has_body && auth_.enabled() &&
                            pending.login != Login::kPassed && pending.login != Login::kBusy;
  if (unauthorized) {
    answer = {401, "text/plain; charset=utf-8", "a user name and password are required\n", {}};
  } else if (!refused && !request.has_body && pending.login == Login::kBusy) {
    answer = {503, "text/plain; charset=utf-8", "too many logins at once; try again\n", {}};
    refused = true;
  }
  if (!refused && !unauthorized) answer = Answer(request, context_);

  MHD_Response* response = MHD_create_response_from_buffer(answer.body.size(), answer.body.data(),
                                                           MHD_RESPMEM_MUST_COPY);
  if (response == nullptr) return false;
  MHD_add_response_header(response, MHD_HTTP_HEADER_CONTENT_TYPE, answer.content_type.c_str());
  for (const auto& [name, value] : answer.headers) {
    MHD_add_response_header(response, name.c_str(), value.c_str());
  }
  // Whatever of a body was sent stays unread: the connection cannot carry another request.
  if (request.has_body) MHD_add_response_header(response, MHD_HTTP_HEADER_CONNECTION, "close");
  const MHD_Result queued =
      unauthorized ? MHD_queue_basic_auth_fail_response(connection, "zefo-monitor", response)
                   : MHD_queue_response(connection, static_cast<unsigned>(answer.status), response);
  MHD_destroy_response(response);
  return queued == MHD_YES;
}

std::string HttpServer::Listen(const std::string& host, int port) {
  std::string problem;
  const int fd = OpenListener(host, port, problem);
  if (fd < 0) return problem;
  sockaddr_storage bound{};
  socklen_t size = sizeof bound;
  if (getsockname(fd, reinterpret_cast<sockaddr*>(&bound), &size) == 0) {
    port_ = ntohs(bound.ss_family == AF_INET6 ? reinterpret_cast<sockaddr_in6*>(&bound)->sin6_port
                                              : reinterpret_cast<sockaddr_in*>(&bound)->sin_port);
  }

  unsigned flags = MHD_USE_EPOLL_INTERNAL_THREAD | MHD_USE_ITC | MHD_ALLOW_SUSPEND_RESUME;
  std::vector<MHD_OptionItem> options = {
      {MHD_OPTION_LISTEN_SOCKET, fd, nullptr},
      {MHD_OPTION_THREAD_POOL_SIZE, static_cast<intptr_t>(limits_.threads), nullptr},
      {MHD_OPTION_CONNECTION_LIMIT, static_cast<intptr_t>(limits_.max_connections), nullptr},
      {MHD_OPTION_PER_IP_CONNECTION_LIMIT, static_cast<intptr_t>(limits_.max_per_address), nullptr},
      {MHD_OPTION_CONNECTION_TIMEOUT, static_cast<intptr_t>(limits_.idle_seconds), nullptr},
      {MHD_OPTION_CONNECTION_MEMORY_LIMIT, static_cast<intptr_t>(limits_.header_bytes), nullptr},
      {MHD_OPTION_URI_LOG_CALLBACK, reinterpret_cast<intptr_t>(&HttpServerCallbacks::Begin), this},
      {MHD_OPTION_NOTIFY_COMPLETED, reinterpret_cast<intptr_t>(&HttpServerCallbacks::Completed),
       this},
      {MHD_OPTION_NOTIFY_CONNECTION, reinterpret_cast<intptr_t>(&HttpServerCallbacks::Connection),
       this},
      {MHD_OPTION_SIGPIPE_HANDLED_BY_APP, 1, nullptr},
      {MHD_OPTION_STRICT_FOR_CLIENT, 1, nullptr},
  };
  if (web_.tls()) {
    flags |= MHD_USE_TLS;
    options.push_back({MHD_OPTION_HTTPS_MEM_CERT, 0, const_cast<char*>(web_.cert_pem.c_str())});
    options.push_back({MHD_OPTION_HTTPS_MEM_KEY, 0, const_cast<char*>(web_.key_pem.c_str())});
    options.push_back({MHD_OPTION_HTTPS_PRIORITIES, 0, const_cast<char*>(kTlsPriorities)});
    if (!web_.client_ca_pem.empty()) {
      options.push_back(
          {MHD_OPTION_HTTPS_MEM_TRUST, 0, const_cast<char*>(web_.client_ca_pem.c_str())});
    }
  }
  options.push_back({MHD_OPTION_END, 0, nullptr});
  daemon_ = MHD_start_daemon(flags, 0, nullptr, nullptr, &HttpServerCallbacks::Request, this,
                             MHD_OPTION_ARRAY, options.data(), MHD_OPTION_END);
  if (daemon_ == nullptr) {
    close(fd);
    return "the HTTP server did not start";
  }
  sweeper_ = std::thread([this] { Sweep(); });
  checker_ = std::thread([this] { CheckLogins(); });
  return std::string();
}

void HttpServer::Stop() {
  {
    std::lock_guard<std::mutex> lock(mutex_);
    stopping_ = true;
  }
  wake_.notify_all();
  login_wake_.notify_all();
  if (sweeper_.joinable()) sweeper_.join();
  // Resumes every suspended login (as refused) before the server closes the connections.
  if (checker_.joinable()) checker_.join();
  // Closes every connection at once, whatever its client is doing.
  if (daemon_ != nullptr) MHD_stop_daemon(daemon_);
  daemon_ = nullptr;
}

std::string DashboardPolicy(std::string_view page) {
  std::string scripts;
  for (std::size_t at = page.find("<script"); at != std::string_view::npos;
       at = page.find("<script", at + 1)) {
    const std::size_t open = page.find('>', at);
    const std::size_t close = page.find("</script>", open);
    if (open == std::string_view::npos || close == std::string_view::npos) break;
    const std::string_view body = page.substr(open + 1, close - open - 1);
    std::string digest(32, '\0');
    if (gnutls_hash_fast(GNUTLS_DIG_SHA256, body.data(), body.size(), digest.data()) == 0) {
      scripts += " 'sha256-" + Base64(digest) + "'";
    }
  }
  if (scripts.empty()) scripts = " 'none'";
  return "default-src 'none'; script-src" + scripts +
         "; style-src 'unsafe-inline'; img-src 'self' data:; connect-src 'self'; "
         "base-uri 'none'; form-action 'none'; frame-ancestors 'none'";
}

}  // namespace zefo::cli
