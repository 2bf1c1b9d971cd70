#pragma once
/// Hashes, random values and text helpers shared by lexsim's credential checks.

#include <string>
#include <string_view>

namespace lexsim {

/// HMAC-SHA1 of msg keyed with key, as 40 lower-case hexadecimal digits.
std::string HmacSha1Hex(std::string_view key, std::string_view msg);

/// The password hash of a user: HMAC-SHA1 keyed with the password over the user id.
std::string PasswordHash(std::string_view userid, std::string_view password);

/// True for exactly 40 hexadecimal digits (either case).
bool IsPasswordHash(std::string_view s);

/// Lower-cases ASCII letters.
std::string ToLower(std::string_view s);

/// ASCII case-insensitive equality.
bool EqualsNoCase(std::string_view a, std::string_view b);

/// `bytes` random bytes from the system's CSPRNG as lower-case hexadecimal.
std::string RandomHex(size_t bytes);

/// Decodes %XX escapes; a malformed escape is kept literally.
std::string PercentDecode(std::string_view s);

}  // namespace lexsim
