// The user update options as the request frame scans them, the user-id
// resolver and the user-dump script lines.
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "client/credentials.h"
#include "client/did_list.h"
#include "client/local_data.h"
#include "commands/admin/udump.h"
#include "commands/admin/user_update.h"
#include "reply.h"

namespace lexctl {
namespace {

class UserOptions : public testing::Reply {
 protected:
  UserOptions() { thread_.data = std::make_unique<LocalData>(&thread_); }

  /// Scans words with the ucreate/uupdate table into a fresh parser; false
  /// when the parser stopped the command.
  bool Parse(ArgVector args) {
    parser_ = std::make_unique<UserUpdateParser>(thread_);
    return RequestFrame(thread_, "").Scan(kUserUpdateOptions, args, [&](const OptionScanner& o) {
      return parser_->Take(o.id(), o.argument());
    });
  }
  UserEdits& edits() { return parser_->edits(); }

  std::unique_ptr<UserUpdateParser> parser_;
};

TEST_F(UserOptions, FieldsLimitsAddressesPropertiesAndEngines) {
  AddCreatedDid(CreatedDid{"QZ-EJ", 0x400, 0x10, 10042});
  ASSERT_TRUE(Parse({"-userApi", "TEST_ECHO,TRANSLATE_TEXT", "-userLimit", "none", "-userLimit", "sessions=3",
                     "-userIp", "10.0.0.1", "-userIp", "all", "-userIp", "::1", "-userPropAdd", "!colour=blue=green",
                     "-userPropSet", "@mode=", "-userPropSet", "", "-userPropDel", "old", "-userPropAdd", "@!k=v",
                     "-engAdd", "QZ-EJ", "-engType", "HIDDEN", "-engSupport", "TRANSLATE", "-engSupport", "0x2",
                     "-engDicAdd", "TECH LAST", "-engDel", "QZ-JE", "-engSet", "QZ-TM", "-engSupport", "all"}));
  EXPECT_EQ(*edits().api, 0x21);
  // "none" lifts every limit but the parallel requests; a later limit follows.
  ASSERT_GT(edits().limits.size(), 2u);
  EXPECT_EQ(edits().limits.back(), (std::pair<std::string, int64_t>{"sessions", 3}));
  for (size_t i = 0; i + 1 < edits().limits.size(); ++i) {
    EXPECT_EQ(edits().limits[i].second, -1);
    EXPECT_NE(edits().limits[i].first, "max.parallel.requests");
  }
  EXPECT_TRUE(edits().ip_replace);
  EXPECT_EQ(edits().ips, std::vector<std::string>{"::1"}) << "all empties what came before";
  std::string props;  // an empty text is ignored
  for (const PropertyEdit& p : edits().props) {
    props += p.action + " " + p.key + "=" + p.val + (p.readonly ? " ro" : "") + (p.session ? " session" : "") + ";";
  }
  EXPECT_EQ(props, "add colour=blue=green ro;set mode= session;del old=;add k=v ro session;");
  const auto& e = edits().engines;
  ASSERT_EQ(e.size(), 3u);
  EXPECT_EQ(e[0].action + " " + e[1].action + " " + e[2].action, "add del set");
  EXPECT_EQ(*e[0].type, 0x10);
  EXPECT_EQ(*e[0].support, 0x3) << "repeated support flags add up";
  EXPECT_EQ(*e[0].dic_add, "TECH 10042");
  EXPECT_FALSE(e[1].support);
  EXPECT_EQ(*e[2].support, 0x1ff7ffff);

  for (auto [api, mask] : {std::pair{"all", 0x7fffffff}, {"0x30", 0x30}}) {
    ASSERT_TRUE(Parse({"-userApi", api}));
    EXPECT_EQ(*edits().api, mask);
  }
  ASSERT_TRUE(Parse({"-userIp", "ANY"}));
  EXPECT_TRUE(edits().ip_replace && edits().ips.empty());
  out_.Take();
  // The definition opened last takes the engine options; a deletion takes none.
  const char* kNeedsEngine = "This option requires an -engAdd or -engSet argument first.\n";
  const std::pair<ArgVector, std::string> refused[] = {
      {{"-userApi", "TEST_ECHO NOPE"}, "The API 'TEST_ECHO NOPE' are not valid\n"},
      {{"-userPropAdd", "novalue"}, "Invalid property: novalue\n"},
      {{"-engAdd", "A", "-engDel", "X", "-engMaxTech", "5"}, kNeedsEngine},
      {{"-engSet", "A", "-engSupport", "TRANSLATE,BOGUS"}, "The flags 'TRANSLATE,BOGUS' are not valid\n"},
  };
  for (const auto& [args, message] : refused) {
    EXPECT_FALSE(Parse(args)) << args[0];
    EXPECT_EQ(out_.Take(), message);
  }
}

TEST_F(UserOptions, UpdateForEachTargetUser) {
  ASSERT_TRUE(Parse({"-userPass", "secret", "-userIp", "all", "-userPropDel", "k"}));
  nv__UserUpdate* u = BuildUserUpdate(soap_, edits(), "bob");
  EXPECT_EQ(*u->password, PasswordHash("bob", "secret")) << "hashed with the target user id";
  EXPECT_EQ(*BuildUserUpdate(soap_, edits(), "ann")->password, PasswordHash("ann", "secret"));
  ASSERT_TRUE(u->iprestrict);
  EXPECT_TRUE(u->iprestrict->item.empty()) << "-userIp all sends an empty list";
  EXPECT_FALSE(u->properties->item[0].val);
  EXPECT_EQ(ApplyIpEdits({"a", "b", "c"}, {{false, "b"}, {true, "d"}, {true, "a"}, {false, "x"}}),
            (std::vector<std::string>{"a", "c", "d"}));
}

TEST_F(UserOptions, ResolverExpandsPatternsAndDropsSelf) {
  Local(thread_).SetUserId("admin");
  std::vector<std::string> asked;
  UserLister lister = [&](const std::string& pattern) {
    asked.push_back(pattern);
    return std::vector<std::string>{"sales/ann", "admin", "sales/ben"};
  };
  std::vector<std::string> ids;
  ASSERT_TRUE(ResolveUserIds(thread_, {"zed", "sales/*", "sales/ann"}, true, false, lister, &ids));
  EXPECT_EQ(ids, (std::vector<std::string>{"zed", "sales/ann", "sales/ben"}));
  EXPECT_EQ(asked, std::vector<std::string>{"sales/*"});
  EXPECT_EQ(out_.Take(), "Getting all users for 'sales/*'\nIgnoring self: admin\n");

  ids.clear();
  ASSERT_TRUE(ResolveUserIds(thread_, {"admin"}, true, true, lister, &ids));
  EXPECT_EQ(ids, std::vector<std::string>{"admin"});
  ids.clear();
  EXPECT_FALSE(ResolveUserIds(thread_, {"a*"}, false, false, lister, &ids));
  EXPECT_EQ(asked.size(), 1u) << "nothing is listed when wildcards are refused";
  EXPECT_EQ(out_.Take(), "Invalid arguments.\n");
}

TEST(ScriptLines, ValuesReadBackOrAreRefused) {
  EXPECT_EQ(ScriptWord("plain"), "plain");
  EXPECT_EQ(ScriptWord("SOAP", true), "\"SOAP\"");  // -userFeat's list is always quoted
  EXPECT_EQ(ScriptWord(""), "\"\"");
  EXPECT_EQ(ScriptWord("two words"), "\"two words\"");
  EXPECT_EQ(ScriptWord("say \"hi\" c:\\x\\"), "\"say \\\"hi\\\" c:\\x\\\\\"");
  // Unquoted, a final backslash would join the next script line to this one.
  EXPECT_EQ(ScriptWord("c:\\dir\\"), "\"c:\\dir\\\\\"");
  EXPECT_EQ(ExportExtension("native"), ".native");
  EXPECT_EQ(ExportExtension("TM Text"), ".tm_text");
  EXPECT_EQ(ScriptValueProblem("say \"hi\" ; shell x \\", ScriptValue::kText), nullptr);
  EXPECT_STREQ(ScriptValueProblem("a\nshell touch x", ScriptValue::kText), "a line break");
  EXPECT_STREQ(ScriptValueProblem("a\rb", ScriptValue::kText), "a line break");
  EXPECT_STREQ(ScriptValueProblem("a\x1b", ScriptValue::kText), "a control character");
  EXPECT_EQ(ScriptValueProblem("a\tb", ScriptValue::kText), nullptr) << "quoted, a tab stays";
  EXPECT_STREQ(ScriptValueProblem("{{x}}", ScriptValue::kText), "\"{{\"");
  EXPECT_EQ(ScriptValueProblem("}}", ScriptValue::kText), nullptr);
  EXPECT_NE(ScriptValueProblem("-x", ScriptValue::kUserId), nullptr);
  EXPECT_NE(ScriptValueProblem("/x", ScriptValue::kWord), nullptr);
  EXPECT_NE(ScriptValueProblem("a*", ScriptValue::kUserId), nullptr);
  EXPECT_NE(ScriptValueProblem("a b", ScriptValue::kSelect), nullptr);
  EXPECT_NE(ScriptValueProblem("", ScriptValue::kUserId), nullptr);
  EXPECT_NE(ScriptValueProblem("f?.txt", ScriptValue::kFileName), nullptr);
  EXPECT_EQ(ScriptValueProblem("-x", ScriptValue::kText), nullptr);

  ScriptLine line("ucreate");
  line.Value("q\"u", ScriptValue::kUserId).Option("-userName", "-?").Option("-userName", "a\nb");
  ASSERT_TRUE(line.refused());
  EXPECT_EQ(line.refused()->first, "a\nb");
  // Server-named values become file names: nothing may lead out of the folder.
  EXPECT_EQ(DumpFilePrefix("group/ann"), "group_ann");
  EXPECT_EQ(DumpFilePrefix("../x"), ".._x");
  EXPECT_EQ(DumpFilePrefix("-a\\b:c*d?\n"), "_-a_b_c_d__");
  EXPECT_EQ(DumpFilePrefix("a@b=c,d~e+f"), "a@b=c,d~e+f");
  EXPECT_EQ(PrintableValue("a\n{{x}}"), "a\\x0a\\x7b\\x7bx\\x7d\\x7d");
}

}  // namespace
}  // namespace lexctl
