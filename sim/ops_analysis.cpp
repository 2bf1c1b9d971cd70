// Text analysis: recoding, parsing, sentence splitting, language detection.
#include <sstream>

#include "crypto.h"
#include "frame.h"
#include "lexicon.h"
#include "text_encoding.h"
#include "text_segment.h"
#include "text_utf8.h"
#include "translate_core.h"
#include "translate_wire.h"

using lexsim::Call;
using lexsim::OpInfo;
using lexsim::Raise;
namespace api = lexsim::api;
namespace err = lexsim::err;
namespace tr = lexsim::tr;
namespace text = lexsim::text;

namespace {
constexpr OpInfo kRecode{"Recode", api::kRecode};
constexpr OpInfo kParseText{"ParseText", 0};
constexpr OpInfo kSplitSentences{"SplitSentences", api::kSplitSentences};
constexpr OpInfo kDetectLanguage{"DetectLanguage", 0};

std::string Str(const std::string* s) { return s ? *s : ""; }

void CheckEncoding(const std::string& name, const char* what) {
  if (!text::KnownEncoding(name)) Raise(err::kArgument, std::string("Unknown ") + what + " encoding: " + name);
}

// The encoding of input bytes: the one named, else a byte-order mark or detection (or,
// with nodetect, the hint or UTF-8). Returns the bytes without a byte-order mark.
std::string SourceEncoding(Call& call, const std::string& bytes, const std::string& named,
                           const std::string& hint, std::string* body) {
  size_t bom = 0;
  std::string by_bom = text::BomEncoding(bytes, &bom);
  std::string enc;
  if (!named.empty()) {
    CheckEncoding(named, "source");
    enc = named;
  } else if (call.keys().Has("nodetect")) {
    if (!hint.empty()) CheckEncoding(hint, "hinted");
    enc = hint.empty() ? "UTF-8" : hint;
  } else if (!by_bom.empty()) {
    enc = by_bom;
  } else {
    enc = text::DetectEncoding(bytes);
    // A hint decides between encodings that both read the bytes.
    if (!hint.empty() && text::KnownEncoding(hint) && enc != "UTF-8" &&
        text::Convert(bytes, hint, "UTF-8").ok)
      enc = hint;
  }
  bool strip = !by_bom.empty() && lexsim::ToLower(by_bom) == lexsim::ToLower(enc);
  *body = bytes.substr(strip ? bom : 0);
  return enc;
}

std::string ToUtf8(const std::string& body, const std::string& enc) {
  text::Converted c = text::Convert(body, enc, "UTF-8");
  if (!c.ok)
    Raise(err::kArgument, "The input is not valid " + enc + " text (byte " + std::to_string(c.bad_at) + ")");
  return c.out;
}
}  // namespace

int nv__Recode(struct soap* soap, std::string* licence, std::string* clientid,
               std::string* reqgroup, std::string* select, std::string* fromLang,
               std::string* fromEncoding, std::string* toEncoding, xsd__base64Binary* text,
               struct nv__RecodeResponse& r) {
  return lexsim::Serve(soap, kRecode, {licence, clientid, reqgroup, select}, r, [&](Call& call) {
    if (!toEncoding || toEncoding->empty()) Raise(err::kArgument, "No target encoding");
    CheckEncoding(*toEncoding, "target");
    std::string bytes = tr::Bytes(text);
    // Japanese text without a named encoding is more likely Shift_JIS than Latin-1.
    std::string hint = Str(fromLang) == "ja" && !text::ValidUtf8(bytes) ? "Shift_JIS" : "";
    std::string body;
    std::string from = SourceEncoding(call, bytes, Str(fromEncoding), hint, &body);
    text::Converted c = text::Convert(body, from, *toEncoding);
    if (!c.ok)
      Raise(err::kArgument, "The input is not valid " + from + " text (byte " + std::to_string(c.bad_at) + ")");
    if (c.replaced)
      call.Warn("recode", std::to_string(c.replaced) + " characters cannot be written in " +
                              *toEncoding + " and were replaced by '?'");
    std::string out = (call.keys().Has("usesig") ? text::BomFor(*toEncoding) : "") + c.out;
    r.encodingUsed = call.Str(from);
    r.text = tr::Binary(call.soap(), out);
  });
}

int nv__ParseText(struct soap* soap, std::string* licence, std::string* clientid,
                  std::string* reqgroup, std::string* select, nv__EngineSelect* engine,
                  nv__SourceBlockArray* blocks, struct nv__ParseTextResponse& r) {
  return lexsim::Serve(soap, kParseText, {licence, clientid, reqgroup, select}, r, [&](Call& call) {
    tr::EngineDesc e = tr::SelectEngine(engine);
    if (!blocks || blocks->item.empty()) Raise(err::kArgument, "No source blocks");
    bool rawpos = call.keys().Has("rawpos"), subject = call.keys().Has("subject");
    bool orgtext = call.keys().Has("orgtext"), nosplit = call.keys().Has("nosplit");
    auto lock = call.state().Lock();
    tr::Dictionaries dicts(call.state(), call.Target(), tr::EngineProps(engine));
    r.blocks = soap_new_nv__TextBlockArray(call.soap());
    for (size_t i = 0; i < blocks->item.size(); ++i) {
      const nv__SourceBlock& b = blocks->item[i];
      nv__TextBlock tb;
      tb.parts = nullptr;
      tb.error = nullptr;
      if (!b.text || !text::ValidUtf8(*b.text)) {
        std::string problem = b.text ? "Block text is not valid UTF-8" : "Block has no text";
        if (call.keys().Has("fault")) Raise(err::kArgument, "Block " + std::to_string(i + 1) + ": " + problem);
        tb.error = call.Str(problem);
        r.blocks->item.push_back(tb);
        continue;
      }
      tb.parts = soap_new_nv__SentenceArray(call.soap());
      for (const tr::SentenceOut& s : tr::Parse(e, dicts, *b.text, Str(b.lang), nosplit)) {
        nv__Sentence sn;
        sn.type = call.Str(std::string(1, s.kind));
        sn.loc = call.Str(text::Span(s.start, s.length));
        sn.org = orgtext ? call.Str(s.org) : nullptr;
        sn.error = nullptr;
        sn.words = soap_new_nv__WordArray(call.soap());
        for (const tr::WordOut& w : s.words) {
          nv__Word wd;
          wd.word = call.Str(w.word);
          wd.base = call.Str(w.base);
          wd.loc = call.Str(text::Span(w.start, w.length));
          wd.pos = call.Str(rawpos ? lexsim::lex::RawPos(w.pos) : w.pos);
          wd.did = call.Str(subject ? dicts.Subject(w.did) : std::to_string(w.did));
          sn.words->item.push_back(wd);
        }
        tb.parts->item.push_back(sn);
      }
      r.blocks->item.push_back(tb);
    }
  });
}

int nv__SplitSentences(struct soap* soap, std::string* licence, std::string* clientid,
                       std::string* reqgroup, std::string* select, nv__SourceBlockArray* blocks,
                       struct nv__SplitSentencesResponse& r) {
  return lexsim::Serve(
      soap, kSplitSentences, {licence, clientid, reqgroup, select}, r, [&](Call& call) {
        if (!blocks || blocks->item.empty()) Raise(err::kArgument, "No source blocks");
        bool nosplit = call.keys().Has("nosplit");
        r.blocks = soap_new_nv__TranslationBlockArray(call.soap());
        for (const nv__SourceBlock& b : blocks->item) {
          nv__TranslationBlock tb;
          tb.track = nullptr;
          tb.error = nullptr;
          tb.parts = nullptr;
          if (!b.text || !text::ValidUtf8(*b.text)) {
            tb.error = call.Str(b.text ? "Block text is not valid UTF-8" : "Block has no text");
            r.blocks->item.push_back(tb);
            continue;
          }
          // Without a language the block's own text tells which it is.
          std::string lang = Str(b.lang);
          if (lang.empty()) lang = text::DetectLanguage(*b.text, "", {}).lang;
          tb.parts = soap_new_nv__TranslationPartArray(call.soap());
          std::u32string t = text::Decode(*b.text);
          for (const text::Segment& seg : text::SplitSentences(t, nosplit)) {
            auto* p = soap_new_nv__TranslationPartEngine(call.soap());
            p->type = call.Str(seg.kind == text::Segment::kSpace ? "S" : "M");
            p->loc = call.Str(text::Span(seg.start, seg.length));
            p->lang = call.Str(lang);
            p->text = call.Str(text::Encode(t.substr(seg.start, seg.length)));
            tb.parts->item.push_back(p);
          }
          r.blocks->item.push_back(tb);
        }
      });
}

int nv__DetectLanguage(struct soap* soap, std::string* licence, std::string* clientid,
                       std::string* reqgroup, std::string* select, std::string* domain,
                       std::string* encodingHint, std::string* languageHint,
                       std::string* fromEncoding, xsd__base64Binary* text,
                       struct nv__DetectLanguageResponse& r) {
  return lexsim::Serve(
      soap, kDetectLanguage, {licence, clientid, reqgroup, select}, r, [&](Call& call) {
        std::string body;
        std::string enc = SourceEncoding(call, tr::Bytes(text), Str(fromEncoding),
                                         Str(encodingHint), &body);
        std::string utf8 = ToUtf8(body, enc);
        // The domain names the languages the text may be in.
        std::vector<std::string> allowed;
        std::stringstream ds(Str(domain));
        std::string w;
        while (std::getline(ds, w, ',')) {
          std::stringstream ws(w);
          std::string x;
          while (ws >> x) allowed.push_back(lexsim::ToLower(x));
        }
        text::LanguageGuess g = text::DetectLanguage(utf8, Str(languageHint), allowed);
        r.language = call.Str(g.lang);
        if (g.decided) {
          r.isReliable = soap_new_xsd__boolean(call.soap());
          *r.isReliable = g.reliable;
        }
        r.confidence = soap_new_xsd__double(call.soap());
        *r.confidence = g.confidence;
        r.encodingUsed = call.Str(enc);
      });
}
