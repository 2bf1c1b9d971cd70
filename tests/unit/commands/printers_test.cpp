// Wrapping by columns, and the block printer on replies that lack what it
// expects.
#include <gtest/gtest.h>

#include <string>

#include "capture.h"
#include "commands/common/wrap.h"
#include "commands/translate/lookup.h"
#include "commands/translate/printers.h"
#include "shell/exec_thread.h"
#include "soapH.h"

namespace lexctl {
namespace {

TEST(Wrap, SeventyEightColumnsWithDoubleWidthCharacters) {
  std::string latin(100, 'a');
  EXPECT_EQ(WrapText(latin, "  org: ", "     : "),
            "  org: " + std::string(71, 'a') + "\n     : " + std::string(29, 'a') + "\n");
  std::string kana;
  for (int i = 0; i < 40; ++i) kana += "\xE3\x81\x82";  // U+3042, two columns
  std::string first, rest;
  for (int i = 0; i < 36; ++i) first += "\xE3\x81\x82";
  for (int i = 0; i < 4; ++i) rest += "\xE3\x81\x82";
  EXPECT_EQ(WrapText(kana, "  org: ", "     : "), "  org: " + first + "\n     : " + rest + "\n");
  // U+00FF (code 255) already takes two columns; U+00FE one.
  EXPECT_EQ(WrapText(std::string(70, 'a') + "\xC3\xBF" + "b", "  org: ", "     : "),
            "  org: " + std::string(70, 'a') + "\xC3\xBF\n     : b\n");
  EXPECT_EQ(WrapText("", "  txn: ", "     : "), "  txn: \n");
  // A line feed is one more character: it neither resets the count nor
  // brings a prefix.
  EXPECT_EQ(WrapText("a\nb", "> ", ". "), "> a\nb\n");
  EXPECT_EQ(WrapText(std::string(69, 'a') + "\nbc", "  org: ", "     : "),
            "  org: " + std::string(69, 'a') + "\nb\n     : c\n");
}

TEST(Wrap, CharacterSpansClipToTheText) {
  EXPECT_EQ(CharSpan("h\xC3\xA9llo", 1, 2), "\xC3\xA9l");
  EXPECT_EQ(CharSpan("abc", 2, 10), "c");
  EXPECT_EQ(CharSpan("abc", 5, 1), "");
  EXPECT_EQ(CharSpan("abc", -1, 2), "");
  EXPECT_EQ(CharCount("h\xC3\xA9llo"), 5u);
}

class BlockPrinter : public ::testing::Test {
 protected:
  nv__TranslationPartEngine* Part(const char* type, const char* loc, const char* text) {
    auto* part = soap_new_nv__TranslationPartEngine(soap_);
    part->type = Str(type);
    part->loc = loc ? Str(loc) : nullptr;
    part->lang = Str("ja");
    part->text = text ? Str(text) : nullptr;
    return part;
  }
  std::string* Str(const char* text) {
    std::string* s = soap_new_std__string(soap_);
    *s = text;
    return s;
  }
  std::string Print(const nv__SourceBlock& request, const nv__TranslationBlock& block,
                    BlockPrintOptions options = {}) {
    testing::Capture out(thread_);
    PrintBlock(thread_, 1, &request, block, options);
    return out.Take();
  }
  void TearDown() override {
    soap_destroy(soap_);
    soap_end(soap_);
    soap_free(soap_);
  }

  ExecThread thread_{"t", false};
  struct soap* soap_ = soap_new();
};

TEST_F(BlockPrinter, MalformedRepliesPrintWhatTheyCan) {
  nv__SourceBlock request;
  request.text = Str("A b c");
  request.track = Str("2 1;0 1;");
  nv__TranslationBlock block;
  block.parts = soap_new_nv__TranslationPartArray(soap_);
  block.parts->item = {Part("M", nullptr, "X "), Part("S", "junk", " "),
                       soap_new_nv__TranslationPart(soap_)};
  block.parts->item[2]->text = Str("y");
  block.track = Str("0 x;");
  EXPECT_EQ(Print(request, block),
            "Block 1\n"
            "  org: A b c\n"
            "  txn: X  y\n"
            "\nTrack Info:\n"
            "    0: org start   2 length   1 text ]b[\n"
            "       txn invalid track format\n"
            "    1: org start   0 length   1 text ]A[\n"
            "       txn missing\n"
            "\n"
            " Machine Translation (-1, -1) (ja)\n"
            "  org: \n"
            "  txn: X \n"
            " White Space (-1, -1) (ja)\n"
            "  org: ][\n"
            "  txn: ] [\n"
            "   INVALID PART\n");
  // A part without text: no translation line, and -simple shows nothing else.
  block.parts->item[0]->text = nullptr;
  BlockPrintOptions simple;
  simple.simple = true;
  EXPECT_EQ(Print(request, block, simple), "Block 1\n");
  std::string translation;
  EXPECT_FALSE(BuildTranslation(block, translation));
  // A nil item: an invalid part in every layout.
  block.parts->item.push_back(nullptr);
  BlockPrintOptions test, memory;
  test.test = true;
  memory.memory = true;
  EXPECT_EQ(Print(request, block, test).substr(0, 11), "[test_1]\nor");
  EXPECT_NE(Print(request, block, memory).find("   INVALID PART\n   INVALID PART\n"), std::string::npos);
}

TEST_F(BlockPrinter, AlternativeWordsAndMemoryRuns) {
  nv__SourceBlock request;
  request.text = Str("Hello. Bye.");
  nv__TranslationBlock block;
  block.parts = soap_new_nv__TranslationPartArray(soap_);
  auto* hello = Part("M", "0 6", "Konnichiwa.");
  hello->altword = soap_new_nv__StringArray(soap_);
  hello->altword->item = {"1 1 12 Yaa", "bad"};
  auto memory = [&](const char* loc, const char* text) {
    auto* part = soap_new_nv__TranslationPartMemory(soap_);
    part->type = Str("F");
    part->loc = Str(loc);
    part->lang = Str("ja");
    part->text = Str(text);
    part->rate = static_cast<int*>(soap_malloc(soap_, sizeof(int)));
    *part->rate = 80;
    part->entry = Str("9:1");
    part->diff = Str("+bye");
    return part;
  };
  block.parts->item = {hello, Part("S", "6 1", " "), memory("7 2", "Sa"), memory("9 2", "yo.")};
  EXPECT_EQ(Print(request, block),
            "Block 1\n"
            "  org: Hello. Bye.\n"
            "  txn: Konnichiwa. Sayo.\n"
            "\n"
            " Machine Translation (0, 6) (ja)\n"
            "  org: Hello.\n"
            "  txn: Konnichiwa.\n"
            "  Alternate Words:\n"
            "    group:  1 word:  1 did:    12 text: Yaa\n"
            "    invalid alternate word: bad\n"
            " White Space (6, 1) (ja)\n"
            "  org: ] [\n"
            "  txn: ] [\n"
            " Memory Fuzzy Match (7, 2) (ja)\n"
            "  org: By\n"
            "  txn: Sa\n"
            "Rate:  80\n"
            "Entry: 9:1\n"
            "Differences:\n"
            "  +bye\n"
            " Memory Fuzzy Match (9, 2) (ja)\n"
            "  org: e.\n"
            "  txn: yo.\n"
            "Rate:  80\n"
            "Entry: 9:1\n"
            "Differences:\n"
            "  +bye\n");
  BlockPrintOptions memory_layout;
  memory_layout.memory = true;
  std::string out = Print(request, block, memory_layout);
  EXPECT_NE(out.find("  org: Hello. Bye.\n\n Machine Translation (0, 6) (ja)\n"), std::string::npos)
      << out;
  // The two memory parts share type and entry: one result.
  EXPECT_NE(out.find("Results:\nOriginal: Bye.\n Memory Fuzzy Match (7, 2) (ja)\n  txn: Sa\n"
                     " Memory Fuzzy Match (9, 2) (ja)\n  txn: yo.\nRate:     80\nEntry:    9:1\n"
                     "Differences:\n  +bye\n  +bye\n"),
            std::string::npos)
      << out;
  EXPECT_EQ(out.find("Results:"), out.rfind("Results:"));
}

TEST_F(BlockPrinter, UnknownWordsAndSentences) {
  testing::Capture out(thread_);
  nv__UnknownWordArray words;
  nv__UnknownWord word;
  word.context = Str("Das ist gr\xC3\xBCn.");
  word.start = 8;
  word.length = 4;
  words.item = {word};
  PrintUnknownWords(thread_, &words);
  PrintUnknownWords(thread_, nullptr);
  EXPECT_EQ(out.Take(), "\nUnknown Words:\n* gr\xC3\xBCn\n    Das ist gr\xC3\xBCn.\n");
  PrintSentences(thread_, "0 2 0 3;x;3 1 4 -1", "ab c", "xyz w");
  EXPECT_EQ(out.Take(),
            "\nSentence:\n1 (0 2 0 3)\n"
            "org: start:   0 length:   2 text: ab\n"
            "txn: start:   0 length:   3 text: xyz\n"
            "Invalid sent data: x\n!Invalid sent data!\n");
}


TEST_F(BlockPrinter, LookupGroupsFollowTheWordIndex) {
  auto hit = [&](int idx, const char* txn) {
    auto* entry = soap_new_nv__DicEntryLookup(soap_);
    entry->idx = idx;
    entry->did = Str("1");
    entry->txnWord = Str(txn);
    return entry;
  };
  auto* missing = soap_new_nv__DicEntryNotFound(soap_);
  missing->idx = 2;
  auto* failed = soap_new_nv__DicEntryError(soap_);
  failed->idx = 1;
  failed->err = Str("Engine error");
  testing::Capture out(thread_);
  PrintLookupEntries(thread_, {"cat", "dog", "eel"},
                     {hit(0, "a"), hit(1, "b"), hit(0, "c"), hit(0, "d"), missing, failed, hit(7, "e")});
  const std::string rule = std::string(79, '-') + "\n";
  const std::string head = "  DIC     SURFACE_FORM      BASE_FORM         ORG_POS TRANSLATION       TXN_POS\n";
  auto row = [](const char* txn) {
    return "  1       " + std::string(18 * 2, ' ') + "        " + std::string(txn) +
           std::string(17 - strlen(txn), ' ') + " " + std::string(7, ' ') + "\n";
  };
  EXPECT_EQ(out.Take(), rule + "[0]: 'cat'\n" + head + row("a") + rule + "[1]: 'dog'\n" + head +
                            row("b") + rule + "[0]: 'cat'\n" + head + row("c") + row("d") +
                            "[2]: 'eel' = NOT FOUND\n[1]: 'dog' = Engine error\n" + rule +
                            "[7]: '!!INVALID INDEX!!'\n" + head + row("e"));
}

}  // namespace
}  // namespace lexctl
