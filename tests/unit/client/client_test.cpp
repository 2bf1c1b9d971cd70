// Credentials, DID lists, status names, warnings and per-thread settings of
// the client core. Expected hashes were computed independently (Python's hmac).
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "capture.h"
#include "client/credentials.h"
#include "client/did_list.h"
#include "client/errors.h"
#include "client/local_data.h"
#include "client/options.h"
#include "soapH.h"

namespace lexctl {
namespace {

const std::string kHashUP = "02802c0b964ef8afdb524cd196ec7ecf775bbd27";  // user u, password p

TEST(Credentials, LicenceFormsAndPasswordsThatAreAlreadyHashes) {
  EXPECT_EQ(BuildLicence("", "p", "key", "tok"), "");
  EXPECT_EQ(BuildLicence("u", "", "", ""), "u");
  // A password that is already a hash is sent as given, and keys the session hash so.
  std::string upper = "02802C0B964EF8AFDB524CD196EC7ECF775BBD27";
  EXPECT_EQ(BuildLicence("u", upper, "", ""), "u " + upper);
  EXPECT_EQ(BuildLicence("u", upper, "k", "tok"), "u 7669d5f364dba59e5b89b004c6e1666d8a6aa9be k");
  std::string mixed = "aBcD" + std::string(36, '0');
  EXPECT_EQ(BuildLicence("u", mixed, "", ""), "u 2262537f9f4aad41f8c39f357526ee60a4c8b76d");
  for (const std::string& no : {mixed, kHashUP + "0", kHashUP.substr(1), std::string(39, '0') + "g"}) {
    EXPECT_FALSE(IsPasswordHash(no)) << no;
  }
  EXPECT_TRUE(IsPasswordHash(std::string(40, '7')));
}

TEST(DidList, LastReferencesFollowTheCreatedList) {
  EXPECT_EQ(ResolveDidList("12,0;5"), "12,0;5");  // nothing to resolve: unchanged
  EXPECT_EQ(ResolveDidList("LAST"), "LAST");        // nothing created yet
  AddCreatedDid({"QZ-EJ", 0x400, 0x10, 5});
  AddCreatedDid({"QZ-EJ", 0x1000, 0x10, 7});
  EXPECT_EQ(ResolveDidList("12,0,LAST"), "12 0 7");
  EXPECT_EQ(ResolveDidList("LAST-1 last"), "5 7");
  EXPECT_EQ(ResolveDidList("LAST-5 LAST-0 LAST-x LAST-"), "LAST-5 LAST-0 LAST-x LAST-");
  EXPECT_EQ(ResolveDidList("LASTING\tfoo  007"), "7 foo 7");
  EXPECT_EQ(ResolveDidList("Last"), "Last");  // the test for "last" is case-sensitive
  std::string many, huge;
  for (int i = 0; i < 200; ++i) many += "LAST ", huge += "123456 ";
  EXPECT_EQ(ResolveDidList(many).size(), 399u);
  EXPECT_EQ(ResolveDidList(huge + "LAST").size(), 499u);
}

TEST(Errors, StatusNamesAndOptionPrefixes) {
  // Reported by name with the numbers scripts know, whatever the library's.
  int number = 0;
  EXPECT_STREQ(StatusName(SOAP_FD_EXCEEDED, &number), "SOAP_FD_EXCEEDED");
  EXPECT_EQ(number, 46);
  EXPECT_STREQ(StatusName(SOAP_PATCH_METHOD, &number), "UNKNOWN");
  EXPECT_EQ(number, SOAP_PATCH_METHOD);
  EXPECT_STREQ(StatusName(413), "Request Too Large");
  EXPECT_STREQ(StatusName(418), "UNKNOWN");
  EXPECT_TRUE(PrefixOf("", "true") && PrefixOf("T", "true") && PrefixOf("TRUE", "true"));
  EXPECT_FALSE(PrefixOf("yes", "true") || PrefixOf("truest", "true"));
}

TEST(Warnings, FeaturesSkippedAndOnlyReqgroupLearnt) {
  ExecThread thread("_main_", true);
  thread.data = std::make_unique<LocalData>(&thread);
  testing::Capture capture(thread);
  nv__ErrorArray warnings;
  for (auto [key, err] : {std::pair{"FEATURES", "x"}, {"reqgroup", "42"}, {"Reqgroup", "not learnt"}}) {
    warnings.item.emplace_back();
    warnings.item.back().key = key;
    warnings.item.back().err = err;
  }
  PrintWarnings(thread, Local(thread), &warnings);
  EXPECT_EQ(capture.Take(), "Warnings:\n   reqgroup = 42\n   Reqgroup = not learnt\n\n");
  EXPECT_EQ(Local(thread).reqgroup, "42");
  SoapException("E", "m", {{"features", "f"}}).Print(thread);
  EXPECT_EQ(capture.Take(), "SOAP EXCEPTION:\nErr: E\nMsg: m\n");
}

TEST(LocalData, StartedThreadCopiesSettingsAndSession) {
  ExecThread parent_thread("_main_", true);
  LocalData parent(&parent_thread);
  parent.SetUserId("u");
  parent.SetPassword("p");
  parent.SetSessionKey("key");
  parent.SetSessionToken("tok");
  parent.engine.properties["a"] = "1";
  ExecThread child_thread("child", false);
  LocalData child(&child_thread, parent);
  EXPECT_EQ(child.Licence(), parent.Licence());
  EXPECT_NE(child.context(), parent.context());
  // Later changes stay with their thread.
  child.engine.properties["b"] = "2";
  child.SetSessionToken("other");
  EXPECT_EQ(parent.engine.properties.size(), 1u);
  EXPECT_EQ(parent.Licence(), "u 71528866ce7403433ff2a0f763402db933c70c9b key");
  EXPECT_NE(child.Licence(), parent.Licence());
}

#ifdef _WIN32
// MinGW has only _putenv_s, where an empty value removes the variable.
int setenv(const char* name, const char* value, int) { return _putenv_s(name, value); }
int unsetenv(const char* name) { return _putenv_s(name, ""); }
#endif

TEST(LocalData, EnvironmentGivesCredentialsAndEmptyVariablesChangeNothing) {
  ExecThread thread("_main_", true);
  LocalData data(&thread);
  setenv("LEXCTL3_SERVER", "ci.example.invalid:12000", 1);
  setenv("LEXCTL3_USERID", "ci", 1);
  setenv("LEXCTL3_PASSWD", "clear text", 1);
  ApplyEnvironmentSettings(data);
  EXPECT_EQ(data.settings.endpoint, "http://ci.example.invalid:12000/nvsoap/nvsoap.cgi");
  EXPECT_EQ(data.Licence(), "ci " + PasswordHash("ci", "clear text"));
  setenv("LEXCTL3_SERVER", "", 1);
  unsetenv("LEXCTL3_USERID");
  unsetenv("LEXCTL3_PASSWD");
  ApplyEnvironmentSettings(data);
  EXPECT_EQ(data.settings.server, "http://ci.example.invalid:12000");
  EXPECT_EQ(data.Licence(), "ci " + PasswordHash("ci", "clear text"));
  unsetenv("LEXCTL3_SERVER");
}

}  // namespace
}  // namespace lexctl
