#include "options.h"

#include <charconv>

namespace lexsim {
namespace {

bool ToInt(const std::string& s, int lo, int hi, int* out) {
  int v = 0;
  auto [end, ec] = std::from_chars(s.data(), s.data() + s.size(), v);
  if (ec != std::errc() || end != s.data() + s.size() || v < lo || v > hi) return false;
  *out = v;
  return true;
}

}  // namespace

bool ParseOptions(const std::vector<std::string>& args, Options* opts, std::string* error) {
  for (size_t i = 0; i < args.size(); ++i) {
    const std::string& a = args[i];
    std::string name = a, value;
    bool inline_value = false;
    if (auto eq = a.find('='); a.rfind("--", 0) == 0 && eq != std::string::npos) {
      name = a.substr(0, eq);
      value = a.substr(eq + 1);
      inline_value = true;
    }
    auto take = [&](std::string* dst) {
      if (inline_value) {
        *dst = value;
        return true;
      }
      if (i + 1 >= args.size()) {
        *error = "missing value for " + name;
        return false;
      }
      *dst = args[++i];
      return true;
    };
    std::string v;
    if (name == "--host") {
      if (!take(&opts->host)) return false;
    } else if (name == "--port") {
      if (!take(&v)) return false;
      if (!ToInt(v, 0, 65535, &opts->port)) return *error = "invalid port: " + v, false;
    } else if (name == "--threads") {
      if (!take(&v)) return false;
      if (!ToInt(v, 1, 256, &opts->threads)) return *error = "invalid thread count: " + v, false;
    } else if (name == "--tls-cert") {
      if (!take(&opts->tls_cert)) return false;
    } else if (name == "--tls-key") {
      if (!take(&opts->tls_key)) return false;
    } else if (name == "--tls-client-ca") {
      if (!take(&opts->tls_client_ca)) return false;
    } else if (name == "--state") {
      if (!take(&opts->state_file)) return false;
    } else if (name == "--log") {
      if (!take(&opts->log_file)) return false;
    } else if (name == "--trust-header") {
      if (!take(&opts->trust_header)) return false;
      if (opts->trust_header.empty()) return *error = "empty --trust-header", false;
    } else if (name == "--max-request") {
      if (!take(&v)) return false;
      if (!ToInt(v, 1, 4095, &opts->max_request_mb)) return *error = "invalid request limit: " + v, false;
    } else {
      *error = "unknown option: " + a;
      return false;
    }
  }
  if (opts->tls_cert.empty() != opts->tls_key.empty()) {
    *error = "--tls-cert and --tls-key go together";
    return false;
  }
  if (!opts->tls_client_ca.empty() && opts->tls_cert.empty()) {
    *error = "--tls-client-ca needs --tls-cert and --tls-key";
    return false;
  }
  return true;
}

}  // namespace lexsim
