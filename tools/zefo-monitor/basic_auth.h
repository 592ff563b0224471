#ifndef ZEFO_TOOLS_ZEFO_MONITOR_BASIC_AUTH_H_
#define ZEFO_TOOLS_ZEFO_MONITOR_BASIC_AUTH_H_

#include <map>
#include <mutex>
#include <set>
#include <string>

namespace zefo::cli {

// Checks basic-auth credentials against bcrypt hashes with the system's crypt. A bcrypt check
// costs tens of milliseconds by design; a scraper sends the same credentials every few seconds,
// so the digests of pairs that passed are remembered and later checks of them cost a hash.
// Any thread may call Check.
class BasicAuth {
 public:
  explicit BasicAuth(std::map<std::string, std::string> users) : users_(std::move(users)) {}

  bool enabled() const { return !users_.empty(); }
  // Whether the pair passed a check before: a hash, no bcrypt round.
  bool Remembered(const std::string& user, const std::string& password);
  // The whole check: a bcrypt round unless the pair is remembered.
  bool Check(const std::string& user, const std::string& password);

 private:
  const std::map<std::string, std::string> users_;
  std::mutex mutex_;
  std::string Key(const std::string& user, const std::string& password) const;

  std::set<std::string> passed_;  // SHA-256 of user, password and hash that bcrypt accepted
};

// Whether `hash` is a bcrypt hash the system's crypt takes ($2a$, $2b$ or $2y$).
bool IsBcryptHash(const std::string& hash);

}  // namespace zefo::cli

#endif  // ZEFO_TOOLS_ZEFO_MONITOR_BASIC_AUTH_H_
