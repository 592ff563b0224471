#ifndef ZEFO_TOOLS_ZEFO_MONITOR_WEB_CONFIG_H_
#define ZEFO_TOOLS_ZEFO_MONITOR_WEB_CONFIG_H_

#include <map>
#include <string>

namespace zefo::cli {

// How --listen guards its endpoint, from the web configuration file Prometheus exporters share:
//
//   tls_server_config:
//     cert_file: board.crt          # names relative to the file's own directory
//     key_file: board.key
//     client_ca_file: fleet-ca.crt  # optional: clients must show a certificate it signed
//     client_auth_type: RequireAndVerifyClientCert
//   basic_auth_users:
//     prometheus: $2y$10$...        # bcrypt hashes, as htpasswd -B writes them
struct WebConfig {
  std::string cert_file, key_file, client_ca_file;
  // NoClientCert, VerifyClientCertIfGiven or RequireAndVerifyClientCert.
  std::string client_auth_type = "NoClientCert";
  std::map<std::string, std::string> users;  // name: bcrypt hash

  // The PEM texts of the files above (filled by LoadWebConfig).
  std::string cert_pem, key_pem, client_ca_pem;

  bool tls() const { return !cert_file.empty(); }
  bool client_cert_required() const { return client_auth_type == "RequireAndVerifyClientCert"; }
};

// Reads the YAML text of a web configuration file into `out`, file names made relative to
// `dir`: "" or what is wrong (bad YAML, an unknown or unsupported key, a hash that is not
// bcrypt, a key without a certificate).
std::string ParseWebConfig(const std::string& text, const std::string& dir, WebConfig& out);

// ParseWebConfig of the file at `path`, then reads the certificate, key and CA files and checks
// that the key belongs to the certificate: "" or what is wrong, naming the file.
std::string LoadWebConfig(const std::string& path, WebConfig& out);

}  // namespace zefo::cli

#endif  // ZEFO_TOOLS_ZEFO_MONITOR_WEB_CONFIG_H_
