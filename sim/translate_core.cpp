#include "translate_core.h"

#include <algorithm>
#include <optional>

#include "lexicon.h"
#include "text_segment.h"
#include "text_utf8.h"

namespace lexsim::tr {

std::string ToLowerAscii(const std::string& s);

namespace {

using text::Decode;
using text::Encode;

// Dictionary codes for words that no dictionary supplied.
constexpr int64_t kForcedDid = -1;  // setword instructions and document rules

// Dictionaries write parts of speech in several ways; the wire speaks QZ_POS.
std::string QzPos(const std::string& pos) {
  std::string p = ToLowerAscii(pos);
  if (p == "noun" || p == "n") return "NOUN";
  if (p == "verb" || p == "v") return "VERB";
  if (p == "adj" || p == "adjective" || p == "a") return "ADJ";
  if (p == "adv" || p == "adverb") return "ADV";
  if (p == "pron" || p == "pronoun") return "PRON";
  if (p == "det" || p == "article") return "DET";
  if (p == "prep" || p == "preposition") return "PREP";
  if (p == "conj" || p == "conjunction") return "CONJ";
  if (p == "interj" || p == "intj" || p == "interjection") return "INTJ";
  if (p == "phrase") return "PHRASE";
  if (p.empty()) return "UNKN";
  std::string up;
  for (char c : pos) up.push_back(static_cast<char>(c >= 'a' && c <= 'z' ? c - 32 : c));
  return up;
}

// One word (or phrase) looked up in one direction.
struct Lookup {
  bool known = false;
  std::string target;
  int64_t did = 0;
  std::string pos;
  std::vector<std::pair<int64_t, std::string>> alts;
};

// A translated unit of a sentence: a word, a phrase, a number or a punctuation mark.
struct Unit {
  enum Kind { kWord, kNumber, kPunct } kind;
  size_t ostart = 0, olen = 0;  // in the block
  std::u32string txt;
  bool unknown = false;
  int64_t did = 0;
  std::string pos;
  std::vector<std::pair<int64_t, std::string>> alts;
  std::u32string inter;
  size_t tstart = 0, tlen = 0;  // in the sentence translation, filled by Assemble
};

Unit MakeUnit(Unit::Kind kind, size_t start, size_t len, std::u32string txt) {
  Unit u;
  u.kind = kind;
  u.ostart = start;
  u.olen = len;
  u.txt = std::move(txt);
  return u;
}

char32_t MapPunct(char32_t c, bool to_unspaced) {
  if (to_unspaced) {
    switch (c) {
      case '.': return 0x3002;
      case ',': return 0x3001;
      case '?': return 0xFF1F;
      case '!': return 0xFF01;
      default: return c;
    }
  }
  switch (c) {
    case 0x3002: return '.';
    case 0x3001: return ',';
    case 0xFF1F: return '?';
    case 0xFF01: return '!';
    case 0x300C: case 0x300D: return '"';
    default: return c;
  }
}

bool NoSpaceBefore(char32_t c) {
  return c == '.' || c == ',' || c == '!' || c == '?' || c == ';' || c == ':' || c == ')' ||
         c == ']' || c == '}' || c == '%' || c == 0x2026;
}
bool NoSpaceAfter(char32_t c) { return c == '(' || c == '[' || c == '{'; }
bool Alnum(char32_t c) { return text::IsLatinLetter(c) || text::IsDigit(c); }

std::string Spans(const std::vector<std::pair<size_t, size_t>>& v) {
  std::string s;
  for (auto [a, b] : v) s += text::Span(a, b) + ";";
  return s;
}


class SentenceJob {
 public:
  SentenceJob(const EngineDesc& e, const Dictionaries& d,
              const std::vector<std::pair<std::string, std::string>>& forced,
              const std::u32string& block, size_t start, size_t length, const std::string& from,
              const std::vector<PhraseSpan>& phrases)
      : e_(e), d_(d), forced_(forced), block_(block), start_(start),
        length_(length), from_(from), phrases_(phrases) {}

  std::vector<Unit> Run() {
    std::u32string_view sent(block_.data() + start_, length_);
    std::vector<text::Token> toks = text::Tokenize(sent);
    for (auto& t : toks) t.start += start_;
    std::vector<Unit> units;
    for (size_t i = 0; i < toks.size();) {
      const text::Token& t = toks[i];
      if (t.kind == text::Token::kSpace) {
        ++i;
        continue;
      }
      if (t.kind == text::Token::kPunct) {
        units.push_back(MakeUnit(Unit::kPunct, t.start, t.length,
                                 std::u32string(1, MapPunct(block_[t.start], lex::Unspaced(e_.to)))));
        ++i;
        continue;
      }
      if (t.kind == text::Token::kNumber) {
        units.push_back(MakeUnit(Unit::kNumber, t.start, t.length, block_.substr(t.start, t.length)));
        units.back().pos = "NUM";
        ++i;
        continue;
      }
      // Phrase spans of the request come first: kept or translated as one unit.
      if (const PhraseSpan* p = PhraseAt(t.start)) {
        size_t j = i;
        while (j < toks.size() && toks[j].start + toks[j].length <= p->start + p->length) ++j;
        if (j > i) {
          size_t end = toks[j - 1].start + toks[j - 1].length;
          std::u32string src = block_.substr(t.start, end - t.start);
          if (p->type == 1) {
            units.push_back(tr::MakeUnit(Unit::kWord, t.start, end - t.start, src));
            units.back().pos = "PHRASE";
            i = j;
            continue;
          }
          if (j - i > 1) {
            Lookup lk = Translate(Encode(src), false);
            if (lk.known) {
              units.push_back(WordUnit(t.start, end - t.start, lk));
              i = j;
              continue;
            }
          }
        }
      }
      // Multi-word entries: up to three words joined by single blanks.
      bool done = false;
      for (size_t n = 3; n >= 2 && !done; --n) {
        size_t last = i + 2 * (n - 1);
        if (last >= toks.size()) continue;
        bool ok = true;
        for (size_t k = i; k <= last; ++k) {
          bool word_slot = (k - i) % 2 == 0;
          ok = ok && (word_slot ? toks[k].kind == text::Token::kWord
                                : toks[k].kind == text::Token::kSpace && toks[k].length == 1 &&
                                      block_[toks[k].start] == ' ');
        }
        if (!ok) continue;
        size_t end = toks[last].start + toks[last].length;
        Lookup lk = Translate(Encode(block_.substr(t.start, end - t.start)), false);
        if (lk.known) {
          units.push_back(WordUnit(t.start, end - t.start, lk));
          i = last + 1;
          done = true;
        }
      }
      if (done) continue;
      Lookup lk = Translate(Encode(block_.substr(t.start, t.length)), true);
      units.push_back(WordUnit(t.start, t.length, lk));
      ++i;
    }
    return units;
  }

 private:
  const PhraseSpan* PhraseAt(size_t pos) const {
    for (const PhraseSpan& p : phrases_)
      if (p.start == pos && p.length > 0) return &p;
    return nullptr;
  }

  Unit WordUnit(size_t start, size_t len, const Lookup& lk) {
    Unit u = tr::MakeUnit(Unit::kWord, start, len, {});
    if (lk.known) {
      u.txt = Decode(lk.target);
      u.did = lk.did;
      u.alts = lk.alts;
      u.pos = lk.pos;
    } else {
      u.txt = block_.substr(start, len);
      u.unknown = true;
      u.pos = "UNKN";
    }
    u.inter = Decode(inter_);
    return u;
  }

  // One direction: forced words, the user's dictionaries, the system dictionary, the
  // lexicon; the surface form first, then (for single words) the base form.
  Lookup Direction(const std::string& eid, const std::string& from, const std::string& to,
                   const std::string& src, bool base) const {
    Lookup out;
    std::string fold = ToLowerAscii(src);
    for (const auto& [w, t] : forced_)
      if (ToLowerAscii(w) == fold) {
        out.known = true;
        out.target = t;
        out.did = kForcedDid;
        out.pos = lex::PosOf(from, src);
        return out;
      }
    std::vector<std::string> forms{src};
    if (base) {
      std::string b = lex::BaseForm(from, src);
      if (b != fold) forms.push_back(b);
    }
    auto add = [&](const std::string& target, int64_t did, const std::string& pos) {
      if (!out.known) {
        out.known = true;
        out.target = target;
        out.did = did;
        out.pos = QzPos(pos);
        return;
      }
      if (target == out.target || target.empty()) return;
      for (const auto& a : out.alts)
        if (a.second == target) return;
      out.alts.emplace_back(did, target);
    };
    for (const std::string& form : forms) {
      for (const Hit& h : d_.User(eid, form))
        if (!h.tm) add(h.target, h.did, h.pos);
      for (const Hit& h : d_.System(eid, form))
        if (!h.tm) add(h.target, h.did, h.pos);
      for (const lex::Sense& s : lex::Lookup(from, to, form)) add(s.target, d_.LexiconDid(eid), s.pos);
      if (out.known) break;
    }
    return out;
  }

  Lookup Translate(const std::string& src, bool base) {
    inter_.clear();
    if (!e_.bridge()) return Direction(e_.eid, from_, e_.to, src, base);
    Lookup left = Direction(e_.left, from_, e_.inter, src, base);
    if (!left.known) return left;
    inter_ = left.target;
    if (left.target.empty()) return left;
    Lookup right = Direction(e_.right, e_.inter, e_.to, left.target, true);
    if (!right.known) {
      // The intermediate word stands in for the target word.
      right = left;
      right.alts.clear();
    }
    return right;
  }

  const EngineDesc& e_;
  const Dictionaries& d_;
  const std::vector<std::pair<std::string, std::string>>& forced_;
  const std::u32string& block_;
  size_t start_, length_;
  std::string from_;
  const std::vector<PhraseSpan>& phrases_;
  std::string inter_;
};

// Joins the units into the sentence's translation and records where each landed.
std::u32string Assemble(std::vector<Unit>& units, const std::string& to, bool inter) {
  bool unspaced = lex::Unspaced(to);
  std::u32string out;
  bool opened = false;
  for (Unit& u : units) {
    std::u32string t = inter ? u.inter : u.txt;
    if (inter && t.empty() && u.kind != Unit::kWord) t = u.txt;
    if (t.empty()) {
      u.tstart = out.size();
      u.tlen = 0;
      continue;
    }
    if (!out.empty()) {
      bool space = unspaced ? Alnum(out.back()) && Alnum(t.front())
                            : !(u.kind == Unit::kPunct && NoSpaceBefore(t.front())) && !opened;
      if (space) out.push_back(' ');
    }
    u.tstart = out.size();
    u.tlen = t.size();
    out += t;
    opened = u.kind == Unit::kPunct && NoSpaceAfter(t.front());
  }
  if (!unspaced && !out.empty()) out[0] = text::Upper(out[0]);
  return out;
}

// The translation span that an original span maps to.
std::pair<size_t, size_t> MapSpan(const std::vector<std::pair<std::pair<size_t, size_t>,
                                                              std::pair<size_t, size_t>>>& map,
                                  size_t start, size_t len, size_t total) {
  size_t lo = SIZE_MAX, hi = 0;
  std::optional<size_t> next;
  for (const auto& [o, t] : map) {
    bool overlaps = len == 0 ? o.first == start
                             : o.first < start + len && start < o.first + o.second;
    if (overlaps && t.second > 0) {
      lo = std::min(lo, t.first);
      hi = std::max(hi, t.first + t.second);
    }
    if (!next && o.first >= start) next = t.first;
  }
  if (lo == SIZE_MAX) return {next.value_or(total), 0};
  return {lo, hi - lo};
}


}  // namespace

std::string ToLowerAscii(const std::string& s) {
  return Encode(text::Lower(Decode(s)));
}

BlockOut Translator::Translate(const BlockIn& in) const {
  BlockOut out;
  std::u32string block = Decode(in.text);
  std::string from = in.lang.empty() ? engine_.from : in.lang;
  if (!in.lang.empty() && in.lang != engine_.from)
    out.warnings.push_back("Block language " + in.lang + " is not the source language " +
                           engine_.from + " of " + engine_.eid);
  std::vector<std::pair<std::string, std::string>> forced = rules_;
  forced.insert(forced.end(), in.setword.begin(), in.setword.end());

  // (org span in block, txn span in block translation) of every unit, for track mapping.
  std::vector<std::pair<std::pair<size_t, size_t>, std::pair<size_t, size_t>>> map;
  std::u32string txn;
  std::vector<std::pair<size_t, size_t>> eq_org, eq_txn;
  std::string sent;
  int min_rate = 70;
  if (auto it = dicts_.props().find("tm.min.rate"); it != dicts_.props().end()) {
    try {
      min_rate = std::clamp(std::stoi(it->second), 0, 100);
    } catch (const std::exception&) {
    }
  }

  for (const text::Segment& seg : text::SplitSentences(block, flags_.nosplit)) {
    PartOut part;
    part.start = seg.start;
    part.length = seg.length;
    part.lang = engine_.to;
    std::u32string org = block.substr(seg.start, seg.length);
    size_t base = txn.size();
    if (seg.kind == text::Segment::kSpace) {
      part.kind = 'S';
      part.text = Encode(org);
      map.push_back({{seg.start, seg.length}, {base, org.size()}});
      txn += org;
      out.parts.push_back(std::move(part));
      continue;
    }
    if (flags_.orgtext) part.orgtext = Encode(text::Normalize(org));

    // Translation memory: the best entry at or above the lowest rate wins.
    if (engine_.memory) {
      std::string sentence = Encode(org);
      std::optional<Hit> best;
      std::string best_key;
      for (const Hit& h : dicts_.User(engine_.eid, sentence))
        if (h.tm && (!best || h.rate > best->rate)) best = h;
      for (const lex::MemoryPair& p : lex::SystemMemory()) {
        const std::string& key = lex::MemorySide(p, from);
        const std::string& target = lex::MemorySide(p, engine_.to);
        if (key.empty() || target.empty()) continue;
        int rate = MatchRate(key, sentence);
        if (!best || rate > best->rate) {
          best = Hit{target, lex::kSystemMemoryDid, p.id, "", true, rate};
          best_key = key;
        }
      }
      if (best && best->rate >= min_rate && best->rate > 0) {
        part.memory = true;
        part.kind = best->rate == 100 ? 'E' : 'F';
        part.rate = best->rate;
        part.entry = std::to_string(best->did) + ":" + std::to_string(best->entry_id);
        part.text = best->target;
        if (!best_key.empty() && best->rate < 100) {
          // Words only the source has (+) and words only the memory has (-).
          std::u32string k = text::Lower(Decode(best_key)), s = text::Lower(org);
          auto words = [](const std::u32string& t) {
            std::vector<std::u32string> v;
            for (const text::Token& tok : text::Tokenize(t))
              if (tok.kind == text::Token::kWord) v.push_back(t.substr(tok.start, tok.length));
            return v;
          };
          auto kw = words(k), sw = words(s);
          for (const auto& w : sw)
            if (std::find(kw.begin(), kw.end(), w) == kw.end()) part.diff += "+" + Encode(w) + " ";
          for (const auto& w : kw) {
            if (std::find(sw.begin(), sw.end(), w) == sw.end()) part.diff += "-" + Encode(w) + " ";
            else part.keyword += Encode(w) + " ";
          }
          if (!part.diff.empty()) part.diff.pop_back();
          if (!part.keyword.empty()) part.keyword.pop_back();
          part.pattern = best_key;
        }
        std::u32string t = Decode(part.text);
        map.push_back({{seg.start, seg.length}, {base, t.size()}});
        sent += text::Span(seg.start, seg.length) + " " + text::Span(base, t.size()) + ";";
        txn += t;
        out.parts.push_back(std::move(part));
        continue;
      }
    }

    std::vector<PhraseSpan> phrases;
    for (const PhraseSpan& p : in.phrase)
      if (p.start >= seg.start && p.start < seg.start + seg.length) phrases.push_back(p);
    SentenceJob job(engine_, dicts_, forced, block, seg.start, seg.length, from,
                    phrases);
    std::vector<Unit> units = job.Run();
    bool words = std::any_of(units.begin(), units.end(),
                             [](const Unit& u) { return u.kind == Unit::kWord; });
    std::u32string t;
    if (!words) {
      // Numbers and marks only: nothing to translate.
      part.kind = 'I';
      t = org;
      map.push_back({{seg.start, seg.length}, {base, t.size()}});
    } else {
      t = Assemble(units, engine_.to, false);
      if (flags_.inter && engine_.bridge()) {
        std::vector<Unit> copy = units;
        part.inter = Encode(Assemble(copy, engine_.inter, true));
      }
      int group = 0;
      for (const Unit& u : units) {
        map.push_back({{u.ostart, u.olen}, {base + u.tstart, u.tlen}});
        if (u.kind == Unit::kPunct) continue;
        std::string span = text::Span(u.ostart, u.olen);
        if (u.kind == Unit::kWord && u.tlen > 0) {
          if (flags_.equiv) {
            part.equiv_org += span + ";";
            part.equiv_txn += text::Span(base + u.tstart, u.tlen) + ";";
          }
          eq_org.emplace_back(u.ostart, u.olen);
          eq_txn.emplace_back(base + u.tstart, u.tlen);
        }
        if (flags_.pos) part.pos += span + " " + (flags_.rawpos ? lex::RawPos(u.pos) : u.pos) + ";";
        if (flags_.dicinfo) part.dicinfo += span + " " + std::to_string(u.did) + ";";
        if (u.kind != Unit::kWord) continue;
        ++group;
        if (flags_.altword) {
          int n = 0;
          for (const auto& [did, alt] : u.alts)
            part.altword.push_back(std::to_string(group) + " " + std::to_string(++n) + " " +
                                   std::to_string(did) + " " + alt);
        }
        if (u.unknown)
          out.unknown.push_back(UnknownOut{Encode(org), u.ostart - seg.start, u.olen});
      }
    }
    part.text = Encode(t);
    sent += text::Span(seg.start, seg.length) + " " + text::Span(base, t.size()) + ";";
    txn += t;
    out.parts.push_back(std::move(part));
  }

  // Phrase spans of the request, over the translation, in the part holding their start.
  for (const PhraseSpan& p : in.phrase) {
    auto [s, l] = MapSpan(map, p.start, p.length, txn.size());
    for (PartOut& part : out.parts)
      if (part.kind != 'S' && p.start >= part.start && p.start < part.start + part.length) {
        part.phrase += std::to_string(p.type) + " " + text::Span(s, l) + ";";
        break;
      }
  }
  std::vector<std::pair<size_t, size_t>> tracks;
  for (auto [s, l] : in.track) tracks.push_back(MapSpan(map, s, l, txn.size()));
  out.track = Spans(tracks);
  out.translation = Encode(txn);
  out.sent = sent;
  out.equiv_org = Spans(eq_org);
  out.equiv_txn = Spans(eq_txn);
  return out;
}

std::string Translator::TranslateText(const std::string& text,
                                      std::vector<UnknownOut>* unknown) const {
  BlockIn in;
  in.text = text;
  BlockOut out = Translate(in);
  if (unknown) unknown->insert(unknown->end(), out.unknown.begin(), out.unknown.end());
  return out.translation;
}

std::vector<SentenceOut> Parse(const EngineDesc& engine, const Dictionaries& dicts,
                               const std::string& txt, const std::string& lang, bool nosplit) {
  std::u32string block = Decode(txt);
  std::string from = lang.empty() ? engine.from : lang;
  const std::string& eid = engine.bridge() ? engine.left : engine.eid;
  std::vector<SentenceOut> out;
  for (const text::Segment& seg : text::SplitSentences(block, nosplit)) {
    if (seg.kind == text::Segment::kSpace) continue;
    SentenceOut s;
    s.start = seg.start;
    s.length = seg.length;
    s.org = Encode(text::Normalize(block.substr(seg.start, seg.length)));
    bool words = false;
    for (const text::Token& t : text::Tokenize(block.substr(seg.start, seg.length))) {
      if (t.kind == text::Token::kSpace) continue;
      WordOut w;
      w.start = seg.start + t.start;
      w.length = t.length;
      w.word = Encode(block.substr(w.start, w.length));
      w.base = w.word;
      if (t.kind == text::Token::kPunct) {
        w.pos = "PUNC";
      } else if (t.kind == text::Token::kNumber) {
        w.pos = "NUM";
      } else {
        words = true;
        w.base = lex::BaseForm(from, w.word);
        if (lex::Unspaced(from)) w.base = w.word;
        std::vector<Hit> hits = dicts.User(eid, w.word);
        if (hits.empty()) hits = dicts.User(eid, w.base);
        if (hits.empty()) hits = dicts.System(eid, w.word);
        if (hits.empty()) hits = dicts.System(eid, w.base);
        hits.erase(std::remove_if(hits.begin(), hits.end(), [](const Hit& h) { return h.tm; }),
                   hits.end());
        if (!hits.empty()) {
          w.did = hits.front().did;
          w.pos = QzPos(hits.front().pos);
        } else {
          w.pos = lex::PosOf(from, w.word);
          std::string to = engine.bridge() ? engine.inter : engine.to;
          if (!lex::Lookup(from, to, w.word).empty() || !lex::Lookup(from, to, w.base).empty())
            w.did = dicts.LexiconDid(eid);
        }
      }
      s.words.push_back(std::move(w));
    }
    s.kind = words ? 'M' : 'I';
    out.push_back(std::move(s));
  }
  return out;
}

}  // namespace lexsim::tr
