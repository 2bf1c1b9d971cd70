// The pieces of tfile: escapes, line ranges, output names, batches and the
// dictionary rows.
#include <gtest/gtest.h>

#include <sstream>

#include "commands/translate/tfile_batch.h"

namespace lexctl::tfile {
namespace {

TEST(Tfile, EscapesLineRangesAndOutputNames) {
  EXPECT_EQ(DecodeEscapes("a\\nb\\rc\\\\d\\qe\\"), "a\nb\rc\\dqe\\");
  EXPECT_EQ(EncodeEscapes("a\nb\rc\\d"), "a\\nb\\rc\\\\d");
  std::string odd = "x\\\\n\r\n\\";
  EXPECT_EQ(DecodeEscapes(EncodeEscapes(odd)), odd);
  unsigned a = 0, b = 0;
  EXPECT_TRUE(ParseLineRange("3-7", a, b));
  EXPECT_EQ(std::to_string(a) + "-" + std::to_string(b), "3-7");
  EXPECT_TRUE(ParseLineRange("4-4", a, b));
  for (const char* bad : {"7-3", "5", "5-", "x-3", "0-2", ""}) EXPECT_FALSE(ParseLineRange(bad, a, b)) << bad;
  EXPECT_EQ(OutputName("in/a.b.csv", "org", "", ""), "in/a.b.org.txt");
  EXPECT_EQ(OutputName("in.d/README", "dic", "v2", ""), "in.d/README.dic.v2.txt");
  EXPECT_EQ(OutputName("in/.hidden", "txn", "", "out/"), "out/.hidden.txn.txt");
  EXPECT_EQ(OutputName("in/notes.txt", "txn", "FOO", "out"), "out/notes.txn.FOO.txt");
}

std::string Describe(const Batch& b) {
  std::string s = std::to_string(b.first_sent) + "-" + std::to_string(b.last_sent) + ":";
  for (const Line& l : b.lines) s += " " + std::to_string(l.number) + (l.send ? "" : "e");
  return s;
}

std::vector<std::string> Batches(const std::string& input, const Selection& sel) {
  std::istringstream in(input);
  Batcher batcher(in, sel);
  std::vector<std::string> out;
  Batch b;
  while (batcher.Next(b)) out.push_back(Describe(b));
  return out;
}

TEST(TfileBatcher, BatchesCountOnlySentLinesInTheRange) {
  Selection sel;
  sel.blocks = 2;
  // Empty lines ride along with the batch they fall in; an empty tail is
  // a batch with nothing to send.
  EXPECT_EQ(Batches("a\n\nb\nc\nd\n\n", sel),
            (std::vector<std::string>{"1-3: 1 2e 3", "4-5: 4 5", "0-0: 6e"}));
  EXPECT_EQ(Batches("", sel), std::vector<std::string>{});
  std::string ten;
  for (int i = 1; i <= 10; ++i) ten += "l" + std::to_string(i) + "\n";
  sel.skip = 1;
  sel.blocks = 3;
  EXPECT_EQ(Batches(ten, sel), (std::vector<std::string>{"1-5: 1 3 5", "7-9: 7 9"}));
  sel.first = 4;
  sel.last = 8;
  sel.skip = 2;
  EXPECT_EQ(Batches(ten, sel), (std::vector<std::string>{"4-7: 4 7"}));
  sel.first = 12;
  sel.last = 20;
  EXPECT_EQ(Batches(ten, sel), std::vector<std::string>{});
}

TEST(TfileBatcher, LineEndsSignatureAndEscapes) {
  Selection sel;
  sel.escape = true;
  std::istringstream in("\xEF\xBB\xBFone\\ntwo\r\nlast");
  Batcher batcher(in, sel);
  Batch b;
  ASSERT_TRUE(batcher.Next(b));
  ASSERT_EQ(b.lines.size(), 2u);
  EXPECT_EQ(b.lines[0].text, "one\ntwo");
  EXPECT_EQ(b.lines[0].end, "\r\n");
  EXPECT_EQ(b.lines[1].text, "last");
  EXPECT_EQ(b.lines[1].end, "");
  EXPECT_FALSE(batcher.Next(b));
}

TEST(TfileDictionaryRows, SpansCountCharacters) {
  std::string out;
  // "größe" is five characters of seven bytes.
  EXPECT_TRUE(AppendDictionaryRows(out, 3, "die größe x", "0 3 7; 4 5 0;10 1 7;", -1, false));
  EXPECT_EQ(out, "     3      0      7 die\n     3      4      0 größe\n     3     10      7 x\n");
  out.clear();
  EXPECT_TRUE(AppendDictionaryRows(out, 1, "a\nb", "0 3 0;", 0, true));
  EXPECT_EQ(out, "     1      0      0 a\\nb\n");
  out.clear();
  EXPECT_TRUE(AppendDictionaryRows(out, 1, "ab cd", "0 2 5;3 2 0;", 5, false));
  EXPECT_EQ(out, "     1      0      5 ab\n");
  for (const char* bad : {"0 2;", "0 9 1;", "a b c;", "0 1 2 3;", "-1 1 0;"}) {
    EXPECT_FALSE(AppendDictionaryRows(out, 1, "ab cd", bad, -1, false)) << bad;
  }
}

}  // namespace
}  // namespace lexctl::tfile
