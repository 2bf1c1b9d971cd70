// What accounts allow at login, and the state file that keeps accounts and dictionaries.
#include <gtest/gtest.h>

#include <functional>

#include "account_rules.h"
#include "crypto.h"
#include "frame.h"
#include "state.h"

namespace lexsim {
namespace {

std::string FaultOf(const std::function<void()>& f) {
  try {
    f();
  } catch (const Fault& x) {
    return x.err + ": " + x.msg;
  }
  return "";
}

TEST(AccountRules, AddressEntries) {
  struct Case {
    const char* cidr;
    const char* peer;
    bool match;
  } cases[] = {
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
      {"192.168.0.0/255.0.255.0", "192.168.0.1", false},  // not a mask: matches nothing
  };
  for (const Case& c : cases) EXPECT_EQ(CidrMatches(c.cidr, c.peer), c.match) << c.cidr << " " << c.peer;
  EXPECT_FALSE(ValidCidr("300.1.1.1"));
  EXPECT_FALSE(ValidCidr("[::1"));
  EXPECT_FALSE(ValidCidr("1.2.3.4/33"));
  EXPECT_TRUE(ValidCidr("[::1]/16"));
}

TEST(AccountRules, LoginRefusals) {
  Account a;
  a.userid = "bob";
  std::time_t now = 1700000000;  // 2023-11-14T22:13:20Z
  auto check = [&](const char* op) { return FaultOf([&] { CheckAccountRules(a, op, "10.1.2.3", now); }); };
  EXPECT_EQ(check("TranslateText"), "");

  a.iprestrict = {"127.0.0.1", "10.1.0.0/16"};
  EXPECT_EQ(check("TestEcho"), "");
  a.iprestrict = {"127.0.0.1"};
  EXPECT_EQ(check("TestEcho"), "ACCESS_DENIED: Access from 10.1.2.3 is not allowed for bob");
  a.iprestrict.clear();

  a.valid_from = "2023-11-15T00:00:00Z";
  EXPECT_NE(check("TestEcho").find("not valid before"), std::string::npos);
  a.valid_from = "2023-01-01T00:00:00Z";
  a.valid_to = "2023-11-14T22:13:19Z";
  EXPECT_NE(check("TestEcho").find("expired"), std::string::npos);
  a.valid_to = "2023-11-14T22:13:20Z";
  EXPECT_EQ(check("TestEcho"), "");

  a.features = "ECHO TEXT";
  EXPECT_EQ(check("TestEcho"), "ACCESS_DENIED: The SOAP API is not enabled for bob");
  a.features = "ECHO SOAP TEXT";
  EXPECT_EQ(check("TranslateText"), "");
  EXPECT_EQ(check("ParseText"), "") << "operations without a code are not restricted";
  EXPECT_NE(check("TranslateHtml").find("Feature HTML"), std::string::npos);
  a.super = true;
  EXPECT_EQ(check("TranslateHtml"), "") << "super-users skip features as they skip the API mask";
  a.iprestrict = {"allv6"};
  EXPECT_NE(check("TestEcho"), "") << "but not the address check";
}

TEST(AccountRules, CountedLimits) {
  State s;
  auto lock = s.Lock();
  Account a;
  a.userid = "bob";
  s.PutUser(a);
  a.limits["sessions"] = 1;
  a.limits["dictionaries.owned"] = 1;
  EXPECT_EQ(FaultOf([&] { CheckSessionLimit(s, a); }), "");
  s.NewSession("bob", "login", "127.0.0.1", 1);
  EXPECT_EQ(FaultOf([&] { CheckSessionLimit(s, a); }),
            "LIMIT_EXCEEDED: Limit sessions reached for bob: 1");
  EXPECT_EQ(FaultOf([&] { CheckDictionaryLimit(s, a); }), "");
  Dictionary d;
  d.eid = "QZ-EJ";
  d.owner = "bob";
  s.AddDictionary(d);
  EXPECT_NE(FaultOf([&] { CheckDictionaryLimit(s, a); }), "");
  a.limits["dictionaries.owned"] = -1;
  EXPECT_EQ(FaultOf([&] { CheckDictionaryLimit(s, a); }), "");
}

TEST(StateFile, EverythingKeptSurvivesAndBadFilesAreRefused) {
  State a;
  auto la = a.Lock();
  Account bob;
  bob.userid = "group/bob";
  bob.username = "Bob\tB %41";
  bob.pwhash = PasswordHash("group/bob", "x");
  bob.api_allowed = 0x21;
  bob.features = "ECHO SOAP";
  bob.valid_from = "2024-01-01T00:00:00Z";
  bob.limits = {{"sessions", 3}, {"max.day.chars", 5000}};
  bob.iprestrict = {"127.0.0.1", "[::1]/16"};
  bob.props = {{"colour", {"blue\nred", true}}, {"empty", {"", false}}};
  UserEngine ue;
  ue.type = 0x10;
  ue.support = 0x3;
  ue.max_user = 7;
  ue.dics = {101, 10001};
  bob.engines["QZ-EJ"] = ue;
  bob.engines["QZ-TM"] = UserEngine{};
  bob.overrides["QZ-EJ"]["default"]["style"] = {"polite", false};
  a.PutUser(bob);
  Dictionary d;
  d.eid = "QZ-TM";
  d.type = dtype::kUserShared;
  d.memory = true;
  d.owner = "group/bob";
  d.subject = "Law";
  d.display = {{"en", "Law TM"}, {"ja", "法律"}};
  d.shares = {"admin"};
  d.userdata = std::string("\0\x01%\t\xff", 5);
  DictEntry e;
  e.id = d.next_entry++;
  e.sentences = {{"en", "Hello", true}, {"ja", "こんにちは", false}};
  e.weight = -2;
  e.userdata = "x\ny";
  d.entries.push_back(e);
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
  EXPECT_EQ(got->props.at("colour").val, "blue\nred");
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
                          text + "bogus\n", text + "ip\t%4\n",
                          std::string("lexsim-state 1\nprop\tk\tv\t0\n")}) {
    State c;
    auto lc = c.Lock();
    std::string before = c.Serialize();
    EXPECT_FALSE(c.Deserialize(bad, &error)) << bad;
    EXPECT_NE(error, "");
    EXPECT_EQ(c.Serialize(), before);
  }
}

}  // namespace
}  // namespace lexsim
