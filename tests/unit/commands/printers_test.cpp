// Wrapping by columns, and the printers on replies that lack what they
// expect or hold what lexsim never sends: blocks, lookups, the parse
// listing, engines, property definitions and users.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "commands/admin/engine_printer.h"
#include "commands/admin/user_printer.h"
#include "commands/common/wrap.h"
#include "commands/translate/analysis.h"
#include "commands/translate/lookup.h"
#include "commands/translate/printers.h"
#include "reply.h"

namespace lexctl {
namespace {

TEST(Wrap, SeventyEightColumnsWithDoubleWidthCharacters) {
  std::string kana, first;
  for (int i = 0; i < 40; ++i) kana += "\xE3\x81\x82";  // U+3042, two columns
  for (int i = 0; i < 36; ++i) first += "\xE3\x81\x82";
  const struct {
    std::string text, wrapped;
  } cases[] = {
      {std::string(100, 'a'), "  org: " + std::string(71, 'a') + "\n     : " + std::string(29, 'a') + "\n"},
      {kana, "  org: " + first + "\n     : " + kana.substr(0, 12) + "\n"},
      // U+00FF (code 255) already takes two columns; U+00FE one.
      {std::string(70, 'a') + "\xC3\xBF" + "b", "  org: " + std::string(70, 'a') + "\xC3\xBF\n     : b\n"},
      {"", "  org: \n"},
      // A line feed is one more character: it neither resets the count nor brings a prefix.
      {std::string(69, 'a') + "\nbc", "  org: " + std::string(69, 'a') + "\nb\n     : c\n"},
  };
  for (const auto& c : cases) EXPECT_EQ(WrapText(c.text, "  org: ", "     : "), c.wrapped) << c.text;
  EXPECT_EQ(CharSpan("h\xC3\xA9llo", 1, 2), "\xC3\xA9l");
  EXPECT_EQ(CharSpan("abc", 2, 10), "c");
  EXPECT_EQ(CharSpan("abc", 5, 1), "");
  EXPECT_EQ(CharSpan("abc", -1, 2), "");
  EXPECT_EQ(CharCount("h\xC3\xA9llo"), 5u);
}

class Printers : public testing::Reply {
 protected:
  nv__TranslationPartEngine* Part(const char* type, const char* loc, const char* text) {
    auto* part = soap_new_nv__TranslationPartEngine(soap_);
    part->type = S(type);
    part->loc = S(loc);
    part->lang = S("ja");
    part->text = S(text);
    return part;
  }
  std::string Print(const nv__SourceBlock& request, const nv__TranslationBlock& block,
                    void (*layout)(BlockPrintOptions&) = [](BlockPrintOptions&) {}) {
    BlockPrintOptions options;
    layout(options);
    PrintBlock(thread_, 1, &request, block, options);
    return out_.Take();
  }
};

TEST_F(Printers, MalformedBlocksPrintWhatTheyCan) {
  nv__SourceBlock request;
  request.text = S("A b c");
  request.track = S("2 1;0 1;");
  nv__TranslationBlock block;
  block.parts = soap_new_nv__TranslationPartArray(soap_);
  block.parts->item = {Part("M", nullptr, "X "), Part("S", "junk", " "), soap_new_nv__TranslationPart(soap_)};
  block.parts->item[2]->text = S("y");
  block.track = S("0 x;");
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
  EXPECT_EQ(Print(request, block, [](BlockPrintOptions& o) { o.simple = true; }), "Block 1\n");
  std::string translation;
  EXPECT_FALSE(BuildTranslation(block, translation));
  // A nil item: an invalid part in every layout.
  block.parts->item.push_back(nullptr);
  EXPECT_EQ(Print(request, block, [](BlockPrintOptions& o) { o.test = true; }).substr(0, 11), "[test_1]\nor");
  EXPECT_NE(Print(request, block, [](BlockPrintOptions& o) { o.memory = true; }).find("   INVALID PART\n   INVALID PART\n"),
            std::string::npos);
}

TEST_F(Printers, MemoryPartsOfOneEntryAreOneResult) {
  nv__SourceBlock request;
  request.text = S("Hello. Bye.");
  nv__TranslationBlock block;
  block.parts = soap_new_nv__TranslationPartArray(soap_);
  auto* hello = Part("M", "0 6", "Konnichiwa.");
  hello->altword = soap_new_nv__StringArray(soap_);
  hello->altword->item = {"1 1 12 Yaa", "bad"};
  auto memory = [&](const char* loc, const char* text) {
    auto* part = soap_new_nv__TranslationPartMemory(soap_);
    part->type = S("F");
    part->loc = S(loc);
    part->lang = S("ja");
    part->text = S(text);
    part->rate = N(80);
    part->entry = S("9:1");
    part->diff = S("+bye");
    return part;
  };
  block.parts->item = {hello, Part("S", "6 1", " "), memory("7 2", "Sa"), memory("9 2", "yo.")};
  EXPECT_NE(Print(request, block).find("  Alternate Words:\n    group:  1 word:  1 did:    12 text: Yaa\n"
                                       "    invalid alternate word: bad\n"),
            std::string::npos);
  std::string out = Print(request, block, [](BlockPrintOptions& o) { o.memory = true; });
  EXPECT_NE(out.find("Results:\nOriginal: Bye.\n Memory Fuzzy Match (7, 2) (ja)\n  txn: Sa\n"
                     " Memory Fuzzy Match (9, 2) (ja)\n  txn: yo.\nRate:     80\nEntry:    9:1\n"
                     "Differences:\n  +bye\n  +bye\n"),
            std::string::npos)
      << out;
  EXPECT_EQ(out.find("Results:"), out.rfind("Results:"));
}

TEST_F(Printers, UnknownWordsSentencesAndLookupGroups) {
  nv__UnknownWordArray words;
  words.item.emplace_back();
  words.item[0].context = S("Das ist gr\xC3\xBCn.");
  words.item[0].start = 8;
  words.item[0].length = 4;
  PrintUnknownWords(thread_, &words);
  PrintUnknownWords(thread_, nullptr);
  PrintSentences(thread_, "0 2 0 3;x;3 1 4 -1", "ab c", "xyz w");
  EXPECT_EQ(out_.Take(),
            "\nUnknown Words:\n* gr\xC3\xBCn\n    Das ist gr\xC3\xBCn.\n"
            "\nSentence:\n1 (0 2 0 3)\n"
            "org: start:   0 length:   2 text: ab\n"
            "txn: start:   0 length:   3 text: xyz\n"
            "Invalid sent data: x\n!Invalid sent data!\n");

  auto hit = [&](int idx, const char* txn) {
    auto* entry = soap_new_nv__DicEntryLookup(soap_);
    entry->idx = idx;
    entry->did = S("1");
    entry->txnWord = S(txn);
    return entry;
  };
  auto* missing = soap_new_nv__DicEntryNotFound(soap_);
  missing->idx = 2;
  auto* failed = soap_new_nv__DicEntryError(soap_);
  failed->idx = 1;
  failed->err = S("Engine error");
  PrintLookupEntries(thread_, {"cat", "dog", "eel"},
                     {hit(0, "a"), hit(1, "b"), hit(0, "c"), hit(0, "d"), missing, failed, hit(7, "e")});
  const std::string rule = std::string(79, '-') + "\n";
  const std::string head = "  DIC     SURFACE_FORM      BASE_FORM         ORG_POS TRANSLATION       TXN_POS\n";
  auto row = [](const char* txn) {
    return "  1       " + std::string(44, ' ') + txn + std::string(17 - strlen(txn), ' ') + std::string(8, ' ') + "\n";
  };
  EXPECT_EQ(out_.Take(), rule + "[0]: 'cat'\n" + head + row("a") + rule + "[1]: 'dog'\n" + head + row("b") + rule +
                             "[0]: 'cat'\n" + head + row("c") + row("d") +
                             "[2]: 'eel' = NOT FOUND\n[1]: 'dog' = Engine error\n" + rule +
                             "[7]: '!!INVALID INDEX!!'\n" + head + row("e"));
}

TEST_F(Printers, ParseListingPrintsWhatAReplyLacksAsEmpty) {
  nv__SourceBlockArray sent;
  sent.item.resize(2);
  sent.item[0].text = S(("Hi. " + std::string(80, 'a') + ".").c_str());
  sent.item[1].text = S("never answered");
  nv__TextBlockArray received;
  received.item.resize(1);
  nv__TextBlock& block = received.item[0];
  block.error = S("partial");
  block.parts = soap_new_nv__SentenceArray(soap_);
  block.parts->item.resize(2);
  block.parts->item[0].words = soap_new_nv__WordArray(soap_);  // no type, no loc, a word with nothing
  block.parts->item[0].words->item.resize(1);
  block.parts->item[1].type = S("M");
  block.parts->item[1].loc = S("4 81");
  block.parts->item[1].org = S("A.");
  std::string listing = ParseListing(thread_, sent, &received);
  EXPECT_EQ(out_.Take(), "Number of response blocks does not match request blocks!!!!\n");
  EXPECT_EQ(listing, "Block 1\n  err: partial\n  org: Hi. " + std::string(67, 'a') + "\n     : " +
                         std::string(13, 'a') + ".\n Unknown (-1, -1)\n  org: ][\n  Words:\n"
                         "  1 loc:        pos:        did:          word: [] base: []\n"
                         " Machine Translation (4, 81)\n  org: [" + std::string(70, 'a') + "\n     : " +
                         std::string(10, 'a') + ".\n  ORG: ]A.[\n  Words:\n");
}

TEST_F(Printers, EnginesWithMissingMembers) {
  auto* engines = soap_new_req_nv__EngineArray(soap_);
  nv__Engine bare;
  bare.soap_default(soap_);  // not even an EID
  nv__Engine bridge;
  bridge.soap_default(soap_);
  bridge.eid = S("B-1");
  bridge.from = S("ja");
  bridge.inter = S("en");
  bridge.to = S("ko");
  bridge.eidLeft = S("L-1");
  bridge.eidRight = S("");  // empty counts as absent
  bridge.validity = soap_new_req_nv__Validity(soap_);
  bridge.validity->to = S("2030-01-01T00:00:00Z");
  bridge.type = N(0x6);
  bridge.dictionaryInfo = soap_new_req_nv__DictionaryInfo(soap_);
  bridge.dictionaryInfo->limits = soap_new_req_nv__DictionaryLimits(soap_);
  bridge.dictionaryInfo->limits->tech = N<LONG64>(3);
  bridge.dictionaryInfo->formats = soap_new_req_nv__FormatArray(soap_);
  nv__Format format;
  format.soap_default(soap_);
  format.api = N<LONG64>(0x8000);
  bridge.dictionaryInfo->formats->item.push_back(format);
  format.api = nullptr;
  format.format = S("odd");
  bridge.dictionaryInfo->formats->item.push_back(format);
  bridge.dictionaryInfo->list = soap_new_req_nv__DictionaryArray(soap_);
  bridge.dictionaryInfo->list->item.resize(1);  // no owner, a type the client does not know
  nv__Dictionary& dic = bridge.dictionaryInfo->list->item[0];
  dic.soap_default(soap_);
  dic.did = 10001;
  dic.type = N<LONG64>(0x40);
  dic.subject = S("Subj");
  dic.display = S("Name");
  bridge.profiles = soap_new_req_nv__ProfileArray(soap_);
  nv__Profile profile;
  profile.soap_default(soap_);
  profile.profile = S("p");
  bridge.profiles->item.push_back(profile);
  profile.properties = soap_new_req_nv__PropertyArray(soap_);
  profile.properties->item.emplace_back();
  profile.properties->item[0].soap_default(soap_);
  profile.properties->item[0].key = S("k");
  bridge.profiles->item.push_back(profile);
  engines->item = {bare, bridge};
  PrintEngines(thread_, engines, kEngineFull);
  EXPECT_EQ(out_.Take(),
            "\n ( -> ), ''\n\n"
            "B-1 (ja -> en -> ko), ''\n"
            "Bridge Left:  L-1 (ja -> en)\n"
            "Validity:     From: UNLIMITED, To: 2030-01-01T00:00:00Z\n"
            "Type Flags:   0x6\n"
            "    MEMORY  BRIDGE\n"
            "Dictionaries:\n"
            " - Limits: Tech = 3, User = 0, Total = 0\n"
            " - Formats:\n"
            "    DICTIONARY_EXPORT    = \n"
            "                         = odd\n"
            " - Available:\n"
            "   DID     TM TYPE         OWNER               SUBJECT       DISPLAY-NAME\n"
            "   10001   TM UNKNOWN                          Subj          Name\n"
            "Profile:  (p)\n"
            "Profile:  (p)\n"
            "    KEY                                                      RO DEFAULT VALUE\n"
            "    k" + std::string(59, ' ') + "\n");
  PrintEngines(thread_, nullptr, kEngineList);
  PrintEngines(thread_, engines, kEngineList);
  EXPECT_EQ(out_.Take(), "\n\n ( -> ), ''\nB-1 (ja -> en -> ko), ''\n2 engines\n");
}

TEST_F(Printers, PropertyDefinitionsOfOddTypes) {
  auto* defs = soap_new_req_nv__PropertyList(soap_);
  PrintPropertyDefs(thread_, nullptr);
  PrintPropertyDefs(thread_, defs);
  EXPECT_EQ(out_.Take(), "");
  nv__PropertyDef def;
  def.soap_default(soap_);
  def.key = S("style");
  def.display = S("Style");
  def.type = S("C");
  def.values = soap_new_req_nv__PropertyValues(soap_);
  def.values->item.emplace_back();
  def.values->item[0].soap_default(soap_);
  def.values->item[0].value = S("plain");
  defs->item.push_back(def);
  def.type = S("Q");  // unknown to the client: shown as sent
  def.values = nullptr;
  defs->item.push_back(def);
  def.type = nullptr;
  defs->item.push_back(def);
  PrintPropertyDefs(thread_, defs);
  EXPECT_EQ(out_.Take(),
            "\nProperty Details:\n"
            "\n   'style', Type: CHOICE\n   Style\n     Value: 'plain', Display: ''\n"
            "\n   'style', Type: Q\n   Style\n"
            "\n   'style', Type: \n   Style\n");
}

TEST_F(Printers, UserShowsWhatAReplyHas) {  // no functions, an empty limit, a bare session
  nv__User u{};
  u.userid = S("bob");
  u.apiAllowed = N<LONG64>(0);
  u.limits = soap_new_nv__LimitArray(soap_);
  u.limits->item.resize(2);  // the second: a hostile reply, nothing in it
  u.limits->item[0].type = S("sessions");
  u.limits->item[0].maximum = N<LONG64>(-1);
  u.limits->item[0].current = N<LONG64>(2);
  u.sessions = soap_new_nv__SessionArray(soap_);
  u.sessions->item.resize(1);
  u.sessions->item[0].type = S("full");
  PrintUser(thread_, "USER DETAILS", u, 0);
  EXPECT_EQ(out_.Take(),
            "USER DETAILS\n"
            "User ID:      bob\n"
            "API Allowed:  0  (NO FUNCTIONS)\n"
            "Limits:\n"
            " - sessions              Max: UNLIMITED, Curr: 2\n"
            " -                       Max: 0, Curr: 0\n"
            "Sessions:\n"
            "   TYPE   CREATED               LAST USED             IP ADDRESS\n"
            "   full                                               \n");
}

}  // namespace
}  // namespace lexctl
