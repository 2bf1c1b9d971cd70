#include "client/credentials.h"

#include <openssl/evp.h>
#include <openssl/hmac.h>

#include <cctype>
#include <cstdio>

namespace lexctl {

std::string HmacSha1Hex(const std::string& key, const std::string& message) {
  unsigned char digest[EVP_MAX_MD_SIZE];
  unsigned int length = 0;
  HMAC(EVP_sha1(), key.data(), static_cast<int>(key.size()),
       reinterpret_cast<const unsigned char*>(message.data()), message.size(), digest, &length);
  // The text must fit a 100-character buffer; a longer digest gives nothing.
  if (length * 2 >= 100) return "";
  std::string hex;
  char pair[3];
  for (unsigned int i = 0; i < length; ++i) {
    snprintf(pair, sizeof(pair), "%02x", digest[i]);
    hex.append(pair);
  }
  return hex;
}

std::string PasswordHash(const std::string& userid, const std::string& password) {
  return HmacSha1Hex(password, userid);
}

bool IsPasswordHash(const std::string& text) {
  if (text.size() != 40) return false;
  bool upper = false, lower = false;
  for (unsigned char c : text) {
    if (!isxdigit(c)) return false;
    if (c >= 'a' && c <= 'f') lower = true;
    if (c >= 'A' && c <= 'F') upper = true;
  }
  return !(upper && lower);
}

std::string BuildLicence(const std::string& userid, const std::string& passwd,
                         const std::string& sesskey, const std::string& sesstoken) {
  if (userid.empty()) return "";
  if (passwd.empty()) return userid;
  std::string hash = IsPasswordHash(passwd) ? passwd : PasswordHash(userid, passwd);
  if (sesskey.empty()) return userid + " " + hash;
  return userid + " " + HmacSha1Hex(hash, sesstoken) + " " + sesskey;
}

std::string PercentEncodeUserId(const std::string& userid) {
  std::string out;
  char code[16];
  for (char c : userid) {
    if (isalnum(static_cast<unsigned char>(c)) && static_cast<signed char>(c) >= 0) {
      out.push_back(c);
    } else {
      snprintf(code, sizeof(code), "%%%02X", static_cast<unsigned>(static_cast<int>(static_cast<signed char>(c))));
      out.append(code);
    }
  }
  return out;
}

}  // namespace lexctl
