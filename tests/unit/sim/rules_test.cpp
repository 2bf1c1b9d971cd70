// In-process: what lexsim accepts as a credential, what accounts allow at login, the state
// file and the dictionary source formats, none of which an end-to-end case reaches in full.
#include <gtest/gtest.h>

#include <functional>
#include <tuple>
#include <vector>

#include "account_rules.h"
#include "crypto.h"
#include "dictfmt.h"
#include "frame.h"
#include "state.h"

// Designated initializers name only the fields a case sets; the rest keep their defaults.
#pragma GCC diagnostic ignored "-Wmissing-field-initializers"

namespace lexsim {
namespace {

std::string FaultOf(const std::function<void()>& f) try {
  f();
  return "";
} catch (const Fault& x) {
  return x.err + ": " + x.msg;
}

TEST(Credentials, HashesEscapesAndSelectKeys) {
  EXPECT_TRUE(IsPasswordHash(std::string(40, 'A')));
  EXPECT_FALSE(IsPasswordHash(std::string(39, 'a')));
  EXPECT_FALSE(IsPasswordHash(std::string(39, 'a') + "g"));
  // Bytes of 0x80 and above arrive widened as a signed char would print them.
  for (auto [in, out] : {std::pair{"a%20b", "a b"}, {"group%2Fuser", "group/user"},
                         {"%FFFFFFC3%FFFFFFA9t%FFFFFFE9", "\xC3\xA9t\xE9"}, {"100%", "100%"},
                         {"%zz", "%zz"}})
    EXPECT_EQ(PercentDecode(in), out) << in;

  std::string text = "strict  rmax=500 runas=bob a=b=c empty=";
  SelectKeys keys(&text);
  ASSERT_EQ(keys.items().size(), 5u);
  EXPECT_TRUE(keys.Has("STRICT"));
  EXPECT_EQ(keys.Value("rmax"), "500");
  EXPECT_EQ(keys.Value("a"), "b=c");
  EXPECT_EQ(keys.Value("empty"), "");
  EXPECT_EQ(keys.Value("strict"), "");
  EXPECT_FALSE(keys.Value("missing").has_value());
}

TEST(Credentials, Licences) {
  State state;
  auto lock = state.Lock();
  const std::string hash = PasswordHash("bob", "secret");
  state.PutUser({.userid = "bob", .pwhash = hash});
  state.PutUser({.userid = "open"});
  Conn conn;
  std::string token;  // the one the server hands back
  std::time_t now = 1000000;
  // The user id the licence logs in as, or the fault's error word.
  auto check = [&](const std::string& licence) {
    token.clear();
    try {
      return CheckLicence(state, licence, conn, now, &token).userid;
    } catch (const Fault& f) {
      return f.err;
    }
  };
  auto sign = [&](const std::string& t, const std::string& key) {
    return "bob " + HmacSha1Hex(hash, t) + " " + key;
  };

  std::string upper = hash;
  for (char& c : upper) c = static_cast<char>(toupper(c));
  for (auto [licence, want] : std::vector<std::pair<std::string, std::string>>{
           {"bob " + hash, "bob"},
           {"bob " + upper, "bob"},
           {"bob " + PasswordHash("bob", "wrong"), err::kAuth},
           {"nobody " + hash, err::kAuth},
           {"bob  " + hash, err::kAuth},
           {"bob " + hash + " x y", err::kAuth},
           {"open", "open"},
           {"bob", err::kAuth},
           {std::string(kSeedUserId) + " " + PasswordHash(kSeedUserId, kSeedPassword), "admin"}})
    EXPECT_EQ(check(licence), want) << licence;

  // A trusted header stands for the password, from loopback and for its own user only.
  conn.trusted_user = "bob";
  EXPECT_EQ(check("bob"), err::kAuth);
  conn.loopback = true;
  EXPECT_EQ(check("bob"), "bob");
  EXPECT_EQ(check("open2"), err::kAuth);
  conn.trusted_user = "someone-else";
  EXPECT_EQ(check("bob"), err::kAuth);

  SessionRec& full = state.NewSession("bob", "full", "127.0.0.1", now);
  std::string key = full.key, first = full.token;
  EXPECT_EQ(check(sign(first, key)), "bob");
  std::string second = token;
  EXPECT_TRUE(!second.empty() && second != first) << "a full session rotates its token";
  // The used token is spent; the fault hands back the one to use next.
  EXPECT_EQ(check(sign(first, key)), err::kAuth);
  EXPECT_NE(token, second);
  EXPECT_EQ(check(sign(token, key)), "bob");

  SessionRec& login = state.NewSession("bob", "login", "127.0.0.1", now);
  key = login.key;
  std::string kept = login.token;
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(check(sign(kept, key)), "bob");
    EXPECT_TRUE(token.empty()) << "a login session keeps its token";
  }
  EXPECT_EQ(check("alice " + HmacSha1Hex(hash, kept) + " " + key), err::kSession);
  EXPECT_EQ(check(sign(kept, "nosuchkey")), err::kSession);
  now += kSessionExpireSecs + 1;
  EXPECT_EQ(check(sign(kept, key)), err::kSession) << "idle too long";

  SessionRec& last = state.NewSession("bob", "login", "127.0.0.1", now);
  key = last.key;
  kept = last.token;
  state.RemoveUser("bob");
  EXPECT_EQ(check(sign(kept, key)), err::kSession) << "a removed user's sessions end";
}

TEST(AccountRules, AddressEntries) {
  for (auto [cidr, peer, match] : std::vector<std::tuple<const char*, const char*, bool>>{
           {"127.0.0.1", "127.0.0.1", true},
           {"127.0.0.1", "127.0.0.2", false},
           {"192.168.0.0/16", "192.168.44.1", true},
           {"192.168.0.0/16", "192.169.0.1", false},
           {"192.168.0.0/255.255.0.0", "192.168.1.1", true},
           {"10.0.0.0/9", "10.127.0.1", true},
           {"10.0.0.0/9", "10.128.0.1", false},
           {"127.0.0.1", "::ffff:127.0.0.1", true},  // a dual-stack socket's view of IPv4
           {"[::1]", "::1", true},
           {"[fe80::]/16", "fe80::1:2", true},
           {"[fe80::]/16", "fe81::1", false},
           {"allv4", "203.0.113.9", true},
           {"allv4", "::1", false},
           {"allv6", "::1", true},
           {"allv6", "127.0.0.1", false},
           {"192.168.0.0/255.0.255.0", "192.168.0.1", false}})  // not a mask: matches nothing
    EXPECT_EQ(CidrMatches(cidr, peer), match) << cidr << " " << peer;
  for (const char* bad : {"300.1.1.1", "[::1", "1.2.3.4/33"}) EXPECT_FALSE(ValidCidr(bad)) << bad;
  EXPECT_TRUE(ValidCidr("[::1]/16"));
}

TEST(AccountRules, LoginRefusalsAndCountedLimits) {
  struct {
    std::vector<std::string> ip;
    const char *from, *to, *features;
    bool super;
    const char* op;
    const char* want;  ///< the fault, in part; empty: allowed
  } cases[] = {
      {{}, "", "", "", false, "TranslateText", ""},
      {{"127.0.0.1", "10.1.0.0/16"}, "", "", "", false, "TestEcho", ""},
      {{"127.0.0.1"}, "", "", "", false, "TestEcho",
       "ACCESS_DENIED: Access from 10.1.2.3 is not allowed for bob"},
      {{}, "2023-11-15T00:00:00Z", "", "", false, "TestEcho", "not valid before"},
      {{}, "2023-01-01T00:00:00Z", "2023-11-14T22:13:19Z", "", false, "TestEcho", "expired"},
      {{}, "2023-11-14T22:13:20Z", "2023-11-14T22:13:20Z", "", false, "TestEcho", ""},
      {{}, "", "", "ECHO TEXT", false, "TestEcho", "ACCESS_DENIED: The SOAP API is not enabled"},
      {{}, "", "", "ECHO SOAP TEXT", false, "TranslateText", ""},
      {{}, "", "", "ECHO SOAP TEXT", false, "ParseText", ""},  // an operation without a code
      {{}, "", "", "ECHO SOAP TEXT", false, "TranslateHtml", "Feature HTML"},
      // Super-users skip features as they skip the API mask, but not the address check.
      {{}, "", "", "ECHO SOAP TEXT", true, "TranslateHtml", ""},
      {{"allv6"}, "", "", "", true, "TestEcho", "not allowed"},
  };
  for (const auto& c : cases) {
    Account a{.userid = "bob", .super = c.super, .features = c.features, .valid_from = c.from,
              .valid_to = c.to, .iprestrict = c.ip};
    // 1700000000 is 2023-11-14T22:13:20Z.
    std::string got = FaultOf([&] { CheckAccountRules(a, c.op, "10.1.2.3", 1700000000); });
    EXPECT_TRUE(*c.want ? got.find(c.want) != std::string::npos : got.empty()) << c.op << ": " << got;
  }

  State s;
  auto lock = s.Lock();
  Account& a = s.PutUser({.userid = "bob", .limits = {{"sessions", 1}, {"dictionaries.owned", 1}}});
  EXPECT_EQ(FaultOf([&] { CheckSessionLimit(s, a); }), "");
  s.NewSession("bob", "login", "127.0.0.1", 1);
  EXPECT_EQ(FaultOf([&] { CheckSessionLimit(s, a); }),
            "LIMIT_EXCEEDED: Limit sessions reached for bob: 1");
  EXPECT_EQ(FaultOf([&] { CheckDictionaryLimit(s, a); }), "");
  s.AddDictionary({.eid = "QZ-EJ", .owner = "bob"});
  EXPECT_NE(FaultOf([&] { CheckDictionaryLimit(s, a); }), "");
  a.limits["dictionaries.owned"] = -1;
  EXPECT_EQ(FaultOf([&] { CheckDictionaryLimit(s, a); }), "");
}

TEST(StateFile, EverythingKeptSurvivesAndBadFilesAreRefused) {
  State a;
  auto la = a.Lock();
  UserEngine ue{.type = 0x10, .support = 0x3, .max_user = 7, .dics = {101, 10001}};
  Account bob{.userid = "group/bob",
              .username = "Bob\tB %41",
              .pwhash = PasswordHash("group/bob", "x"),
              .api_allowed = 0x21,
              .features = "ECHO SOAP",
              .valid_from = "2024-01-01T00:00:00Z",
              .limits = {{"sessions", 3}, {"max.day.chars", 5000}},
              .iprestrict = {"127.0.0.1", "[::1]/16"},
              .props = {{"colour", {"blue\nred", true}}, {"empty", {"", false}}},
              .engines = {{"QZ-EJ", ue}, {"QZ-TM", {}}},
              .overrides = {{"QZ-EJ", {{"default", {{"style", {"polite", false}}}}}}}};
  a.PutUser(bob);
  a.Profiles("QZ-EJ")["business"].props["domain"] = {"law", true};
  Dictionary d{.eid = "QZ-TM",
               .type = dtype::kUserShared,
               .memory = true,
               .subject = "Law",
               .owner = "group/bob",
               .display = {{"en", "Law TM"}, {"ja", "法律"}},
               .shares = {"admin"},
               .userdata = std::string("\0\x01%\t\xff", 5),
               .entries = {{.id = 1,
                            .sentences = {{"en", "Hello", true}, {"ja", "こんにちは", false}},
                            .weight = -2,
                            .userdata = "x\ny"}},
               .next_entry = 2};
  int64_t did = a.AddDictionary(d).did;
  std::string text = a.Serialize();

  State b;
  auto lb = b.Lock();
  std::string error;
  ASSERT_TRUE(b.Deserialize(text, &error)) << error;
  EXPECT_EQ(b.Serialize(), text);
  const Account* got = b.FindUser("group/bob");
  ASSERT_NE(got, nullptr);
  EXPECT_EQ(got->username, bob.username);
  EXPECT_EQ(got->limits, bob.limits);
  EXPECT_EQ(got->props.at("colour").val, "blue\nred");
  EXPECT_TRUE(got->props.at("colour").readonly);
  EXPECT_EQ(got->engines.at("QZ-EJ").dics, ue.dics);
  const Dictionary* gd = b.FindDictionary(did);
  ASSERT_NE(gd, nullptr);
  EXPECT_EQ(gd->userdata, d.userdata);
  EXPECT_EQ(gd->entries.at(0).sentences.at(1).text, "こんにちは");
  EXPECT_FALSE(gd->entries[0].sentences[1].key);
  EXPECT_EQ(b.AddDictionary(Dictionary{}).did, did + 1) << "new DIDs continue after the kept ones";

  // Hand-written seed files list accounts only; the dictionaries stay.
  ASSERT_TRUE(b.Deserialize("user\tann\t\t0\t33\tUTC\tAnn\t\n", &error)) << error;
  ASSERT_NE(b.FindUser("ann"), nullptr);
  EXPECT_EQ(b.FindUser("ann")->api_allowed, 33u);
  EXPECT_EQ(b.FindUser("group/bob"), nullptr);
  EXPECT_NE(b.FindDictionary(did), nullptr);

  // Each broken file is refused with its line, and the store stays as it was.
  for (std::string bad : {std::string("user\tx\t\t\t0\t1\tUTC\t\t\t\n"),
                          text + "limit\tsessions\tmany\n", text + "sentence\ten\tx\t2\n",
                          text + "bogus\n", text + "ip\t%4\n", text + "prop\tk\tv\t2\n",
                          std::string("lexsim-state 1\nprop\tk\tv\t0\n")}) {
    State c;
    auto lc = c.Lock();
    std::string before = c.Serialize();
    EXPECT_FALSE(c.Deserialize(bad, &error)) << bad;
    EXPECT_NE(error, "");
    EXPECT_EQ(c.Serialize(), before);
  }
}

TEST(DictionarySources, ParseErrorsAndRoundTrips) {
  auto r = dictfmt::ParseNative(
      "# header\n\nhello = こんにちは [interj]\r\nno separator\n = empty head\nx = y [gerund]\n"
      "z = w [noun\nq =  \nbad = \xC3\x28\n");
  ASSERT_EQ(r.entries.size(), 1u);
  EXPECT_EQ(r.entries[0].entry.target, "こんにちは");
  EXPECT_EQ(r.entries[0].entry.pos, "interj");
  EXPECT_EQ(r.entries[0].line, 3);
  auto tm = dictfmt::ParseTm("en = stray\n[entry]\nweight = heavy\nen = x\n[entry]\ncolour = red\n"
                             "[entry]\nauthor = nobody\n");
  EXPECT_TRUE(tm.entries.empty()) << "an entry with a bad line is not taken";
  std::vector<std::tuple<int64_t, int64_t, std::string>> got, want = {
      {1, 4, "SYNTAX"}, {2, 5, "SYNTAX"}, {4, 6, "POS"}, {5, 7, "SYNTAX"}, {3, 8, "SYNTAX"},
      {7, 9, "ENCODING"}, {10, 1, "SYNTAX"}, {13, 3, "VALUE"}, {12, 6, "FIELD"},
      {14, 5, "SYNTAX"}, {14, 7, "SYNTAX"}};
  for (const auto& e : r.errors) got.emplace_back(e.code, e.errline, e.cat);
  for (const auto& e : tm.errors) got.emplace_back(e.code, e.errline, e.cat);
  EXPECT_EQ(got, want);
  EXPECT_EQ(r.errors[2].keyword, "gerund");
  EXPECT_EQ(tm.errors[1].srcline, 2);

  DictEntry e{.headword = "a=b [x] ", .target = "line\nbreak\\slash = eq", .pos = "noun"};
  std::string line = dictfmt::FormatNative(e);
  EXPECT_EQ(line.find('\n'), std::string::npos);
  r = dictfmt::ParseNative(line);
  ASSERT_EQ(r.entries.size(), 1u);
  EXPECT_EQ(r.entries[0].entry.headword, e.headword);
  EXPECT_EQ(r.entries[0].entry.target, e.target);

  tm = dictfmt::ParseTm("[entry]\nen = Good morning.\nja = #おはよう。\nweight = 5\ninfo = 1\n"
                        "author = kim\npattern = true\n");
  ASSERT_EQ(tm.entries.size(), 1u);
  auto again = dictfmt::ParseTm(dictfmt::FormatTm(tm.entries[0].entry));
  ASSERT_EQ(again.entries.size(), 1u);
  const DictEntry& m = again.entries[0].entry;
  ASSERT_EQ(m.sentences.size(), 2u);
  EXPECT_TRUE(m.sentences[0].key);
  EXPECT_FALSE(m.sentences[1].key);
  EXPECT_EQ(m.sentences[1].text, "おはよう。");
  EXPECT_EQ(std::tuple(m.weight, m.info, m.author, m.pattern), std::tuple(5, 1, "kim", true));
}

}  // namespace
}  // namespace lexsim
