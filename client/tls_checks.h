// Certificate checks shared by both comms layers.
#pragma once

#include <openssl/x509.h>

#include <string>

namespace lexctl {

struct TransportSettings;

/// An OpenSSL verify callback that forgives only validity dates: expired and
/// not-yet-valid certificates pass, untrusted or self-signed ones still fail.
int VerifyIgnoringDates(int ok, X509_STORE_CTX* store);

/// The CA file to trust: the configured one when it can be read, else the
/// system's bundle unless a CA directory is set; "" for none.
std::string CaFileFor(const TransportSettings& settings);

}  // namespace lexctl
