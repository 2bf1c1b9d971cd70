// Dictionary source formats, in-process: parsing, errors with line numbers, round trips.
#include <gtest/gtest.h>

#include "dictfmt.h"

namespace dictfmt = lexsim::dictfmt;

namespace {

TEST(AdminDictFmt, NativeReadsEntriesSkippingCommentsAndBlanks) {
  auto r = dictfmt::ParseNative("# header\n\nhello = こんにちは [interj]\r\nred apple = 赤いりんご\n");
  ASSERT_TRUE(r.errors.empty());
  ASSERT_EQ(r.entries.size(), 2u);
  EXPECT_EQ(r.entries[0].entry.headword, "hello");
  EXPECT_EQ(r.entries[0].entry.target, "こんにちは");
  EXPECT_EQ(r.entries[0].entry.pos, "interj");
  EXPECT_EQ(r.entries[0].line, 3);
  EXPECT_EQ(r.entries[1].entry.headword, "red apple");
  EXPECT_EQ(r.entries[1].entry.pos, "");
}

TEST(AdminDictFmt, NativeErrorsCarryLineCodeAndCategory) {
  auto r = dictfmt::ParseNative("ok = fine\nno separator\n = empty head\nx = y [gerund]\nz = w [noun\n"
                                "q =  \nbad = \xC3\x28\n");
  ASSERT_EQ(r.entries.size(), 1u);
  ASSERT_EQ(r.errors.size(), 6u);
  struct Want { int64_t code, line; const char* cat; };
  Want want[] = {{1, 2, "SYNTAX"}, {2, 3, "SYNTAX"}, {4, 4, "POS"},
                 {5, 5, "SYNTAX"}, {3, 6, "SYNTAX"}, {7, 7, "ENCODING"}};
  for (size_t i = 0; i < 6; ++i) {
    EXPECT_EQ(r.errors[i].code, want[i].code) << i;
    EXPECT_EQ(r.errors[i].errline, want[i].line) << i;
    EXPECT_EQ(r.errors[i].cat, want[i].cat) << i;
  }
  EXPECT_EQ(r.errors[2].keyword, "gerund");
  EXPECT_EQ(r.errors[0].source, "no separator");
}

TEST(AdminDictFmt, NativeRoundTripKeepsAwkwardText) {
  lexsim::DictEntry e;
  e.headword = "a=b [x] ";
  e.target = "line\nbreak\\slash = eq";
  e.pos = "noun";
  std::string line = dictfmt::FormatNative(e);
  EXPECT_EQ(line.find('\n'), std::string::npos);
  auto r = dictfmt::ParseNative(line);
  ASSERT_TRUE(r.errors.empty()) << r.errors[0].msg;
  ASSERT_EQ(r.entries.size(), 1u);
  EXPECT_EQ(r.entries[0].entry.headword, e.headword);
  EXPECT_EQ(r.entries[0].entry.target, e.target);
  EXPECT_EQ(r.entries[0].entry.pos, "noun");
}

TEST(AdminDictFmt, TmReadsEntriesAndRoundTrips) {
  const char* text =
      "[entry]\nen = Good morning.\nja = #おはようございます。\nweight = 5\ninfo = 1\n"
      "author = kim\n[entry]\nen = See you.\nja = またね。\npattern = true\n";
  auto r = dictfmt::ParseTm(text);
  ASSERT_TRUE(r.errors.empty());
  ASSERT_EQ(r.entries.size(), 2u);
  const auto& e = r.entries[0].entry;
  ASSERT_EQ(e.sentences.size(), 2u);
  EXPECT_TRUE(e.sentences[0].key);
  EXPECT_FALSE(e.sentences[1].key);
  EXPECT_EQ(e.sentences[1].text, "おはようございます。");
  EXPECT_EQ(e.weight, 5);
  EXPECT_EQ(e.info, 1);
  EXPECT_EQ(e.author, "kim");
  EXPECT_TRUE(r.entries[1].entry.pattern);
  EXPECT_EQ(r.entries[1].line, 7);

  auto again = dictfmt::ParseTm(dictfmt::FormatTm(e) + dictfmt::FormatTm(r.entries[1].entry));
  ASSERT_EQ(again.entries.size(), 2u);
  EXPECT_EQ(again.entries[0].entry.sentences[1].text, e.sentences[1].text);
  EXPECT_FALSE(again.entries[0].entry.sentences[1].key);
  EXPECT_EQ(again.entries[0].entry.weight, 5);
}

TEST(AdminDictFmt, TmErrorsPointAtLineAndEntry) {
  auto r = dictfmt::ParseTm("en = stray\n[entry]\nweight = heavy\nen = x\n[entry]\ncolour = red\n"
                            "[entry]\nauthor = nobody\n");
  ASSERT_EQ(r.errors.size(), 5u);
  EXPECT_EQ(r.errors[0].code, 10);
  EXPECT_EQ(r.errors[0].errline, 1);
  EXPECT_EQ(r.errors[1].code, 13);
  EXPECT_EQ(r.errors[1].errline, 3);
  EXPECT_EQ(r.errors[1].srcline, 2);
  EXPECT_EQ(r.errors[2].code, 12);
  EXPECT_EQ(r.errors[2].keyword, "colour");
  // Both the entry with only a bad line and the one with only a field lack a sentence.
  EXPECT_EQ(r.errors[3].code, 14);
  EXPECT_EQ(r.errors[3].errline, 5);
  EXPECT_EQ(r.errors[4].code, 14);
  EXPECT_EQ(r.errors[4].errline, 7);
  // An entry with a bad line is not taken, even though it has a sentence.
  EXPECT_TRUE(r.entries.empty());
}

TEST(AdminDictFmt, MatchRate) {
  EXPECT_EQ(lexsim::MatchRate("Good morning.", "  good MORNING "), 100);
  EXPECT_EQ(lexsim::MatchRate("good morning everyone", "good morning"), 80);
  EXPECT_EQ(lexsim::MatchRate("alpha", "beta"), 0);
  EXPECT_LT(lexsim::MatchRate("a b c d", "a b c e"), 100);
}

}  // namespace
