#include "crypto.h"

#include <openssl/evp.h>
#include <openssl/hmac.h>
#include <openssl/rand.h>

#include <cctype>
#include <stdexcept>

namespace lexsim {
namespace {

std::string Hex(const unsigned char* p, size_t n) {
  static const char kDigits[] = "0123456789abcdef";
  std::string out;
  out.reserve(n * 2);
  for (size_t i = 0; i < n; ++i) {
    out += kDigits[p[i] >> 4];
    out += kDigits[p[i] & 15];
  }
  return out;
}

int HexValue(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

}  // namespace

std::string HmacSha1Hex(std::string_view key, std::string_view msg) {
  unsigned char md[EVP_MAX_MD_SIZE];
  unsigned int len = 0;
  if (!HMAC(EVP_sha1(), key.data(), static_cast<int>(key.size()),
            reinterpret_cast<const unsigned char*>(msg.data()), msg.size(), md, &len))
    throw std::runtime_error("HMAC-SHA1 failed");
  return Hex(md, len);
}

std::string PasswordHash(std::string_view userid, std::string_view password) {
  return HmacSha1Hex(password, userid);
}

bool IsPasswordHash(std::string_view s) {
  if (s.size() != 40) return false;
  for (char c : s)
    if (HexValue(c) < 0) return false;
  return true;
}

std::string ToLower(std::string_view s) {
  std::string out(s);
  for (char& c : out) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return out;
}

bool EqualsNoCase(std::string_view a, std::string_view b) {
  if (a.size() != b.size()) return false;
  for (size_t i = 0; i < a.size(); ++i)
    if (std::tolower(static_cast<unsigned char>(a[i])) !=
        std::tolower(static_cast<unsigned char>(b[i])))
      return false;
  return true;
}

std::string RandomHex(size_t bytes) {
  std::string buf(bytes, '\0');
  if (RAND_bytes(reinterpret_cast<unsigned char*>(buf.data()), static_cast<int>(bytes)) != 1)
    throw std::runtime_error("no random bytes");
  return Hex(reinterpret_cast<const unsigned char*>(buf.data()), bytes);
}

std::string PercentDecode(std::string_view s) {
  std::string out;
  out.reserve(s.size());
  for (size_t i = 0; i < s.size(); ++i) {
    // Clients that widen a signed char write a byte of 0x80 and above as %FFFFFFXX.
    if (s[i] == '%' && i + 8 < s.size() && EqualsNoCase(s.substr(i + 1, 6), "FFFFFF")) {
      int hi = HexValue(s[i + 7]), lo = HexValue(s[i + 8]);
      if (hi >= 8 && lo >= 0) {
        out += static_cast<char>(hi * 16 + lo);
        i += 8;
        continue;
      }
    }
    if (s[i] == '%' && i + 2 < s.size()) {
      int hi = HexValue(s[i + 1]), lo = HexValue(s[i + 2]);
      if (hi >= 0 && lo >= 0) {
        out += static_cast<char>(hi * 16 + lo);
        i += 2;
        continue;
      }
    }
    out += s[i];
  }
  return out;
}

}  // namespace lexsim
