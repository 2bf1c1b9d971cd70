// Account rules and the state file, seen from a client of a running lexsim.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <string>

#include "crypto.h"
#include "lexsim_process.h"
#include "soapH.h"

namespace {

class AccountWire : public WireFixture {
 protected:
  std::string* Lic(const std::string& user) {
    return S(user + " " + lexsim::PasswordHash(user, user == "admin" ? "admin" : "pw"));
  }
  int Create(const std::string& url, nv__UserUpdate* u) {
    u->password = S(lexsim::PasswordHash(*u->userid, "pw"));
    nv__CreateUserResponse r;
    return soap_call_nv__CreateUser(soap_, url.c_str(), "", Lic("admin"), nullptr, nullptr,
                                    nullptr, nullptr, u, nullptr, r);
  }
  int Echo(const std::string& url, const std::string& user) {
    nv__TestEchoResponse r;
    return soap_call_nv__TestEcho(soap_, url.c_str(), "", Lic(user), nullptr, nullptr, nullptr,
                                  nullptr, nullptr, nullptr, r);
  }
};

TEST_F(AccountWire, RulesAtLoginAndStaleDictionaryLists) {
  LexsimProcess sim;
  auto* u = soap_new_nv__UserUpdate(soap_);
  u->userid = S("ivy");
  u->iprestrict = soap_new_nv__StringArray(soap_);
  u->iprestrict->item = {"10.0.0.1", "allv6"};
  u->limits = soap_new_nv__LimitArray(soap_);
  nv__Limit l;
  l.type = S("sessions");
  l.maximum = L(0);
  u->limits->item = {l};
  ASSERT_EQ(Create(sim.url(), u), SOAP_OK) << FaultErr();
  EXPECT_NE(Echo(sim.url(), "ivy"), SOAP_OK);
  EXPECT_EQ(FaultErr(), "ACCESS_DENIED");

  // The update names a dictionary that does not exist: it is left out with a warning and
  // the rest of the update is applied.
  auto* fix = soap_new_nv__UserUpdate(soap_);
  fix->userid = S("ivy");
  fix->iprestrict = soap_new_nv__StringArray(soap_);
  fix->iprestrict->item = {"127.0.0.0/8"};
  fix->engines = soap_new_nv__EngineUpdateArray(soap_);
  nv__EngineUpdate e;
  e.action = S("set");
  e.eid = S("QZ-EJ");
  e.addDicList = S("99999 101");
  fix->engines->item = {e};
  nv__UpdateUserResponse ur;
  ASSERT_EQ(soap_call_nv__UpdateUser(soap_, sim.url().c_str(), "", Lic("admin"), nullptr, nullptr,
                                     S("engines dic"), nullptr, fix, ur),
            SOAP_OK)
      << FaultErr();
  ASSERT_TRUE(ur.error);
  ASSERT_EQ(ur.error->item.size(), 1u);
  EXPECT_NE(ur.error->item[0].err.find("99999"), std::string::npos);
  EXPECT_EQ(Echo(sim.url(), "ivy"), SOAP_OK) << FaultErr();

  soap_->userid = "ivy";
  std::string hash = lexsim::PasswordHash("ivy", "pw");
  soap_->passwd = hash.c_str();
  nv__CreateSessionResponse cs;
  EXPECT_NE(soap_call_nv__CreateSession(soap_, sim.url().c_str(), "", nullptr, nullptr, nullptr,
                                        nullptr, cs),
            SOAP_OK);
  soap_->userid = soap_->passwd = nullptr;
  EXPECT_EQ(FaultErr(), "LIMIT_EXCEEDED");
}

TEST_F(AccountWire, StateFileKeepsUsersDictionariesAndShares) {
  char path[] = "/tmp/lexsim-state-XXXXXX";
  int fd = mkstemp(path);
  ASSERT_GE(fd, 0);
  close(fd);
  std::remove(path);
  LONG64 did = 0;
  {
    LexsimProcess sim({"--state", path});
    auto* u = soap_new_nv__UserUpdate(soap_);
    u->userid = S("kim");
    u->features = S("ECHO SOAP DCRE DEAD DEGT DUPD");
    ASSERT_EQ(Create(sim.url(), u), SOAP_OK) << FaultErr();
    nv__CreateDictionaryResponse cd;
    ASSERT_EQ(soap_call_nv__CreateDictionary(soap_, sim.url().c_str(), "", Lic("kim"), nullptr,
                                             nullptr, nullptr, S("QZ-EJ"), L(0x100), nullptr,
                                             S("Tabs\tand%"), nullptr, nullptr, cd),
              SOAP_OK)
        << FaultErr();
    did = cd.dic->did;
    auto* entries = soap_new_nv__DicEntryArray(soap_);
    auto* x = soap_new_nv__DicEntryEngine(soap_);
    x->source = S("apple = 林檎");
    entries->item.push_back(x);
    nv__AddDictionaryEntryResponse ar;
    ASSERT_EQ(soap_call_nv__AddDictionaryEntry(soap_, sim.url().c_str(), "", Lic("kim"), nullptr,
                                               nullptr, nullptr, did, nullptr, entries, ar),
              SOAP_OK)
        << FaultErr();
    auto* share = soap_new_nv__StringArray(soap_);
    share->item = {"admin"};
    nv__UpdateDictionaryInfoResponse ud;
    ASSERT_EQ(soap_call_nv__UpdateDictionaryInfo(soap_, sim.url().c_str(), "", Lic("kim"), nullptr,
                                                 nullptr, nullptr, did, nullptr, nullptr, share,
                                                 nullptr, nullptr, ud),
              SOAP_OK)
        << FaultErr();
    EXPECT_EQ(sim.Stop(), 0);
  }
  LexsimProcess sim({"--state", path});
  nv__UpdateDictionaryInfoResponse ud;
  ASSERT_EQ(soap_call_nv__UpdateDictionaryInfo(soap_, sim.url().c_str(), "", Lic("kim"), nullptr,
                                               nullptr, nullptr, did, nullptr, nullptr, nullptr,
                                               nullptr, nullptr, ud),
            SOAP_OK)
      << FaultErr();
  EXPECT_EQ(*ud.dic->subject, "Tabs\tand%");
  EXPECT_EQ(*ud.dic->headcount, 1);
  ASSERT_TRUE(ud.dic->share);
  EXPECT_EQ(ud.dic->share->item, std::vector<std::string>{"admin"});
  // The features came back too: DDEL is not among them.
  nv__DeleteDictionaryResponse dr;
  EXPECT_NE(soap_call_nv__DeleteDictionary(soap_, sim.url().c_str(), "", Lic("kim"), nullptr,
                                           nullptr, nullptr, did, dr),
            SOAP_OK);
  EXPECT_EQ(FaultErr(), "ACCESS_DENIED");
  std::remove(path);
}

}  // namespace
