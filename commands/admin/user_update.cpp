#include "commands/admin/user_update.h"

#include <strings.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>

#include "client/credentials.h"
#include "client/did_list.h"
#include "commands/admin/einfo_options.h"
#include "commands/admin/flag_tables.h"
#include "shell/output.h"
#include "soapH.h"

namespace lexctl {

namespace {

constexpr auto kUserUpdateTable = CommandOptions<kCommonOptions | kTakeTimezone>(
    kDetailKeyOptions, {SelectKey("-force"),
                        {kUoptAll, "-all", kOptNoArgument},
                        {kUoptList, "-list", kOptNoArgument},
                        {kUoptTemplate, "-template", kOptRequired},
                        SelectKey("-alldic"),
                        {kUoptName, "-userName", kOptRequired},
                        {kUoptPass, "-userPass", kOptRequired},
                        {kUoptApi, "-userApi", kOptRequired},
                        {kUoptFeatures, "-userFeatures", kOptRequired},
                        // The name the help text and user-dump scripts use.
                        {kUoptFeatures, "-userFeat", kOptRequired},
                        {kUoptZone, "-userZone", kOptRequired},
                        {kUoptFrom, "-userFrom", kOptRequired},
                        {kUoptTo, "-userTo", kOptRequired},
                        {kUoptLimit, "-userLimit", kOptRequired},
                        {kUoptIp, "-userIp", kOptRequired},
                        {kUoptIpAdd, "-userIpAdd", kOptRequired},
                        {kUoptIpDel, "-userIpDel", kOptRequired},
                        {kUoptPropAdd, "-userPropAdd", kOptRequired},
                        {kUoptPropSet, "-userPropSet", kOptRequired},
                        {kUoptPropDel, "-userPropDel", kOptRequired},
                        {kUoptEngAdd, "-engAdd", kOptRequired},
                        {kUoptEngSet, "-engSet", kOptRequired},
                        {kUoptEngDel, "-engDel", kOptRequired},
                        {kUoptEngType, "-engType", kOptRequired},
                        {kUoptEngSupport, "-engSupport", kOptRequired},
                        {kUoptEngFrom, "-engFrom", kOptRequired},
                        {kUoptEngTo, "-engTo", kOptRequired},
                        {kUoptEngMaxTech, "-engMaxTech", kOptRequired},
                        {kUoptEngMaxUser, "-engMaxUser", kOptRequired},
                        {kUoptEngDicAdd, "-engDicAdd", kOptRequired},
                        {kUoptEngDicDel, "-engDicDel", kOptRequired}});

}  // namespace

const OptionDef* const kUserUpdateOptions = kUserUpdateTable;

namespace {

// -userLimit none: every limit but max.parallel.requests, which stays as it is.
const char* const kNoneLimits[] = {"dictionaries.owned", "max.call.chars.text",
                                   "max.call.chars.data", "max.hour.chars",
                                   "max.day.chars",       "max.month.chars",
                                   "max.total.chars",     "sessions"};

bool ReadDecimal(const std::string& text, int64_t* value) {
  if (text.empty()) return false;
  errno = 0;
  char* end = nullptr;
  long long v = strtoll(text.c_str(), &end, 10);
  if (errno != 0 || *end != '\0') return false;
  *value = v;
  return true;
}

// A mask option: names of the table or a number; "all" when all_value is given.
bool ReadMask(const std::string& text, FlagTable table, int64_t all_value, int64_t* value) {
  if (all_value && strcasecmp(text.c_str(), "all") == 0) {
    *value = all_value;
    return true;
  }
  int64_t v = 0;
  if (!ParseFlagArgument(text, table, v)) return false;
  *value = v;
  return true;
}

}  // namespace

bool UserUpdateParser::CurrentEngine(EngineEdit** engine) {
  if (edits_.engines.empty() || edits_.engines.back().action == "del") {
    Fail(thread_, "This option requires an -engAdd or -engSet argument first.\n");
    return false;
  }
  *engine = &edits_.engines.back();
  return true;
}

bool UserUpdateParser::TakeApi(const std::string& arg) {
  int64_t value = 0;
  if (strcasecmp(arg.c_str(), "all") == 0) {
    value = kApiAll;
  } else if (!arg.empty() && isdigit(static_cast<unsigned char>(arg[0]))) {
    value = strtoll(arg.c_str(), nullptr, strncasecmp(arg.c_str(), "0x", 2) == 0 ? 16 : 10);
  } else {
    FlagFold fold = FoldFlagList(arg, FlagTable::kApi);
    if (!fold.unknown.empty()) {
      Fail(thread_, "The API '%s' are not valid\n", arg.c_str());
      return false;
    }
    value = fold.value;
  }
  edits_.api = value;
  return true;
}

bool UserUpdateParser::TakeLimit(const std::string& arg) {
  if (strcasecmp(arg.c_str(), "none") == 0) {
    for (const char* name : kNoneLimits) edits_.limits.emplace_back(name, -1);
    return true;
  }
  size_t eq = arg.find('=');
  int64_t max = 0;
  if (eq == std::string::npos || eq == 0 || !ReadDecimal(arg.substr(eq + 1), &max)) {
    Fail(thread_, "The limit '%s' is not valid\n", arg.c_str());
    return false;
  }
  edits_.limits.emplace_back(arg.substr(0, eq), max);
  return true;
}

bool UserUpdateParser::TakeProperty(int id, const std::string& arg) {
  if (arg.empty()) return true;
  PropertyEdit p;
  p.action = id == kUoptPropAdd ? "add" : "set";
  size_t at = 0;
  for (; at < arg.size() && (arg[at] == '!' || arg[at] == '@'); ++at) {
    (arg[at] == '!' ? p.readonly : p.session) = true;
  }
  std::optional<Property> property = ReadProperty(thread_, arg, at, true);
  if (!property) return false;
  p.key = property->key;
  p.val = property->value;
  edits_.props.push_back(p);
  return true;
}

bool UserUpdateParser::Take(int id, const char* argument) {
  std::string arg = argument ? argument : "";
  switch (id) {
    case kUoptTemplate: edits_.template_user = arg; return true;
    case kUoptList: edits_.list_mode = true; return true;
    case kUoptName: edits_.name = arg; return true;
    case kUoptPass: edits_.password = arg; return true;
    case kUoptZone: edits_.zone = arg; return true;
    case kUoptFeatures: edits_.features = arg; return true;
    case kUoptFrom: edits_.from = arg; return true;
    case kUoptTo: edits_.to = arg; return true;
    case kUoptApi: return TakeApi(arg);
    case kUoptLimit: return TakeLimit(arg);
    case kUoptIp:
      edits_.ip_replace = true;
      if (strcasecmp(arg.c_str(), "any") == 0 || strcasecmp(arg.c_str(), "all") == 0) {
        edits_.ips.clear();
      } else {
        edits_.ips.push_back(arg);
      }
      return true;
    case kUoptIpAdd:
    case kUoptIpDel:
      edits_.ip_edits.emplace_back(id == kUoptIpAdd, arg);
      return true;
    case kUoptPropAdd:
    case kUoptPropSet: return TakeProperty(id, arg);
    case kUoptPropDel:
      if (!arg.empty()) edits_.props.push_back({"del", arg, "", false, false});
      return true;
    case kUoptEngAdd:
    case kUoptEngSet:
    case kUoptEngDel: {
      EngineEdit e;
      e.action = id == kUoptEngAdd ? "add" : id == kUoptEngSet ? "set" : "del";
      e.eid = arg;
      edits_.engines.push_back(e);
      return true;
    }
    default: return TakeEngineOption(id, arg);
  }
}

bool UserUpdateParser::TakeEngineOption(int id, const std::string& arg) {
  EngineEdit* engine = nullptr;
  if (!CurrentEngine(&engine)) return false;
  switch (id) {
    case kUoptEngType:
    case kUoptEngSupport: {
      bool support = id == kUoptEngSupport;
      int64_t value = 0;
      if (!ReadMask(arg, support ? FlagTable::kSupport : FlagTable::kType,
                    support ? kSupportAll : 0, &value)) {
        Fail(thread_, "The flags '%s' are not valid\n", arg.c_str());
        return false;
      }
      std::optional<int>& slot = support ? engine->support : engine->type;
      slot = static_cast<int>(value | slot.value_or(0));
      return true;
    }
    case kUoptEngFrom: engine->from = arg; return true;
    case kUoptEngTo: engine->to = arg; return true;
    case kUoptEngMaxTech:
    case kUoptEngMaxUser: {
      int64_t max = 0;
      if (!ReadDecimal(arg, &max)) {
        Fail(thread_, kMsgInvalidArg, arg.c_str());
        return false;
      }
      (id == kUoptEngMaxTech ? engine->max_tech : engine->max_user) = max;
      return true;
    }
    case kUoptEngDicAdd:
    case kUoptEngDicDel: {
      std::optional<std::string>& list = id == kUoptEngDicAdd ? engine->dic_add : engine->dic_del;
      std::string dids = ResolveDidList(arg);
      list = list ? *list + " " + dids : dids;
      return true;
    }
    default: return true;
  }
}

nv__UserUpdate* BuildUserUpdate(struct soap* soap, const UserEdits& edits,
                                const std::string& userid, const std::vector<std::string>* ips) {
  auto text = [soap](const std::string& s) {
    std::string* p = soap_new_std__string(soap);
    *p = s;
    return p;
  };
  auto number = [soap](int64_t v) {
    auto* p = static_cast<LONG64*>(soap_malloc(soap, sizeof(LONG64)));
    *p = v;
    return p;
  };
  auto integer = [soap](int v) {
    auto* p = static_cast<int*>(soap_malloc(soap, sizeof(int)));
    *p = v;
    return p;
  };
  auto boolean = [soap](bool v) {
    auto* p = static_cast<bool*>(soap_malloc(soap, sizeof(bool)));
    *p = v;
    return p;
  };
  auto* u = soap_new_nv__UserUpdate(soap);
  if (!userid.empty()) u->userid = text(userid);
  if (edits.name) u->username = text(*edits.name);
  if (edits.password) u->password = text(PasswordHash(userid, *edits.password));
  if (edits.zone) u->timezone = text(*edits.zone);
  if (edits.api) u->apiAllowed = number(*edits.api);
  if (edits.from || edits.to) {
    u->validity = soap_new_nv__Validity(soap);
    if (edits.from) u->validity->from = text(*edits.from);
    if (edits.to) u->validity->to = text(*edits.to);
  }
  if (!edits.limits.empty()) {
    u->limits = soap_new_nv__LimitArray(soap);
    for (const auto& [type, max] : edits.limits) {
      nv__Limit l{};
      l.type = text(type);
      l.maximum = number(max);
      u->limits->item.push_back(l);
    }
  }
  if (ips || edits.ip_replace) {
    u->iprestrict = soap_new_nv__StringArray(soap);
    u->iprestrict->item = ips ? *ips : edits.ips;
  }
  if (!edits.engines.empty()) {
    u->engines = soap_new_nv__EngineUpdateArray(soap);
    for (const EngineEdit& e : edits.engines) {
      nv__EngineUpdate x{};
      x.action = text(e.action);
      x.eid = text(e.eid);
      if (e.type) x.type = integer(*e.type);
      if (e.support) x.support = integer(*e.support);
      if (e.from || e.to) {
        x.validity = soap_new_nv__Validity(soap);
        if (e.from) x.validity->from = text(*e.from);
        if (e.to) x.validity->to = text(*e.to);
      }
      if (e.max_tech) x.maxTechDic = number(*e.max_tech);
      if (e.max_user) x.maxUserDic = number(*e.max_user);
      if (e.dic_add) x.addDicList = text(*e.dic_add);
      if (e.dic_del) x.delDicList = text(*e.dic_del);
      u->engines->item.push_back(x);
    }
  }
  if (!edits.props.empty()) {
    u->properties = soap_new_nv__PropertyUpdateArray(soap);
    for (const PropertyEdit& p : edits.props) {
      nv__PropertyUpdate x{};
      x.action = text(p.action);
      x.key = text(p.key);
      if (p.action != "del") x.val = text(p.val);
      if (p.readonly) x.readonly = boolean(true);
      if (p.session) x.session = boolean(true);
      u->properties->item.push_back(x);
    }
  }
  if (edits.features) u->features = text(*edits.features);
  return u;
}

std::vector<std::string> ApplyIpEdits(std::vector<std::string> current,
                                      const std::vector<std::pair<bool, std::string>>& edits) {
  for (const auto& [add, cidr] : edits) {
    if (add) {
      if (std::find(current.begin(), current.end(), cidr) == current.end()) current.push_back(cidr);
    } else {
      std::erase(current, cidr);
    }
  }
  return current;
}

void PrintEngineEdits(ExecThread& thread, const std::vector<EngineEdit>& engines) {
  for (const EngineEdit& e : engines) {
    ThreadPrint(thread, "Engine:       %s %s\n", e.action.c_str(), e.eid.c_str());
    if (e.type) ThreadPrint(thread, "  Type:       0x%x\n", static_cast<unsigned>(*e.type));
    if (e.support) ThreadPrint(thread, "  Support:    0x%08x\n", static_cast<unsigned>(*e.support));
    if (e.from) ThreadPrint(thread, "  From:       %s\n", e.from->c_str());
    if (e.to) ThreadPrint(thread, "  To:         %s\n", e.to->c_str());
    if (e.max_tech) ThreadPrint(thread, "  Max Tech:   %lld\n", static_cast<long long>(*e.max_tech));
    if (e.max_user) ThreadPrint(thread, "  Max User:   %lld\n", static_cast<long long>(*e.max_user));
    if (e.dic_add) ThreadPrint(thread, "  Dic Add:    %s\n", e.dic_add->c_str());
    if (e.dic_del) ThreadPrint(thread, "  Dic Del:    %s\n", e.dic_del->c_str());
  }
}

UserLister ServerUserLister(ExecThread& thread) {
  return [&thread](const std::string& pattern) {
    RequestFrame frame(thread, "");
    std::string text = pattern;
    auto r = frame.Call(soap_call_nv__GetUserList, &text);
    std::vector<std::string> ids;
    if (r.users) {
      for (const nv__UserEntry& e : r.users->item) {
        if (e.userid && !e.userid->empty()) ids.push_back(*e.userid);
      }
    }
    return ids;
  };
}

bool ResolveUserIds(ExecThread& thread, const std::vector<std::string>& patterns, bool wildcards,
                    bool self, const UserLister& lister, std::vector<std::string>* ids) {
  const std::string& me = Local(thread).userid();
  std::vector<std::string> found;
  for (const std::string& p : patterns) {
    if (p.empty()) {
      Fail(thread, "Invalid arguments.\n");
      return false;
    }
    if (p.find('*') == std::string::npos) {
      found.push_back(p);
      continue;
    }
    if (!wildcards) {
      Fail(thread, "Invalid arguments.\n");
      return false;
    }
    ThreadPrint(thread, "Getting all users for '%s'\n", p.c_str());
    for (std::string& id : lister(p)) found.push_back(std::move(id));
  }
  for (std::string& id : found) {
    if (!self && !me.empty() && id == me) {
      ThreadPrint(thread, "Ignoring self: %s\n", id.c_str());
      continue;
    }
    // A pattern may name a user that an earlier argument named already.
    if (std::find(ids->begin(), ids->end(), id) == ids->end()) ids->push_back(std::move(id));
  }
  return true;
}

bool TargetUsers(ExecThread& thread, const ArgVector& positional, bool wildcards, bool self,
                 std::vector<std::string>* ids) {
  std::vector<std::string> patterns(positional.begin(), positional.end());
  if (patterns.empty()) {
    const std::string& me = Local(thread).userid();
    if (me.empty()) {
      Fail(thread, "No userid supplied.\n");
      return false;
    }
    patterns.push_back(me);
  }
  return ResolveUserIds(thread, patterns, wildcards, self, ServerUserLister(thread), ids);
}

}  // namespace lexctl
