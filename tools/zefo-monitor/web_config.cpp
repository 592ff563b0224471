#include "web_config.h"

#include <gnutls/gnutls.h>
#include <yaml-cpp/yaml.h>

#include <fstream>
#include <sstream>

#include "basic_auth.h"

namespace zefo::cli {

namespace {

// The most a certificate, key or CA file may hold.
constexpr std::streamsize kMaxPemBytes = 1 << 20;

std::string Resolve(const std::string& dir, const std::string& name) {
  return name.empty() || name[0] == '/' || dir.empty() ? name : dir + "/" + name;
}

// A scalar under `key` of `map`: "" or what is wrong.
std::string Scalar(const YAML::Node& value, const std::string& where, std::string& out) {
  if (!value.IsScalar()) return where + " must be a string";
  out = value.as<std::string>();
  return std::string();
}

std::string ReadPem(const std::string& what, const std::string& path, std::string& out) {
  std::ifstream in(path, std::ios::binary);
  if (!in) return "cannot read " + what + " " + path;
  std::ostringstream text;
  text << in.rdbuf();
  out = text.str();
  if (out.size() > static_cast<std::size_t>(kMaxPemBytes))
    return what + " " + path + " is too large";
  if (out.find("-----BEGIN ") == std::string::npos) return what + " " + path + " holds no PEM";
  return std::string();
}

// Whether the certificate and key load together, as the TLS handshake will need them.
std::string CheckKeyPair(const WebConfig& config) {
  gnutls_certificate_credentials_t credentials = nullptr;
  if (gnutls_certificate_allocate_credentials(&credentials) != GNUTLS_E_SUCCESS) {
    return "cannot set up TLS";
  }
  const gnutls_datum_t cert = {
      reinterpret_cast<unsigned char*>(const_cast<char*>(config.cert_pem.data())),
      static_cast<unsigned>(config.cert_pem.size())};
  const gnutls_datum_t key = {
      reinterpret_cast<unsigned char*>(const_cast<char*>(config.key_pem.data())),
      static_cast<unsigned>(config.key_pem.size())};
  int result = gnutls_certificate_set_x509_key_mem(credentials, &cert, &key, GNUTLS_X509_FMT_PEM);
  std::string problem;
  if (result < 0) {
    problem = "cert_file " + config.cert_file + " and key_file " + config.key_file +
              " do not make a certificate and its key: " + gnutls_strerror(result);
  } else if (!config.client_ca_pem.empty()) {
    const gnutls_datum_t ca = {
        reinterpret_cast<unsigned char*>(const_cast<char*>(config.client_ca_pem.data())),
        static_cast<unsigned>(config.client_ca_pem.size())};
    result = gnutls_certificate_set_x509_trust_mem(credentials, &ca, GNUTLS_X509_FMT_PEM);
    if (result <= 0) {
      problem = "client_ca_file " + config.client_ca_file + " holds no CA certificate" +
                (result < 0 ? std::string(": ") + gnutls_strerror(result) : std::string());
    }
  }
  gnutls_certificate_free_credentials(credentials);
  return problem;
}

std::string ParseTls(const YAML::Node& tls, const std::string& dir, WebConfig& out) {
  if (!tls.IsMap()) return "tls_server_config must be a map";
  for (const auto& entry : tls) {
    const std::string key = entry.first.as<std::string>();
    const std::string where = "tls_server_config." + key;
    std::string value, problem;
    if (key == "cert_file" || key == "key_file" || key == "client_ca_file" ||
        key == "client_auth_type") {
      problem = Scalar(entry.second, where, value);
    } else if (key == "min_version" || key == "max_version" || key == "cipher_suites" ||
               key == "curve_preferences" || key == "prefer_server_cipher_suites" ||
               key == "client_allowed_sans" || key == "cert" || key == "key") {
      return where + " is not supported here (TLS 1.2 and 1.3 with the system's defaults)";
    } else {
      return where + " is not a known setting";
    }
    if (!problem.empty()) return problem;
    if (key == "cert_file") out.cert_file = Resolve(dir, value);
    if (key == "key_file") out.key_file = Resolve(dir, value);
    if (key == "client_ca_file") out.client_ca_file = Resolve(dir, value);
    if (key == "client_auth_type") out.client_auth_type = value;
  }
  if (out.cert_file.empty() || out.key_file.empty()) {
    return "tls_server_config needs both cert_file and key_file";
  }
  const std::string& type = out.client_auth_type;
  if (type != "NoClientCert" && type != "VerifyClientCertIfGiven" &&
      type != "RequireAndVerifyClientCert") {
    return "tls_server_config.client_auth_type '" + type +
           "' is not supported (NoClientCert, VerifyClientCertIfGiven, "
           "RequireAndVerifyClientCert)";
  }
  if (type != "NoClientCert" && out.client_ca_file.empty()) {
    return "tls_server_config.client_auth_type " + type + " needs a client_ca_file";
  }
  if (type == "NoClientCert" && !out.client_ca_file.empty()) {
    return "tls_server_config.client_ca_file needs a client_auth_type that verifies clients";
  }
  return std::string();
}

std::string ParseUsers(const YAML::Node& users, WebConfig& out) {
  if (users.IsNull()) return std::string();
  if (!users.IsMap()) return "basic_auth_users must map user names to bcrypt hashes";
  for (const auto& entry : users) {
    const std::string user = entry.first.as<std::string>();
    std::string hash;
    const std::string problem = Scalar(entry.second, "basic_auth_users." + user, hash);
    if (!problem.empty()) return problem;
    if (user.empty() || user.find(':') != std::string::npos) {
      return "basic_auth_users: '" + user + "' cannot be a user name";
    }
    if (!IsBcryptHash(hash)) {
      return "basic_auth_users." + user + " is not a bcrypt hash ($2y$, $2b$ or $2a$)";
    }
    out.users[user] = hash;
  }
  return std::string();
}

}  // namespace

std::string ParseWebConfig(const std::string& text, const std::string& dir, WebConfig& out) {
  out = WebConfig();
  try {
    const YAML::Node root = YAML::Load(text);
    if (root.IsNull()) return std::string();  // an empty file: plain HTTP, no users
    if (!root.IsMap()) return "the file must be a YAML map";
    for (const auto& entry : root) {
      const std::string key = entry.first.as<std::string>();
      std::string problem;
      if (key == "tls_server_config") {
        problem = ParseTls(entry.second, dir, out);
      } else if (key == "basic_auth_users") {
        problem = ParseUsers(entry.second, out);
      } else if (key == "http_server_config") {
        problem = "http_server_config is not supported here (HTTP/1.1 only, fixed headers)";
      } else {
        problem = key + " is not a known setting (tls_server_config, basic_auth_users)";
      }
      if (!problem.empty()) return problem;
    }
  } catch (const YAML::Exception& e) {
    return std::string("not valid YAML: ") + e.what();
  }
  return std::string();
}

std::string LoadWebConfig(const std::string& path, WebConfig& out) {
  std::ifstream in(path, std::ios::binary);
  if (!in) return "cannot read it";
  std::ostringstream text;
  text << in.rdbuf();
  const std::size_t slash = path.rfind('/');
  const std::string dir = slash == std::string::npos ? "."
                          : slash == 0               ? "/"
                                                     : path.substr(0, slash);
  std::string problem = ParseWebConfig(text.str(), dir, out);
  if (problem.empty() && out.tls()) {
    problem = ReadPem("cert_file", out.cert_file, out.cert_pem);
    if (problem.empty()) problem = ReadPem("key_file", out.key_file, out.key_pem);
    if (problem.empty() && !out.client_ca_file.empty()) {
      problem = ReadPem("client_ca_file", out.client_ca_file, out.client_ca_pem);
    }
    if (problem.empty()) problem = CheckKeyPair(out);
  }
  return problem;
}

}  // namespace zefo::cli
