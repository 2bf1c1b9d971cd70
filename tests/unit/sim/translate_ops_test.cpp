// Translation and text analysis on the wire: one lexsim per test, called through the
// generated client as the seeded super-user.
#include <cstring>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "crypto.h"
#include "lexsim_process.h"
#include "soapH.h"

class TranslateTest : public WireFixture {
 protected:
  std::string* Lic() { return S("admin " + lexsim::PasswordHash("admin", "admin")); }
  const char* url() const { return sim_.url().c_str(); }

  nv__EngineSelect* Engine(const std::string& eid,
                           const std::vector<std::pair<std::string, std::string>>& props = {}) {
    auto* e = soap_new_nv__EngineSelect(soap_);
    e->eid = S(eid);
    if (!props.empty()) {
      e->properties = soap_new_nv__KeyValArray(soap_);
      for (const auto& [k, v] : props) {
        nv__KeyValPair kv;
        kv.key = k;
        kv.val = v;
        e->properties->item.push_back(kv);
      }
    }
    return e;
  }

  nv__SourceBlock Block(const std::string& text, const std::string& track = "",
                        const std::string& phrase = "", const std::string& lang = "") {
    nv__SourceBlock b{};
    b.text = S(text);
    if (!track.empty()) b.track = S(track);
    if (!phrase.empty()) b.phrase = S(phrase);
    if (!lang.empty()) b.lang = S(lang);
    return b;
  }

  /// TranslateText of blocks; fails the test unless the call succeeds when expect_ok.
  int Text(const std::string& eid, std::vector<nv__SourceBlock> blocks, nv__TranslateTextResponse& r,
           const std::string& keys = "", nv__EngineSelect* engine = nullptr) {
    auto* a = soap_new_nv__SourceBlockArray(soap_);
    a->item = std::move(blocks);
    return soap_call_nv__TranslateText(soap_, url(), "", Lic(), nullptr, nullptr, Sel(keys),
                                       engine ? engine : Engine(eid), a, r);
  }

  /// The translation of the first block (the concatenated part texts).
  static std::string Txn(const nv__TranslateTextResponse& r, size_t block = 0) {
    std::string out;
    for (const nv__TranslationPart* p : r.blocks->item.at(block).parts->item) out += *p->text;
    return out;
  }

  xsd__base64Binary* Bin(const std::string& bytes) {
    auto* b = soap_new_xsd__base64Binary(soap_);
    b->__ptr = static_cast<unsigned char*>(soap_malloc(soap_, bytes.size() + 1));
    memcpy(b->__ptr, bytes.data(), bytes.size());
    b->__size = static_cast<int>(bytes.size());
    return b;
  }
  static std::string Str(const xsd__base64Binary* b) {
    return b && b->__ptr ? std::string(reinterpret_cast<const char*>(b->__ptr), b->__size) : "";
  }

  LexsimProcess sim_;
};

namespace {

std::string Part(const nv__TranslationPart* p) { return p->text ? *p->text : ""; }

/// Code points [start, start+len) of UTF-8 text, for checking the spans lexsim reports.
std::string Sub(const std::string& s, size_t start, size_t len) {
  std::string out;
  size_t cp = 0;
  for (size_t i = 0; i < s.size(); ++i) {
    bool lead = (static_cast<unsigned char>(s[i]) & 0xC0) != 0x80;
    if (lead && cp++ >= start + len) break;
    if (cp > start) out.push_back(s[i]);
  }
  return out;
}

/// "a b;c d;" as pairs.
std::vector<std::pair<size_t, size_t>> Pairs(const std::string& s) {
  std::vector<std::pair<size_t, size_t>> out;
  size_t a, b;
  const char* p = s.c_str();
  int n;
  while (sscanf(p, "%zu %zu;%n", &a, &b, &n) == 2) {
    out.emplace_back(a, b);
    p += n;
  }
  return out;
}

}  // namespace

// ---- Plain text ------------------------------------------------------------------------

TEST_F(TranslateTest, SentencesWordsAndUnknownWords) {
  nv__TranslateTextResponse r;
  const std::string org = "Hello world. The cat reads a book in the bank, Zorblax!";
  ASSERT_EQ(Text("QZ-EJ", {Block(org)}, r), SOAP_OK) << FaultErr();
  ASSERT_EQ(r.blocks->item.size(), 1u);
  const auto& parts = r.blocks->item[0].parts->item;
  ASSERT_EQ(parts.size(), 3u);
  EXPECT_EQ(*parts[0]->type, "M");
  EXPECT_EQ(*parts[0]->loc, "0 12");
  EXPECT_EQ(Part(parts[0]), "こんにちは世界。");
  EXPECT_EQ(*parts[1]->type, "S");
  EXPECT_EQ(Part(parts[1]), " ");
  std::string second = Part(parts[2]);
  for (const char* w : {"猫", "読む", "本", "銀行", "Zorblax"})
    EXPECT_NE(second.find(w), std::string::npos) << w << " in " << second;
  EXPECT_EQ(second.substr(second.size() - 3), "！");
  EXPECT_EQ(*parts[2]->lang, "ja");

  // Only the made-up word is unknown, located inside its sentence.
  ASSERT_TRUE(r.unknown);
  ASSERT_EQ(r.unknown->item.size(), 1u);
  const nv__UnknownWord& u = r.unknown->item[0];
  EXPECT_EQ(*u.context, "The cat reads a book in the bank, Zorblax!");
  EXPECT_EQ(Sub(*u.context, u.start, u.length), "Zorblax");

  // Without select keys the optional analysis stays away.
  auto* e = dynamic_cast<nv__TranslationPartEngine*>(parts[2]);
  ASSERT_TRUE(e);
  EXPECT_FALSE(e->pos || e->dicinfo || e->altword || parts[2]->equiv);
}

TEST_F(TranslateTest, SelectKeysFillAnalysis) {
  nv__TranslateTextResponse r;
  const std::string org = "The cat is in the bank, Zorblax.";
  ASSERT_EQ(Text("QZ-EJ", {Block(org)}, r, "equiv pos dicinfo altword"), SOAP_OK) << FaultErr();
  auto* e = dynamic_cast<nv__TranslationPartEngine*>(r.blocks->item.at(0).parts->item.at(0));
  ASSERT_TRUE(e && e->pos && e->dicinfo && e->altword && e->equiv);
  std::string txn = Txn(r);

  // Equivalences pair each original word with its translation.
  auto eo = Pairs(*e->equiv->org), et = Pairs(*e->equiv->txn);
  ASSERT_EQ(eo.size(), et.size());
  bool cat = false, bank = false;
  for (size_t i = 0; i < eo.size(); ++i) {
    std::string o = Sub(org, eo[i].first, eo[i].second), t = Sub(txn, et[i].first, et[i].second);
    if (o == "cat") cat = t == "猫";
    if (o == "bank") bank = t == "銀行";
  }
  EXPECT_TRUE(cat && bank) << *e->equiv->org << " / " << *e->equiv->txn;

  EXPECT_NE(e->pos->find("4 3 NOUN;"), std::string::npos) << *e->pos;
  EXPECT_NE(e->dicinfo->find("4 3 1;"), std::string::npos) << "cat comes from system DID 1";
  EXPECT_NE(e->dicinfo->find("24 7 0;"), std::string::npos) << "Zorblax is in no dictionary";
  // "bank" has a second sense, offered as an alternative word.
  ASSERT_EQ(e->altword->item.size(), 1u) << testing::PrintToString(e->altword->item);
  const std::string& alt = e->altword->item[0];
  EXPECT_EQ(alt.substr(alt.rfind(' ') + 1), "土手") << alt;

  ASSERT_EQ(Text("QZ-EJ", {Block(org)}, r, "pos rawpos"), SOAP_OK);
  e = dynamic_cast<nv__TranslationPartEngine*>(r.blocks->item.at(0).parts->item.at(0));
  EXPECT_NE(e->pos->find("4 3 n;"), std::string::npos) << *e->pos;
}

TEST_F(TranslateTest, TrackPhraseAndSetword) {
  nv__TranslateTextResponse r;
  // "big" tracked through the translation.
  ASSERT_EQ(Text("QZ-EJ", {Block("Hello big world", "6 3;")}, r), SOAP_OK) << FaultErr();
  std::string txn = Txn(r);
  ASSERT_TRUE(r.blocks->item[0].track);
  auto t = Pairs(*r.blocks->item[0].track);
  ASSERT_EQ(t.size(), 1u);
  EXPECT_EQ(Sub(txn, t[0].first, t[0].second), "大きい") << txn;

  // Phrase type 1 keeps its words as written and does not count them unknown.
  ASSERT_EQ(Text("QZ-EJ", {Block("I like Hello Kitty", "", "1 7 11;")}, r, "equiv"), SOAP_OK);
  txn = Txn(r);
  EXPECT_NE(txn.find("Hello Kitty"), std::string::npos) << txn;
  EXPECT_EQ(txn.find("こんにちは"), std::string::npos) << txn;
  EXPECT_FALSE(r.unknown);
  auto* e = dynamic_cast<nv__TranslationPartEngine*>(r.blocks->item[0].parts->item.at(0));
  ASSERT_TRUE(e->phrase);
  EXPECT_EQ(e->phrase->substr(0, 2), "1 ") << *e->phrase;

  // A change-translation instruction wins over every dictionary.
  nv__SourceBlock b = Block("Hello world");
  b.setword = soap_new_nv__StringArray(soap_);
  b.setword->item = {"world=ワールド", "broken"};
  ASSERT_EQ(Text("QZ-EJ", {b}, r), SOAP_OK);
  EXPECT_EQ(Txn(r), "こんにちはワールド");
  ASSERT_TRUE(r.error);
  EXPECT_EQ(r.error->item.at(0).key, "setword");
}

TEST_F(TranslateTest, BlockErrorsFaultsAndWarnings) {
  nv__TranslateTextResponse r;
  EXPECT_NE(Text("QZ-NOPE", {Block("Hello")}, r), SOAP_OK);
  EXPECT_EQ(FaultErr(), "NOT_FOUND");

  nv__SourceBlock empty{};
  ASSERT_EQ(Text("QZ-EJ", {Block("Hello"), empty}, r), SOAP_OK) << FaultErr();
  ASSERT_EQ(r.blocks->item.size(), 2u);
  EXPECT_EQ(Txn(r, 0), "こんにちは");
  ASSERT_TRUE(r.blocks->item[1].error);
  EXPECT_NE(Text("QZ-EJ", {Block("Hello"), empty}, r, "fault"), SOAP_OK);
  EXPECT_EQ(FaultErr(), "INVALID_ARGUMENT");

  // A block in another language than the engine's is translated but warned about.
  ASSERT_EQ(Text("QZ-EJ", {Block("Katze", "", "", "de")}, r), SOAP_OK);
  EXPECT_EQ(Txn(r), "猫");
  ASSERT_TRUE(r.error);
  EXPECT_EQ(r.error->item.at(0).key, "lang");
  EXPECT_NE(Text("QZ-EJ", {Block("Katze", "", "", "de")}, r, "strict"), SOAP_OK);
  EXPECT_EQ(FaultErr(), "STRICT");
}

TEST_F(TranslateTest, SimpleTextWithSentencesAndEquiv) {
  nv__TranslateTextSimpleResponse r;
  ASSERT_EQ(soap_call_nv__TranslateTextSimple(soap_, url(), "", Lic(), nullptr, nullptr,
                                              S("sent equiv"), Engine("QZ-EJ"),
                                              S("Hello world. Good cat."), S("13 4;"), r),
            SOAP_OK)
      << FaultErr();
  EXPECT_EQ(*r.text, "こんにちは世界。 良い猫。");
  ASSERT_TRUE(r.sent && r.track && r.equiv);
  EXPECT_EQ(*r.sent, "0 12 0 8;13 9 9 4;");
  auto t = Pairs(*r.track);
  ASSERT_EQ(t.size(), 1u);
  EXPECT_EQ(Sub(*r.text, t[0].first, t[0].second), "良い");
  EXPECT_EQ(Pairs(*r.equiv->org).size(), 4u);

  ASSERT_EQ(soap_call_nv__TranslateTextSimple(soap_, url(), "", Lic(), nullptr, nullptr, nullptr,
                                              Engine("QZ-EJ"), S("Hello world."), nullptr, r),
            SOAP_OK);
  EXPECT_FALSE(r.sent || r.equiv || r.track);
}

TEST_F(TranslateTest, ReverseAndBridgeEngines) {
  nv__TranslateTextResponse r;
  ASSERT_EQ(Text("QZ-JE", {Block("私は猫が好きです。")}, r), SOAP_OK) << FaultErr();
  EXPECT_EQ(Txn(r), "I cat like is.");
  // The bridge goes through English to Korean.
  ASSERT_EQ(Text("QZ-JK", {Block("私は猫が好きです。")}, r), SOAP_OK) << FaultErr();
  EXPECT_EQ(Txn(r), "나 고양이 좋아하다 입니다.");
  EXPECT_EQ(*r.blocks->item[0].parts->item[0]->lang, "ko");
  // Numbers and marks alone are passed through as they are.
  ASSERT_EQ(Text("QZ-EJ", {Block("42 - 7")}, r), SOAP_OK);
  EXPECT_EQ(*r.blocks->item[0].parts->item[0]->type, "I");
  EXPECT_EQ(Txn(r), "42 - 7");
}

// ---- Translation memory and user dictionaries ------------------------------------------

TEST_F(TranslateTest, MemoryEngineAnswersWithMatchRates) {
  nv__TranslateTextResponse r;
  ASSERT_EQ(Text("QZ-TM", {Block("How are you today? Thank you very much. The cat reads.")}, r),
            SOAP_OK)
      << FaultErr();
  const auto& parts = r.blocks->item.at(0).parts->item;
  ASSERT_EQ(parts.size(), 5u);
  auto* fuzzy = dynamic_cast<nv__TranslationPartMemory*>(parts[0]);
  ASSERT_TRUE(fuzzy);
  EXPECT_EQ(*fuzzy->type, "F");
  EXPECT_EQ(*fuzzy->rate, 75);
  EXPECT_EQ(*fuzzy->text, "お元気ですか？");
  ASSERT_TRUE(fuzzy->diff);
  EXPECT_EQ(*fuzzy->diff, "+today");
  auto* exact = dynamic_cast<nv__TranslationPartMemory*>(parts[2]);
  ASSERT_TRUE(exact);
  EXPECT_EQ(*exact->type, "E");
  EXPECT_EQ(*exact->rate, 100);
  // Nothing in memory comes close: machine translation.
  auto* machine = dynamic_cast<nv__TranslationPartEngine*>(parts[4]);
  ASSERT_TRUE(machine);
  EXPECT_EQ(*machine->type, "M");
  EXPECT_NE(Part(machine).find("猫"), std::string::npos);

  // A higher lowest rate turns the fuzzy match into machine translation.
  ASSERT_EQ(Text("QZ-TM", {Block("How are you today?")}, r, "",
                 Engine("QZ-TM", {{"tm.min.rate", "80"}})),
            SOAP_OK);
  EXPECT_EQ(*r.blocks->item[0].parts->item[0]->type, "M");
}

TEST_F(TranslateTest, UserDictionariesChangeTheNextTranslation) {
  nv__TranslateTextResponse r;
  ASSERT_EQ(Text("QZ-EJ", {Block("okapi cat")}, r, "dicinfo altword"), SOAP_OK);
  ASSERT_TRUE(r.unknown);
  EXPECT_EQ(r.unknown->item.size(), 1u);

  auto* disp = soap_new_nv__DisplayTextArray(soap_);
  nv__CreateDictionaryResponse cr;
  auto* type = static_cast<LONG64*>(soap_malloc(soap_, sizeof(LONG64)));
  *type = 0x10;
  ASSERT_EQ(soap_call_nv__CreateDictionary(soap_, url(), "", Lic(), nullptr, nullptr, nullptr,
                                           S("QZ-EJ"), type, nullptr, S("zoo"), disp, nullptr, cr),
            SOAP_OK)
      << FaultErr();
  LONG64 did = cr.dic->did;
  auto* a = soap_new_nv__DicEntryArray(soap_);
  for (const char* src : {"okapi = オカピ [noun]", "cat = ネコ [noun]"}) {
    auto* e = soap_new_nv__DicEntryEngine(soap_);
    e->source = S(src);
    a->item.push_back(e);
  }
  nv__AddDictionaryEntryResponse ar;
  ASSERT_EQ(soap_call_nv__AddDictionaryEntry(soap_, url(), "", Lic(), nullptr, nullptr, nullptr,
                                             did, nullptr, a, ar),
            SOAP_OK)
      << FaultErr();

  ASSERT_EQ(Text("QZ-EJ", {Block("okapi cat")}, r, "dicinfo altword"), SOAP_OK);
  EXPECT_EQ(Txn(r), "オカピネコ");
  EXPECT_FALSE(r.unknown);
  auto* e = dynamic_cast<nv__TranslationPartEngine*>(r.blocks->item[0].parts->item.at(0));
  std::string d = std::to_string(did);
  EXPECT_EQ(*e->dicinfo, "0 5 " + d + ";6 3 " + d + ";");
  // The system's sense of "cat" becomes the alternative.
  ASSERT_TRUE(e->altword);
  EXPECT_EQ(e->altword->item.at(0), "2 1 1 猫");

  // A memory entry of the user's own answers exactly.
  ASSERT_EQ(soap_call_nv__CreateDictionary(soap_, url(), "", Lic(), nullptr, nullptr, nullptr,
                                           S("QZ-TM"), type, nullptr, S("tm"), disp, nullptr, cr),
            SOAP_OK)
      << FaultErr();
  auto* m = soap_new_nv__DicEntryMemory(soap_);
  m->sentences = soap_new_nv__EntryTextMemoryArray(soap_);
  nv__EntryTextMemory en{}, ja{};
  en.lang = S("en");
  en.text = S("Open the file.");
  ja.lang = S("ja");
  ja.text = S("ファイルを開いてください。");
  m->sentences->item = {en, ja};
  a = soap_new_nv__DicEntryArray(soap_);
  a->item.push_back(m);
  ASSERT_EQ(soap_call_nv__AddDictionaryEntry(soap_, url(), "", Lic(), nullptr, nullptr, nullptr,
                                             cr.dic->did, nullptr, a, ar),
            SOAP_OK)
      << FaultErr();
  ASSERT_EQ(Text("QZ-TM", {Block("Open the file.")}, r), SOAP_OK);
  auto* mem = dynamic_cast<nv__TranslationPartMemory*>(r.blocks->item[0].parts->item.at(0));
  ASSERT_TRUE(mem);
  EXPECT_EQ(*mem->text, "ファイルを開いてください。");
  EXPECT_EQ(*mem->rate, 100);
  EXPECT_EQ(mem->entry->substr(0, mem->entry->find(':')), std::to_string(cr.dic->did));
}

// ---- Sentence splitting and parsing -----------------------------------------------------

TEST_F(TranslateTest, SplitSentencesByLanguageAndAbbreviation) {
  auto* a = soap_new_nv__SourceBlockArray(soap_);
  a->item = {Block("Mr. Smith went home. Did he? Yes!\nNext line"), Block("今日は。元気です。"),
             Block("no split here. really")};
  nv__SplitSentencesResponse r;
  ASSERT_EQ(soap_call_nv__SplitSentences(soap_, url(), "", Lic(), nullptr, nullptr, nullptr, a, r),
            SOAP_OK)
      << FaultErr();
  ASSERT_EQ(r.blocks->item.size(), 3u);
  auto sentences = [](const nv__TranslationBlock& b) {
    std::vector<std::string> v;
    for (const nv__TranslationPart* p : b.parts->item)
      if (*p->type != "S") v.push_back(*p->text);
    return v;
  };
  EXPECT_EQ(sentences(r.blocks->item[0]),
            (std::vector<std::string>{"Mr. Smith went home.", "Did he?", "Yes!", "Next line"}));
  EXPECT_EQ(*r.blocks->item[0].parts->item[0]->lang, "en");
  EXPECT_EQ(sentences(r.blocks->item[1]), (std::vector<std::string>{"今日は。", "元気です。"}));
  EXPECT_EQ(*r.blocks->item[1].parts->item[0]->lang, "ja");
  // Spans cover the block: the first part of block 2 starts at 0, the second at 4.
  EXPECT_EQ(*r.blocks->item[1].parts->item[1]->loc, "4 5");

  ASSERT_EQ(soap_call_nv__SplitSentences(soap_, url(), "", Lic(), nullptr, nullptr, S("nosplit"),
                                         a, r),
            SOAP_OK);
  EXPECT_EQ(sentences(r.blocks->item[2]), (std::vector<std::string>{"no split here. really"}));
}

TEST_F(TranslateTest, ParseGivesWordsWithBaseFormsAndDictionaries) {
  auto* a = soap_new_nv__SourceBlockArray(soap_);
  a->item = {Block("The  cats were running, Zorblax.")};
  nv__ParseTextResponse r;
  ASSERT_EQ(soap_call_nv__ParseText(soap_, url(), "", Lic(), nullptr, nullptr, S("orgtext"),
                                    Engine("QZ-EJ"), a, r),
            SOAP_OK)
      << FaultErr();
  ASSERT_EQ(r.blocks->item.size(), 1u);
  const auto& sents = r.blocks->item[0].parts->item;
  ASSERT_EQ(sents.size(), 1u);
  EXPECT_EQ(*sents[0].type, "M");
  ASSERT_TRUE(sents[0].org);
  EXPECT_EQ(*sents[0].org, "The cats were running, Zorblax.");
  const auto& w = sents[0].words->item;
  ASSERT_EQ(w.size(), 7u);
  EXPECT_EQ(*w[1].word, "cats");
  EXPECT_EQ(*w[1].base, "cat");
  EXPECT_EQ(*w[1].loc, "5 4");
  EXPECT_EQ(*w[1].pos, "NOUN");
  EXPECT_EQ(*w[1].did, "1");
  EXPECT_EQ(*w[2].base, "be");
  EXPECT_EQ(*w[3].base, "run");
  EXPECT_EQ(*w[4].pos, "PUNC");
  EXPECT_EQ(*w[5].did, "0");
  EXPECT_EQ(*w[5].pos, "UNKN");

  ASSERT_EQ(soap_call_nv__ParseText(soap_, url(), "", Lic(), nullptr, nullptr, S("rawpos subject"),
                                    Engine("QZ-EJ"), a, r),
            SOAP_OK);
  const auto& w2 = r.blocks->item[0].parts->item[0].words->item;
  EXPECT_EQ(*w2[1].pos, "n");
  EXPECT_EQ(*w2[1].did, "General");
  EXPECT_FALSE(r.blocks->item[0].parts->item[0].org);
}

// ---- HTML and XML ------------------------------------------------------------------------

TEST_F(TranslateTest, HtmlKeepsMarkupAndTranslatesText) {
  const std::string page =
      "<html><head><title>Hello world</title><script>var s = \"Hello\";</script></head>"
      "<body><p class=\"x\">Hello <b>cat</b>!</p><img src=\"img/cat.png\" alt=\"Cat\">"
      "<a href=\"/about\">Good book</a><!-- Hello --><p>Zorblax &amp; dog</p></body></html>";
  auto* rw = soap_new_nv__UrlRewriteArray(soap_);
  nv__UrlRewrite rule{};
  rule.tags = 0x1;  // A_HREF
  rule.urlTemplate = S("http://proxy/?u={url}");
  rw->item.push_back(rule);
  nv__TranslateHtmlResponse r;
  ASSERT_EQ(soap_call_nv__TranslateHtml(soap_, url(), "", Lic(), nullptr, nullptr, nullptr,
                                        Engine("QZ-EJ"), nullptr, S("http://example.com/dir/page.html"),
                                        nullptr, S("main"), rw, Bin(page), r),
            SOAP_OK)
      << FaultErr();
  std::string out = Str(r.document);
  for (const char* want :
       {"<title>こんにちは世界</title>", "<script>var s = \"Hello\";</script>",
        "<p class=\"x\">こんにちは <b>猫</b>!</p>", "src=\"http://example.com/dir/img/cat.png\"",
        "alt=\"猫\"", "href=\"http://proxy/?u=http%3A%2F%2Fexample.com%2Fabout\"",
        "target=\"main\"", ">良い本</a>", "<!-- Hello -->", "<p>Zorblax&amp;犬</p>"})
    EXPECT_NE(out.find(want), std::string::npos) << want << "\n" << out;
  EXPECT_EQ(*r.encodingUsed, "UTF-8");
  EXPECT_EQ(*r.outputEncoding, "UTF-8");
  ASSERT_TRUE(r.unknown);
  EXPECT_EQ(r.unknown->item.size(), 1u);

  // A fragment stays a fragment; without the key lexsim makes it a page.
  ASSERT_EQ(soap_call_nv__TranslateHtml(soap_, url(), "", Lic(), nullptr, nullptr, S("fragment"),
                                        Engine("QZ-EJ"), nullptr, nullptr, nullptr, nullptr, nullptr,
                                        Bin("<p>Hello</p>"), r),
            SOAP_OK);
  EXPECT_EQ(Str(r.document), "<p>こんにちは</p>");
  ASSERT_EQ(soap_call_nv__TranslateHtml(soap_, url(), "", Lic(), nullptr, nullptr, nullptr,
                                        Engine("QZ-EJ"), nullptr, nullptr, nullptr, nullptr, nullptr,
                                        Bin("<p>Hello</p>"), r),
            SOAP_OK);
  EXPECT_EQ(Str(r.document).find("<html>"), 0u);

  // Styles: the full style keeps the original in a title; the text style drops markup.
  ASSERT_EQ(soap_call_nv__TranslateHtml(soap_, url(), "", Lic(), nullptr, nullptr, S("fragment"),
                                        Engine("QZ-EJ"), S("full"), nullptr, nullptr, nullptr,
                                        nullptr, Bin("<p>Hello</p>"), r),
            SOAP_OK);
  EXPECT_EQ(Str(r.document), "<p><span title=\"Hello\">こんにちは</span></p>");
  ASSERT_EQ(soap_call_nv__TranslateHtml(soap_, url(), "", Lic(), nullptr, nullptr, nullptr,
                                        Engine("QZ-EJ"), S("text"), nullptr, nullptr, nullptr,
                                        nullptr, Bin(page), r),
            SOAP_OK);
  EXPECT_EQ(Str(r.document).find('<'), std::string::npos) << Str(r.document);
  EXPECT_NE(soap_call_nv__TranslateHtml(soap_, url(), "", Lic(), nullptr, nullptr, nullptr,
                                        Engine("QZ-EJ"), S("fancy"), nullptr, nullptr, nullptr,
                                        nullptr, Bin(page), r),
            SOAP_OK);
  EXPECT_EQ(FaultErr(), "INVALID_ARGUMENT");
}

TEST_F(TranslateTest, XmlTransformSelectsWhatIsTranslated) {
  const std::string doc =
      "<?xml version=\"1.0\"?>\n<doc id=\"Hello\"><title>Hello world</title>"
      "<body>Good <![CDATA[cat]]></body></doc>";
  const std::string xslt =
      "<xsl:stylesheet version=\"1.0\" xmlns:xsl=\"http://www.w3.org/1999/XSL/Transform\">"
      "<xsl:template match=\"/\"><xsl:apply-templates select=\"//title\"/></xsl:template>"
      "</xsl:stylesheet>";
  nv__TranslateXmlResponse r;
  ASSERT_EQ(soap_call_nv__TranslateXml(soap_, url(), "", Lic(), nullptr, nullptr, nullptr,
                                       Engine("QZ-EJ"), Bin(doc), Bin(xslt), r),
            SOAP_OK)
      << FaultErr();
  EXPECT_EQ(Str(r.txnDoc),
            "<?xml version=\"1.0\"?>\n<doc id=\"Hello\"><title>こんにちは世界</title>"
            "<body>Good <![CDATA[cat]]></body></doc>");
  EXPECT_FALSE(r.docError);

  // No transform: every text node, CDATA included; attributes stay.
  ASSERT_EQ(soap_call_nv__TranslateXml(soap_, url(), "", Lic(), nullptr, nullptr, nullptr,
                                       Engine("QZ-EJ"), Bin(doc), nullptr, r),
            SOAP_OK);
  EXPECT_EQ(Str(r.txnDoc),
            "<?xml version=\"1.0\"?>\n<doc id=\"Hello\"><title>こんにちは世界</title>"
            "<body>良い <![CDATA[猫]]></body></doc>");

  // Not well-formed: the error with its place, and no document.
  ASSERT_EQ(soap_call_nv__TranslateXml(soap_, url(), "", Lic(), nullptr, nullptr, nullptr,
                                       Engine("QZ-EJ"), Bin("<doc>\n  <a>x</b>\n</doc>"), nullptr, r),
            SOAP_OK);
  ASSERT_TRUE(r.docError);
  ASSERT_EQ(r.docError->item.size(), 1u);
  const nv__DocError& e = r.docError->item[0];
  EXPECT_EQ(*e.type, "XML");
  EXPECT_EQ(e.line, 2);
  EXPECT_EQ(e.column, 7);
  EXPECT_NE(e.message->find("</b>"), std::string::npos) << *e.message;
  EXPECT_FALSE(r.txnDoc);
  EXPECT_NE(soap_call_nv__TranslateXml(soap_, url(), "", Lic(), nullptr, nullptr, S("fault"),
                                       Engine("QZ-EJ"), Bin("<doc>"), nullptr, r),
            SOAP_OK);
}

// ---- Documents ---------------------------------------------------------------------------

TEST_F(TranslateTest, DocumentsByTypeWithRulesAndRefusals) {
  auto in = [&](const std::string& bytes) {
    auto* d = soap_new_nv__InputData(soap_);
    d->data = Bin(bytes);
    return d;
  };
  nv__TranslateResponse r;
  ASSERT_EQ(soap_call_nv__Translate(soap_, url(), "", Lic(), nullptr, nullptr, nullptr,
                                    Engine("QZ-EJ"), S("# rules\nworld=ワールド\n"),
                                    in("Hello world.\nGood cat.\n"), r),
            SOAP_OK)
      << FaultErr();
  EXPECT_EQ(*r.outtype, "text");
  EXPECT_EQ(Str(r.outdata->data), "こんにちはワールド。\n良い猫。\n");
  EXPECT_EQ(*r.outdata->encodingUsed, "UTF-8");
  ASSERT_TRUE(r.attachments);
  ASSERT_EQ(r.attachments->item.size(), 1u);
  EXPECT_NE(Str(r.attachments->item[0].data).find("Document type: text"), std::string::npos);

  ASSERT_EQ(soap_call_nv__Translate(soap_, url(), "", Lic(), nullptr, nullptr, nullptr,
                                    Engine("QZ-EJ"), S(""), in("<html><body>Good dog</body></html>"), r),
            SOAP_OK);
  EXPECT_EQ(*r.outtype, "html");
  EXPECT_EQ(Str(r.outdata->data), "<html><body>良い犬</body></html>");

  ASSERT_EQ(soap_call_nv__Translate(soap_, url(), "", Lic(), nullptr, nullptr, nullptr,
                                    Engine("QZ-EJ"), S(""), in("<a><b>Hello</b></a>"), r),
            SOAP_OK);
  EXPECT_EQ(*r.outtype, "xml");
  EXPECT_EQ(Str(r.outdata->data), "<a><b>こんにちは</b></a>");

  for (const std::string& doc : {std::string("%PDF-1.4\n%binary"), std::string("PK\x03\x04zip", 7),
                                 std::string("bin\0ary", 7)}) {
    EXPECT_NE(soap_call_nv__Translate(soap_, url(), "", Lic(), nullptr, nullptr, nullptr,
                                      Engine("QZ-EJ"), S(""), in(doc), r),
              SOAP_OK);
    EXPECT_EQ(FaultErr(), "UNSUPPORTED_DOCUMENT") << doc;
  }
  EXPECT_NE(FaultMsg().find("BINARY"), std::string::npos) << FaultMsg();

  // Several documents in one request, each with its own output and report.
  auto* many = soap_new_nv__InputDataArray(soap_);
  many->item = {*in("Good morning"), *in("<p>Hello</p>")};
  nv__TranslateMultiResponse m;
  ASSERT_EQ(soap_call_nv__TranslateMulti(soap_, url(), "", Lic(), nullptr, nullptr, nullptr,
                                         Engine("QZ-EJ"), S(""), many, m),
            SOAP_OK)
      << FaultErr();
  ASSERT_EQ(m.outdata->item.size(), 2u);
  EXPECT_EQ(Str(m.outdata->item[0].data), "おはよう");
  EXPECT_EQ(*m.outdata->item[1].type, "xml");
  EXPECT_TRUE(m.outdata->item[1].attachments);
  many->item.push_back(*in("%PDF-1.7"));
  EXPECT_NE(soap_call_nv__TranslateMulti(soap_, url(), "", Lic(), nullptr, nullptr, nullptr,
                                         Engine("QZ-EJ"), S(""), many, m),
            SOAP_OK);
  EXPECT_NE(FaultMsg().find("document 3"), std::string::npos) << FaultMsg();
}

// ---- Language detection and recoding -----------------------------------------------------

TEST_F(TranslateTest, DetectLanguageByScriptAndWords) {
  auto detect = [&](const std::string& bytes, nv__DetectLanguageResponse& r,
                    const std::string& domain = "") {
    return soap_call_nv__DetectLanguage(soap_, url(), "", Lic(), nullptr, nullptr, nullptr,
                                        domain.empty() ? nullptr : S(domain), nullptr, nullptr,
                                        nullptr, Bin(bytes), r);
  };
  struct Case {
    const char* text;
    const char* lang;
  };
  for (const Case& c : {Case{"The cat is on the table and the dog is in the house.", "en"},
                        Case{"Der Hund ist sehr alt und ich bin nicht hier.", "de"},
                        Case{"Je suis très content et le chat est dans la maison.", "fr"},
                        Case{"私は猫が好きです。", "ja"}, Case{"안녕하세요 세계", "ko"}}) {
    nv__DetectLanguageResponse r;
    ASSERT_EQ(detect(c.text, r), SOAP_OK) << FaultErr();
    EXPECT_EQ(*r.language, c.lang) << c.text;
    ASSERT_TRUE(r.isReliable) << c.text;
    EXPECT_TRUE(*r.isReliable) << c.text;
    EXPECT_GT(*r.confidence, 0.3) << c.text;
    EXPECT_EQ(*r.encodingUsed, "UTF-8");
  }
  nv__DetectLanguageResponse r;
  ASSERT_EQ(detect("12345 !!!", r), SOAP_OK);
  EXPECT_FALSE(r.isReliable) << "nothing to judge by";
  ASSERT_EQ(detect("The cat is on the table and the dog is in the house.", r, "de,fr"), SOAP_OK);
  EXPECT_NE(*r.language, "en");

  // Shift_JIS bytes (made by Recode) are recognised as such.
  nv__RecodeResponse rc;
  ASSERT_EQ(soap_call_nv__Recode(soap_, url(), "", Lic(), nullptr, nullptr, nullptr, nullptr,
                                 S("UTF-8"), S("Shift_JIS"), Bin("日本語のテキストです。"), rc),
            SOAP_OK)
      << FaultErr();
  ASSERT_EQ(detect(Str(rc.text), r), SOAP_OK) << FaultErr();
  EXPECT_EQ(*r.encodingUsed, "Shift_JIS");
  EXPECT_EQ(*r.language, "ja");
}

TEST_F(TranslateTest, RecodeRoundTripAndBadEncodings) {
  auto recode = [&](const std::string& bytes, const char* from, const char* to,
                    nv__RecodeResponse& r, const std::string& keys = "") {
    return soap_call_nv__Recode(soap_, url(), "", Lic(), nullptr, nullptr, Sel(keys), nullptr,
                                from ? S(from) : nullptr, S(to), Bin(bytes), r);
  };
  const std::string text = "日本語のテキスト, naïve";
  nv__RecodeResponse a, b;
  ASSERT_EQ(recode(text, nullptr, "EUC-JP", a), SOAP_OK) << FaultErr();
  EXPECT_EQ(*a.encodingUsed, "UTF-8");
  EXPECT_NE(Str(a.text), text);
  ASSERT_EQ(recode(Str(a.text), nullptr, "UTF-8", b), SOAP_OK) << FaultErr();
  EXPECT_EQ(*b.encodingUsed, "EUC-JP") << "detected";
  EXPECT_EQ(Str(b.text), text);

  ASSERT_EQ(recode("Hi", "UTF-8", "UTF-16LE", a, "usesig"), SOAP_OK);
  EXPECT_EQ(Str(a.text), std::string("\xFF\xFEH\0i\0", 6));
  // A byte-order mark names the source and is not carried over.
  ASSERT_EQ(recode(Str(a.text), nullptr, "UTF-8", b), SOAP_OK);
  EXPECT_EQ(*b.encodingUsed, "UTF-16LE");
  EXPECT_EQ(Str(b.text), "Hi");

  // Characters the target cannot hold: replaced with a warning, or a fault when strict.
  ASSERT_EQ(recode("naïve 日本", "UTF-8", "ISO-8859-1", a), SOAP_OK);
  EXPECT_EQ(Str(a.text), "na\xEFve ??");
  ASSERT_TRUE(a.error);
  EXPECT_EQ(a.error->item.at(0).key, "recode");
  EXPECT_NE(recode("日本", "UTF-8", "ISO-8859-1", a, "strict"), SOAP_OK);
  EXPECT_EQ(FaultErr(), "STRICT");

  EXPECT_NE(recode("x", nullptr, "NO-SUCH-CODE", a), SOAP_OK);
  EXPECT_EQ(FaultErr(), "INVALID_ARGUMENT");
  EXPECT_NE(FaultMsg().find("NO-SUCH-CODE"), std::string::npos);
  EXPECT_NE(recode("x", "KLINGON", "UTF-8", a), SOAP_OK);
  EXPECT_EQ(FaultErr(), "INVALID_ARGUMENT");
  EXPECT_NE(recode("ab\xFF\xFE\xFD", "UTF-8", "UTF-16LE", a), SOAP_OK) << "not UTF-8";
  EXPECT_NE(FaultMsg().find("byte 2"), std::string::npos) << FaultMsg();
}
