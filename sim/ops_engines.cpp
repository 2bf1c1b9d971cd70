// Engines and their property profiles.
#include <cctype>
#include <cstdio>
#include <ctime>

#include "admin_wire.h"
#include "crypto.h"
#include "frame.h"
#include "sys.h"

using lexsim::Call;
using lexsim::OpInfo;
using lexsim::Raise;
namespace api = lexsim::api;
namespace err = lexsim::err;
namespace etype = lexsim::etype;

namespace lexsim::admin {
namespace {

int* Int(const Call& call, int v) {
  int* p = static_cast<int*>(soap_malloc(call.soap(), sizeof(int)));
  *p = v;
  return p;
}

bool* Bool(const Call& call, bool v) {
  bool* p = static_cast<bool*>(soap_malloc(call.soap(), sizeof(bool)));
  *p = v;
  return p;
}

std::string LangText(const std::map<std::string, std::string>& m, const std::string& lang) {
  auto it = m.find(lang);
  if (it == m.end()) it = m.find("en");
  if (it == m.end()) it = m.begin();
  return it == m.end() ? "" : it->second;
}

// Fixed standard offsets of the zone names lexsim knows; daylight saving is not modelled.
std::optional<long> ZoneOffset(const std::string& zone) {
  static const std::pair<const char*, long> kZones[] = {
      {"UTC", 0},          {"GMT", 0},         {"Z", 0},
      {"Europe/London", 0}, {"Europe/Paris", 3600}, {"Europe/Berlin", 3600},
      {"Asia/Tokyo", 9 * 3600}, {"Asia/Seoul", 9 * 3600}, {"America/New_York", -5 * 3600},
      {"America/Los_Angeles", -8 * 3600}};
  if (zone.empty()) return 0;
  for (const auto& [name, off] : kZones)
    if (EqualsNoCase(zone, name)) return off;
  // "+09:00", "-0500", "UTC+9", "GMT-5:30"
  std::string z = zone;
  if (z.size() > 3 && (EqualsNoCase(z.substr(0, 3), "UTC") || EqualsNoCase(z.substr(0, 3), "GMT")))
    z = z.substr(3);
  if (z.empty() || (z[0] != '+' && z[0] != '-')) return std::nullopt;
  int h = 0, m = 0;
  char tail = 0;
  if (std::sscanf(z.c_str() + 1, "%2d:%2d%c", &h, &m, &tail) == 2 ||
      (z.size() == 5 && std::sscanf(z.c_str() + 1, "%2d%2d%c", &h, &m, &tail) == 2) ||
      (z.size() <= 3 && std::sscanf(z.c_str() + 1, "%2d%c", &h, &tail) == 1)) {
    if (h > 14 || m > 59) return std::nullopt;
    long off = h * 3600L + m * 60L;
    return z[0] == '-' ? -off : off;
  }
  return std::nullopt;
}

}  // namespace

EngineView ViewOf(const EngineDef& def, const UserEngine* user) {
  EngineView v;
  v.def = &def;
  v.user = user;
  v.type = def.type | (user ? user->type : 0);
  v.support = def.support & (user ? user->support : ~0);
  v.valid_from = user && !user->valid_from.empty() ? user->valid_from : def.valid_from;
  v.valid_to = user && !user->valid_to.empty() ? user->valid_to : def.valid_to;
  v.max_tech = user ? std::min(user->max_tech, def.max_tech) : def.max_tech;
  v.max_user = user ? std::min(user->max_user, def.max_user) : def.max_user;
  v.max_total = std::min(def.max_total, v.max_tech + v.max_user);
  return v;
}

bool FilterMatches(const nv__EngineFilter* f, const EngineView& v, bool show_hidden) {
  bool hidden = (v.type & etype::kHidden) != 0;
  if (!f) return show_hidden || !hidden;
  if (f->eid && !f->eid->empty() && !EqualsNoCase(*f->eid, v.def->eid)) return false;
  if (f->from && !f->from->empty() && !EqualsNoCase(*f->from, v.def->from)) return false;
  if (f->to && !f->to->empty() && !EqualsNoCase(*f->to, v.def->to)) return false;
  int want = f->type ? *f->type : 0;
  if (hidden && !show_hidden && !(want & etype::kHidden)) return false;
  int kinds = want & ~etype::kHidden;
  if (kinds && !(v.type & kinds)) return false;
  if (want == etype::kHidden && !hidden) return false;
  if (f->support && (v.support & *f->support) != *f->support) return false;
  return true;
}

nv__Engine MakeEngine(const Call& call, const State& state, const EngineView& v,
                      const std::string& userid, const std::string& lang, const EngineDetail& d) {
  const EngineDef& e = *v.def;
  nv__Engine out;
  out.eid = call.Str(e.eid);
  out.display = call.Str(e.Display(lang));
  out.from = call.Str(e.from);
  out.to = call.Str(e.to);
  if (e.bridge()) {
    out.inter = call.Str(e.inter);
    out.eidLeft = call.Str(e.eid_left);
    out.eidRight = call.Str(e.eid_right);
  }
  out.type = Int(call, v.type);
  out.support = Int(call, v.support);
  if (!v.valid_from.empty() || !v.valid_to.empty()) {
    out.validity = soap_new_nv__Validity(call.soap());
    out.validity->from = call.Str(v.valid_from);
    out.validity->to = call.Str(v.valid_to);
  }
  if (!e.reverse.empty()) out.reverse = call.Str(e.reverse);

  if (d.dics && !e.bridge()) {
    auto* info = soap_new_nv__DictionaryInfo(call.soap());
    info->formats = soap_new_nv__FormatArray(call.soap());
    for (const auto& [mask, name] : e.formats) {
      nv__Format f;
      f.api = call.Long(static_cast<LONG64>(mask));
      f.format = call.Str(name);
      info->formats->item.push_back(f);
    }
    info->limits = soap_new_nv__DictionaryLimits(call.soap());
    info->limits->total = call.Long(v.max_total);
    info->limits->tech = call.Long(v.max_tech);
    info->limits->user = call.Long(v.max_user);
    info->list = soap_new_nv__DictionaryArray(call.soap());
    if (d.selected) {
      if (v.user)
        for (int64_t did : v.user->dics)
          if (const Dictionary* dic = state.FindDictionary(did); dic && state.CanRead(*dic, userid))
            info->list->item.push_back(MakeDictionaryRow(call, *dic, lang));
    } else {
      for (const auto& [did, dic] : state.dictionaries()) {
        if (dic.eid != e.eid || !state.CanRead(dic, userid)) continue;
        bool tech = dic.type == dtype::kTechnical || dic.type == dtype::kSystem;
        if (d.dic_filter == "userdic" && tech) continue;
        if (d.dic_filter == "techdic" && !tech) continue;
        if (d.dic_filter == "ownerdic" && dic.owner != userid) continue;
        info->list->item.push_back(MakeDictionaryRow(call, dic, lang));
      }
    }
    out.dictionaryInfo = info;
  }

  if (d.profiles) {
    out.profiles = soap_new_nv__ProfileArray(call.soap());
    auto all = state.profiles().find(e.eid);
    const Account* a = state.FindUser(userid);
    const std::map<std::string, std::map<std::string, PropertyRec>>* mine = nullptr;
    if (a && d.merge) {
      auto o = a->overrides.find(e.eid);
      if (o != a->overrides.end()) mine = &o->second;
    }
    std::map<std::string, ProfileRec> merged;
    if (all != state.profiles().end()) merged = all->second;
    if (mine)
      for (const auto& [name, props] : *mine)
        for (const auto& [k, p] : props) merged[name].props[k] = p;
    for (const auto& [name, prof] : merged) {
      nv__Profile p;
      p.profile = call.Str(name);
      p.display = call.Str(prof.display.empty() ? name : LangText(prof.display, lang));
      p.properties = soap_new_nv__PropertyArray(call.soap());
      for (const auto& [k, rec] : prof.props) {
        nv__Property q;
        q.key = call.Str(k);
        q.val = call.Str(rec.val);
        q.readonly = Bool(call, rec.readonly);
        p.properties->item.push_back(q);
      }
      out.profiles->item.push_back(p);
    }
  }
  return out;
}

nv__PropertyList* MakePropertyDefs(const Call& call) {
  auto* list = soap_new_nv__PropertyList(call.soap());
  for (const PropertyDefRec& def : PropertyDefs()) {
    nv__PropertyDef d;
    d.key = call.Str(def.key);
    d.display = call.Str(def.display);
    d.type = call.Str(std::string(1, def.type));
    d.values = nullptr;
    if (!def.values.empty()) {
      d.values = soap_new_nv__PropertyValues(call.soap());
      for (const auto& [val, disp] : def.values) {
        nv__PropertyValue pv;
        pv.value = call.Str(val);
        pv.display = call.Str(disp);
        d.values->item.push_back(pv);
      }
    }
    list->item.push_back(d);
  }
  return list;
}

std::string CheckPropertyValue(const PropertyDefRec& def, const std::string& val) {
  auto number = [](const std::string& s, long long* out) {
    if (s.empty()) return false;
    size_t i = s[0] == '-' ? 1 : 0;
    if (i == s.size() || s.size() > 18) return false;
    for (size_t k = i; k < s.size(); ++k)
      if (!std::isdigit(static_cast<unsigned char>(s[k]))) return false;
    *out = std::stoll(s);
    return true;
  };
  long long n = 0;
  switch (def.type) {
    case 'B':
      if (val != "true" && val != "false") return def.key + " must be true or false";
      break;
    case 'N':
      if (!number(val, &n)) return def.key + " must be a number";
      break;
    case 'R': {
      long long lo = 0, hi = 0;
      if (!number(val, &n) || def.values.size() != 2 || !number(def.values[0].first, &lo) ||
          !number(def.values[1].first, &hi) || n < lo || n > hi)
        return def.key + " must be a number from " + def.values.front().first + " to " +
               def.values.back().first;
      break;
    }
    case 'C': {
      bool ok = false;
      for (const auto& [v, disp] : def.values) ok = ok || v == val;
      if (!ok) return def.key + " has no value '" + val + "'";
      break;
    }
    default:
      break;
  }
  return "";
}

std::optional<std::string> NormalizeTime(const std::string& text, bool end,
                                         const std::string& zone) {
  if (text.empty() || EqualsNoCase(text, "unlimited")) return std::string();
  int y = 0, mo = 0, d = 0, h = 0, mi = 0, s = 0;
  char sep = 0;
  std::string t = text;
  bool utc = !t.empty() && (t.back() == 'Z' || t.back() == 'z');
  if (utc) t.pop_back();
  int used = 0;
  bool date_only = false;
  if (std::sscanf(t.c_str(), "%4d-%2d-%2d%n", &y, &mo, &d, &used) == 3 &&
      used == static_cast<int>(t.size())) {
    date_only = true;
    if (end) h = 23, mi = 59, s = 59;
  } else if (std::sscanf(t.c_str(), "%4d-%2d-%2d%c%2d:%2d:%2d%n", &y, &mo, &d, &sep, &h, &mi, &s,
                         &used) == 7 &&
             used == static_cast<int>(t.size()) && (sep == ' ' || sep == 'T')) {
  } else {
    return std::nullopt;
  }
  (void)date_only;
  if (mo < 1 || mo > 12 || d < 1 || d > 31 || h > 23 || mi > 59 || s > 60 || y < 1970)
    return std::nullopt;
  std::tm tm{};
  tm.tm_year = y - 1900;
  tm.tm_mon = mo - 1;
  tm.tm_mday = d;
  tm.tm_hour = h;
  tm.tm_min = mi;
  tm.tm_sec = s;
  std::time_t when = timegm(&tm);
  if (!utc) {
    std::optional<long> off = ZoneOffset(zone);
    if (!off) return std::nullopt;
    when -= *off;
  }
  std::tm out{};
  gmtime_r(&when, &out);
  char buf[32];
  std::strftime(buf, sizeof buf, "%Y-%m-%dT%H:%M:%SZ", &out);
  return std::string(buf);
}

}  // namespace lexsim::admin

namespace {
constexpr OpInfo kGetEngineInfo{"GetEngineInfo", api::kGetEngineInfo};
constexpr OpInfo kUpdateEngineProfile{"UpdateEngineProfile", api::kUpdateEngineProfile};

std::string Lang(const std::string* display_lang) {
  return display_lang && !display_lang->empty() ? *display_lang : "en";
}
}  // namespace

int nv__GetEngineInfo(struct soap* soap, std::string* licence, std::string* clientid,
                      std::string* reqgroup, std::string* select, std::string* displayLang,
                      nv__EngineFilter* filter, struct nv__GetEngineInfoResponse& r) {
  return lexsim::Serve(
      soap, kGetEngineInfo, {licence, clientid, reqgroup, select}, r, [&](Call& call) {
        namespace admin = lexsim::admin;
        auto lock = call.state().Lock();
        std::string target = call.Target();
        const lexsim::Account* a = call.state().FindUser(target);
        if (!a) Raise(err::kNotFound, "Unknown user: " + target);
        admin::EngineDetail detail;
        detail.dics = call.keys().Has("dic");
        detail.profiles = call.keys().Has("profiles") || call.keys().Has("engineprop");
        detail.merge = !call.keys().Has("nomerge");
        for (const char* k : {"userdic", "techdic", "ownerdic"})
          if (call.keys().Has(k)) detail.dic_filter = k;
        r.engines = soap_new_nv__EngineArray(soap);
        for (const lexsim::EngineDef& e : lexsim::EngineTable()) {
          auto ue = a->engines.find(e.eid);
          if (ue == a->engines.end()) continue;
          admin::EngineView v = admin::ViewOf(e, &ue->second);
          if (!admin::FilterMatches(filter, v, false)) continue;
          r.engines->item.push_back(
              admin::MakeEngine(call, call.state(), v, target, Lang(displayLang), detail));
        }
        if (call.keys().Has("propdef")) r.propdef = admin::MakePropertyDefs(call);
      });
}

int nv__UpdateEngineProfile(struct soap* soap, std::string* licence, std::string* clientid,
                            std::string* reqgroup, std::string* select, std::string* eid,
                            std::string* profile, nv__DisplayTextArray* alldisplay,
                            nv__KeyValArray* addProp, nv__StringArray* delProp,
                            struct nv__UpdateEngineProfileResponse& r) {
  return lexsim::Serve(
      soap, kUpdateEngineProfile, {licence, clientid, reqgroup, select}, r, [&](Call& call) {
        if (!eid || eid->empty()) Raise(err::kArgument, "An engine is required");
        if (!profile || profile->empty()) Raise(err::kArgument, "A profile name is required");
        const lexsim::EngineDef* e = lexsim::FindEngine(*eid);
        if (!e) Raise(err::kNotFound, "Unknown engine: " + *eid);
        auto lock = call.state().Lock();
        std::string target = call.Target();
        lexsim::Account* a = call.state().FindUser(target);
        if (!a || !a->engines.count(e->eid)) Raise(err::kDenied, "Engine not available: " + *eid);
        if (!(e->support & lexsim::esupport::kPropertiesModify))
          Raise(err::kArgument, "Engine " + e->eid + " has no modifiable properties");
        // Without `overrides` the shared profile changes, which only a super-user may do;
        // with it the change is the target user's own.
        bool own = call.keys().Has("overrides");
        if (!own && !call.caller()->super)
          Raise(err::kDenied, "Only a super-user may change the shared profiles");

        auto& shared = call.state().Profiles(e->eid);
        bool exists = shared.count(*profile) > 0 ||
                      (own && a->overrides[e->eid].count(*profile) > 0);
        if (!exists && call.keys().Has("mustexist"))
          Raise(err::kNotFound, "No profile " + *profile + " for " + e->eid);

        // Validate everything before changing anything.
        std::vector<std::pair<std::string, std::string>> adds;
        if (addProp)
          for (const nv__KeyValPair& kv : addProp->item) {
            std::string key = lexsim::ToLower(kv.key);
            if (key.empty()) Raise(err::kArgument, "Empty property key");
            const lexsim::PropertyDefRec* def = lexsim::FindPropertyDef(key);
            if (!def) {
              call.Warn(key, "Unknown property");
            } else if (std::string why = lexsim::admin::CheckPropertyValue(*def, kv.val);
                       !why.empty()) {
              Raise(err::kArgument, why);
            }
            adds.emplace_back(key, kv.val);
          }
        if (alldisplay)
          for (const nv__DisplayText& t : alldisplay->item)
            if (!t.lang || t.lang->empty()) Raise(err::kArgument, "Display text without language");

        std::map<std::string, lexsim::PropertyRec>& props =
            own ? a->overrides[e->eid][*profile] : shared[*profile].props;
        if (call.keys().Has("replace")) props.clear();
        for (auto& [k, v] : adds) {
          auto it = props.find(k);
          if (it != props.end() && it->second.readonly && !call.caller()->super)
            Raise(err::kDenied, "Property " + k + " is read-only");
          props[k].val = v;
        }
        if (delProp)
          for (const std::string& k : delProp->item)
            if (props.erase(lexsim::ToLower(k)) == 0) call.Warn(k, "No such property");
        lexsim::ProfileRec none;
        lexsim::ProfileRec& rec = own && !shared.count(*profile) ? none : shared[*profile];
        if (alldisplay)
          for (const nv__DisplayText& t : alldisplay->item) {
            if (own) break;
            if (t.text && !t.text->empty())
              rec.display[*t.lang] = *t.text;
            else
              rec.display.erase(*t.lang);
          }

        r.alldisplay = soap_new_nv__DisplayTextArray(soap);
        for (const auto& [lang, text] : rec.display) {
          nv__DisplayText t;
          t.lang = call.Str(lang);
          t.text = call.Str(text);
          r.alldisplay->item.push_back(t);
        }
        std::map<std::string, lexsim::PropertyRec> view = rec.props;
        if (own)
          for (const auto& [k, p] : props) view[k] = p;
        r.properties = soap_new_nv__PropertyArray(soap);
        for (const auto& [k, p] : view) {
          nv__Property q;
          q.key = call.Str(k);
          q.val = call.Str(p.val);
          q.readonly = lexsim::admin::Bool(call, p.readonly);
          r.properties->item.push_back(q);
        }
        // A profile left with nothing is gone.
        if (!own && rec.props.empty() && call.keys().Has("replace") &&
            (!addProp || addProp->item.empty()))
          shared.erase(*profile);
      });
}
