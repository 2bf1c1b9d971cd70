// Tokenising, escapes, variable substitution and the help formatter.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "shell/dispatch.h"
#include "shell/tokenizer.h"
#include "shell/variables.h"

namespace lexctl {
namespace {

std::vector<std::string> Tokens(const std::string& text, bool escapes = false) {
  std::string buffer = text;
  ArgVector args;
  TokenizeArguments(buffer.data(), escapes, args);
  return std::vector<std::string>(args.begin(), args.end());
}

using Strings = std::vector<std::string>;

TEST(Tokenizer, SplitsOnBlanksAndTabsOutsideQuotes) {
  EXPECT_EQ(Tokens("a \"b c\" d"), (Strings{"a", "b c", "d"}));
  EXPECT_EQ(Tokens("  a\t\tb  "), (Strings{"a", "b"}));
  EXPECT_EQ(Tokens(""), Strings{});
  EXPECT_EQ(Tokens("   "), Strings{});
  EXPECT_EQ(Tokens("x\"y z\"w"), (Strings{"xy zw"}));
  EXPECT_EQ(Tokens("\"\""), (Strings{""}));
  EXPECT_EQ(Tokens("\"unterminated quote keeps going"), (Strings{"unterminated quote keeps going"}));
}

TEST(Tokenizer, BackslashesBeforeQuotesFollowCommandLineRules) {
  EXPECT_EQ(Tokens("say\\\"hi\\\""), (Strings{"say\"hi\""}));
  EXPECT_EQ(Tokens("\"a\\\\\""), (Strings{"a\\"}));         // even run: quote closes
  EXPECT_EQ(Tokens("\"a\\\\\\\" b\""), (Strings{"a\\\" b"}));  // odd run: literal quote
  EXPECT_EQ(Tokens("x\\\\y"), (Strings{"x\\\\y"}));           // no quote: unchanged
  EXPECT_EQ(Tokens("end\\"), (Strings{"end\\"}));
}

TEST(Tokenizer, EscapeConversionOnlyWhenAsked) {
  EXPECT_EQ(Tokens("a\\tb c\\nd e\\rf", true), (Strings{"a\tb", "c\nd", "e\rf"}));
  EXPECT_EQ(Tokens("a\\tb", false), (Strings{"a\\tb"}));
  EXPECT_EQ(Tokens("keep\\x and\\\\n", true), (Strings{"keep\\x", "and\\\\n"}));
  EXPECT_EQ(Tokens("trailing\\", true), (Strings{"trailing\\"}));
}

class Substitution : public ::testing::Test {
 protected:
  ExecThread thread_{"worker", false};
  std::string Expand(std::string text) {
    SubstituteVariables(thread_, text);
    return text;
  }
};

TEST_F(Substitution, UserVariablesDefaultsAndThePrefixRule) {
  SetVariable("subst_abc", "long");
  EXPECT_EQ(Expand("{{subst_ab}}"), "long");  // only a longer name: it is used
  SetVariable("subst_ab", "short");
  EXPECT_EQ(Expand("{{subst_ab}}"), "short");  // the exact name comes first
  EXPECT_EQ(Expand("[{{subst_missing}}]"), "[]");
  EXPECT_EQ(Expand("[{{subst_missing:dflt}}]"), "[dflt]");
  EXPECT_EQ(Expand("[{{subst_missing:}}]"), "[]");
  EXPECT_EQ(Expand("[{{subst_x:y:z}}]"), "[z]");  // the last colon splits
}

TEST_F(Substitution, InnermostFirstAndReplacementsExpandAgain) {
  SetVariable("subst_n_" + std::to_string(thread_.id()), "mine");
  EXPECT_EQ(Expand("{{subst_n_{{TID}}}}"), "mine");
  SetVariable("subst_open", "{{");
  SetVariable("subst_target", "reached");
  EXPECT_EQ(Expand("{{subst_open}}subst_target}}"), "reached");
}

TEST_F(Substitution, SelfReferenceEndsWithTheRestAsItStands) {
  // Each round used to move the growing text behind the reference.
  SetVariable("subst_self", "one two [{{subst_self}}sepen");
  std::string text = Expand("<{{subst_self}}>");
  EXPECT_EQ(text.rfind("<one two [", 0), 0u);
  EXPECT_EQ(text.substr(text.size() - 6), "sepen>");
  size_t left = text.find("{{subst_self}}");
  ASSERT_NE(left, std::string::npos);
  EXPECT_EQ(text.find("{{", left + 1), std::string::npos);
}

TEST_F(Substitution, UnclosedReferenceStopsAllSubstitution) {
  SetVariable("subst_x", "X");
  EXPECT_EQ(Expand("{{subst_x}} {{"), "{{subst_x}} {{");
  EXPECT_EQ(Expand("{{subst_x}} }}"), "X }}");
}

TEST_F(Substitution, SpecialNames) {
  EXPECT_EQ(Expand("{{UNIQ}} {{UNIQ}}"), "2 1");  // the right-hand one is replaced first
  EXPECT_EQ(Expand("{{UNIQ}}"), "3");
  EXPECT_EQ(Expand("{{TNAME}}"), "worker");
  EXPECT_EQ(Expand("{{TID}}"), std::to_string(thread_.id()));
  EXPECT_EQ(Expand("{{tid}}"), "");  // special names are case-sensitive
  std::string now = Expand("{{NOW}}");
  ASSERT_EQ(now.size(), 19u);
  EXPECT_EQ(now[2], '/');
  EXPECT_EQ(now[5], '/');
  EXPECT_EQ(now[13], ':');
  EXPECT_NE(Expand("{{RAND}}").find_first_not_of("0123456789"), 0u);
}

TEST_F(Substitution, LargeValuesGrowTheText) {
  SetVariable("subst_big", std::string(1 << 20, 'v'));
  std::string text = Expand("<{{subst_big}}{{subst_big}}>");
  EXPECT_EQ(text.size(), (2u << 20) + 2);
  EXPECT_EQ(text.front(), '<');
  EXPECT_EQ(text.back(), '>');
}

TEST(FormatUsage, WrapsAtWhitespaceWithinSeventyNineColumns) {
  std::string words;
  for (int i = 0; i < 40; ++i) words += "word" + std::to_string(i) + " ";
  for (const std::string& line : FormatUsage(words.c_str())) {
    EXPECT_LE(line.size(), 79u) << line;
    EXPECT_NE(line.front(), ' ');
  }
}

TEST(FormatUsage, LineFeedsTabsAndLongWords) {
  EXPECT_EQ(FormatUsage("a\n\nb"), (Strings{"a", "", "b"}));
  EXPECT_EQ(FormatUsage("\tx"), (Strings{"    x"}));
  EXPECT_EQ(FormatUsage("ends with a break\n"), (Strings{"ends with a break"}));
  std::string long_word(100, 'L');
  EXPECT_EQ(FormatUsage((long_word + " tail").c_str()), (Strings{long_word, "tail"}));
  std::string exact(79, 'e');
  EXPECT_EQ(FormatUsage(exact.c_str()), (Strings{exact}));
}

}  // namespace
}  // namespace lexctl
