// Tokenising, escapes, variable substitution, the help formatter and the
// option scanner.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "shell/dispatch.h"
#include "shell/option_scanner.h"
#include "shell/tokenizer.h"
#include "shell/variables.h"

namespace lexctl {
namespace {

using Strings = std::vector<std::string>;

TEST(Tokenizer, QuotesBackslashesAndEscapes) {
  struct {
    const char* line;
    bool escapes;
    Strings words;
  } cases[] = {
      {"  a \"b c\"\t\td  ", false, {"a", "b c", "d"}},
      {"x\"y z\"w \"\"", false, {"xy zw", ""}},
      {"\"a\\\\\\\" b\"", false, {"a\\\" b"}},  // an odd run of backslashes: a literal quote
      {"end\\", false, {"end\\"}},
      {"a\\tb c\\nd e\\rf", true, {"a\tb", "c\nd", "e\rf"}},
      {"keep\\x and\\\\n trailing\\", true, {"keep\\x", "and\\\\n", "trailing\\"}},
  };
  for (const auto& c : cases) {
    std::string buffer = c.line;
    ArgVector args;
    TokenizeArguments(buffer.data(), c.escapes, args);
    EXPECT_EQ(Strings(args.begin(), args.end()), c.words) << c.line;
  }
}

TEST(Substitution, SpecialNamesSelfReferenceAndLargeValues) {
  ExecThread thread("worker", false);
  auto expand = [&](std::string text) {
    SubstituteVariables(thread, text);
    return text;
  };
  SetVariable("subst_ab", "short");
  EXPECT_EQ(expand("{{subst_ab}} }}"), "short }}");
  EXPECT_EQ(expand("{{TNAME}} {{tid}}"), "worker ");  // special names are case-sensitive
  std::string now = expand("{{NOW}}");
  EXPECT_EQ(now.size(), 19u);
  EXPECT_EQ(now.substr(2, 1) + now.substr(5, 1) + now.substr(13, 1), "//:") << now;

  // Each round used to move the growing text behind the reference.
  SetVariable("subst_self", "one two [{{subst_self}}sepen");
  std::string text = expand("<{{subst_self}}>");
  EXPECT_EQ(text.rfind("<one two [", 0), 0u);
  EXPECT_EQ(text.substr(text.size() - 6), "sepen>");
  size_t left = text.find("{{subst_self}}");
  ASSERT_NE(left, std::string::npos);
  EXPECT_EQ(text.find("{{", left + 1), std::string::npos);

  SetVariable("subst_big", std::string(1 << 20, 'v'));
  EXPECT_EQ(expand("<{{subst_big}}{{subst_big}}>"), "<" + std::string(2 << 20, 'v') + ">");
}

TEST(FormatUsage, LineFeedsTabsAndWordsOfSeventyNineColumnsOrMore) {
  EXPECT_EQ(FormatUsage("a\n\nb\n"), (Strings{"a", "", "b"}));
  EXPECT_EQ(FormatUsage("\tx"), (Strings{"    x"}));
  std::string long_word(100, 'L'), exact(79, 'e');
  EXPECT_EQ(FormatUsage((long_word + " tail").c_str()), (Strings{long_word, "tail"}));
  EXPECT_EQ(FormatUsage(exact.c_str()), (Strings{exact}));
}

const OptionDef kTable[] = {
    {0, "-select", kOptRequired}, {1, "-strict", kOptNoArgument}, {1, "-rmax", kOptRequired},
    {3, "-cache", kOptOptional},  {4, "--script", kOptRequired},  {5, "-?", kOptNoArgument},
    {-1, nullptr, 0},
};

// Each option found as "error id text argument", then the positional words.
Strings Scan(ArgVector args) {
  OptionScanner scanner(kTable, args);
  Strings found;
  while (scanner.Next()) {
    found.push_back(std::to_string(scanner.error()) + " " + std::to_string(scanner.id()) + " " +
                    scanner.text() + " " + (scanner.argument() ? scanner.argument() : "<none>"));
  }
  for (const char* word : scanner.positional()) found.push_back(word);
  return found;
}

TEST(OptionScanner, FormsErrorsAndPositionalWords) {
  EXPECT_EQ(Scan({"one", "-STRICT", "/rmax", "500", "-select=a b", "-", "/", "/?",
                  "--script=f.txt", "-cache", "next", "-cache=v", "/-strict"}),
            (Strings{"0 1 -STRICT <none>", "0 1 /rmax 500", "0 0 -select=a b a b", "0 5 /? <none>",
                     "0 4 --script=f.txt f.txt", "0 3 -cache <none>", "0 3 -cache=v v", "one", "-",
                     "/", "next", "/-strict"}));
  EXPECT_EQ(Scan({"-nosuch", "--strict", "-strict=1", "-rmax"}),
            (Strings{"1 -1 -nosuch <none>", "1 -1 --strict <none>", "3 1 -strict=1 <none>",
                     "2 1 -rmax <none>"}));
}

}  // namespace
}  // namespace lexctl
