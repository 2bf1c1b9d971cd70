// Certificate checks shared by both comms layers.
#pragma once

#include <openssl/x509.h>

#include <string>

namespace lexctl {

struct TransportSettings;

/// An OpenSSL verify callback that forgives only validity dates: expired and
/// not-yet-valid certificates pass, untrusted or self-signed ones still fail.
int VerifyIgnoringDates(int ok, X509_STORE_CTX* store);

/// The same rule through a given OpenSSL copy's error accessors, for a
/// library loaded beside the one linked in.
int ForgiveDates(int ok, X509_STORE_CTX* store, decltype(&X509_STORE_CTX_get_error) get_error,
                 decltype(&X509_STORE_CTX_set_error) set_error);

/// Remember the first verification failure of this thread's handshake in
/// LastVerifyError(), so that a refusal can name its reason; the second
/// also forgives validity dates.
int VerifyNoting(int ok, X509_STORE_CTX* store);
int VerifyNotingIgnoringDates(int ok, X509_STORE_CTX* store);
int& LastVerifyError();

/// The host part of a URL, without brackets around an IPv6 address.
std::string HostOf(const std::string& url);

/// The CA file to trust: the configured one when it can be read, else the
/// system's bundle unless a CA directory is set; "" for none.
std::string CaFileFor(const TransportSettings& settings);

/// What keeps a CA file or folder that was set from being used, for the
/// failure line of an https request: "cannot read CA file F (reason)" or
/// "cannot read CA folder D (reason)"; "" when what is set can be read.
/// The default file (kDefaultCaFile) counts as set only when it exists: when
/// it does not, the system's store stands in for it.
std::string UnreadableCaSetting(const TransportSettings& settings);

}  // namespace lexctl
