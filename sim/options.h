#pragma once
/// lexsim's command line.

#include <string>
#include <vector>

#include "shell/version.h"

namespace lexsim {

struct Options {
  std::string host = "127.0.0.1";
  int port = 12000;  ///< 0 picks a free port
  int threads = 8;
  std::string tls_cert, tls_key;
  std::string tls_client_ca;  ///< when set, clients must show a certificate from this CA
  std::string state_file;
  std::string log_file;
  std::string trust_header;  ///< HTTP header whose value loopback clients log in with
  /// Largest request body taken, in MB; big enough for a 100 MB document sent inline.
  int max_request_mb = 256;
};

/// Fills opts from argv; on an error returns false with a message in *error.
bool ParseOptions(const std::vector<std::string>& args, Options* opts, std::string* error);

inline constexpr const char* kVersion = LEXCTL_VERSION;

inline constexpr const char* kUsage =
    "Usage: lexsim [--host ADDR] [--port N] [--threads N] [--tls-cert FILE --tls-key FILE]\n"
    "              [--tls-client-ca FILE] [--state FILE] [--log FILE] [--trust-header NAME]\n"
    "              [--max-request MB]\n";

}  // namespace lexsim
