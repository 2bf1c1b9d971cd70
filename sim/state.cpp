#include "state.h"

#include <algorithm>
#include <cctype>
#include <sstream>

#include "crypto.h"

namespace lexsim {
namespace {

constexpr uint64_t kEntryApis = api::kAddDictionaryEntry | api::kGetDictionaryEntry |
                                api::kDictionaryImport | api::kDictionaryExport;
constexpr int kTmSupport = esupport::kTranslate | esupport::kProperties |
                           esupport::kPropertiesModify | esupport::kDic | esupport::kDicSelect |
                           esupport::kDicAdmin | esupport::kDicUser | 0x400 /*DIC_LEARN*/ |
                           0x100000 /*TM_EXACT*/ | 0x200000 /*TM_LEARN*/ |
                           0x400000 /*TM_PATTERN*/ | 0x800000 /*TM_FUZZY*/;
// Lowest rate at which a translation-memory entry still counts as a hit.
constexpr int kMinTmRate = 50;

std::vector<EngineDef> MakeEngines() {
  std::vector<EngineDef> v;
  EngineDef ej;
  ej.eid = "QZ-EJ";
  ej.display = {{"en", "English to Japanese"}, {"ja", "英語から日本語"}};
  ej.from = "en";
  ej.to = "ja";
  ej.reverse = "QZ-JE";
  ej.support = esupport::kAll;
  ej.max_total = 20;
  ej.max_tech = 5;
  ej.max_user = 15;
  ej.formats = {{kEntryApis, "native"}};
  v.push_back(ej);

  EngineDef je = ej;
  je.eid = "QZ-JE";
  je.display = {{"en", "Japanese to English"}, {"ja", "日本語から英語"}};
  je.from = "ja";
  je.to = "en";
  je.reverse = "QZ-EJ";
  // Everything but technical dictionary updates.
  je.support = esupport::kAll & ~0x800;
  v.push_back(je);

  EngineDef ek;
  ek.eid = "QZ-EK";
  ek.display = {{"en", "English to Korean"}, {"ja", "英語から韓国語"}};
  ek.from = "en";
  ek.to = "ko";
  ek.type = etype::kDirect | etype::kHidden;
  ek.support = esupport::kTranslate | esupport::kLookup | esupport::kProperties |
               esupport::kDic | esupport::kDicSelect | esupport::kDicUser;
  ek.valid_from = "2020-01-01T00:00:00Z";
  ek.valid_to = "2099-12-31T23:59:59Z";
  ek.max_total = 5;
  ek.max_tech = 0;
  ek.max_user = 5;
  ek.formats = {{kEntryApis, "native"}};
  v.push_back(ek);

  EngineDef jk;
  jk.eid = "QZ-JK";
  jk.display = {{"en", "Japanese to Korean (via English)"}, {"ja", "日本語から韓国語（英語経由）"}};
  jk.from = "ja";
  jk.inter = "en";
  jk.to = "ko";
  jk.eid_left = "QZ-JE";
  jk.eid_right = "QZ-EK";
  jk.type = etype::kBridge;
  jk.support = esupport::kTranslate | esupport::kProperties | esupport::kParse | 0x1000 /*TRANSLATE_PHRASE*/;
  // Open-ended: a start but no end.
  jk.valid_from = "2015-07-01T00:00:00Z";
  v.push_back(jk);

  EngineDef tm;
  tm.eid = "QZ-TM";
  tm.display = {{"en", "English to Japanese translation memory"},
                {"ja", "英日翻訳メモリ"}};
  tm.from = "en";
  tm.to = "ja";
  tm.type = etype::kMemory;
  tm.support = kTmSupport;
  tm.max_total = 10;
  tm.max_tech = 0;
  tm.max_user = 10;
  tm.formats = {{kEntryApis, "tmtext"}};
  v.push_back(tm);

  // Retired: kept so that expired validity periods have something to show.
  EngineDef ef;
  ef.eid = "QZ-EF";
  ef.display = {{"en", "English to French (retired)"}, {"ja", "英語からフランス語（廃止）"}};
  ef.from = "en";
  ef.to = "fr";
  ef.type = etype::kDirect | etype::kHidden;
  ef.support = esupport::kTranslate | esupport::kLookup;
  ef.valid_from = "2001-04-01T00:00:00Z";
  ef.valid_to = "2010-03-31T23:59:59Z";
  v.push_back(ef);
  return v;
}

std::vector<PropertyDefRec> MakePropertyDefs() {
  return {
      {"dictionaries", "Dictionaries used for translation (DIDs separated by blanks)", 'S', {}},
      {"style", "Style of the translation", 'C',
       {{"plain", "Plain"}, {"polite", "Polite"}, {"casual", "Casual"}}},
      {"domain", "Subject domain", 'C',
       {{"general", "General"}, {"business", "Business"}, {"technical", "Technical"}}},
      {"unknown.mark", "Mark unknown words in the translation", 'B', {}},
      {"tm.min.rate", "Lowest translation-memory match rate", 'R',
       {{"0", "Lowest"}, {"100", "Highest"}}},
      {"max.alternatives", "Number of alternative translations per word", 'N', {}},
  };
}

struct SeedWord {
  const char* head;
  const char* target;
  const char* pos;
};

Dictionary SeedDictionary(int64_t did, const std::string& eid, int64_t type,
                          const std::string& subject, const std::string& display,
                          std::initializer_list<SeedWord> words) {
  Dictionary d;
  d.did = did;
  d.eid = eid;
  d.type = type;
  d.subject = subject;
  d.owner = kSystemOwner;
  const EngineDef* e = FindEngine(eid);
  d.languages = e->from + "-" + e->to;
  d.display["en"] = display;
  for (const SeedWord& w : words) {
    DictEntry x;
    x.id = d.next_entry++;
    x.headword = w.head;
    x.target = w.target;
    x.pos = w.pos;
    d.entries.push_back(std::move(x));
  }
  return d;
}

std::string Trim(const std::string& s) {
  size_t b = s.find_first_not_of(" \t\r\n");
  if (b == std::string::npos) return "";
  return s.substr(b, s.find_last_not_of(" \t\r\n") - b + 1);
}

std::vector<std::string> Words(const std::string& s) {
  std::vector<std::string> out;
  std::string cur;
  for (char c : s) {
    unsigned char u = static_cast<unsigned char>(c);
    if (u >= 0x80 || std::isalnum(u)) {
      cur += static_cast<char>(std::tolower(u));
    } else if (!cur.empty()) {
      out.push_back(cur);
      cur.clear();
    }
  }
  if (!cur.empty()) out.push_back(cur);
  return out;
}

}  // namespace

std::string EngineDef::Display(const std::string& lang) const {
  auto it = display.find(lang);
  if (it == display.end()) it = display.find("en");
  return it == display.end() ? eid : it->second;
}

const std::vector<EngineDef>& EngineTable() {
  static const std::vector<EngineDef> engines = MakeEngines();
  return engines;
}

const EngineDef* FindEngine(const std::string& eid) {
  for (const EngineDef& e : EngineTable())
    if (e.eid == eid) return &e;
  return nullptr;
}

const std::vector<PropertyDefRec>& PropertyDefs() {
  static const std::vector<PropertyDefRec> defs = MakePropertyDefs();
  return defs;
}

const PropertyDefRec* FindPropertyDef(const std::string& key) {
  for (const PropertyDefRec& d : PropertyDefs())
    if (d.key == key) return &d;
  return nullptr;
}

int64_t Dictionary::HeadCount() const {
  if (memory) return static_cast<int64_t>(entries.size());
  std::set<std::string> heads;
  for (const DictEntry& e : entries) heads.insert(ToLower(e.headword));
  return static_cast<int64_t>(heads.size());
}

int64_t Dictionary::TotalCount() const {
  if (!memory) return static_cast<int64_t>(entries.size());
  int64_t n = 0;
  for (const DictEntry& e : entries) n += static_cast<int64_t>(e.sentences.size());
  return n;
}

std::map<std::string, UserEngine> State::DefaultEngines(bool super) {
  std::map<std::string, UserEngine> out;
  for (const EngineDef& e : EngineTable()) {
    if (e.hidden() && !super) continue;
    UserEngine u;
    u.support = esupport::kAll;
    out[e.eid] = u;
  }
  return out;
}

State::State() {
  Account admin;
  admin.userid = kSeedUserId;
  admin.username = "Administrator";
  admin.pwhash = PasswordHash(kSeedUserId, kSeedPassword);
  admin.super = true;
  admin.engines = DefaultEngines(true);
  PutUser(std::move(admin));

  auto put = [this](Dictionary d) { dics_[d.did] = std::move(d); };
  put(SeedDictionary(1, "QZ-EJ", dtype::kSystem, "General", "English-Japanese system",
                     {{"hello", "こんにちは", "interj"},
                      {"world", "世界", "noun"},
                      {"good", "良い", "adj"},
                      {"morning", "朝", "noun"},
                      {"book", "本", "noun"},
                      {"cat", "猫", "noun"},
                      {"dog", "犬", "noun"},
                      {"dictionary", "辞書", "noun"},
                      {"translate", "翻訳する", "verb"},
                      {"read", "読む", "verb"},
                      {"I", "私", "pron"},
                      {"you", "あなた", "pron"},
                      {"the", "その", "det"},
                      {"a", "ある", "det"},
                      {"is", "です", "verb"},
                      {"thank you", "ありがとう", "phrase"}}));
  put(SeedDictionary(2, "QZ-JE", dtype::kSystem, "General", "Japanese-English system",
                     {{"こんにちは", "hello", "interj"},
                      {"世界", "world", "noun"},
                      {"本", "book", "noun"},
                      {"猫", "cat", "noun"},
                      {"犬", "dog", "noun"},
                      {"辞書", "dictionary", "noun"},
                      {"私", "I", "pron"},
                      {"ありがとう", "thank you", "phrase"}}));
  put(SeedDictionary(3, "QZ-EK", dtype::kSystem, "General", "English-Korean system",
                     {{"hello", "안녕하세요", "interj"},
                      {"world", "세계", "noun"},
                      {"book", "책", "noun"}}));
  put(SeedDictionary(101, "QZ-EJ", dtype::kTechnical, "Computing", "Computing (EJ)",
                     {{"server", "サーバー", "noun"},
                      {"client", "クライアント", "noun"},
                      {"file", "ファイル", "noun"},
                      {"dictionary", "辞書ファイル", "noun"}}));
  put(SeedDictionary(102, "QZ-EJ", dtype::kTechnical, "Medicine", "Medicine (EJ)",
                     {{"patient", "患者", "noun"}, {"doctor", "医師", "noun"}}));
  put(SeedDictionary(111, "QZ-JE", dtype::kTechnical, "Computing", "Computing (JE)",
                     {{"サーバー", "server", "noun"}, {"ファイル", "file", "noun"}}));

  auto& ej = profiles_["QZ-EJ"];
  ej["default"].display = {{"en", "Default"}, {"ja", "標準"}};
  ej["default"].props = {{"style", {"plain", false}}, {"unknown.mark", {"false", false}}};
  ej["business"].display = {{"en", "Business letters"}, {"ja", "ビジネス文書"}};
  ej["business"].props = {{"style", {"polite", false}}, {"domain", {"business", true}}};
  auto& je = profiles_["QZ-JE"];
  je["default"].display = {{"en", "Default"}, {"ja", "標準"}};
  je["default"].props = {{"style", {"plain", false}}};
  auto& jk = profiles_["QZ-JK"];
  jk["default"].display = {{"en", "Default"}, {"ja", "標準"}};
  jk["default"].props = {{"style", {"casual", false}}, {"domain", {"general", true}}};
  auto& tm = profiles_["QZ-TM"];
  tm["default"].display = {{"en", "Default"}, {"ja", "標準"}};
  tm["default"].props = {{"tm.min.rate", {"70", false}}};
}

Account* State::FindUser(const std::string& userid) {
  auto it = users_.find(userid);
  return it == users_.end() ? nullptr : &it->second;
}

const Account* State::FindUser(const std::string& userid) const {
  auto it = users_.find(userid);
  return it == users_.end() ? nullptr : &it->second;
}

const SessionRec* State::PeekSession(const std::string& key) const {
  auto it = sessions_.find(key);
  return it == sessions_.end() ? nullptr : &it->second;
}

Dictionary* State::FindDictionary(int64_t did) {
  auto it = dics_.find(did);
  return it == dics_.end() ? nullptr : &it->second;
}

const Dictionary* State::FindDictionary(int64_t did) const {
  auto it = dics_.find(did);
  return it == dics_.end() ? nullptr : &it->second;
}

Dictionary& State::AddDictionary(Dictionary d) {
  d.did = next_did_++;
  int64_t did = d.did;
  return dics_[did] = std::move(d);
}

bool State::RemoveDictionary(int64_t did) {
  if (dics_.erase(did) == 0) return false;
  PruneSelections();
  return true;
}

bool State::CanRead(const Dictionary& d, const std::string& userid) const {
  if (d.owner == kSystemOwner || d.owner == userid) return true;
  if (d.shares.count(userid)) return true;
  const Account* a = FindUser(userid);
  return a && a->super;
}

bool State::CanWrite(const Dictionary& d, const std::string& userid) const {
  if (d.owner == userid && d.owner != kSystemOwner) return true;
  const Account* a = FindUser(userid);
  return a && a->super;
}

void State::PruneSelections() {
  for (auto& [id, a] : users_)
    for (auto& [eid, ue] : a.engines)
      std::erase_if(ue.dics, [&](int64_t did) { return !FindDictionary(did); });
}

int MatchRate(const std::string& key, const std::string& source) {
  std::vector<std::string> a = Words(key), b = Words(source);
  if (a.empty() || b.empty()) return 0;
  if (a == b) return 100;
  std::multiset<std::string> rest(b.begin(), b.end());
  size_t common = 0;
  for (const std::string& w : a) {
    auto it = rest.find(w);
    if (it != rest.end()) {
      ++common;
      rest.erase(it);
    }
  }
  int rate = static_cast<int>(common * 200 / (a.size() + b.size()));
  return std::min(rate, 99);
}

namespace {

void LookupIn(const Dictionary& d, const EngineDef& e, const std::string& source,
              std::vector<DictHit>& out) {
  std::string src = Trim(source);
  if (src.empty()) return;
  if (!d.memory) {
    for (const DictEntry& x : d.entries)
      if (EqualsNoCase(x.headword, src)) out.push_back({x.target, d.did, x.id, x.pos, false, 100});
    return;
  }
  std::vector<std::pair<DictHit, int>> hits;  // hit, weight
  for (const DictEntry& x : d.entries) {
    int best = 0;
    const std::string* target = nullptr;
    for (const TmSentence& s : x.sentences) {
      if (s.lang == e.to && !target) target = &s.text;
      if (s.key && s.lang == e.from) best = std::max(best, MatchRate(s.text, src));
    }
    if (target && best >= kMinTmRate) hits.push_back({{*target, d.did, x.id, "", true, best}, x.weight});
  }
  std::stable_sort(hits.begin(), hits.end(), [](const auto& l, const auto& r) {
    return l.first.rate != r.first.rate ? l.first.rate > r.first.rate : l.second > r.second;
  });
  for (auto& [h, w] : hits) out.push_back(std::move(h));
}

}  // namespace

std::vector<DictHit> LookupUserDictionaries(const State& state, const std::string& userid,
                                            const std::string& eid,
                                            const std::map<std::string, std::string>& props,
                                            const std::string& source) {
  std::vector<DictHit> out;
  const EngineDef* e = FindEngine(eid);
  if (!e) return out;
  std::vector<int64_t> dids;
  auto p = props.find("dictionaries");
  if (p != props.end()) {
    std::istringstream in(p->second);
    std::string w;
    while (in >> w) {
      try {
        dids.push_back(std::stoll(w));
      } catch (...) {
      }
    }
  } else if (const Account* a = state.FindUser(userid)) {
    auto it = a->engines.find(eid);
    if (it != a->engines.end()) dids = it->second.dics;
  }
  for (int64_t did : dids) {
    const Dictionary* d = state.FindDictionary(did);
    if (!d || d->eid != eid || !state.CanRead(*d, userid)) continue;
    LookupIn(*d, *e, source, out);
  }
  return out;
}

std::vector<DictHit> LookupSystemDictionary(const State& state, const std::string& eid,
                                            const std::string& source) {
  std::vector<DictHit> out;
  const EngineDef* e = FindEngine(eid);
  if (!e) return out;
  for (const auto& [did, d] : state.dictionaries())
    if (d.type == dtype::kSystem && d.eid == eid) LookupIn(d, *e, source, out);
  return out;
}

Account& State::PutUser(Account a) {
  std::string id = a.userid;
  return users_[id] = std::move(a);
}

bool State::RemoveUser(const std::string& userid) {
  EndSessionsOf(userid);
  for (auto& [did, d] : dics_) d.shares.erase(userid);
  return users_.erase(userid) > 0;
}

SessionRec& State::NewSession(const std::string& userid, const std::string& type,
                              const std::string& ip, std::time_t now) {
  SessionRec s;
  s.key = RandomHex(16);
  s.userid = userid;
  s.type = type;
  s.token = RandomHex(16);
  s.ipaddress = ip;
  s.created = s.lastused = now;
  std::string key = s.key;
  return sessions_[key] = std::move(s);
}

SessionRec* State::FindSession(const std::string& key, std::time_t now) {
  auto it = sessions_.find(key);
  if (it == sessions_.end()) return nullptr;
  const SessionRec& s = it->second;
  if (now - s.lastused > kSessionExpireSecs || now - s.created > kSessionLifetimeHours * 3600) {
    sessions_.erase(it);
    return nullptr;
  }
  return &it->second;
}

void State::EndSession(const std::string& key) { sessions_.erase(key); }

void State::EndSessionsOf(const std::string& userid) {
  for (auto it = sessions_.begin(); it != sessions_.end();)
    it = it->second.userid == userid ? sessions_.erase(it) : std::next(it);
}

std::vector<const SessionRec*> State::SessionsOf(const std::string& userid) const {
  std::vector<const SessionRec*> out;
  for (const auto& [key, s] : sessions_)
    if (s.userid == userid) out.push_back(&s);
  return out;
}

bool State::KnownRequestGroup(const std::string& id) const { return reqgroups_.count(id) > 0; }

std::string State::NewRequestGroup() {
  std::string id = std::to_string(next_reqgroup_++);
  reqgroups_[id] = true;
  return id;
}

}  // namespace lexsim
