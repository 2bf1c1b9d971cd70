#include "translate_state.h"

#include <algorithm>

#include "lexicon.h"
#include "text_segment.h"
#include "text_utf8.h"

namespace lexsim::tr {

std::optional<EngineDesc> FindEngineDesc(const std::string& eid) {
  const EngineDef* e = FindEngine(eid);
  if (!e) return std::nullopt;
  return EngineDesc{e->eid, e->from, e->to, e->inter, e->eid_left, e->eid_right, e->memory()};
}

std::vector<Hit> Dictionaries::User(const std::string& eid, const std::string& source) const {
  return LookupUserDictionaries(state_, userid_, eid, props_, source);
}

std::vector<Hit> Dictionaries::System(const std::string& eid, const std::string& source) const {
  return LookupSystemDictionary(state_, eid, source);
}

int64_t Dictionaries::LexiconDid(const std::string& eid) const {
  // The built-in lexicon stands behind the engine's system dictionary.
  for (const auto& [did, d] : state_.dictionaries())
    if (d.eid == eid && d.type == dtype::kSystem) return did;
  return lex::kSystemDid;
}

std::string Dictionaries::Subject(int64_t did) const {
  if (did == lex::kSystemMemoryDid) return "Memory";
  if (const Dictionary* d = state_.FindDictionary(did)) return d->subject;
  return did > 0 ? lex::kSystemSubject : "";
}

namespace {
std::vector<std::u32string> Words(const std::string& s) {
  std::u32string t = text::Decode(s);
  std::vector<std::u32string> out;
  for (const text::Token& tok : text::Tokenize(t))
    if (tok.kind == text::Token::kWord || tok.kind == text::Token::kNumber)
      out.push_back(text::Lower(t.substr(tok.start, tok.length)));
  return out;
}
}  // namespace

int MatchRate(const std::string& memory, const std::string& source) {
  std::vector<std::u32string> a = Words(memory), b = Words(source);
  if (a == b) return a.empty() ? 0 : 100;
  size_t n = a.size(), m = b.size();
  std::vector<size_t> prev(m + 1), cur(m + 1);
  for (size_t j = 0; j <= m; ++j) prev[j] = j;
  for (size_t i = 1; i <= n; ++i) {
    cur[0] = i;
    for (size_t j = 1; j <= m; ++j)
      cur[j] = std::min({prev[j] + 1, cur[j - 1] + 1, prev[j - 1] + (a[i - 1] == b[j - 1] ? 0 : 1)});
    std::swap(prev, cur);
  }
  size_t longest = std::max(n, m);
  // Never 100 for a sentence that differs.
  return std::min(99, static_cast<int>(100 * (longest - prev[m]) / longest));
}

}  // namespace lexsim::tr
