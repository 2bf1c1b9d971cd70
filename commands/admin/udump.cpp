#include "commands/admin/udump.h"

#include <strings.h>

#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "client/common_options.h"
#include "client/frame.h"
#include "commands/admin/flag_tables.h"
#include "commands/admin/user_update.h"
#include "commands/common/engine_list.h"
#include "commands/common/files.h"
#include "shell/dispatch.h"
#include "shell/output.h"
#include "shell/platform.h"
#include "soapH.h"

namespace lexctl {

void ScriptLine::Add(const std::string& piece) {
  if (column_ + piece.size() > kWidth) {
    text_.append(kWidth - std::min(column_, kWidth), ' ');
    text_ += " \\\n    ";
    column_ = 4;
  }
  text_ += piece;
  column_ += piece.size();
}

namespace {

// A word the help check would take for a request for help.
bool IsHelpWord(const std::string& text) { return text == "-?" || text == "/?"; }

}  // namespace

const char* ScriptValueProblem(const std::string& text, ScriptValue kind) {
  for (unsigned char c : text) {
    if (c == '\n' || c == '\r') return "a line break";
    if ((c < 0x20 && c != '\t') || c == 0x7f) return "a control character";
  }
  // Substitution knows no escape: a "{{" would be replaced, or would stop
  // every reference before it.
  if (text.find("{{") != std::string::npos) return "\"{{\"";
  bool word =
      kind == ScriptValue::kWord || kind == ScriptValue::kUserId || kind == ScriptValue::kFileName;
  bool select = kind == ScriptValue::kSelect || kind == ScriptValue::kUserId;
  if ((word || select) && text.empty()) return "an empty word";
  // Select keys are separated by blanks.
  if (select && text.find_first_of(" \t") != std::string::npos) return "a blank";
  if (word && (text[0] == '-' || text[0] == '/')) return "a leading - or /, which makes an option";
  // User ids with "*" are patterns, and dimport's files too.
  if (word && text.find('*') != std::string::npos) return "a wildcard";
  if (kind == ScriptValue::kFileName && text.find('?') != std::string::npos) return "a wildcard";
  return nullptr;
}

bool ScriptLine::Check(const std::string& value, ScriptValue kind) {
  const char* why = ScriptValueProblem(value, kind);
  if (why && !refused_) refused_.emplace(value, why);
  return !why;
}

void ScriptLine::Refuse(const std::string& value, const char* why) {
  if (!refused_) refused_.emplace(value, why);
}

ScriptLine& ScriptLine::Fixed(const std::string& word) {
  Add(" " + ScriptWord(word));
  args_.push_back({word, false});
  return *this;
}

ScriptLine& ScriptLine::Fixed(const std::string& option, const std::string& word) {
  Add(" " + option + " " + ScriptWord(word));
  args_.push_back({option, false});
  args_.push_back({word, false});
  return *this;
}

ScriptLine& ScriptLine::Dids(const std::string& option, const std::vector<std::string>& dids) {
  Add(" " + option + " \"");
  size_t start = text_.size();
  for (const std::string& did : dids) Add(did + " ");
  Add("\"");
  // A continuation inside the quotes leaves its blanks in the argument.
  std::string list = text_.substr(start, text_.size() - 1 - start);
  for (size_t at; (at = list.find("\\\n")) != std::string::npos;) list.erase(at, 2);
  args_.push_back({option, false});
  args_.push_back({list, false});
  return *this;
}

ScriptLine& ScriptLine::Piece(const std::string& piece, const std::vector<std::string>& words) {
  Add(piece);
  for (const std::string& word : words) args_.push_back({word, false});
  return *this;
}

ScriptLine& ScriptLine::Value(const std::string& value, ScriptValue kind) {
  Check(value, kind);
  Add(" " + ScriptWord(value));
  args_.push_back({value, true});
  return *this;
}

ScriptLine& ScriptLine::Option(const std::string& option, const std::string& value,
                               ScriptValue kind) {
  return OptionWord(option, value, kind, false);
}

ScriptLine& ScriptLine::QuotedOption(const std::string& option, const std::string& value) {
  return OptionWord(option, value, ScriptValue::kText, true);
}

ScriptLine& ScriptLine::OptionWord(const std::string& option, const std::string& value, ScriptValue kind,
                                   bool quoted) {
  if (IsHelpWord(value)) return Joined(option, value, kind);
  Check(value, kind);
  Add(" " + option + " " + ScriptWord(value, quoted));
  args_.push_back({option, false});
  args_.push_back({value, true});
  return *this;
}

ScriptLine& ScriptLine::Joined(const std::string& option, const std::string& value,
                               ScriptValue kind) {
  Check(value, kind);
  Add(" " + option + "=" + ScriptWord(value));
  args_.push_back({option + "=" + value, true});
  return *this;
}

std::string ScriptWord(const std::string& text, bool always_quoted) {
  // A final backslash would join the script's next line to this one.
  if (!always_quoted && !text.empty() && text.find_first_of(" \t\"") == std::string::npos && text.back() != '\\') {
    return text;
  }
  // The tokeniser's rule: backslashes count only in front of a double quote.
  std::string out = "\"";
  size_t slashes = 0;
  for (char c : text) {
    if (c == '\\') {
      ++slashes;
      continue;
    }
    if (c == '"') {
      out.append(slashes * 2 + 1, '\\');
    } else {
      out.append(slashes, '\\');
    }
    slashes = 0;
    out += c;
  }
  out.append(slashes * 2, '\\');
  return out + "\"";
}

std::string DumpFilePrefix(const std::string& userid) {
  std::string prefix;
  for (unsigned char c : userid) {
    bool keep = isalnum(c) || c >= 0x80 || c == '.' || c == '_' || c == '-' || c == '+' ||
                c == '@' || c == '=' || c == ',' || c == '~';
    prefix += keep ? static_cast<char>(c) : '_';
  }
  if (prefix.empty() || prefix[0] == '-') prefix.insert(prefix.begin(), '_');
  return prefix;
}

std::string PrintableValue(const std::string& text) {
  std::string out;
  for (unsigned char c : text) {
    if (c < 0x20 || c == 0x7f || c == '{' || c == '}') {
      char hex[5];
      snprintf(hex, sizeof hex, "\\x%02x", c);
      out += hex;
    } else {
      out += static_cast<char>(c);
    }
  }
  return out;
}

std::string ExportExtension(const std::string& format) {
  std::string ext = ".";
  for (char c : format) {
    bool plain = isalnum(static_cast<unsigned char>(c)) || c == '-' || c == '_';
    ext += plain ? static_cast<char>(tolower(static_cast<unsigned char>(c))) : '_';
  }
  return format.empty() ? ".txt" : ext;
}

std::string DumpDataFile(const std::string& prefix, const DumpDictionary& d) {
  return prefix + "_" + std::to_string(d.did) + ExportExtension(d.format);
}

std::string DumpUserdataFile(const std::string& prefix, const DumpDictionary& d) {
  return prefix + "_" + std::to_string(d.did) + ".dat";
}

namespace {

// Technical dictionaries are the server's own and keep their DIDs.
constexpr int64_t kFirstUserDid = 10000;

std::string DidReference(int64_t did) {
  std::string text = std::to_string(did);
  return "{{DID_" + text + ":" + text + "}}";
}

std::string Hex(const char* format, unsigned long long value) {
  char number[64];
  snprintf(number, sizeof number, format, value);
  return number;
}

bool Owns(const std::vector<DumpDictionary>& owned, int64_t did) {
  for (const DumpDictionary& d : owned) {
    if (d.did == did) return true;
  }
  return false;
}

class ScriptBuilder {
 public:
  explicit ScriptBuilder(UserScript& out) : out_(out) {}
  void Main(const ScriptLine& line) { Take(line, out_.main, out_.main_commands); }
  void Share(const ScriptLine& line) { Take(line, shares_, share_commands_); }
  void MainComment(const std::string& text) { out_.main += "# " + text + "\n"; }
  // The shares file, when it has anything to do.
  void FinishShares(const ScriptLine& header) {
    if (shares_.empty()) return;
    out_.shares = header.Finish() + shares_;
    out_.share_commands.push_back({header.command(), header.args()});
    out_.share_commands.insert(out_.share_commands.end(), share_commands_.begin(),
                               share_commands_.end());
  }

 private:
  void Take(const ScriptLine& line, std::string& text, std::vector<ScriptCommand>& commands) {
    if (line.refused() && !out_.refused) out_.refused = line.refused();
    text += line.Finish();
    commands.push_back({line.command(), line.args()});
  }

  UserScript& out_;
  std::string shares_;
  std::vector<ScriptCommand> share_commands_;
};

ScriptLine Utf8Line() {
  ScriptLine line("setopt");
  line.Fixed("utf8").Fixed("true");
  return line;
}

ScriptLine UcreateLine(const DumpUser& user, const std::string& target) {
  ScriptLine line("ucreate");
  line.Value(target, ScriptValue::kUserId);
  line.Option("-userPass", target);
  if (user.features) line.QuotedOption("-userFeat", *user.features);
  line.Fixed("-userApi", Hex("0x%llx", static_cast<unsigned long long>(user.api)));
  if (user.username) line.Option("-userName", *user.username);
  if (user.timezone) line.Option("-userZone", *user.timezone);
  if (user.from && !user.from->empty()) line.Option("-userFrom", *user.from);
  if (user.to && !user.to->empty()) line.Option("-userTo", *user.to);
  for (const std::string& cidr : user.ips) {
    // These words empty the list instead.
    if (strcasecmp(cidr.c_str(), "all") == 0 || strcasecmp(cidr.c_str(), "any") == 0) {
      line.Refuse(cidr, "an address entry that -userIp reads as every address");
    }
    line.Option("-userIp", cidr);
  }
  for (const auto& [type, maximum] : user.limits) {
    // -userLimit reads the name up to the first "=".
    if (type.empty() || type.find('=') != std::string::npos) {
      line.Refuse(type, "a limit name that -userLimit reads otherwise");
    }
    line.Option("-userLimit", type + "=" + std::to_string(maximum));
  }
  for (const DumpProperty& p : user.properties) {
    // -userPropAdd takes leading marks off the key and reads it up to the first "=".
    if (p.key.empty() || p.key.find('=') != std::string::npos || p.key[0] == '!' ||
        p.key[0] == '@') {
      line.Refuse(p.key, "a property key that -userPropAdd reads otherwise");
    }
    line.Option("-userPropAdd", (p.readonly ? "!" : "") + p.key + "=" + p.val);
  }
  return line;
}

ScriptLine EngineLine(const DumpEngine& e, const std::string& target,
                      const std::vector<std::string>& dics) {
  ScriptLine line("uupdate");
  line.Value(target, ScriptValue::kUserId);
  line.Option("-engAdd", e.eid);
  line.Fixed("-engSupport", Hex("0x%08llx", e.support));
  if (e.hidden) line.Piece(" -engType HIDDEN ", {"-engType", "HIDDEN"});
  if (e.from && !e.from->empty()) line.Option("-engFrom", *e.from);
  if (e.to && !e.to->empty()) line.Option("-engTo", *e.to);
  if (e.max_tech) line.Fixed("-engMaxTech", std::to_string(*e.max_tech));
  if (e.max_user) line.Fixed("-engMaxUser", std::to_string(*e.max_user));
  line.Dids("-engDicAdd", dics);
  return line;
}

// Sets an engine's whole list again, since its order is the order of priority.
ScriptLine RelinkLine(const std::string& eid, const std::string& target,
                      const std::vector<std::string>& old_dics,
                      const std::vector<std::string>& new_dics) {
  ScriptLine line("uupdate");
  line.Value(target, ScriptValue::kUserId);
  line.Option("-engSet", eid);
  line.Dids("-engDicDel", old_dics);
  line.Dids("-engDicAdd", new_dics);
  return line;
}

void DictionaryLines(ScriptBuilder& script, const DumpDictionary& d, const std::string& target,
                     const std::string& prefix) {
  std::string did = std::to_string(d.did);
  ScriptLine create("dcreate");
  create.Option("-runas", target, ScriptValue::kSelect);
  create.Option("-eid", d.eid);
  create.Fixed("-type", d.type_name);
  if (!d.subject.empty()) create.Option("-subject", d.subject);
  if (!d.languages.empty()) create.Option("-languages", d.languages);
  for (const auto& [lang, text] : d.display) {
    // -display reads the language up to the first "=".
    if (lang.find('=') != std::string::npos) create.Refuse(lang, "a display language with \"=\"");
    create.Option("-display", lang + "=" + text);
  }
  if (!d.comment.empty()) create.Option("-comment", d.comment);
  if (!d.vender.empty()) create.Option("-vendor", d.vender);
  if (d.has_userdata) create.Option("-userdata", DumpUserdataFile(prefix, d));
  script.Main(create);
  ScriptLine remember("setvar");
  remember.Fixed("DID_" + did).Fixed("{{LAST}}");
  script.Main(remember);
  if (d.format.empty()) {
    script.MainComment("Not supported: dictionary " + did + " has no export format");
    return;
  }
  ScriptLine import("dimport");
  import.Option("-runas", target, ScriptValue::kSelect);
  import.Fixed("LAST").Fixed("-replace");
  import.Value(DumpDataFile(prefix, d), ScriptValue::kFileName);
  script.Main(import);
}

void OwnShares(ScriptBuilder& script, const DumpDictionary& d, const std::string& target) {
  for (const std::string& u : d.shares) {
    ScriptLine share("dupdate");
    share.Fixed(DidReference(d.did)).Joined("-runas", target, ScriptValue::kSelect).Option("-add", u);
    script.Share(share);
  }
}

// The first value of one owned dictionary that no script can carry.
std::optional<std::pair<std::string, std::string>> DictionaryRefusal(const DumpDictionary& d,
                                                                     const std::string& target,
                                                                     const std::string& prefix) {
  UserScript out;
  ScriptBuilder script(out);
  DictionaryLines(script, d, target, prefix);
  OwnShares(script, d, target);
  return out.refused;
}

}  // namespace

UserScript WriteUserScript(const DumpUser& user, const std::vector<DumpDictionary>& owned,
                           const std::string& userid, const std::string& target,
                           const std::string& prefix) {
  UserScript out;
  ScriptBuilder script(out);
  script.Main(Utf8Line());
  ScriptLine remove("udelete");
  remove.Fixed("-force").Value(target, ScriptValue::kUserId);
  script.Main(remove);
  script.Main(UcreateLine(user, target));

  // Each engine's list in three steps: the technical dictionaries first, the
  // user's own once they are re-created, everything once other users'
  // dictionaries are (the shares file).
  struct Lists {
    std::vector<std::string> tech, own, all;
    bool has_own = false, has_other = false;
  };
  std::vector<Lists> lists;
  for (const DumpEngine& e : user.engines) {
    Lists l;
    for (const DumpDictionaryRef& d : e.dics) {
      std::string did = std::to_string(d.did);
      if (Owns(owned, d.did)) {
        l.own.push_back(DidReference(d.did));
        l.all.push_back(DidReference(d.did));
        l.has_own = true;
      } else if (d.did < kFirstUserDid) {
        l.tech.push_back(did);
        l.own.push_back(did);
        l.all.push_back(did);
      } else {
        l.all.push_back(DidReference(d.did));
        l.has_other = true;
      }
    }
    script.Main(EngineLine(e, target, l.tech));
    lists.push_back(l);
  }
  for (const DumpDictionary& d : owned) DictionaryLines(script, d, target, prefix);
  for (size_t i = 0; i < user.engines.size(); ++i) {
    if (lists[i].has_own) {
      script.Main(
          RelinkLine(user.engines[i].eid, target, lists[i].tech, lists[i].own));
    }
  }

  // The shares file: the user's dictionaries shared with others, ...
  for (const DumpDictionary& d : owned) OwnShares(script, d, target);
  // ... other users' dictionaries that the user's engines list, shared again
  // by their owners, ...
  std::vector<int64_t> seen;
  for (const DumpEngine& e : user.engines) {
    for (const DumpDictionaryRef& d : e.dics) {
      if (d.did < kFirstUserDid || !d.owner || *d.owner == userid || Owns(owned, d.did)) continue;
      if (std::find(seen.begin(), seen.end(), d.did) != seen.end()) continue;
      seen.push_back(d.did);
      ScriptLine share("dupdate");
      share.Fixed(DidReference(d.did))
          .Joined("-runas", *d.owner, ScriptValue::kSelect)
          .Option("-add", target);
      script.Share(share);
    }
  }
  // ... and the engines' lists with them.
  for (size_t i = 0; i < user.engines.size(); ++i) {
    if (!lists[i].has_other) continue;
    const std::vector<std::string>& now = lists[i].has_own ? lists[i].own : lists[i].tech;
    script.Share(RelinkLine(user.engines[i].eid, target, now, lists[i].all));
  }
  script.FinishShares(Utf8Line());
  return out;
}

namespace {

constexpr char kUdumpUsage[] =
    "Usage: udump [USERID] [-prefix PREFIX] [-target USERID]\n\n"
    "    -prefix     Start the names of the files written with PREFIX (default:\n"
    "                the dumped userid, with characters a file name cannot\n"
    "                hold, such as \"/\", made \"_\").\n"
    "    -target     The userid that the generated commands create and run as\n"
    "                (default: the dumped userid). Its password is its userid.\n\n"
    "Writes a script of lexctl3 commands, PREFIX_udump.txt, that deletes the user\n"
    "where it exists (udelete -force) and re-creates it with all settings and\n"
    "engines and the dictionaries it owns, and the dictionaries' exported data\n"
    "beside it (e.g. foo_10001.native, foo_10002.ty3, and foo_10002.dat for a\n"
    "translation memory's user data). Every share with another user, of the\n"
    "user's dictionaries or of other users' dictionaries that its engines use,\n"
    "goes to PREFIX_udump_dicshares.txt (written when there is one), together\n"
    "with the engines' lists that name other users' dictionaries.\n\n"
    "To replay dumps, read the main scripts of all users dumped together first,\n"
    "then their shares files, in one lexctl3 run, so that the variables\n"
    "DID_<old DID> that the main scripts set name the new dictionaries:\n"
    "    read ann_udump.txt\n"
    "    read bob_udump.txt\n"
    "    read ann_udump_dicshares.txt\n"
    "    read bob_udump_dicshares.txt\n\n"
    "Everything is written into the current directory. USERID may hold \"*\"\n"
    "wildcards; without it the current user is dumped. Every value the server\n"
    "sent reads back from the script exactly as it was; a user with a value no\n"
    "script line can carry (a line break or other control character, \"{{\", a\n"
    "userid that would read as an option or pattern) is not dumped, and the\n"
    "command reports an error.\n";

enum UdumpOption { kUdumpPrefix = kOptOwn, kUdumpTarget };
constexpr auto kUdumpOptions = CommandOptions(
    {{kUdumpPrefix, "-prefix", kOptRequired}, {kUdumpTarget, "-target", kOptRequired}});

constexpr char kUserKeys[] = " engines dic engineprop profiles overrides limits userprop features";
constexpr char kSeparator[] = "----------------------------\n";

const char* Text(const std::string* s) { return s ? s->c_str() : ""; }

// Writes a whole file; false when it cannot be created or written completely.
bool SaveFile(const std::string& path, std::string_view data) {
  return WriteWholeFile(path, {}, data) == WriteResult::kOk;
}

// Export format of an engine: the format row whose API mask holds DictionaryExport.
std::string ExportFormat(const nv__Engine& e) {
  if (!e.dictionaryInfo || !e.dictionaryInfo->formats) return "";
  for (const nv__Format& f : e.dictionaryInfo->formats->item) {
    if (f.api && (*f.api & 0x8000) && f.format) return *f.format;
  }
  return "";
}

DumpUser ToDump(const nv__User& u) {
  DumpUser d;
  auto copy = [](const std::string* s) {
    return s ? std::optional<std::string>(*s) : std::nullopt;
  };
  d.features = copy(u.features);
  d.username = copy(u.username);
  d.timezone = copy(u.timezone);
  if (u.validity) {
    d.from = copy(u.validity->from);
    d.to = copy(u.validity->to);
  }
  d.api = u.apiAllowed ? *u.apiAllowed : 0;
  if (u.iprestrict) d.ips = u.iprestrict->item;
  if (u.limits) {
    for (const nv__Limit& l : u.limits->item) {
      if (l.type) d.limits.emplace_back(*l.type, l.maximum ? *l.maximum : -1);
    }
  }
  if (u.properties) {
    for (const nv__Property& p : u.properties->item) {
      d.properties.push_back({Text(p.key), Text(p.val), p.readonly && *p.readonly});
    }
  }
  if (u.engines) {
    for (const nv__Engine& e : u.engines->item) {
      if (!e.eid) continue;
      DumpEngine x;
      x.eid = *e.eid;
      x.support = static_cast<uint32_t>(e.support ? *e.support : 0);
      x.hidden = e.type && (*e.type & 0x10);
      if (e.validity) {
        x.from = copy(e.validity->from);
        x.to = copy(e.validity->to);
      }
      const nv__DictionaryInfo* info = e.dictionaryInfo;
      if (info && info->limits) {
        if (info->limits->tech) x.max_tech = *info->limits->tech;
        if (info->limits->user) x.max_user = *info->limits->user;
      }
      if (info && info->list) {
        for (const nv__Dictionary& dic : info->list->item)
          x.dics.push_back({dic.did, copy(dic.ownerid)});
      }
      d.engines.push_back(std::move(x));
    }
  }
  return d;
}

class UserDump {
 public:
  UserDump(ExecThread& thread, std::string userid, std::string prefix, std::string target)
      : thread_(thread),
        userid_(std::move(userid)),
        prefix_(std::move(prefix)),
        target_(std::move(target)) {}

  /// False when a file could not be written, the reply made no sense or a
  /// value cannot be written; a failed call throws.
  bool Run();

 private:
  const nv__User* FetchUser();
  void FetchOwned(const nv__User& user);
  void FetchDetails(DumpDictionary& o);
  bool SaveData(const DumpDictionary& d);
  void Refuse(const std::string& value, const char* why);

  ExecThread& thread_;
  std::string userid_, prefix_, target_;
  std::vector<DumpDictionary> owned_;
  std::map<int64_t, std::string> userdata_;
  std::vector<std::string> written_;  // data files, removed again when the dump fails
};

void UserDump::Refuse(const std::string& value, const char* why) {
  Fail(thread_, "Cannot dump user %s: a value holds characters a script cannot carry (%s): %s\n",
       PrintableValue(userid_).c_str(), why, PrintableValue(value).c_str());
}

const nv__User* UserDump::FetchUser() {
  ThreadPrint(thread_, "GetUser(%s)\n", PrintableValue(userid_).c_str());
  RequestFrame frame(thread_, kUserKeys);
  frame.UseSelectKeys();
  auto* who = soap_new_nv__StringArray(frame.soap());
  who->item.push_back(userid_);
  auto* lang = soap_new_std__string(frame.soap());
  *lang = frame.data().uilang;
  auto r = frame.Call(soap_call_nv__GetUser, lang->empty() ? nullptr : lang, nullptr, who);
  if (!r.users || r.users->item.empty()) {
    Fail(thread_, "Um. No user returned.\n");
    return nullptr;
  }
  if (r.users->item.size() > 1) {
    Fail(thread_, "Um. Too many users returned.\n");
    return nullptr;
  }
  return &r.users->item[0];
}

// The user's engines list only the dictionaries they selected; the engines
// as the user sees them list every dictionary the user owns.
void UserDump::FetchOwned(const nv__User& user) {
  const nv__EngineArray* engines = ListEngines(thread_, " dic ownerdic runas=" + userid_);
  std::set<int64_t> seen;
  auto take = [&](const nv__Engine& e) {
    if (!e.dictionaryInfo || !e.dictionaryInfo->list || !e.eid) return;
    for (const nv__Dictionary& d : e.dictionaryInfo->list->item) {
      if (!d.ownerid || *d.ownerid != userid_ || !seen.insert(d.did).second) continue;
      DumpDictionary o;
      o.did = d.did;
      o.eid = *e.eid;
      o.format = ExportFormat(e);
      owned_.push_back(o);
    }
  };
  if (engines) {
    for (const nv__Engine& e : engines->item) take(e);
  }
  if (user.engines) {
    for (const nv__Engine& e : user.engines->item) take(e);
  }
}

void UserDump::FetchDetails(DumpDictionary& o) {
  ThreadPrint(thread_, "UpdateDictionaryInfo(%s, %" PRId64 ")\n", PrintableValue(userid_).c_str(),
              o.did);
  RequestFrame info(thread_, " details runas=" + userid_);
  info.UseSelectKeys();
  auto d = info.Call(soap_call_nv__UpdateDictionaryInfo, o.did, nullptr, nullptr, nullptr,
                     nullptr, nullptr);
  o.type_name = "USER";
  if (!d.dic) return;
  const nv__DictionaryDetail& x = *d.dic;
  const char* type = x.type ? FlagName(*x.type, FlagTable::kDicType) : nullptr;
  if (type) o.type_name = type;
  o.subject = Text(x.subject);
  o.languages = Text(x.languages);
  if (x.alldisplay) {
    for (const nv__DisplayText& t : x.alldisplay->item) o.display.emplace_back(Text(t.lang), Text(t.text));
  }
  if (x.share) o.shares = x.share->item;
  if (x.details) {
    o.comment = Text(x.details->comment);
    o.vender = Text(x.details->vender);
    const xsd__base64Binary* data = x.details->userdata;
    if (data && data->__ptr && data->__size > 0) {
      o.has_userdata = true;
      userdata_[o.did].assign(reinterpret_cast<const char*>(data->__ptr),
                              static_cast<size_t>(data->__size));
    }
  }
}

// The user data and the exported entries of one dictionary, into their files.
bool UserDump::SaveData(const DumpDictionary& d) {
  if (d.has_userdata) {
    std::string file = DumpUserdataFile(prefix_, d);
    written_.push_back(file);
    const std::string& data = userdata_[d.did];
    if (!SaveFile(file, data)) {
      Fail(thread_, "Unable to save userdata to file: %s\n", file.c_str());
      return false;
    }
  }
  if (d.format.empty()) return true;
  ThreadPrint(thread_, "DictionaryExport(%s, %s, %" PRId64 ")\n", PrintableValue(userid_).c_str(),
              PrintableValue(d.format).c_str(), d.did);
  RequestFrame frame(thread_, Local(thread_).settings.dime ? " dime" : "");
  frame.UseSelectKeys();
  std::string format = d.format;
  auto r = frame.Call(soap_call_nv__DictionaryExport, d.did, &format, nullptr);
  std::string data;
  if (r.data) {
    for (const nv__DictionaryData& item : r.data->item) {
      if (item.filedata && item.filedata->__ptr && item.filedata->__size > 0) {
        data.append(reinterpret_cast<const char*>(item.filedata->__ptr),
                    static_cast<size_t>(item.filedata->__size));
      }
    }
  }
  std::string file = DumpDataFile(prefix_, d);
  written_.push_back(file);
  if (!SaveFile(file, data)) {
    Fail(thread_, "Unable to save data to file: %s\n", file.c_str());
    return false;
  }
  return true;
}

bool UserDump::Run() {
  // Nothing is asked of the server for a user the script could not name.
  if (const char* why = ScriptValueProblem(target_, ScriptValue::kUserId)) {
    Refuse(target_, why);
    return false;
  }
  const nv__User* user = FetchUser();
  if (!user) return false;
  DumpUser dump = ToDump(*user);
  // The user's own values are checked before any file is made, each
  // dictionary's as soon as its details are in.
  if (auto refused = WriteUserScript(dump, {}, userid_, target_, prefix_).refused) {
    Refuse(refused->first, refused->second.c_str());
    return false;
  }
  FetchOwned(*user);

  std::string script_name = prefix_ + "_udump.txt";
  FILE* file = OpenFile(script_name.c_str(), "wb");
  if (!file) {
    Fail(thread_, "Failed to create output file: %s\n", script_name.c_str());
    return false;
  }
  // A dump that fails leaves no file behind: a script without its data
  // would replay half the user.
  auto abandon = [&] {
    fclose(file);
    RemoveFile(script_name.c_str());
    for (const std::string& name : written_) RemoveFile(name.c_str());
  };
  std::optional<std::pair<std::string, std::string>> refused;
  bool saved = true;
  try {
    for (DumpDictionary& d : owned_) {
      FetchDetails(d);
      if ((refused = DictionaryRefusal(d, target_, prefix_))) break;
      if (!(saved = SaveData(d))) break;
    }
  } catch (...) {
    abandon();
    throw;
  }
  UserScript script;
  if (saved && !refused) {
    script = WriteUserScript(dump, owned_, userid_, target_, prefix_);
    refused = script.refused;
  }
  if (refused || !saved) {
    abandon();
    if (refused) Refuse(refused->first, refused->second.c_str());
    return false;
  }
  bool written = PutBytes(file, script.main);
  written = fclose(file) == 0 && written;
  if (!written) {
    RemoveFile(script_name.c_str());
    Fail(thread_, "Failed to write output file: %s\n", script_name.c_str());
    return false;
  }
  if (!script.shares.empty()) {
    std::string shares_name = prefix_ + "_udump_dicshares.txt";
    if (!SaveFile(shares_name, script.shares)) {
      Fail(thread_, "Failed to create output file: %s\n", shares_name.c_str());
      return false;
    }
    ThreadPrint(thread_, "Dictionary shares file: %s\n", shares_name.c_str());
  }
  ThreadPrint(thread_, "User dump file: %s\n", script_name.c_str());
  ThreadPrint(thread_, "Other files:    %s_*\n", prefix_.c_str());
  return true;
}

void CmdUdump(ExecThread& thread, ArgVector& args) {
  if (CheckHelpRequest(thread, CmdUdump, args, true)) return;
  RunGuarded(thread, [&] {
    std::string prefix, target;
    bool has_prefix = false, has_target = false;
    OptionScanner scanner(kUdumpOptions, args);
    while (scanner.Next()) {
      if (scanner.error() != kOptOk) {
        Fail(thread, kMsgInvalidArg, scanner.text());
        return;
      }
      (scanner.id() == kUdumpPrefix ? prefix : target) = scanner.argument();
      (scanner.id() == kUdumpPrefix ? has_prefix : has_target) = true;
    }
    std::vector<std::string> patterns(scanner.positional().begin(), scanner.positional().end());
    if (patterns.empty() && !Local(thread).userid().empty()) patterns.push_back(Local(thread).userid());
    std::vector<std::string> ids;
    if (!ResolveUserIds(thread, patterns, true, true, ServerUserLister(thread), &ids)) return;
    if (ids.empty()) {
      Fail(thread, "Invalid arguments: no users provided. See help.\n");
      return;
    }
    if (ids.size() > 1 && (has_prefix || has_target)) {
      Fail(thread, "Invalid arguments. preifx and target cannot be used with multiple users.\n");
      return;
    }
    bool failed = false;
    for (const std::string& id : ids) {
      ThreadPrint(thread, "User ID:      %s\n", PrintableValue(id).c_str());
      ThreadPrint(thread, kSeparator);
      // The files of a user id the server sent stay in the current folder.
      UserDump dump(thread, id, has_prefix ? prefix : DumpFilePrefix(id), has_target ? target : id);
      try {
        if (!dump.Run()) failed = true;
      } catch (const Exception& e) {
        e.Print(thread);
        failed = true;
      }
      ThreadPrint(thread, kSeparator);
    }
    if (failed) {
      Fail(thread, "\nErrors occurred during processing.\n");
    }
    ThreadPrint(thread, "Done.\n");
  });
}

}  // namespace

const CommandRecord kUdumpRows[] = {
    {"udump", CmdUdump, 0, "Generate a script to recreate a user", kUdumpUsage},
    {nullptr, nullptr, 0, nullptr, nullptr},
};

const CommandOptionTable kUdumpOptionTables[] = {
    {"udump", kUdumpOptions},
    {nullptr, nullptr},
};

}  // namespace lexctl
