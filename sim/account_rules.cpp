#include "account_rules.h"

#include <cstring>
#include <sstream>

#include "crypto.h"
#include "frame.h"
#include "sys.h"

namespace lexsim {
namespace {

const std::pair<const char*, const char*> kOpFeatures[] = {
    {"TestEcho", "ECHO"},
    {"GetEngineInfo", "GENG"},
    {"Recode", "RECD"},
    {"SplitSentences", "SPLT"},
    {"UpdateEngineProfile", "PROF"},
    {"TranslateText", "TEXT"},
    {"TranslateTextUpdate", "TUPD"},
    {"TranslateTextSimple", "TXTS"},
    {"TranslateHtml", "HTML"},
    {"TranslateXml", "TXML"},
    {"Translate", "TRAN"},
    {"TranslateMulti", "TMUL"},
    {"LookupFormatted", "LUPF"},
    {"LookupEntry", "LUPF"},
    {"CreateDictionary", "DCRE"},
    {"UpdateDictionaryInfo", "DUPD"},
    {"CopyDictionary", "DCPY"},
    {"DeleteDictionary", "DDEL"},
    {"DictionaryImport", "DIMP"},
    {"ChangeDictionaryOwner", "DCHO"},
    {"DictionaryExport", "DEXP"},
    {"AddDictionaryEntry", "DEAD"},
    {"GetDictionaryEntry", "DEGT"},
    {"DeleteDictionaryEntry", "DEDE"},
    {"ChangePassword", "UPWD"},
    {"CreateUser", "UCRE"},
    {"DeleteUser", "UDEL"},
    {"GetUserList", "ULST"},
    {"CreateSession", "CSES"},
    {"EndSession", "ESES"},
    {"DetectLanguage", "DLNG"},
};

bool Digits(const std::string& s, int max, int* out) {
  if (s.empty() || s.size() > 3) return false;
  for (char c : s)
    if (c < '0' || c > '9') return false;
  *out = std::stoi(s);
  return *out <= max;
}

/// An address entry as 16 bytes (IPv4 mapped into ::ffff:0:0/96) and a prefix length.
struct Net {
  unsigned char addr[16] = {};
  int bits = 0;
};

void MapV4(const in_addr& a, unsigned char* out) {
  std::memset(out, 0, 16);
  out[10] = out[11] = 0xff;
  std::memcpy(out + 12, &a, 4);
}

bool ParseNet(const std::string& c, Net* net) {
  if (EqualsNoCase(c, "allv4")) {
    net->addr[10] = net->addr[11] = 0xff;
    net->bits = 96;
    return true;
  }
  if (EqualsNoCase(c, "allv6")) {
    net->bits = 0;
    return true;
  }
  if (!c.empty() && c[0] == '[') {
    size_t close = c.find(']');
    if (close == std::string::npos) return false;
    in6_addr a{};
    if (inet_pton(AF_INET6, c.substr(1, close - 1).c_str(), &a) != 1) return false;
    std::memcpy(net->addr, &a, 16);
    std::string rest = c.substr(close + 1);
    net->bits = 128;
    return rest.empty() || (rest[0] == '/' && Digits(rest.substr(1), 128, &net->bits));
  }
  size_t slash = c.find('/');
  in_addr a{};
  if (inet_pton(AF_INET, c.substr(0, slash).c_str(), &a) != 1) return false;
  MapV4(a, net->addr);
  net->bits = 128;
  if (slash == std::string::npos) return true;
  std::string rest = c.substr(slash + 1);
  int n = 0;
  if (Digits(rest, 32, &n)) {
    net->bits = 96 + n;
    return true;
  }
  in_addr m{};
  if (rest.find('.') == std::string::npos || inet_pton(AF_INET, rest.c_str(), &m) != 1) return false;
  // A mask is ones followed by zeros.
  uint32_t ones = ntohl(m.s_addr), inv = ~ones;
  if ((inv & (inv + 1)) != 0) return false;
  net->bits = 96 + __builtin_popcount(ones);
  return true;
}

bool ParsePeer(const std::string& peer, unsigned char* out) {
  in_addr a{};
  if (inet_pton(AF_INET, peer.c_str(), &a) == 1) {
    MapV4(a, out);
    return true;
  }
  in6_addr b{};
  if (inet_pton(AF_INET6, peer.c_str(), &b) != 1) return false;
  std::memcpy(out, &b, 16);
  return true;
}

int64_t Limit(const Account& a, const char* name) {
  auto it = a.limits.find(name);
  return it == a.limits.end() ? -1 : it->second;
}

}  // namespace

bool ValidCidr(const std::string& text) {
  Net n;
  return ParseNet(text, &n);
}

bool CidrMatches(const std::string& cidr, const std::string& peer) {
  Net n;
  unsigned char p[16];
  if (!ParseNet(cidr, &n) || !ParsePeer(peer, p)) return false;
  if (EqualsNoCase(cidr, "allv6")) {
    static const unsigned char kMapped[12] = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xff, 0xff};
    return std::memcmp(p, kMapped, 12) != 0;
  }
  int full = n.bits / 8, rest = n.bits % 8;
  if (std::memcmp(n.addr, p, full) != 0) return false;
  if (rest == 0) return true;
  unsigned char mask = static_cast<unsigned char>(0xff << (8 - rest));
  return (n.addr[full] & mask) == (p[full] & mask);
}

const char* FeatureOf(const std::string& op_name) {
  for (const auto& [op, code] : kOpFeatures)
    if (op_name == op) return code;
  return nullptr;
}

bool HasFeature(const std::string& features, const std::string& code) {
  if (features.find_first_not_of(' ') == std::string::npos) return true;
  std::istringstream in(features);
  std::string w;
  while (in >> w)
    if (EqualsNoCase(w, code)) return true;
  return false;
}

std::string WireTime(std::time_t t) {
  std::tm tm{};
  gmtime_r(&t, &tm);
  char buf[32];
  std::strftime(buf, sizeof buf, "%Y-%m-%dT%H:%M:%SZ", &tm);
  return buf;
}

void CheckAccountRules(const Account& a, const std::string& op_name, const std::string& peer,
                       std::time_t now) {
  if (!a.iprestrict.empty()) {
    bool allowed = false;
    for (const std::string& c : a.iprestrict) allowed = allowed || CidrMatches(c, peer);
    if (!allowed) Raise(err::kDenied, "Access from " + peer + " is not allowed for " + a.userid);
  }
  // Bounds are kept in one fixed form, so text order is time order.
  std::string at = WireTime(now);
  if (!a.valid_from.empty() && at < a.valid_from)
    Raise(err::kDenied, "The account " + a.userid + " is not valid before " + a.valid_from);
  if (!a.valid_to.empty() && at > a.valid_to)
    Raise(err::kDenied, "The account " + a.userid + " expired at " + a.valid_to);
  if (a.super || a.features.find_first_not_of(' ') == std::string::npos) return;
  if (!HasFeature(a.features, "SOAP"))
    Raise(err::kDenied, "The SOAP API is not enabled for " + a.userid);
  if (const char* code = FeatureOf(op_name); code && !HasFeature(a.features, code))
    Raise(err::kDenied, "Feature " + std::string(code) + " (" + op_name + ") is not enabled for " +
                            a.userid);
}

void CheckSessionLimit(const State& state, const Account& a) {
  int64_t max = Limit(a, "sessions");
  if (max >= 0 && static_cast<int64_t>(state.SessionsOf(a.userid).size()) >= max)
    Raise(kLimitFault, "Limit sessions reached for " + a.userid + ": " + std::to_string(max));
}

void CheckDictionaryLimit(const State& state, const Account& a) {
  int64_t max = Limit(a, "dictionaries.owned");
  if (max < 0) return;
  int64_t owned = 0;
  for (const auto& [did, d] : state.dictionaries()) owned += d.owner == a.userid;
  if (owned >= max)
    Raise(kLimitFault,
          "Limit dictionaries.owned reached for " + a.userid + ": " + std::to_string(max));
}

}  // namespace lexsim
