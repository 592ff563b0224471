#include "basic_auth.h"

#include <crypt.h>
#include <gnutls/crypto.h>

#include <cstring>
#include <memory>

namespace zefo::cli {

namespace {

// Enough passes remembered for a fleet's scrapers; past it the memory starts over.
constexpr std::size_t kMaxRemembered = 64;

std::string Sha256(const std::string& text) {
  std::string digest(32, '\0');
  if (gnutls_hash_fast(GNUTLS_DIG_SHA256, text.data(), text.size(), digest.data()) != 0) {
    return std::string();
  }
  return digest;
}

// crypt_rn of `password` with the settings (and salt) of `hash`; "" when crypt refuses it.
std::string Crypt(const std::string& password, const std::string& hash) {
  auto data = std::make_unique<crypt_data>();
  const char* result = crypt_rn(password.c_str(), hash.c_str(), data.get(), sizeof *data);
  return result != nullptr && result[0] != '*' ? std::string(result) : std::string();
}

// Compares every byte whatever differs, so the time taken tells nothing about where.
bool SameBytes(const std::string& a, const std::string& b) {
  if (a.size() != b.size()) return false;
  unsigned char differ = 0;
  for (std::size_t i = 0; i < a.size(); ++i) {
    differ |= static_cast<unsigned char>(a[i] ^ b[i]);
  }
  return differ == 0;
}

}  // namespace

bool IsBcryptHash(const std::string& hash) {
  const bool prefix =
      hash.rfind("$2a$", 0) == 0 || hash.rfind("$2b$", 0) == 0 || hash.rfind("$2y$", 0) == 0;
  return prefix && hash.size() == 60 && !Crypt("", hash).empty();
}

std::string BasicAuth::Key(const std::string& user, const std::string& password) const {
  const auto found = users_.find(user);
  return found == users_.end() ? std::string()
                               : Sha256(user + '\0' + password + '\0' + found->second);
}

bool BasicAuth::Remembered(const std::string& user, const std::string& password) {
  const std::string key = Key(user, password);
  std::lock_guard<std::mutex> lock(mutex_);
  return !key.empty() && passed_.count(key) > 0;
}

bool BasicAuth::Check(const std::string& user, const std::string& password) {
  if (users_.empty()) return false;
  if (Remembered(user, password)) return true;
  const auto found = users_.find(user);
  // An unknown user costs a bcrypt round too, so timing does not tell which names exist.
  const std::string& hash = found != users_.end() ? found->second : users_.begin()->second;
  if (!SameBytes(Crypt(password, hash), hash) || found == users_.end()) return false;
  const std::string key = Key(user, password);
  if (!key.empty()) {
    std::lock_guard<std::mutex> lock(mutex_);
    if (passed_.size() >= kMaxRemembered) passed_.clear();
    passed_.insert(key);
  }
  return true;
}

}  // namespace zefo::cli
