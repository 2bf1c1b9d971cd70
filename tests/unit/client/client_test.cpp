// Credentials, DID lists, status names and warnings of the client core.
// Expected hashes were computed independently (RFC 2202 and Python's hmac).
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "capture.h"
#include "client/credentials.h"
#include "client/did_list.h"
#include "client/errors.h"
#include "client/local_data.h"
#include "client/options.h"
#include "shell/exec_thread.h"
#include "soapH.h"

namespace lexctl {
namespace {

TEST(Credentials, HmacSha1KnownAnswers) {
  EXPECT_EQ(HmacSha1Hex("Jefe", "what do ya want for nothing?"),
            "effcdf6ae5eb2fa2d27416d5f184df9c259a7c79");
  EXPECT_EQ(HmacSha1Hex(std::string(20, '\x0b'), "Hi There"), "b617318655057264e28bc0b6fb378c8ef146be00");
  EXPECT_EQ(PasswordHash("u", "p"), "02802c0b964ef8afdb524cd196ec7ecf775bbd27");
  EXPECT_EQ(PasswordHash("admin", "admin"), "22acb1a0beb75bd6854f515c27a2538da06ffdee");
}

TEST(Credentials, TheThreeLicenceForms) {
  EXPECT_EQ(BuildLicence("", "p", "key", "tok"), "");
  EXPECT_EQ(BuildLicence("u", "", "", ""), "u");
  EXPECT_EQ(BuildLicence("u", "p", "", ""), "u 02802c0b964ef8afdb524cd196ec7ecf775bbd27");
  EXPECT_EQ(BuildLicence("u", "p", "key", "tok"), "u 71528866ce7403433ff2a0f763402db933c70c9b key");
}

TEST(Credentials, PasswordsThatAreAlreadyHashes) {
  const std::string lower = "02802c0b964ef8afdb524cd196ec7ecf775bbd27";
  std::string upper = "02802C0B964EF8AFDB524CD196EC7ECF775BBD27";
  EXPECT_EQ(BuildLicence("u", lower, "", ""), "u " + lower);
  EXPECT_EQ(BuildLicence("u", upper, "", ""), "u " + upper);  // sent unchanged
  // The session hash is keyed by the hash text exactly as given.
  EXPECT_EQ(BuildLicence("u", upper, "k", "tok"), "u 7669d5f364dba59e5b89b004c6e1666d8a6aa9be k");
  std::string mixed = "aBcD" + std::string(36, '0');
  EXPECT_FALSE(IsPasswordHash(mixed));
  EXPECT_EQ(BuildLicence("u", mixed, "", ""), "u 2262537f9f4aad41f8c39f357526ee60a4c8b76d");
  EXPECT_FALSE(IsPasswordHash(lower + "0"));
  EXPECT_FALSE(IsPasswordHash(lower.substr(1)));
  EXPECT_FALSE(IsPasswordHash(std::string(39, '0') + "g"));
  EXPECT_TRUE(IsPasswordHash(std::string(40, '7')));
}

TEST(Credentials, PercentEncodingWidensHighBytes) {
  EXPECT_EQ(PercentEncodeUserId("admin42"), "admin42");
  EXPECT_EQ(PercentEncodeUserId("a b"), "a%20b");
  EXPECT_EQ(PercentEncodeUserId("x.y@z"), "x%2Ey%40z");
  EXPECT_EQ(PercentEncodeUserId("caf\xC3\xA9"), "caf%FFFFFFC3%FFFFFFA9");
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
  std::string many;
  for (int i = 0; i < 200; ++i) many += "LAST ";
  EXPECT_EQ(ResolveDidList(many).size(), 399u);
  std::string huge;
  for (int i = 0; i < 200; ++i) huge += "123456 ";
  EXPECT_EQ(ResolveDidList(huge + "LAST").size(), 499u);
}

TEST(Errors, StatusNames) {
  EXPECT_STREQ(StatusName(SOAP_TCP_ERROR), "SOAP_TCP_ERROR");
  // Reported by name with the numbers scripts know, whatever the library's.
  int number = 0;
  EXPECT_STREQ(StatusName(SOAP_FD_EXCEEDED, &number), "SOAP_FD_EXCEEDED");
  EXPECT_EQ(number, 46);
  EXPECT_STREQ(StatusName(SOAP_DEL_METHOD, &number), "SOAP_DEL_METHOD");
  EXPECT_EQ(number, 17);
  EXPECT_STREQ(StatusName(SOAP_PATCH_METHOD, &number), "UNKNOWN");
  EXPECT_EQ(number, SOAP_PATCH_METHOD);
  EXPECT_STREQ(StatusName(SOAP_EOF), "UNKNOWN");
  EXPECT_STREQ(StatusName(404), "Not Found");
  EXPECT_STREQ(StatusName(413), "Request Too Large");
  EXPECT_STREQ(StatusName(418), "UNKNOWN");
}

TEST(Options, PrefixRule) {
  EXPECT_TRUE(PrefixOf("", "true"));
  EXPECT_TRUE(PrefixOf("T", "true"));
  EXPECT_TRUE(PrefixOf("TRUE", "true"));
  EXPECT_FALSE(PrefixOf("yes", "true"));
  EXPECT_FALSE(PrefixOf("truest", "true"));
}

nv__Error Item(const char* key, const char* err) {
  nv__Error item;
  item.key = key;
  item.err = err;
  return item;
}

TEST(Warnings, FeaturesSkippedAndRequestGroupLearnt) {
  ExecThread thread("_main_", true);
  thread.data = std::make_unique<LocalData>(&thread);
  LocalData& data = Local(thread);
  testing::Capture capture(thread);

  nv__ErrorArray only_features;
  only_features.item.push_back(Item("FEATURES", "x y"));
  PrintWarnings(thread, data, &only_features);
  EXPECT_EQ(capture.Take(), "");

  nv__ErrorArray mixed;
  mixed.item.push_back(Item("features", "ignored"));
  mixed.item.push_back(Item("reqgroup", "42"));
  mixed.item.push_back(Item("Reqgroup", "not learnt"));
  PrintWarnings(thread, data, &mixed);
  EXPECT_EQ(capture.Take(), "Warnings:\n   reqgroup = 42\n   Reqgroup = not learnt\n\n");
  EXPECT_EQ(data.reqgroup, "42");

  SoapException fault("E_CODE", "went wrong", {{"reqgroup", "43"}, {"features", "f"}});
  fault.Print(thread);
  EXPECT_EQ(capture.Take(), "SOAP EXCEPTION:\nErr: E_CODE\nMsg: went wrong\nWarnings:\n   reqgroup = 43\n\n");
  ToolException("SOAP_TCP_ERROR (28): refused").Print(thread);
  EXPECT_EQ(capture.Take(), "FAILED: SOAP_TCP_ERROR (28): refused.\n");
}

TEST(LocalData, StartedThreadCopiesSettingsAndSession) {
  ExecThread parent_thread("_main_", true);
  LocalData parent(&parent_thread);
  parent.SetUserId("u");
  parent.SetPassword("p");
  parent.SetSessionKey("key");
  parent.SetSessionToken("tok");
  parent.settings.platform_http_layer = false;
  parent.settings.server = "http://example.invalid:1";
  parent.RebuildEndpoint();
  parent.engine.properties["a"] = "1";
  ExecThread child_thread("child", false);
  LocalData child(&child_thread, parent);
  EXPECT_EQ(child.Licence(), parent.Licence());
  EXPECT_EQ(child.settings.endpoint, "http://example.invalid:1/nvsoap/nvsoap.cgi");
  EXPECT_FALSE(child.settings.platform_http_layer);
  EXPECT_NE(child.context(), parent.context());
  // Later changes stay with their thread.
  child.engine.properties["b"] = "2";
  child.SetSessionToken("other");
  EXPECT_EQ(parent.engine.properties.size(), 1u);
  EXPECT_EQ(parent.Licence(), "u 71528866ce7403433ff2a0f763402db933c70c9b key");
  EXPECT_NE(child.Licence(), parent.Licence());
}

TEST(LocalData, EnvironmentGivesServerAndCredentials) {
  ExecThread thread("_main_", true);
  LocalData data(&thread);
  data.settings.platform_http_layer = false;
  setenv("LEXCTL3_SERVER", "https://ci.example.invalid:8443", 1);
  setenv("LEXCTL3_USERID", "ci", 1);
  setenv("LEXCTL3_PASSWD", "clear text", 1);
  ApplyEnvironmentSettings(data);
  // As "setopt server" takes it: an https server chooses the windows layer.
  EXPECT_EQ(data.settings.endpoint, "https://ci.example.invalid:8443/nvsoap/nvsoap.cgi");
  EXPECT_TRUE(data.settings.platform_http_layer);
  EXPECT_EQ(data.Licence(), "ci " + PasswordHash("ci", "clear text"));
  // Empty or unset variables change nothing; a hash is taken as it is.
  setenv("LEXCTL3_SERVER", "", 1);
  unsetenv("LEXCTL3_USERID");
  setenv("LEXCTL3_PASSWD", "22acb1a0beb75bd6854f515c27a2538da06ffdee", 1);
  ApplyEnvironmentSettings(data);
  EXPECT_EQ(data.settings.server, "https://ci.example.invalid:8443");
  EXPECT_EQ(data.Licence(), "ci 22acb1a0beb75bd6854f515c27a2538da06ffdee");
  setenv("LEXCTL3_SERVER", "ci.example.invalid:12000", 1);
  ApplyEnvironmentSettings(data);
  EXPECT_EQ(data.settings.endpoint, "http://ci.example.invalid:12000/nvsoap/nvsoap.cgi");
  unsetenv("LEXCTL3_SERVER");
  unsetenv("LEXCTL3_PASSWD");
}

}  // namespace
}  // namespace lexctl
