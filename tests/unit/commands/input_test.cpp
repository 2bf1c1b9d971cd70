// Source blocks from text arguments, and the text input of a command line.
#include <gtest/gtest.h>

#include <string>

#include "capture.h"
#include "commands/translate/input.h"
#include "shell/exec_thread.h"

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

}  // namespace
}  // namespace lexctl
