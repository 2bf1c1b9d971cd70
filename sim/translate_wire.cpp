#include "translate_wire.h"

#include <cstring>
#include <sstream>

#include "text_utf8.h"

namespace lexsim::tr {

EngineDesc SelectEngine(const nv__EngineSelect* engine) {
  std::string eid = engine && engine->eid && !engine->eid->empty() ? *engine->eid : kDefaultEid;
  std::optional<EngineDesc> e = FindEngineDesc(eid);
  if (!e) Raise(err::kNotFound, "Unknown engine: " + eid);
  return *e;
}

std::map<std::string, std::string> EngineProps(const nv__EngineSelect* engine) {
  std::map<std::string, std::string> props;
  if (engine && engine->properties)
    for (const nv__KeyValPair& kv : engine->properties->item) props[kv.key] = kv.val;
  return props;
}

Flags FlagsOf(const SelectKeys& keys) {
  Flags f;
  f.nosplit = keys.Has("nosplit");
  f.equiv = keys.Has("equiv");
  f.pos = keys.Has("pos");
  f.rawpos = keys.Has("rawpos");
  f.dicinfo = keys.Has("dicinfo");
  f.altword = keys.Has("altword");
  f.orgtext = keys.Has("orgtext");
  f.inter = keys.Has("inter");
  f.sent = keys.Has("sent");
  return f;
}

namespace {
// "a b;c d;" -> groups of numbers; false when a group is not `want` integers.
bool Groups(const std::string& s, size_t want, std::vector<std::vector<long>>* out) {
  std::stringstream all(s);
  std::string group;
  while (std::getline(all, group, ';')) {
    if (group.find_first_not_of(" \t") == std::string::npos) continue;
    std::stringstream g(group);
    std::vector<long> nums;
    long n;
    while (g >> n) nums.push_back(n);
    if (!g.eof() || nums.size() != want) return false;
    for (long v : nums)
      if (v < 0 && nums.size() == 2) return false;
    out->push_back(nums);
  }
  return true;
}
}  // namespace

BlockIn BlockOf(Call& call, const nv__SourceBlock& b, size_t index) {
  BlockIn in;
  in.text = b.text ? *b.text : "";
  in.lang = b.lang ? *b.lang : "";
  size_t len = text::Decode(in.text).size();
  std::string where = "Block " + std::to_string(index + 1) + ": ";
  if (b.track && !b.track->empty()) {
    std::vector<std::vector<long>> g;
    if (!Groups(*b.track, 2, &g)) {
      call.Warn("track", where + "invalid track data '" + *b.track + "'");
    } else {
      for (const auto& v : g) {
        if (static_cast<size_t>(v[0] + v[1]) > len) {
          call.Warn("track", where + "track span " + text::Span(v[0], v[1]) + " lies outside the text");
          continue;
        }
        in.track.emplace_back(v[0], v[1]);
      }
    }
  }
  if (b.phrase && !b.phrase->empty()) {
    std::vector<std::vector<long>> g;
    if (!Groups(*b.phrase, 3, &g)) {
      call.Warn("phrase", where + "invalid phrase data '" + *b.phrase + "'");
    } else {
      for (const auto& v : g) {
        if (v[1] < 0 || v[2] < 0 || static_cast<size_t>(v[1] + v[2]) > len) {
          call.Warn("phrase", where + "phrase span lies outside the text");
          continue;
        }
        in.phrase.push_back(PhraseSpan{static_cast<int>(v[0]), static_cast<size_t>(v[1]),
                                       static_cast<size_t>(v[2])});
      }
    }
  }
  if (b.setword) {
    for (const std::string& item : b.setword->item) {
      size_t eq = item.find('=');
      if (eq == std::string::npos || eq == 0) {
        call.Warn("setword", where + "invalid change-translation instruction '" + item + "'");
        continue;
      }
      in.setword.emplace_back(item.substr(0, eq), item.substr(eq + 1));
    }
  }
  return in;
}

nv__TranslationBlock ToWire(struct soap* soap, const BlockOut& out) {
  auto str = [soap](const std::string& s) {
    auto* p = soap_new_std__string(soap);
    *p = s;
    return p;
  };
  auto opt = [&](const std::string& s) { return s.empty() ? nullptr : str(s); };
  nv__TranslationBlock b;
  b.parts = soap_new_nv__TranslationPartArray(soap);
  b.track = opt(out.track);
  b.error = nullptr;
  for (const PartOut& p : out.parts) {
    nv__TranslationPart* base;
    if (p.memory) {
      auto* m = soap_new_nv__TranslationPartMemory(soap);
      m->rate = soap_new_xsd__int(soap);
      *m->rate = p.rate;
      m->entry = opt(p.entry);
      m->diff = opt(p.diff);
      m->pattern = opt(p.pattern);
      m->keyword = opt(p.keyword);
      base = m;
    } else {
      auto* e = soap_new_nv__TranslationPartEngine(soap);
      e->phrase = opt(p.phrase);
      e->pos = opt(p.pos);
      e->dicinfo = opt(p.dicinfo);
      if (!p.altword.empty()) {
        e->altword = soap_new_nv__StringArray(soap);
        e->altword->item = p.altword;
      }
      base = e;
    }
    base->type = str(std::string(1, p.kind));
    base->loc = str(text::Span(p.start, p.length));
    base->lang = str(p.lang);
    base->text = str(p.text);
    if (!p.equiv_org.empty() || !p.equiv_txn.empty()) {
      base->equiv = soap_new_nv__TranslateEquiv(soap);
      base->equiv->org = str(p.equiv_org);
      base->equiv->txn = str(p.equiv_txn);
    }
    b.parts->item.push_back(base);
  }
  return b;
}

nv__UnknownWordArray* UnknownToWire(struct soap* soap, const std::vector<UnknownOut>& unknown) {
  if (unknown.empty()) return nullptr;
  auto* a = soap_new_nv__UnknownWordArray(soap);
  for (const UnknownOut& u : unknown) {
    nv__UnknownWord w;
    w.context = soap_new_std__string(soap);
    *w.context = u.context;
    w.start = static_cast<int>(u.start);
    w.length = static_cast<int>(u.length);
    a->item.push_back(w);
  }
  return a;
}

xsd__base64Binary* Binary(struct soap* soap, std::string bytes) {
  auto* b = soap_new_xsd__base64Binary(soap);
  b->__size = static_cast<int>(bytes.size());
  // The context keeps the string, so a large document is not copied again.
  std::string* kept = soap_new_std__string(soap);
  *kept = std::move(bytes);
  b->__ptr = reinterpret_cast<unsigned char*>(kept->data());
  b->id = nullptr;
  b->options = nullptr;
  // A type turns the value into a DIME attachment: only for clients that sent DIME.
  b->type = (soap->omode & SOAP_ENC_DIME) ? soap_strdup(soap, "application/octet-stream") : nullptr;
  return b;
}

std::string Bytes(const xsd__base64Binary* b) {
  if (!b || !b->__ptr || b->__size <= 0) return "";
  return std::string(reinterpret_cast<const char*>(b->__ptr), static_cast<size_t>(b->__size));
}

}  // namespace lexsim::tr
