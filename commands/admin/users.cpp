#include "commands/admin/users.h"

#include <strings.h>

#include <string>
#include <vector>

#include "client/common_options.h"
#include "client/frame.h"
#include "commands/admin/einfo_options.h"
#include "commands/admin/engine_printer.h"
#include "commands/admin/user_printer.h"
#include "commands/admin/user_update.h"
#include "shell/dispatch.h"
#include "shell/output.h"
#include "soapH.h"

namespace lexctl {
namespace {

#define USER_OPTION_HELP \
  "    -userName DISPLAY     The user's display name.\n" \
  "    -userPass PASSWORD    The user's password; it is hashed with the userid\n" \
  "                          before it is sent.\n" \
  "    -userApi API          API functions: flag names (see flags -api), a\n" \
  "                          number, or \"all\".\n" \
  "    -userFeat FEATURES    A blank-separated list of feature codes (see\n" \
  "                          features), e.g. \"ECHO SOAP TEXT TMUL\". Codes may\n" \
  "                          carry \"+\" or \"-\" to add or remove, e.g. \"ALL -REST\".\n" \
  "                          NONE and ALL may be used anywhere; CURRENT may stand\n" \
  "                          first to modify the current user's features, e.g.\n" \
  "                          \"CURRENT +SOAP\".\n" \
  "    -userZone TIMEZONE    The user's time zone, used for rolling-period limits\n" \
  "                          only (not for validity periods); default the current\n" \
  "                          user's zone.\n" \
  "    -userFrom TIME        Start of the account's validity period, or\n" \
  "                          \"unlimited\".\n" \
  "    -userTo TIME          End of the account's validity period, or\n" \
  "                          \"unlimited\".\n" \
  "    -userLimit TYPE=MAX   Set a limit: max.call.chars.text,\n" \
  "                          max.call.chars.data, max.hour.chars, max.day.chars,\n" \
  "                          max.month.chars, max.total.chars,\n" \
  "                          dictionaries.owned, sessions, max.parallel.requests.\n" \
  "                          \"none\" removes all limits; only the limits given are\n" \
  "                          changed; a MAX of -1 removes that limit.\n" \
  "    -userIp CIDR          Client addresses allowed: \"127.0.0.1\" (IPv4\n" \
  "                          address), \"192.168.0.0/16\" (IPv4 subnet in CIDR\n" \
  "                          form), \"192.168.0.0/255.255.0.0\" (mask form),\n" \
  "                          \"[::1]\" (IPv6 address), \"[::1]/16\" (IPv6 subnet),\n" \
  "                          \"allv4\" (all IPv4 addresses), \"allv6\" (all IPv6\n" \
  "                          addresses). All entries must be given at once and\n" \
  "                          replace the old ones; \"all\" or \"any\" removes every\n" \
  "                          entry (connections from anywhere).\n" \
  "    -userIpAdd CIDR       Add one CIDR to the existing list.\n" \
  "    -userIpDel CIDR       Remove one CIDR that matches exactly.\n" \
  "    -userPropAdd [!][@]KEY=VAL\n" \
  "                          Add a property (fault on an existing property).\n" \
  "    -userPropSet [!][@]KEY=VAL\n" \
  "                          Add or overwrite a property.\n" \
  "    -userPropDel KEY      Delete a property (error if missing). KEY and VAL\n" \
  "                          may be any Unicode; the server lower-cases the ASCII\n" \
  "                          characters of KEY. Prefix \"!\" makes a read-only\n" \
  "                          property (must be repeated on every set; only on\n" \
  "                          other users), prefix \"@\" a property of the current\n" \
  "                          session instead of a global one. Values are strings\n" \
  "                          (binary values may be stored base64-encoded).\n" \
  "    -engAdd EID           Add, set or delete an engine: the engine\n" \
  "    -engSet EID           options after it, up to the next of these\n" \
  "    -engDel EID           three, belong to it.\n" \
  "    -engType TYPE         0 or HIDDEN.\n" \
  "    -engSupport FLAG      Support flags, repeatable, names or a decimal\n" \
  "                          integer, \"all\" for all.\n" \
  "    -engFrom TIME         Start of the engine's validity period, or\n" \
  "                          \"unlimited\".\n" \
  "    -engTo TIME           End of the engine's validity period, or \"unlimited\".\n" \
  "    -engMaxTech MAX       Technical dictionaries selectable: 0 to 999, default\n" \
  "                          999, reduced by the server to what the engine\n" \
  "                          supports.\n" \
  "    -engMaxUser MAX       User dictionaries selectable: 0 to 999, default 999,\n" \
  "                          reduced by the server to what the engine supports.\n" \
  "    -engDicAdd DIC        A list of DIDs to add or remove; the\n" \
  "    -engDicDel DIC        keyword TECH stands for all technical dictionaries\n" \
  "                          (e.g. \"TECH 10092\"); order does not matter.\n" \
  "\n" \
  "Date formats:\n" \
  "    1. \"YYYY-MM-DD\"           start or end of day in local time\n" \
  "    2. \"YYYY-MM-DDZ\"          the same in GMT\n" \
  "    3. \"YYYY-MM-DD HH:MM:SS\"  local\n" \
  "    4. \"YYYY-MM-DD HH:MM:SSZ\" GMT\n" \
  "For formats 1 and 2 the server sets 00:00:00 for a start and 23:59:59 for an\n" \
  "end. Local times are converted with the -timezone select key, else the current\n" \
  "user's zone, never with -userZone.\n"

#define USER_LIST_HELP "    -list       Show the engines as a list.\n"
#define USER_DETAIL_HELP \
  "    -all        Ask for all details (engines dic engineprop profiles propdef\n" \
  "                limits userprop).\n" USER_LIST_HELP
// ucreate and uupdate ask for the user record too.
#define USER_UPDATE_DETAIL_HELP \
  "    -all        Ask for all details (user engines dic engineprop profiles\n" \
  "                propdef limits userprop).\n" USER_LIST_HELP

constexpr char kUcreateUsage[] =
    "Usage: ucreate [USERID+] [-template USERID] [options]\n\n" LEXCTL_COMMON_OPTION_HELP
    "    -template   Copy the settings of this user into the new users.\n"
    "    -alldic     Share all of the template user's dictionaries with the new\n"
    "                users; otherwise no user-created dictionary is shared.\n" USER_UPDATE_DETAIL_HELP
        USER_OPTION_HELP;

constexpr char kUupdateUsage[] =
    "Usage: uupdate [USERID+] [options]\n\n" LEXCTL_COMMON_OPTION_HELP USER_UPDATE_DETAIL_HELP
        USER_OPTION_HELP
    "\nUSERID may hold \"*\" wildcards ('mygroup/f*'). Without USERID the current\n"
    "user is updated; without any update option the user details are retrieved.\n";

constexpr char kUgetUsage[] =
    "Usage: uget [USERID+] [options]\n\n" LEXCTL_COMMON_OPTION_HELP USER_DETAIL_HELP
    "    -eid        Only engines with this EID (ALL for all, CURRENT for the\n"
    "                current engine).\n"
    "    -from       Only engines from this language.\n"
    "    -to         Only engines to this language.\n"
    "    -type       Only engines with these type flags.\n"
    "    -support    Only engines with these support flags.\n"
    "    -suserdic   List the user dictionaries of the engines.\n"
    "    -stechdic   List the technical dictionaries of the engines.\n"
    "\nUSERID may hold \"*\" wildcards ('mygroup/f*'). Without USERID the current\n"
    "user is shown.\n";

constexpr char kUlistUsage[] =
    "Usage: ulist [USERID]\n\n" LEXCTL_COMMON_OPTION_HELP
    "    -display    Ask for the display names.\n"
    "\nAn id is matched exactly; \"*\" matches a prefix ('mygroup/f*'); '*/' lists\n"
    "all groups. Only the super-user may look into other groups.\n";

constexpr char kUdeleteUsage[] =
    "Usage: udelete [USERID+] [-force]\n\n" LEXCTL_COMMON_OPTION_HELP
    "    -force      Also delete users who own dictionaries, with their\n"
    "                dictionaries.\n"
    "\nUSERID may hold \"*\" wildcards ('mygroup/f*'); your own userid is never\n"
    "deleted.\n";

constexpr auto kUlistOptions = CommandOptions<kCommonOptions>({SelectKey("-display")});
constexpr auto kUdeleteOptions = CommandOptions<kCommonOptions>({SelectKey("-force")});

// The address list that replaces the user's: -userIpAdd and -userIpDel
// applied to the user's own list, or to the one -userIp gave.
std::vector<std::string> NewIpList(ExecThread& thread, const UserEdits& edits,
                                   const std::string& id) {
  std::vector<std::string> ips;
  if (edits.ip_replace) {
    ips = edits.ips;
  } else {
    RequestFrame fetch(thread, "");
    nv__StringArray who;
    who.item.push_back(id);
    std::string lang = fetch.data().uilang;
    auto got = fetch.Call(soap_call_nv__GetUser, lang.empty() ? nullptr : &lang, nullptr, &who);
    // The list sent replaces the user's: one built from no user, or from
    // someone else's, would silently drop restrictions.
    const nv__User* user = nullptr;
    if (got.users) {
      for (const nv__User& u : got.users->item) {
        if (u.userid && strcasecmp(u.userid->c_str(), id.c_str()) == 0) user = &u;
      }
    }
    if (!user) throw Exception("The server's reply does not hold user " + id + "; its address list is left as it is");
    if (user->iprestrict) ips = user->iprestrict->item;
  }
  return ApplyIpEdits(ips, edits.ip_edits);
}

// Creates or updates one user; the user the server sends back, if any.
const nv__User* SendUser(RequestFrame& frame, const UserEdits& edits, const std::string& id,
                         bool create) {
  ExecThread& thread = frame.thread();
  std::vector<std::string> ips;
  // The server replaces the list: build the new one from the user's own.
  bool whole_list = !edits.ip_edits.empty();
  if (whole_list) ips = NewIpList(thread, edits, id);
  nv__UserUpdate* update = BuildUserUpdate(frame.soap(), edits, id, whole_list ? &ips : nullptr);
  std::string lang = frame.data().uilang;
  std::string* display_lang = lang.empty() ? nullptr : &lang;
  // The warnings come after "OK.", on their own lines.
  if (create) {
    ThreadPrint(thread, "Creating userid: %-20s", id.c_str());
    std::string tpl = edits.template_user;
    // Warnings come with the call, as for every command: before "OK.".
    auto r = frame.Call(soap_call_nv__CreateUser, display_lang, update, tpl.empty() ? nullptr : &tpl);
    ThreadPrint(thread, "OK.\n");
    return r.user;
  }
  ThreadPrint(thread, "Updating userid: %-30s", id.c_str());
  auto r = frame.Call(soap_call_nv__UpdateUser, display_lang, update);
  ThreadPrint(thread, " OK.\n");
  return r.user;
}

// ucreate and uupdate: one parser, one loop over the users.
void RunUpdate(ExecThread& thread, ArgVector& args, bool create) {
  RequestFrame frame(thread, Local(thread).neweid ? " features neweid" : " features");
  UserUpdateParser parser(thread);
  bool ok = frame.Scan(kUserUpdateOptions, args, [&](const OptionScanner& o) {
    if (o.id() == kUoptAll) {
      frame.AddSelectKey(kAllSelectKeys + 1);
      return true;
    }
    if (o.id() == kUoptTemplate && !create) {
      Fail(thread, kMsgInvalidArg, "-template");
      return false;
    }
    return parser.Take(o.id(), o.argument());
  });
  if (!ok) return;
  const UserEdits& edits = parser.edits();
  std::vector<std::string> ids;
  if (!TargetUsers(thread, frame.positional(), !create, !create, &ids)) return;
  if (ids.empty()) {
    Fail(thread, create ? "No users selected.\n" : "No users matched.\n");
    return;
  }
  if (!edits.ip_edits.empty() && ids.size() > 1) {
    Fail(thread, "Can't use -useripadd or -useripdel with more than more userid.\n");
    return;
  }

  frame.PrintSelectKeys();
  if (!edits.template_user.empty()) {
    ThreadPrint(thread, "TemplateUser: %s\n", edits.template_user.c_str());
  }
  PrintEngineEdits(thread, edits.engines);
  ThreadPrint(thread, "\n");

  int mode = edits.list_mode ? 1 : 0;
  for (size_t i = 0; i < ids.size(); ++i) {
    const nv__User* user = SendUser(frame, edits, ids[i], create);
    if (user) {
      ThreadPrint(thread, "\n");
      PrintUser(thread, "USER DETAILS", *user, mode);
      if (i + 1 < ids.size()) ThreadPrint(thread, "\n\n");
    }
  }
}

void CmdUcreate(ExecThread& thread, ArgVector& args) {
  if (CheckHelpRequest(thread, CmdUcreate, args, true)) return;
  RunGuarded(thread, [&] { RunUpdate(thread, args, true); });
}

void CmdUupdate(ExecThread& thread, ArgVector& args) {
  if (CheckHelpRequest(thread, CmdUupdate, args, true)) return;
  RunGuarded(thread, [&] { RunUpdate(thread, args, false); });
}

void CmdUget(ExecThread& thread, ArgVector& args) {
  if (CheckHelpRequest(thread, CmdUget, args, true)) return;
  RunGuarded(thread, [&] {
    RequestFrame frame(thread, EngineQueryKeys(thread));
    EngineQuery query;
    if (!ScanEngineQuery(frame, args, query)) return;
    std::vector<std::string> ids;
    if (!TargetUsers(thread, frame.positional(), true, true, &ids)) return;
    frame.PrintSelectKeys();
    PrintEngineFilter(thread, query);
    for (const std::string& id : ids) ThreadPrint(thread, "User ID:      %s\n", id.c_str());
    ThreadPrint(thread, "\n");
    // An empty list would ask for the caller: a pattern matched nobody.
    if (ids.empty()) {
      ThreadPrint(thread, "No users found\n");
      return;
    }
    nv__StringArray who;
    who.item = ids;
    auto r = frame.Call(soap_call_nv__GetUser,
                        query.display_lang.empty() ? nullptr : &query.display_lang,
                        query.Filter(frame.soap()), &who);
    if (!r.users || r.users->item.empty()) {
      ThreadPrint(thread, "No users found\n");
      return;
    }
    for (size_t i = 0; i < r.users->item.size(); ++i) {
      if (i > 0) ThreadPrint(thread, "\n");
      PrintUser(thread, "USER DETAILS", r.users->item[i], query.mode);
    }
    if (query.mode == kEngineFull) PrintPropertyDefs(thread, r.propdef);
  });
}

void CmdUlist(ExecThread& thread, ArgVector& args) {
  if (CheckHelpRequest(thread, CmdUlist, args, true)) return;
  RunGuarded(thread, [&] {
    RequestFrame frame(thread, "");
    if (!frame.Scan(kUlistOptions, args) || !frame.ExpectPositional(0, 1)) return;
    std::string pattern = frame.positional().empty() ? "" : frame.positional()[0];
    frame.PrintSelectKeys();
    ThreadPrint(thread, "UserId:       %s\n", pattern.c_str());
    auto r = frame.Call(soap_call_nv__GetUserList, &pattern);
    int count = 0;
    if (r.users) {
      for (const nv__UserEntry& e : r.users->item) {
        ThreadPrint(thread, "%-40s %s\n", e.userid ? e.userid->c_str() : "",
                    e.username ? e.username->c_str() : "");
        ++count;
      }
    }
    ThreadPrint(thread, "%d entries.\n", count);
  });
}

void CmdUdelete(ExecThread& thread, ArgVector& args) {
  if (CheckHelpRequest(thread, CmdUdelete, args, true)) return;
  RunGuarded(thread, [&] {
    RequestFrame frame(thread, "");
    if (!frame.Scan(kUdeleteOptions, args)) return;
    std::vector<std::string> ids;
    if (!TargetUsers(thread, frame.positional(), true, false, &ids)) return;
    if (ids.empty()) {
      Fail(thread, "No users selected.\n");
      return;
    }
    frame.PrintSelectKeys();
    for (const std::string& id : ids) ThreadPrint(thread, "User ID:      %s\n", id.c_str());
    nv__StringArray who;
    who.item = ids;
    frame.Call(soap_call_nv__DeleteUser, &who);
    ThreadPrint(thread, "OK.\n");
  });
}

}  // namespace

const CommandRecord kUserRows[] = {
    {"ucreate", CmdUcreate, 0, "Create a new user account.", kUcreateUsage},
    {"uupdate", CmdUupdate, 0, "Update or retrieve user account details.", kUupdateUsage},
    {"uget", CmdUget, 0, "Retrieve user details.", kUgetUsage},
    {"ulist", CmdUlist, 0, "Retrieve user list.", kUlistUsage},
    {"udelete", CmdUdelete, 0, "Delete a user account.", kUdeleteUsage},
    {nullptr, nullptr, 0, nullptr, nullptr},
};

const CommandOptionTable kUserOptionTables[] = {
    {"ucreate", kUserUpdateOptions}, {"uupdate", kUserUpdateOptions}, {"uget", kEngineQueryOptions},
    {"ulist", kUlistOptions},        {"udelete", kUdeleteOptions},    {nullptr, nullptr},
};

}  // namespace lexctl
