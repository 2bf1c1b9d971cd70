// Text, HTML, XML and document translation.
#include "crypto.h"
#include "frame.h"
#include "lexicon.h"
#include "text_encoding.h"
#include "text_utf8.h"
#include "translate_core.h"
#include "translate_markup.h"
#include "translate_wire.h"

#include <algorithm>
#include <cstdlib>
#include <sstream>

using lexsim::Call;
using lexsim::OpInfo;
using lexsim::Raise;
namespace api = lexsim::api;
namespace err = lexsim::err;
namespace tr = lexsim::tr;
namespace text = lexsim::text;

namespace {
constexpr OpInfo kTranslateTextSimple{"TranslateTextSimple", api::kTranslateTextSimple};
constexpr OpInfo kTranslateText{"TranslateText", api::kTranslateText};
constexpr OpInfo kTranslateTextUpdate{"TranslateTextUpdate", api::kTranslateTextUpdate};
constexpr OpInfo kTranslateXml{"TranslateXml", api::kTranslateXml};
constexpr OpInfo kTranslateHtml{"TranslateHtml", api::kTranslateHtml};
constexpr OpInfo kTranslate{"Translate", api::kTranslate};
constexpr OpInfo kTranslateMulti{"TranslateMulti", api::kTranslate};

// Warnings the engine left on a block, and the fault key's failure rule.
void Report(Call& call, const tr::BlockOut& out) {
  for (const std::string& w : out.warnings) call.Warn("lang", w);
}

// TranslateText and TranslateTextUpdate share everything but the learn step.
template <class Resp>
void TranslateBlocks(Call& call, nv__EngineSelect* engine, nv__SourceBlockArray* blocks,
                     Resp& r) {
  tr::EngineDesc e = tr::SelectEngine(engine);
  if (!blocks || blocks->item.empty()) Raise(err::kArgument, "No source blocks");
  auto lock = call.state().Lock();
  tr::Dictionaries dicts(call.state(), call.Target(), tr::EngineProps(engine));
  tr::Translator translator(e, dicts, tr::FlagsOf(call.keys()));
  r.blocks = soap_new_nv__TranslationBlockArray(call.soap());
  std::vector<tr::UnknownOut> unknown;
  for (size_t i = 0; i < blocks->item.size(); ++i) {
    const nv__SourceBlock& b = blocks->item[i];
    std::string problem;
    if (!b.text) problem = "Block has no text";
    else if (!text::ValidUtf8(*b.text)) problem = "Block text is not valid UTF-8";
    // For clients' own tests: "sim.blockerror=WORD" fails the blocks that hold WORD.
    else if (auto w = call.keys().Value("sim.blockerror"); w && !w->empty() && b.text->find(*w) != std::string::npos)
      problem = "Block refused: " + *w;
    if (!problem.empty()) {
      if (call.keys().Has("fault")) Raise(err::kArgument, "Block " + std::to_string(i + 1) + ": " + problem);
      nv__TranslationBlock failed;
      failed.parts = nullptr;
      failed.track = nullptr;
      failed.error = call.Str(problem);
      r.blocks->item.push_back(failed);
      continue;
    }
    tr::BlockOut out = translator.Translate(tr::BlockOf(call, b, i));
    Report(call, out);
    unknown.insert(unknown.end(), out.unknown.begin(), out.unknown.end());
    r.blocks->item.push_back(tr::ToWire(call.soap(), out));
  }
  r.unknown = tr::UnknownToWire(call.soap(), unknown);
  // For clients' own tests: "sim.blocks=N" answers with the first N blocks only.
  if (auto n = call.keys().Value("sim.blocks")) {
    size_t keep = static_cast<size_t>(std::max(0L, strtol(n->c_str(), nullptr, 10)));
    if (keep < r.blocks->item.size()) r.blocks->item.resize(keep);
  }
}

// ---- Documents ------------------------------------------------------------------------

struct DocOut {
  std::string data;
  std::string type;  // "text", "html" or "xml"
  std::string encoding_used;
  std::vector<tr::UnknownOut> unknown;
};

std::string Upper(std::string s) {
  for (char& c : s) c = static_cast<char>(toupper(static_cast<unsigned char>(c)));
  return s;
}

// The document type: the intype select key, else what the content looks like.
std::string DocumentType(Call& call, const std::string& bytes) {
  if (auto t = call.keys().Value("intype"); t && !t->empty()) {
    std::string v = lexsim::ToLower(*t);
    if (!v.empty() && v[0] == '.') v.erase(0, 1);
    if (v == "txt" || v == "text") return "text";
    if (v == "htm" || v == "html" || v == "xhtml") return "html";
    if (v == "xml" || v == "xlf" || v == "xliff") return "xml";
    return v;
  }
  if (bytes.compare(0, 5, "%PDF-") == 0) return "pdf";
  if (bytes.compare(0, 4, "PK\x03\x04") == 0) return "zip";
  if (bytes.compare(0, 4, "\xD0\xCF\x11\xE0") == 0) return "doc";
  if (bytes.compare(0, 5, "{\\rtf") == 0) return "rtf";
  size_t bom = 0;
  std::string enc = text::BomEncoding(bytes, &bom);
  if (enc.empty() && bytes.find('\0') != std::string::npos) return "binary";
  std::string head = lexsim::ToLower(bytes.substr(bom, 1024));
  size_t lead = head.find_first_not_of(" \t\r\n");
  if (lead == std::string::npos) return "text";
  if (head.find("<html") != std::string::npos || head.find("<!doctype html") != std::string::npos ||
      head.find("<body") != std::string::npos)
    return "html";
  if (head[lead] == '<') return "xml";
  return "text";
}

// Translation rules of a document: "word=translation" forces, "!word" keeps a word.
void ApplyRules(Call& call, tr::Translator& translator, const std::string* rules) {
  if (!rules) return;
  std::stringstream in(*rules);
  std::string line;
  int n = 0;
  while (std::getline(in, line)) {
    ++n;
    if (!line.empty() && line.back() == '\r') line.pop_back();
    size_t b = line.find_first_not_of(" \t");
    if (b == std::string::npos || line[b] == '#') continue;
    line = line.substr(b);
    if (line[0] == '!' && line.size() > 1) {
      translator.AddRule(line.substr(1), line.substr(1));
      continue;
    }
    size_t eq = line.find('=');
    if (eq == std::string::npos || eq == 0) {
      call.Warn("rules", "Line " + std::to_string(n) + " ignored: " + line);
      continue;
    }
    translator.AddRule(line.substr(0, eq), line.substr(eq + 1));
  }
}

// Input bytes as UTF-8: the byte-order mark or the detected encoding.
std::string ToUtf8(std::string bytes, const std::string& enc, std::string* used) {
  size_t bom = 0;
  std::string b = text::BomEncoding(bytes, &bom);
  std::string e = !enc.empty() ? enc : !b.empty() ? b : text::DetectEncoding(bytes);
  *used = e;
  bytes.erase(0, b == e || enc.empty() ? bom : 0);
  if (e == "UTF-8") return bytes;
  text::Converted c = text::Convert(bytes, e, "UTF-8");
  if (!c.ok) Raise(err::kArgument, "The document is not valid " + e + " text (byte " + std::to_string(c.bad_at) + ")");
  return c.out;
}

DocOut TranslateDocument(Call& call, const tr::Translator& translator, std::string bytes,
                         size_t index) {
  DocOut d;
  d.type = DocumentType(call, bytes);
  std::string which = index ? " (document " + std::to_string(index) + ")" : "";
  if (d.type != "text" && d.type != "html" && d.type != "xml")
    Raise(tr::kUnsupportedDocument, "Document type " + Upper(d.type) + which +
                                        " cannot be translated by lexsim; it translates plain "
                                        "text, HTML and XML documents");
  if (d.type == "text") {
    size_t bom = 0;
    bool had_bom = !text::BomEncoding(bytes, &bom).empty();
    std::string utf8 = ToUtf8(std::move(bytes), "", &d.encoding_used);
    tr::BlockIn in;
    in.text = utf8;
    tr::BlockOut out = translator.Translate(in);
    d.unknown = out.unknown;
    d.data = (had_bom ? "\xEF\xBB\xBF" : "") + out.translation;
  } else if (d.type == "html") {
    std::string meta = tr::HtmlMetaCharset(bytes);
    std::string utf8 = ToUtf8(std::move(bytes), text::KnownEncoding(meta) ? meta : "", &d.encoding_used);
    tr::HtmlOptions opt;
    d.data = tr::TranslateHtml(translator, utf8, opt, &d.unknown);
  } else {
    std::string utf8 = ToUtf8(std::move(bytes), "", &d.encoding_used);
    std::vector<tr::XmlError> errors;
    if (!tr::TranslateXml(translator, utf8, "", &d.data, &errors, &d.unknown)) {
      const tr::XmlError& e = errors.front();
      Raise(err::kArgument, "XML document" + which + " is not well-formed: line " +
                                std::to_string(e.line) + ", column " + std::to_string(e.column) +
                                ": " + e.message);
    }
  }
  return d;
}

// A short account of the translation, returned as an attachment of each document.
nv__OutputFileArray* ReportAttachment(Call& call, const DocOut& d) {
  std::string rep = "Document type: " + d.type + "\nInput encoding: " + d.encoding_used +
                    "\nUnknown words: " + std::to_string(d.unknown.size()) + "\n";
  for (const tr::UnknownOut& u : d.unknown)
    rep += "  " + text::Encode(text::Decode(u.context).substr(u.start, u.length)) + "\n";
  auto* a = soap_new_nv__OutputFileArray(call.soap());
  nv__OutputFile f;
  f.data = tr::Binary(call.soap(), rep);
  f.name = call.Str("translation-report.txt");
  f.type = call.Str("text/plain");
  a->item.push_back(f);
  return a;
}

// Takes the document's bytes; the rest of d stays for the report.
nv__OutputData* OutputOf(Call& call, DocOut& d, bool attach) {
  auto* o = soap_new_nv__OutputData(call.soap());
  o->data = tr::Binary(call.soap(), std::move(d.data));
  o->encodingUsed = call.Str(d.encoding_used);
  o->outputEncoding = call.Str("UTF-8");
  o->type = call.Str(d.type);
  o->attachments = attach ? ReportAttachment(call, d) : nullptr;
  return o;
}

}  // namespace

int nv__TranslateTextSimple(struct soap* soap, std::string* licence, std::string* clientid,
                            std::string* reqgroup, std::string* select, nv__EngineSelect* engine,
                            std::string* text, std::string* track,
                            struct nv__TranslateTextSimpleResponse& r) {
  return lexsim::Serve(soap, kTranslateTextSimple, {licence, clientid, reqgroup, select}, r,
                       [&](Call& call) {
                         tr::EngineDesc e = tr::SelectEngine(engine);
                         if (!text) Raise(err::kArgument, "No text");
                         if (!text::ValidUtf8(*text)) Raise(err::kArgument, "Text is not valid UTF-8");
                         auto lock = call.state().Lock();
                         tr::Dictionaries dicts(call.state(), call.Target(), tr::EngineProps(engine));
                         tr::Flags flags = tr::FlagsOf(call.keys());
                         tr::Translator translator(e, dicts, flags);
                         nv__SourceBlock b{};
                         b.text = text;
                         b.track = track;
                         tr::BlockOut out = translator.Translate(tr::BlockOf(call, b, 0));
                         Report(call, out);
                         r.text = call.Str(out.translation);
                         if (track && !track->empty()) r.track = call.Str(out.track);
                         if (flags.sent) r.sent = call.Str(out.sent);
                         if (flags.equiv) {
                           r.equiv = soap_new_nv__TranslateEquiv(call.soap());
                           r.equiv->org = call.Str(out.equiv_org);
                           r.equiv->txn = call.Str(out.equiv_txn);
                         }
                       });
}

int nv__TranslateText(struct soap* soap, std::string* licence, std::string* clientid,
                      std::string* reqgroup, std::string* select, nv__EngineSelect* engine,
                      nv__SourceBlockArray* blocks, struct nv__TranslateTextResponse& r) {
  return lexsim::Serve(soap, kTranslateText, {licence, clientid, reqgroup, select}, r,
                       [&](Call& call) { TranslateBlocks(call, engine, blocks, r); });
}

int nv__TranslateTextUpdate(struct soap* soap, std::string* licence, std::string* clientid,
                            std::string* reqgroup, std::string* select, nv__EngineSelect* engine,
                            nv__SourceBlockArray* blocks,
                            struct nv__TranslateTextUpdateResponse& r) {
  return lexsim::Serve(soap, kTranslateTextUpdate, {licence, clientid, reqgroup, select}, r,
                       [&](Call& call) { TranslateBlocks(call, engine, blocks, r); });
}

int nv__TranslateXml(struct soap* soap, std::string* licence, std::string* clientid,
                     std::string* reqgroup, std::string* select, nv__EngineSelect* engine,
                     xsd__base64Binary* orgXml, xsd__base64Binary* orgXslt,
                     struct nv__TranslateXmlResponse& r) {
  return lexsim::Serve(
      soap, kTranslateXml, {licence, clientid, reqgroup, select}, r, [&](Call& call) {
        tr::EngineDesc e = tr::SelectEngine(engine);
        std::string xml = tr::Bytes(orgXml);
        if (xml.empty()) Raise(err::kArgument, "No XML document");
        auto lock = call.state().Lock();
        tr::Dictionaries dicts(call.state(), call.Target(), tr::EngineProps(engine));
        tr::Translator translator(e, dicts, tr::FlagsOf(call.keys()));
        std::string out;
        std::vector<tr::XmlError> errors;
        std::vector<tr::UnknownOut> unknown;
        if (!text::ValidUtf8(xml)) {
          errors.push_back({"XML", "fatal", 1, 1, "The document is not UTF-8"});
        } else if (tr::TranslateXml(translator, xml, tr::Bytes(orgXslt), &out, &errors, &unknown)) {
          r.txnDoc = tr::Binary(call.soap(), out);
        }
        if (!errors.empty()) {
          r.docError = soap_new_nv__DocErrorArray(call.soap());
          for (const tr::XmlError& x : errors) {
            nv__DocError d;
            d.type = call.Str(x.type);
            d.level = call.Str(x.level);
            d.line = x.line;
            d.column = x.column;
            d.message = call.Str(x.message);
            r.docError->item.push_back(d);
          }
          if (call.keys().Has("fault"))
            Raise(err::kArgument, errors.front().type + " error at line " +
                                      std::to_string(errors.front().line) + ": " +
                                      errors.front().message);
        }
        r.unknown = tr::UnknownToWire(call.soap(), unknown);
      });
}

int nv__TranslateHtml(struct soap* soap, std::string* licence, std::string* clientid,
                      std::string* reqgroup, std::string* select, nv__EngineSelect* engine,
                      std::string* style, std::string* pageBaseUrl, std::string* encoding,
                      std::string* targetName, nv__UrlRewriteArray* rewriteUrls,
                      xsd__base64Binary* document, struct nv__TranslateHtmlResponse& r) {
  return lexsim::Serve(
      soap, kTranslateHtml, {licence, clientid, reqgroup, select}, r, [&](Call& call) {
        tr::EngineDesc e = tr::SelectEngine(engine);
        tr::HtmlOptions opt;
        if (style && !style->empty()) opt.style = lexsim::ToLower(*style);
        if (!tr::KnownHtmlStyle(opt.style)) Raise(err::kArgument, "Invalid style: " + *style);
        if (auto t = call.keys().Value("tag")) opt.tag = *t;
        opt.txnonly = call.keys().Has("txnonly");
        opt.nobuttons = call.keys().Has("nobuttons");
        opt.fragment = call.keys().Has("fragment");
        if (pageBaseUrl) opt.base_url = *pageBaseUrl;
        if (targetName) opt.target = *targetName;
        if (rewriteUrls)
          for (const nv__UrlRewrite& u : rewriteUrls->item)
            if (u.urlTemplate) opt.rewrites.emplace_back(u.tags, *u.urlTemplate);
        std::string bytes = tr::Bytes(document);
        // The caller's encoding wins; else the page's own declaration, else detection.
        std::string enc;
        if (encoding && !encoding->empty()) {
          if (!text::KnownEncoding(*encoding)) Raise(err::kArgument, "Unknown encoding: " + *encoding);
          enc = *encoding;
        } else if (call.keys().Has("nodetect")) {
          enc = "UTF-8";
        } else {
          std::string meta = tr::HtmlMetaCharset(bytes);
          if (text::KnownEncoding(meta)) enc = meta;
        }
        std::string used;
        std::string utf8 = ToUtf8(std::move(bytes), enc, &used);
        auto lock = call.state().Lock();
        tr::Dictionaries dicts(call.state(), call.Target(), tr::EngineProps(engine));
        tr::Translator translator(e, dicts, tr::FlagsOf(call.keys()));
        std::vector<tr::UnknownOut> unknown;
        std::string out = tr::TranslateHtml(translator, utf8, opt, &unknown);
        r.encodingUsed = call.Str(used);
        r.document = tr::Binary(call.soap(), std::move(out));
        r.outputEncoding = call.Str("UTF-8");
        r.unknown = tr::UnknownToWire(call.soap(), unknown);
      });
}

int nv__Translate(struct soap* soap, std::string* licence, std::string* clientid,
                  std::string* reqgroup, std::string* select, nv__EngineSelect* engine,
                  std::string* rules, nv__InputData* indata, struct nv__TranslateResponse& r) {
  return lexsim::Serve(
      soap, kTranslate, {licence, clientid, reqgroup, select}, r, [&](Call& call) {
        tr::EngineDesc e = tr::SelectEngine(engine);
        if (!indata || !indata->data) Raise(err::kArgument, "No input document");
        auto lock = call.state().Lock();
        tr::Dictionaries dicts(call.state(), call.Target(), tr::EngineProps(engine));
        tr::Translator translator(e, dicts, tr::FlagsOf(call.keys()));
        ApplyRules(call, translator, rules);
        DocOut d = TranslateDocument(call, translator, tr::Bytes(indata->data), 0);
        r.encodingUsed = call.Str(d.encoding_used);
        r.outdata = OutputOf(call, d, false);
        r.unknown = tr::UnknownToWire(call.soap(), d.unknown);
        r.outputEncoding = call.Str("UTF-8");
        r.outtype = call.Str(d.type);
        r.attachments = ReportAttachment(call, d);
      });
}

int nv__TranslateMulti(struct soap* soap, std::string* licence, std::string* clientid,
                       std::string* reqgroup, std::string* select, nv__EngineSelect* engine,
                       std::string* rules, nv__InputDataArray* indata,
                       struct nv__TranslateMultiResponse& r) {
  return lexsim::Serve(
      soap, kTranslateMulti, {licence, clientid, reqgroup, select}, r, [&](Call& call) {
        tr::EngineDesc e = tr::SelectEngine(engine);
        if (!indata || indata->item.empty()) Raise(err::kArgument, "No input documents");
        auto lock = call.state().Lock();
        tr::Dictionaries dicts(call.state(), call.Target(), tr::EngineProps(engine));
        tr::Translator translator(e, dicts, tr::FlagsOf(call.keys()));
        ApplyRules(call, translator, rules);
        r.outdata = soap_new_nv__OutputDataArray(call.soap());
        std::vector<tr::UnknownOut> unknown;
        for (size_t i = 0; i < indata->item.size(); ++i) {
          DocOut d = TranslateDocument(call, translator, tr::Bytes(indata->item[i].data), i + 1);
          unknown.insert(unknown.end(), d.unknown.begin(), d.unknown.end());
          r.outdata->item.push_back(*OutputOf(call, d, true));
        }
        r.unknown = tr::UnknownToWire(call.soap(), unknown);
      });
}
