// Source blocks from text arguments, and the text input of a command line.
#include <gtest/gtest.h>

#include <string>

#include "capture.h"
#include "client/common_options.h"
#include "client/did_list.h"
#include "client/frame.h"
#include "client/local_data.h"
#include "commands/translate/input.h"
#include "shell/exec_thread.h"
#include "soapH.h"

namespace lexctl {
namespace {

ParsedBlock Parse(const std::string& argument, bool expect_ok = true) {
  ParsedBlock block;
  EXPECT_EQ(ParseSourceBlock(nullptr, argument, block), expect_ok) << argument;
  return block;
}

TEST(ParseSourceBlock, LanguagePrefixOfAtMostSevenCharacters) {
  ParsedBlock b = Parse("de=Hallo");
  EXPECT_EQ(b.lang.value_or("<absent>"), "de");
  EXPECT_EQ(b.text, "Hallo");
  b = Parse("abcdefg=x");
  EXPECT_EQ(b.lang.value_or("<absent>"), "abcdefg");
  b = Parse("abcdefgh=x");
  EXPECT_FALSE(b.lang);
  EXPECT_EQ(b.text, "abcdefgh=x");
  b = Parse("=x=y");
  EXPECT_EQ(b.lang.value_or("<absent>"), "");
  EXPECT_EQ(b.text, "x=y");
  b = Parse("no prefix");
  EXPECT_FALSE(b.lang);
  EXPECT_TRUE(b.track.empty() && b.phrase.empty());
}

TEST(ParseSourceBlock, MarkersBecomeSpansInCharacters) {
  ParsedBlock b = Parse("A @@1b@@1 c");
  EXPECT_EQ(b.text, "A b c");
  EXPECT_EQ(b.track, "2 1;");
  // IDs ascending whatever their order in the text; "é" is one character.
  b = Parse("\xC3\xA9 @@7x@@7 @@2yy@@2 ##3/5/z##3 ##0w##0");
  EXPECT_EQ(b.text, "\xC3\xA9 x yy z w");
  EXPECT_EQ(b.track, "4 2;2 1;");
  EXPECT_EQ(b.phrase, "0 9 1;5 7 1;");
  // An unclosed span runs to the end; "/x/" is not a type and stays text.
  b = Parse("ab##1/x/cd");
  EXPECT_EQ(b.text, "ab/x/cd");
  EXPECT_EQ(b.phrase, "0 2 5;");
}

TEST(ParseSourceBlock, MissingIdFailsAndKeepsTheText) {
  ExecThread thread("t", false);
  testing::Capture out(thread);
  ParsedBlock b;
  EXPECT_FALSE(ParseSourceBlock(&thread, "en=a @@1b@@1 ##x", b));
  EXPECT_EQ(out.Take(), "ERROR: Data marker (##) is missing ID\n\n");
  EXPECT_EQ(b.lang.value_or("<absent>"), "en");
  EXPECT_EQ(b.text, "a @@1b@@1 ##x");
  EXPECT_TRUE(b.track.empty() && b.phrase.empty());
  EXPECT_FALSE(ParseSourceBlock(&thread, "end@@", b));
  EXPECT_EQ(out.Take(), "ERROR: Data marker (@@) is missing ID\n\n");
}

TEST(SplitSetword, OneTrailingSemicolonDropped) {
  EXPECT_EQ(SplitSetword("a=b;c=d;"), (std::vector<std::string>{"a=b", "c=d"}));
  EXPECT_EQ(SplitSetword("a=b;;"), (std::vector<std::string>{"a=b", ""}));
  EXPECT_EQ(SplitSetword("x"), (std::vector<std::string>{"x"}));
}


// -eid, -prop and -- as the frame reads them for every engine command.
TEST(EngineOptions, PropertiesStartFromTheThreadAndEndOptionsEndsScanning) {
  ExecThread thread("t", false);
  thread.data = std::make_unique<LocalData>(&thread);
  Local(thread).engine.properties = {{"a", "1"}, {"b", "2"}};
  constexpr auto table =
      CommandOptions<kCommonOptions | kEngineOptions | kTakeEndOfOptions>({kPatternOption});
  auto properties = [](RequestFrame& frame) {
    std::string all;
    nv__EngineSelect* engine = frame.engine();
    if (!engine->properties) return std::string("<absent>");
    for (const nv__KeyValPair& pair : engine->properties->item) all += pair.key + "=" + pair.val + ";";
    return all;
  };
  testing::Capture out(thread);
  AddCreatedDid({"QZ-EJ", 0x400, 0x10, 41});
  {
    RequestFrame frame(thread, "");
    ArgVector args = {"x", "-prop", "b=3", "-eid", "QZ-X", "-prop=dictionaries=7,LAST", "--",
                      "-prop", "--", "y"};
    ASSERT_TRUE(frame.Scan(table, args));
    EXPECT_EQ(frame.eid(), "QZ-X");
    EXPECT_EQ(properties(frame), "a=1;b=3;dictionaries=7 41;");
    EXPECT_EQ(frame.positional(), (ArgVector{"x", "-prop", "--", "y"}));
  }
  {
    RequestFrame frame(thread, "");
    ArgVector args = {"-prop", "", "-pattern", "--", "z"};
    ASSERT_TRUE(frame.Scan(table, args, [](const OptionScanner&) { return true; }));
    EXPECT_EQ(frame.eid(), "QZ-EJ");
    EXPECT_EQ(properties(frame), "");  // sent, and empty
    EXPECT_EQ(frame.positional(), ArgVector{"z"});
  }
  {
    Local(thread).engine.properties.clear();
    RequestFrame frame(thread, "");
    ArgVector none = {"w"};
    ASSERT_TRUE(frame.Scan(table, none));
    EXPECT_EQ(properties(frame), "<absent>");
    ArgVector bad = {"-prop", "novalue", "w"};
    EXPECT_FALSE(RequestFrame(thread, "").Scan(table, bad));
  }
  EXPECT_EQ(out.Take(), "Invalid property: novalue\n");
}

}  // namespace
}  // namespace lexctl
