// User accounts.

#include <algorithm>
#include <set>
#include <sstream>

#include "account_rules.h"
#include "admin_wire.h"
#include "crypto.h"
#include "frame.h"
#include "sys.h"

using lexsim::Account;
using lexsim::Call;
using lexsim::OpInfo;
using lexsim::Raise;
using lexsim::State;
namespace api = lexsim::api;
namespace err = lexsim::err;
namespace admin = lexsim::admin;

namespace {
constexpr OpInfo kCreateUser{"CreateUser", api::kCreateUser};
constexpr OpInfo kGetUser{"GetUser", api::kGetUser};
constexpr OpInfo kUpdateUser{"UpdateUser", api::kUpdateUser};
constexpr OpInfo kDeleteUser{"DeleteUser", api::kDeleteUser};
constexpr OpInfo kGetUserList{"GetUserList", api::kGetUserList};

constexpr size_t kMaxItems = 100;

// What users get without a template: everything but the administration of others.
constexpr uint64_t kDefaultApi = api::kAll & ~(api::kCreateUser | api::kDeleteUser |
                                               api::kGetUserList | api::kRunas);

const char* const kFeatures[] = {
    "ECHO", "GENG", "RECD", "SPLT", "PROF", "TEXT", "TUPD", "TXTS", "HTML", "TXML", "TRAN",
    "LUPF", "DCRE", "DUPD", "DCPY", "DDEL", "DIMP", "DCHO", "DEXP", "DEAD", "DEGT", "DEDE",
    "UPWD", "UCRE", "UGTO", "UGTS", "UUPO", "UUPS", "UDEL", "ULST", "CSES", "ESES", "TMUL",
    "URUN", "SOAP", "REST", "GAPI", "HEAL", "DLNG", "TDOC", "TXLS", "TPPT", "TPDF"};

const std::pair<const char*, const char*> kLimits[] = {
    {"max.call.chars.text", "Characters per text call"},
    {"max.call.chars.data", "Characters per document call"},
    {"max.hour.chars", "Characters per hour"},
    {"max.day.chars", "Characters per day"},
    {"max.month.chars", "Characters per month"},
    {"max.total.chars", "Characters in total"},
    {"dictionaries.owned", "Dictionaries owned"},
    {"sessions", "Open sessions"},
    {"max.parallel.requests", "Parallel requests"}};

std::vector<std::string> SplitList(const std::string& s) {
  std::vector<std::string> out;
  std::string w;
  for (char c : s) {
    if (c == ' ' || c == ',' || c == '\t') {
      if (!w.empty()) out.push_back(w);
      w.clear();
    } else {
      w += c;
    }
  }
  if (!w.empty()) out.push_back(w);
  return out;
}

/// Applies a feature expression ("ALL -REST", "CURRENT +SOAP", "ECHO TEXT") to current.
std::string Features(const std::string& current, const std::string& expr) {
  std::vector<std::string> words = SplitList(expr);
  std::set<std::string> have;
  size_t i = 0;
  if (!words.empty() && lexsim::EqualsNoCase(words[0], "CURRENT")) {
    for (const std::string& c : SplitList(current)) have.insert(c);
    i = 1;
  }
  for (; i < words.size(); ++i) {
    std::string w = words[i];
    bool remove = w[0] == '-';
    if (w[0] == '+' || w[0] == '-') w = w.substr(1);
    std::string up;
    for (char c : w) up += static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    if (up == "ALL" || up == "NONE") {
      have.clear();
      if ((up == "ALL") != remove)
        for (const char* f : kFeatures) have.insert(f);
      continue;
    }
    if (std::find_if(std::begin(kFeatures), std::end(kFeatures),
                     [&](const char* f) { return up == f; }) == std::end(kFeatures))
      Raise(err::kArgument, "Unknown feature: " + w);
    if (remove)
      have.erase(up);
    else
      have.insert(up);
  }
  std::string out;
  for (const char* f : kFeatures) {
    if (!have.count(f)) continue;
    if (!out.empty()) out += ' ';
    out += f;
  }
  return out;
}

std::string Group(const std::string& userid) {
  size_t slash = userid.rfind('/');
  return slash == std::string::npos ? "" : userid.substr(0, slash + 1);
}

std::string TimeText(std::time_t t) {
  std::tm tm{};
  gmtime_r(&t, &tm);
  char buf[32];
  std::strftime(buf, sizeof buf, "%Y-%m-%d %H:%M:%S", &tm);
  return buf;
}

std::string Bound(const std::string* text, bool end, const std::string& zone) {
  std::optional<std::string> v = admin::NormalizeTime(text ? *text : "", end, zone);
  if (!v) Raise(err::kArgument, "Invalid date-time: " + (text ? *text : ""));
  return *v;
}

bool* Bool(const Call& call, bool v) {
  bool* p = static_cast<bool*>(soap_malloc(call.soap(), sizeof(bool)));
  *p = v;
  return p;
}

/// The user as the wire shows it; the select keys choose the parts beyond the basics.
nv__User* MakeUser(const Call& call, const State& state, const Account& a,
                   const std::string& lang, const nv__EngineFilter* filter) {
  const auto& keys = call.keys();
  auto* u = soap_new_nv__User(call.soap());
  u->userid = call.Str(a.userid);
  u->username = call.Str(a.username);
  u->apiAllowed = call.Long(static_cast<LONG64>(a.api_allowed));
  u->timezone = call.Str(a.timezone);
  if (!a.valid_from.empty() || !a.valid_to.empty()) {
    u->validity = soap_new_nv__Validity(call.soap());
    u->validity->from = call.Str(a.valid_from);
    u->validity->to = call.Str(a.valid_to);
  }
  if (keys.Has("limits")) {
    u->limits = soap_new_nv__LimitArray(call.soap());
    for (const auto& [name, display] : kLimits) {
      auto it = a.limits.find(name);
      if (it == a.limits.end()) continue;
      int64_t current = 0;
      if (std::string(name) == "dictionaries.owned")
        for (const auto& [did, d] : state.dictionaries()) current += d.owner == a.userid;
      if (std::string(name) == "sessions")
        current = static_cast<int64_t>(state.SessionsOf(a.userid).size());
      nv__Limit l;
      l.type = call.Str(name);
      l.display = call.Str(display);
      l.maximum = call.Long(it->second);
      l.current = call.Long(current);
      u->limits->item.push_back(l);
    }
  }
  if (!a.iprestrict.empty()) {
    u->iprestrict = soap_new_nv__StringArray(call.soap());
    u->iprestrict->item = a.iprestrict;
  }
  if (keys.Has("engines")) {
    u->engines = soap_new_nv__EngineArray(call.soap());
    admin::EngineDetail detail;
    detail.dics = keys.Has("dic");
    detail.selected = true;
    detail.profiles = keys.Has("profiles") || keys.Has("engineprop");
    detail.merge = !keys.Has("nomerge");
    for (const lexsim::EngineDef& e : lexsim::EngineTable()) {
      auto ue = a.engines.find(e.eid);
      if (ue == a.engines.end()) continue;
      admin::EngineView v = admin::ViewOf(e, &ue->second);
      if (!admin::FilterMatches(filter, v, true)) continue;
      u->engines->item.push_back(admin::MakeEngine(call, state, v, a.userid, lang, detail));
    }
  }
  if (keys.Has("userprop")) {
    u->properties = soap_new_nv__PropertyArray(call.soap());
    std::map<std::string, lexsim::PropertyRec> all = a.props;
    const std::string& key = call.caller()->session_key;
    if (a.userid == call.caller()->userid && !key.empty())
      if (const lexsim::SessionRec* s = state.PeekSession(key))
        for (const auto& [k, v] : s->props) all[k] = {v, false};
    for (const auto& [k, p] : all) {
      nv__Property q;
      q.key = call.Str(k);
      q.val = call.Str(p.val);
      q.readonly = Bool(call, p.readonly);
      u->properties->item.push_back(q);
    }
  }
  if (keys.Has("sessions")) {
    u->sessions = soap_new_nv__SessionArray(call.soap());
    for (const lexsim::SessionRec* s : state.SessionsOf(a.userid)) {
      nv__Session x;
      x.type = call.Str(s->type);
      x.created = call.Str(TimeText(s->created));
      x.lastused = call.Str(TimeText(s->lastused));
      x.ipaddress = call.Str(s->ipaddress);
      u->sessions->item.push_back(x);
    }
  }
  if (keys.Has("features") && !a.features.empty()) u->features = call.Str(a.features);
  return u;
}

void ApplyEngine(Call& call, const State& state, Account& a, const nv__EngineUpdate& up,
                 const std::string& zone) {
  std::string action = up.action ? lexsim::ToLower(*up.action) : "set";
  if (!up.eid || up.eid->empty()) Raise(err::kArgument, "Engine update without an EID");
  const lexsim::EngineDef* e = lexsim::FindEngine(*up.eid);
  if (!e) Raise(err::kNotFound, "Unknown engine: " + *up.eid);
  bool has = a.engines.count(e->eid) > 0;
  if (action == "del") {
    if (!has) Raise(err::kNotFound, a.userid + " has no engine " + e->eid);
    a.engines.erase(e->eid);
    return;
  }
  if (action != "add" && action != "set") Raise(err::kArgument, "Unknown engine action: " + action);
  // Adding an engine the user has starts it afresh: a replayed backup adds every engine
  // of the old account to a new one that already got the default engines.
  lexsim::UserEngine& ue = a.engines[e->eid];
  if (!has || action == "add") {
    ue = lexsim::UserEngine();
    ue.support = lexsim::esupport::kAll;
  }
  if (up.type) {
    if (*up.type != 0 && *up.type != lexsim::etype::kHidden)
      Raise(err::kArgument, "Engine type must be 0 or HIDDEN");
    ue.type = *up.type;
  }
  if (up.support) ue.support = *up.support;
  if (up.validity) {
    if (up.validity->from) ue.valid_from = Bound(up.validity->from, false, zone);
    if (up.validity->to) ue.valid_to = Bound(up.validity->to, true, zone);
  }
  for (auto [p, dst] : {std::pair{up.maxTechDic, &ue.max_tech}, std::pair{up.maxUserDic, &ue.max_user}}) {
    if (!p) continue;
    if (*p < 0 || *p > 999) Raise(err::kArgument, "Dictionary maxima run from 0 to 999");
    *dst = *p;
  }
  auto dids = [&](const std::string* list) {
    std::vector<int64_t> out;
    if (!list) return out;
    for (const std::string& w : SplitList(*list)) {
      if (lexsim::EqualsNoCase(w, "TECH")) {
        for (const auto& [did, d] : state.dictionaries())
          if (d.eid == e->eid && d.type == lexsim::dtype::kTechnical) out.push_back(did);
        continue;
      }
      int64_t did = 0;
      try {
        size_t used = 0;
        did = std::stoll(w, &used);
        if (used != w.size()) throw std::invalid_argument(w);
      } catch (const std::exception&) {
        Raise(err::kArgument, "Invalid DID: " + w);
      }
      out.push_back(did);
    }
    return out;
  };
  for (int64_t did : dids(up.delDicList)) std::erase(ue.dics, did);
  for (int64_t did : dids(up.addDicList)) {
    // A list replayed from a backup may name dictionaries that are gone or belong to the
    // old account: those are left out with a warning, the rest of the update stands.
    const lexsim::Dictionary* d = state.FindDictionary(did);
    if (!d) {
      call.Warn(e->eid, "Unknown dictionary left out: " + std::to_string(did));
      continue;
    }
    if (d->eid != e->eid)
      Raise(err::kArgument, "Dictionary " + std::to_string(did) + " belongs to " + d->eid);
    if (d->type == lexsim::dtype::kSystem)
      Raise(err::kArgument, "The system dictionary is always used");
    // Kept but unused until the owner shares it: a restored account gets its
    // list before the owners of other users' dictionaries share them again.
    if (!state.CanRead(*d, a.userid))
      call.Warn(e->eid, "Dictionary " + std::to_string(did) + " is not shared with " + a.userid +
                            "; it is used once it is");
    if (std::find(ue.dics.begin(), ue.dics.end(), did) == ue.dics.end()) ue.dics.push_back(did);
  }
  admin::EngineView v = admin::ViewOf(*e, &ue);
  int64_t tech = 0, user = 0;
  for (int64_t did : ue.dics) {
    const lexsim::Dictionary* d = state.FindDictionary(did);
    if (d && state.CanRead(*d, a.userid)) (did < lexsim::kFirstUserDid ? tech : user)++;
  }
  if (tech > v.max_tech || user > v.max_user)
    Raise(err::kArgument, "Too many dictionaries for " + e->eid + ": at most " +
                              std::to_string(v.max_tech) + " technical and " +
                              std::to_string(v.max_user) + " user dictionaries");
}

/// Applies an update to a (a copy the caller commits). self_only: the caller is an
/// ordinary user changing their own account.
void ApplyUpdate(Call& call, State& state, Account& a, const nv__UserUpdate& u, bool self_only) {
  const Account* me = state.FindUser(call.caller()->userid);
  std::string zone = call.keys().Value("timezone").value_or(me ? me->timezone : "UTC");
  if (self_only && (u.apiAllowed || u.validity || u.limits || u.iprestrict || u.engines || u.features))
    Raise(err::kDenied, "Only a super-user may change API rights, validity, limits, "
                        "address restrictions, engines or features");
  if (u.username) a.username = *u.username;
  if (u.password) {
    if (!u.password->empty() && !lexsim::IsPasswordHash(*u.password))
      Raise(err::kArgument, "The password must be a 40-digit password hash");
    a.pwhash = lexsim::ToLower(*u.password);
  }
  if (u.timezone) {
    if (!admin::NormalizeTime("2000-01-01", false, *u.timezone))
      Raise(err::kArgument, "Unknown time zone: " + *u.timezone);
    a.timezone = *u.timezone;
  }
  if (u.apiAllowed) a.api_allowed = static_cast<uint64_t>(*u.apiAllowed);
  if (u.validity) {
    if (u.validity->from) a.valid_from = Bound(u.validity->from, false, zone);
    if (u.validity->to) a.valid_to = Bound(u.validity->to, true, zone);
  }
  if (u.limits) {
    if (u.limits->item.size() > kMaxItems) Raise(err::kArgument, "Too many limits");
    for (const nv__Limit& l : u.limits->item) {
      std::string name = l.type ? *l.type : "";
      if (std::none_of(std::begin(kLimits), std::end(kLimits),
                       [&](const auto& k) { return name == k.first; }))
        Raise(err::kArgument, "Unknown limit: " + name);
      if (!l.maximum || *l.maximum < 0)
        a.limits.erase(name);
      else
        a.limits[name] = *l.maximum;
    }
  }
  if (u.iprestrict) {
    if (u.iprestrict->item.size() > kMaxItems) Raise(err::kArgument, "Too many address entries");
    for (const std::string& c : u.iprestrict->item)
      if (!lexsim::ValidCidr(c)) Raise(err::kArgument, "Invalid address: " + c);
    a.iprestrict = u.iprestrict->item;
  }
  if (u.features) a.features = Features(a.features, *u.features);
  if (u.properties) {
    if (u.properties->item.size() > kMaxItems) Raise(err::kArgument, "Too many property updates");
    for (const nv__PropertyUpdate& p : u.properties->item) {
      std::string action = p.action ? lexsim::ToLower(*p.action) : "set";
      std::string key = lexsim::ToLower(p.key ? *p.key : "");
      if (key.empty()) Raise(err::kArgument, "Property without a key");
      bool readonly = p.readonly && *p.readonly;
      if (p.session && *p.session) {
        const std::string& sk = call.caller()->session_key;
        if (sk.empty() || a.userid != call.caller()->userid)
          Raise(err::kArgument, "Session properties need a session of the user");
        lexsim::SessionRec* s = state.FindSession(sk, std::time(nullptr));
        if (!s) Raise(err::kSession, "Session not found");
        if (action == "del") {
          if (!s->props.erase(key)) Raise(err::kNotFound, "No session property " + key);
        } else {
          s->props[key] = p.val ? *p.val : "";
        }
        continue;
      }
      if (readonly && (self_only || a.userid == call.caller()->userid))
        Raise(err::kArgument, "Read-only properties are set on other users only");
      auto it = a.props.find(key);
      if (it != a.props.end() && it->second.readonly && self_only)
        Raise(err::kDenied, "Property " + key + " is read-only");
      if (action == "del") {
        if (it == a.props.end()) Raise(err::kNotFound, "No property " + key);
        a.props.erase(it);
        continue;
      }
      if (action != "add" && action != "set") Raise(err::kArgument, "Unknown property action: " + action);
      if (action == "add" && it != a.props.end()) Raise(err::kArgument, "Property exists: " + key);
      std::string val = p.val ? *p.val : "";
      if (const lexsim::PropertyDefRec* def = lexsim::FindPropertyDef(key))
        if (std::string why = admin::CheckPropertyValue(*def, val); !why.empty())
          Raise(err::kArgument, why);
      a.props[key] = {val, readonly};
    }
  }
  if (u.engines) {
    if (u.engines->item.size() > kMaxItems) Raise(err::kArgument, "Too many engine updates");
    for (const nv__EngineUpdate& e : u.engines->item) ApplyEngine(call, state, a, e, zone);
  }
}

bool ValidUserId(const std::string& id) {
  if (id.empty() || id.size() > 128 || id.back() == '/' || id.front() == '/') return false;
  return id.find_first_of(" \t*?\r\n") == std::string::npos;
}

// Reading and changing an account have a feature code each for oneself and for others.
void RequireFeature(const Call& call, const char* code) {
  const lexsim::Caller& c = *call.caller();
  if (!c.super && !lexsim::HasFeature(c.features, code))
    Raise(err::kDenied, std::string("Feature ") + code + " is not enabled for " + c.userid);
}

std::string Lang(const std::string* l) { return l && !l->empty() ? *l : "en"; }

}  // namespace

int nv__CreateUser(struct soap* soap, std::string* licence, std::string* clientid,
                   std::string* reqgroup, std::string* select, std::string* displayLang,
                   nv__UserUpdate* user, std::string* templateUserId,
                   struct nv__CreateUserResponse& r) {
  return lexsim::Serve(soap, kCreateUser, {licence, clientid, reqgroup, select}, r, [&](Call& call) {
    if (!user || !user->userid) Raise(err::kArgument, "A user id is required");
    const std::string& id = *user->userid;
    if (!ValidUserId(id)) Raise(err::kArgument, "Invalid user id: " + id);
    auto lock = call.state().Lock();
    State& state = call.state();
    if (!call.caller()->super) Raise(err::kDenied, "Only a super-user may create users");
    if (state.FindUser(id)) Raise(err::kArgument, "User exists: " + id);
    Account a;
    a.userid = id;
    a.api_allowed = kDefaultApi;
    a.engines = State::DefaultEngines(false);
    const Account* tpl = nullptr;
    bool alldic = call.keys().Has("alldic");
    if (templateUserId && !templateUserId->empty()) {
      tpl = state.FindUser(*templateUserId);
      if (!tpl) Raise(err::kNotFound, "Unknown template user: " + *templateUserId);
      a = *tpl;
      a.userid = id;
      a.super = false;
      a.pwhash.clear();
      // The template's own dictionaries come along only when shared with the new user.
      for (auto& [eid, ue] : a.engines)
        std::erase_if(ue.dics, [&](int64_t did) {
          const lexsim::Dictionary* d = state.FindDictionary(did);
          return !d || (d->owner == tpl->userid && !(alldic && d->shared_type()));
        });
    }
    ApplyUpdate(call, state, a, *user, false);
    if (tpl && alldic)
      for (const auto& [did, d] : state.dictionaries())
        if (d.owner == tpl->userid && d.shared_type())
          state.FindDictionary(did)->shares.insert(id);
    Account& made = state.PutUser(std::move(a));
    r.user = MakeUser(call, state, made, Lang(displayLang), nullptr);
    if (call.keys().Has("propdef")) r.propdef = admin::MakePropertyDefs(call);
  });
}

int nv__GetUser(struct soap* soap, std::string* licence, std::string* clientid,
                std::string* reqgroup, std::string* select, std::string* displayLang,
                nv__EngineFilter* filter, nv__StringArray* userid, struct nv__GetUserResponse& r) {
  return lexsim::Serve(soap, kGetUser, {licence, clientid, reqgroup, select}, r, [&](Call& call) {
    auto lock = call.state().Lock();
    std::vector<std::string> ids;
    if (userid) ids = userid->item;
    if (ids.empty()) ids.push_back(call.Target());
    r.users = soap_new_nv__UserArray(soap);
    for (const std::string& id : ids) {
      const Account* a = call.state().FindUser(id);
      if (!a) Raise(err::kNotFound, "Unknown user: " + id);
      if (id != call.caller()->userid && !call.caller()->super && id != call.Target())
        Raise(err::kDenied, "Not allowed to see user " + id);
      RequireFeature(call, id == call.caller()->userid ? "UGTS" : "UGTO");
      r.users->item.push_back(*MakeUser(call, call.state(), *a, Lang(displayLang), filter));
    }
    if (call.keys().Has("propdef")) r.propdef = admin::MakePropertyDefs(call);
  });
}

int nv__UpdateUser(struct soap* soap, std::string* licence, std::string* clientid,
                   std::string* reqgroup, std::string* select, std::string* displayLang,
                   nv__UserUpdate* user, struct nv__UpdateUserResponse& r) {
  return lexsim::Serve(soap, kUpdateUser, {licence, clientid, reqgroup, select}, r, [&](Call& call) {
    if (!user) Raise(err::kArgument, "No update given");
    auto lock = call.state().Lock();
    State& state = call.state();
    std::string id = user->userid && !user->userid->empty() ? *user->userid : call.Target();
    Account* a = state.FindUser(id);
    if (!a) Raise(err::kNotFound, "Unknown user: " + id);
    bool super = call.caller()->super;
    if (!super && id != call.caller()->userid)
      Raise(err::kDenied, "Only a super-user may update other users");
    RequireFeature(call, id == call.caller()->userid ? "UUPS" : "UUPO");
    Account copy = *a;
    ApplyUpdate(call, state, copy, *user, !super);
    *a = std::move(copy);
    r.user = MakeUser(call, state, *a, Lang(displayLang), nullptr);
    if (call.keys().Has("propdef")) r.propdef = admin::MakePropertyDefs(call);
  });
}

int nv__DeleteUser(struct soap* soap, std::string* licence, std::string* clientid,
                   std::string* reqgroup, std::string* select, nv__StringArray* userid,
                   struct nv__DeleteUserResponse& r) {
  return lexsim::Serve(soap, kDeleteUser, {licence, clientid, reqgroup, select}, r, [&](Call& call) {
    if (!userid || userid->item.empty()) Raise(err::kArgument, "No user given");
    auto lock = call.state().Lock();
    State& state = call.state();
    if (!call.caller()->super) Raise(err::kDenied, "Only a super-user may delete users");
    bool force = call.keys().Has("force");
    // Check every user before deleting any. With force, as with rm -f, a user
    // that does not exist is no error: a replayed dump deletes its user first.
    for (const std::string& id : userid->item) {
      if (!state.FindUser(id)) {
        if (force) continue;
        Raise(err::kNotFound, "Unknown user: " + id);
      }
      if (id == call.caller()->userid) Raise(err::kArgument, "Users cannot delete themselves");
      int64_t owned = 0;
      for (const auto& [did, d] : state.dictionaries()) owned += d.owner == id;
      if (owned && !force)
        Raise(err::kArgument, id + " owns " + std::to_string(owned) +
                                  " dictionaries; use force to delete them too");
    }
    for (const std::string& id : userid->item) {
      if (!state.FindUser(id)) continue;
      std::vector<int64_t> owned;
      for (const auto& [did, d] : state.dictionaries())
        if (d.owner == id) owned.push_back(did);
      for (int64_t did : owned) state.RemoveDictionary(did);
      state.RemoveUser(id);
    }
    state.PruneSelections();
  });
}

int nv__GetUserList(struct soap* soap, std::string* licence, std::string* clientid,
                    std::string* reqgroup, std::string* select, std::string* userid,
                    struct nv__GetUserListResponse& r) {
  return lexsim::Serve(soap, kGetUserList, {licence, clientid, reqgroup, select}, r, [&](Call& call) {
    std::string pattern = userid ? *userid : "";
    auto lock = call.state().Lock();
    bool super = call.caller()->super;
    std::string mine = Group(call.caller()->userid);
    if (!super && pattern.find('/') != std::string::npos && pattern != "*/" &&
        Group(pattern) != mine && !lexsim::MatchPattern(pattern, mine))
      Raise(err::kDenied, "Only the super-user may look into other groups");
    r.users = soap_new_nv__UserEntryArray(soap);
    auto add = [&](const std::string& id, const std::string& name) {
      nv__UserEntry e;
      e.userid = call.Str(id);
      e.username = call.Str(name);
      r.users->item.push_back(e);
    };
    if (pattern == "*/") {
      std::set<std::string> groups;
      for (const auto& [id, a] : call.state().users())
        if (!Group(id).empty() && (super || Group(id) == mine)) groups.insert(Group(id));
      for (const std::string& g : groups) add(g, "");
      return;
    }
    for (const auto& [id, a] : call.state().users()) {
      if (!super && Group(id) != mine) continue;
      bool match = pattern.empty() || (pattern.find('*') == std::string::npos
                                           ? id == pattern
                                           : lexsim::MatchPattern(pattern, id));
      if (match) add(id, a.username);
    }
  });
}
