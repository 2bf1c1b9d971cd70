// Password hashes and the login credential sent as "licence".
#pragma once

#include <string>

namespace lexctl {

/// HMAC-SHA1 of message keyed by key, as 40 lower-case hexadecimal digits.
std::string HmacSha1Hex(const std::string& key, const std::string& message);

/// The password hash of a user: HMAC-SHA1 keyed by the password over the user id.
std::string PasswordHash(const std::string& userid, const std::string& password);

/// True for exactly 40 hexadecimal digits whose letters are all upper or all
/// lower case; such a password is sent as it stands.
bool IsPasswordHash(const std::string& text);

/// The credential of a request: the user id alone, the user id and password
/// hash, or the user id, the hash of the session token and the session key.
std::string BuildLicence(const std::string& userid, const std::string& passwd,
                         const std::string& sesskey, const std::string& sesstoken);

/// Percent-encoding of a user id for HTTP Basic authentication: alphanumerics
/// stay, every other byte becomes "%" and its value as a signed char in hex,
/// so bytes from 0x80 widen to "%FFFFFFxx" (servers expect exactly this).
std::string PercentEncodeUserId(const std::string& userid);

}  // namespace lexctl
