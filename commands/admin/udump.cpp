#include "commands/admin/udump.h"

#include <cinttypes>
#include <cstdio>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "client/frame.h"
#include "commands/admin/flag_tables.h"
#include "commands/admin/user_update.h"
#include "shell/dispatch.h"
#include "shell/output.h"
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

std::string ScriptWord(const std::string& text) {
  // A final backslash would join the script's next line to this one.
  if (!text.empty() && text.find_first_of(" \t\"") == std::string::npos && text.back() != '\\') return text;
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

std::string ExportExtension(const std::string& format) {
  std::string ext = ".";
  for (char c : format) {
    bool plain = isalnum(static_cast<unsigned char>(c)) || c == '-' || c == '_';
    ext += plain ? static_cast<char>(tolower(static_cast<unsigned char>(c))) : '_';
  }
  return format.empty() ? ".txt" : ext;
}

namespace {

constexpr char kUdumpUsage[] =
    "Usage: udump [USERID] [-prefix PREFIX] [-target USERID]\n\n"
    "    -prefix     Start the names of the files written with PREFIX (default:\n"
    "                the dumped userid).\n"
    "    -target     The userid that the generated commands create and run as\n"
    "                (default: the dumped userid). Its password is its userid.\n\n"
    "Writes a script of lexctl3 commands, PREFIX_udump.txt, that re-creates the\n"
    "user with all settings, engines and owned dictionaries when it is run with\n"
    "read, and the dictionaries' exported data beside it (e.g. foo_10001.native,\n"
    "foo_10002.ty3, and foo_10002.dat for a translation memory's user data).\n"
    "Shares of other users' dictionaries go to PREFIX_udump_dicshares.txt, to be\n"
    "read after the script.\n"
    "Everything is written into the current directory. USERID may hold \"*\"\n"
    "wildcards; without it the current user is dumped. After the dictionaries, one\n"
    "uupdate -engSet line per engine points the engine's dictionary list at the\n"
    "re-created dictionaries.\n";

enum UdumpOption { kUdumpPrefix = kOptOwn, kUdumpTarget };
const OptionDef kUdumpOptions[] = {{kUdumpPrefix, "-prefix", kOptRequired},
                                   {kUdumpTarget, "-target", kOptRequired},
                                   LEXCTL_OPT_END};

constexpr char kUserKeys[] = " engines dic engineprop profiles overrides limits userprop features";
constexpr char kSeparator[] = "----------------------------\n";

const char* Text(const std::string* s) { return s ? s->c_str() : ""; }

// Writes a whole file; false when it cannot be created or written completely.
bool SaveFile(const std::string& path, const unsigned char* data, size_t size) {
  FILE* f = fopen(path.c_str(), "wb");
  if (!f) return false;
  bool ok = fwrite(data, 1, size, f) == size;
  ok = fclose(f) == 0 && ok;
  if (!ok) remove(path.c_str());
  return ok;
}

// What the dump needs of one dictionary the user owns.
struct OwnedDictionary {
  int64_t did = 0;
  std::string eid;
  std::string format;  // export format of its engine; empty: none
  std::string type_name;
  std::string subject, languages, comment, vender;
  std::vector<std::pair<std::string, std::string>> display;
  std::vector<std::string> shares;
  const xsd__base64Binary* userdata = nullptr;
};

// Export format of an engine: the format row whose API mask holds DictionaryExport.
std::string ExportFormat(const nv__Engine& e) {
  if (!e.dictionaryInfo || !e.dictionaryInfo->formats) return "";
  for (const nv__Format& f : e.dictionaryInfo->formats->item) {
    if (f.api && (*f.api & 0x8000) && f.format) return *f.format;
  }
  return "";
}

class UserDump {
 public:
  UserDump(ExecThread& thread, std::string userid, std::string prefix, std::string target)
      : thread_(thread),
        userid_(std::move(userid)),
        prefix_(std::move(prefix)),
        target_(std::move(target)) {}

  /// False when a file could not be written or the reply made no sense; a
  /// failed call throws.
  bool Run();

 private:
  const nv__User* FetchUser();
  void FetchOwned(const nv__User& user);
  void FetchDetails(OwnedDictionary& o);
  std::string UcreateLine(const nv__User& user) const;
  std::string EngineLines(const nv__User& user) const;
  bool DictionaryLines(OwnedDictionary& d, std::string* out);
  std::string RelinkLines(const nv__User& user) const;
  bool WriteShares(const nv__User& user);

  ExecThread& thread_;
  std::string userid_, prefix_, target_;
  std::vector<OwnedDictionary> owned_;
};

const nv__User* UserDump::FetchUser() {
  ThreadPrint(thread_, "GetUser(%s)\n", userid_.c_str());
  RequestFrame frame(thread_, kUserKeys);
  frame.UseSelectKeys();
  auto* who = soap_new_nv__StringArray(frame.soap());
  who->item.push_back(userid_);
  auto* r = soap_new_nv__GetUserResponse(frame.soap());
  frame.Check(soap_call_nv__GetUser(frame.soap(), frame.endpoint(), "", frame.licence(),
                                    frame.clientid(), frame.reqgroup(), frame.select(), nullptr,
                                    nullptr, who, *r));
  frame.Token(r->token);
  frame.Warnings(r->error);
  if (!r->users || r->users->item.empty()) {
    ThreadPrint(thread_, "Um. No user returned.\n");
    return nullptr;
  }
  if (r->users->item.size() > 1) {
    ThreadPrint(thread_, "Um. Too many users returned.\n");
    return nullptr;
  }
  return &r->users->item[0];
}

// The user's engines list only the dictionaries they selected; the engines
// as the user sees them list every dictionary the user owns.
void UserDump::FetchOwned(const nv__User& user) {
  RequestFrame frame(thread_, " dic ownerdic runas=" + userid_);
  frame.UseSelectKeys();
  auto* r = soap_new_nv__GetEngineInfoResponse(frame.soap());
  frame.Check(soap_call_nv__GetEngineInfo(frame.soap(), frame.endpoint(), "", frame.licence(),
                                          frame.clientid(), frame.reqgroup(), frame.select(),
                                          nullptr, nullptr, *r));
  frame.Token(r->token);
  frame.Warnings(r->error);
  std::set<int64_t> seen;
  auto take = [&](const nv__Engine& e) {
    if (!e.dictionaryInfo || !e.dictionaryInfo->list || !e.eid) return;
    for (const nv__Dictionary& d : e.dictionaryInfo->list->item) {
      if (!d.ownerid || *d.ownerid != userid_ || !seen.insert(d.did).second) continue;
      OwnedDictionary o;
      o.did = d.did;
      o.eid = *e.eid;
      o.format = ExportFormat(e);
      owned_.push_back(o);
    }
  };
  if (r->engines) {
    for (const nv__Engine& e : r->engines->item) take(e);
  }
  if (user.engines) {
    for (const nv__Engine& e : user.engines->item) take(e);
  }
}

void UserDump::FetchDetails(OwnedDictionary& o) {
  ThreadPrint(thread_, "UpdateDictionaryInfo(%s, %" PRId64 ")\n", userid_.c_str(), o.did);
  RequestFrame info(thread_, " details runas=" + userid_);
  info.UseSelectKeys();
  auto* d = soap_new_nv__UpdateDictionaryInfoResponse(info.soap());
  info.Check(soap_call_nv__UpdateDictionaryInfo(info.soap(), info.endpoint(), "", info.licence(),
                                                info.clientid(), info.reqgroup(), info.select(),
                                                o.did, nullptr, nullptr, nullptr, nullptr,
                                                nullptr, *d));
  info.Token(d->token);
  info.Warnings(d->error);
  if (!d->dic) return;
  const nv__DictionaryDetail& x = *d->dic;
  const char* type = x.type ? FlagName(*x.type, FlagTable::kDicType) : nullptr;
  o.type_name = type ? type : "USER";
  o.subject = Text(x.subject);
  o.languages = Text(x.languages);
  if (x.alldisplay) {
    for (const nv__DisplayText& t : x.alldisplay->item) o.display.emplace_back(Text(t.lang), Text(t.text));
  }
  if (x.share) o.shares = x.share->item;
  if (x.details) {
    o.comment = Text(x.details->comment);
    o.vender = Text(x.details->vender);
    if (x.details->userdata && x.details->userdata->__size > 0) o.userdata = x.details->userdata;
  }
}

std::string UserDump::UcreateLine(const nv__User& user) const {
  ScriptLine line("ucreate " + target_);
  line.Add(" -userPass " + ScriptWord(target_));
  if (user.features) line.Add(" -userFeat \"" + *user.features + "\"");
  char number[64];
  snprintf(number, sizeof number, "0x%llx",
           static_cast<unsigned long long>(user.apiAllowed ? *user.apiAllowed : 0));
  line.Add(std::string(" -userApi ") + number);
  if (user.username) line.Add(" -userName " + ScriptWord(*user.username));
  if (user.timezone) line.Add(" -userZone " + ScriptWord(*user.timezone));
  if (user.validity && user.validity->from && !user.validity->from->empty()) {
    line.Add(" -userFrom " + ScriptWord(*user.validity->from));
  }
  if (user.validity && user.validity->to && !user.validity->to->empty()) {
    line.Add(" -userTo " + ScriptWord(*user.validity->to));
  }
  if (user.iprestrict) {
    for (const std::string& cidr : user.iprestrict->item) line.Add(" -userIp " + ScriptWord(cidr));
  }
  if (user.limits) {
    for (const nv__Limit& l : user.limits->item) {
      if (!l.type) continue;
      snprintf(number, sizeof number, "=%lld", static_cast<long long>(l.maximum ? *l.maximum : -1));
      line.Add(" -userLimit " + ScriptWord(*l.type + number));
    }
  }
  if (user.properties) {
    for (const nv__Property& p : user.properties->item) {
      std::string mark = p.readonly && *p.readonly ? "!" : "";
      line.Add(" -userPropAdd " + ScriptWord(mark + Text(p.key) + "=" + Text(p.val)));
    }
  }
  return line.Finish();
}

std::string UserDump::EngineLines(const nv__User& user) const {
  std::string out;
  if (!user.engines) return out;
  for (const nv__Engine& e : user.engines->item) {
    if (!e.eid) continue;
    ScriptLine line("uupdate " + target_);
    line.Add(" -engAdd " + *e.eid);
    char number[64];
    snprintf(number, sizeof number, " -engSupport 0x%08lx",
             static_cast<unsigned long>(static_cast<uint32_t>(e.support ? *e.support : 0)));
    line.Add(number);
    if (e.type && (*e.type & 0x10)) line.Add(" -engType HIDDEN ");
    if (e.validity && e.validity->from && !e.validity->from->empty()) {
      line.Add(" -engFrom " + ScriptWord(*e.validity->from));
    }
    if (e.validity && e.validity->to && !e.validity->to->empty()) {
      line.Add(" -engTo " + ScriptWord(*e.validity->to));
    }
    const nv__DictionaryInfo* info = e.dictionaryInfo;
    if (info && info->limits) {
      if (info->limits->tech) {
        snprintf(number, sizeof number, " -engMaxTech %ld", static_cast<long>(*info->limits->tech));
        line.Add(number);
      }
      if (info->limits->user) {
        snprintf(number, sizeof number, " -engMaxUser %ld", static_cast<long>(*info->limits->user));
        line.Add(number);
      }
    }
    std::string shares;
    line.Add(" -engDicAdd \"");
    if (info && info->list) {
      for (const nv__Dictionary& d : info->list->item) {
        line.Add(std::to_string(d.did) + " ");
        for (const OwnedDictionary& o : owned_) {
          if (o.did != d.did) continue;
          for (const std::string& u : o.shares) {
            shares += "dupdate {{DID_" + std::to_string(d.did) + ":" + std::to_string(d.did) +
                      "}} -runas=" + target_ + " -add " + ScriptWord(u) + "\n";
          }
        }
      }
    }
    line.Add("\"");
    out += line.Finish() + shares;
  }
  return out;
}

bool UserDump::DictionaryLines(OwnedDictionary& d, std::string* out) {
  std::string did = std::to_string(d.did);
  ScriptLine create("dcreate -runas " + target_);
  create.Add(" -eid " + ScriptWord(d.eid));
  create.Add(" -type " + d.type_name);
  if (!d.subject.empty()) create.Add(" -subject " + ScriptWord(d.subject));
  if (!d.languages.empty()) create.Add(" -languages " + ScriptWord(d.languages));
  for (const auto& [lang, text] : d.display) create.Add(" -display " + ScriptWord(lang + "=" + text));
  if (!d.comment.empty()) create.Add(" -comment " + ScriptWord(d.comment));
  if (!d.vender.empty()) create.Add(" -vendor " + ScriptWord(d.vender));
  if (d.userdata) {
    std::string file = prefix_ + "_" + did + ".dat";
    if (!SaveFile(file, d.userdata->__ptr, static_cast<size_t>(d.userdata->__size))) {
      ThreadPrint(thread_, "Unable to save userdata to file: %s\n", file.c_str());
      return false;
    }
    create.Add(" -userdata " + ScriptWord(file));
  }
  *out += create.Finish();
  ScriptLine share("dupdate -runas " + target_ + " LAST");
  for (const std::string& u : d.shares) share.Add(" -add " + ScriptWord(u));
  *out += share.Finish();
  *out += "setvar DID_" + did + " {{LAST}}\n";

  if (d.format.empty()) {
    *out += "# Not supported: dictionary " + did + " has no export format\n";
    return true;
  }
  ThreadPrint(thread_, "DictionaryExport(%s, %s, %s)\n", userid_.c_str(), d.format.c_str(),
              did.c_str());
  RequestFrame frame(thread_, Local(thread_).settings.dime ? " dime" : "");
  frame.UseSelectKeys();
  auto* r = soap_new_nv__DictionaryExportResponse(frame.soap());
  std::string format = d.format;
  frame.Check(soap_call_nv__DictionaryExport(frame.soap(), frame.endpoint(), "", frame.licence(),
                                             frame.clientid(), frame.reqgroup(), frame.select(),
                                             d.did, &format, nullptr, *r));
  frame.Token(r->token);
  frame.Warnings(r->error);
  std::string file = prefix_ + "_" + did + ExportExtension(d.format);
  std::string data;
  if (r->data) {
    for (const nv__DictionaryData& item : r->data->item) {
      if (item.filedata && item.filedata->__ptr && item.filedata->__size > 0) {
        data.append(reinterpret_cast<const char*>(item.filedata->__ptr),
                    static_cast<size_t>(item.filedata->__size));
      }
    }
  }
  if (!SaveFile(file, reinterpret_cast<const unsigned char*>(data.data()), data.size())) {
    ThreadPrint(thread_, "Unable to save data to file: %s\n", file.c_str());
    return false;
  }
  *out += "dimport -runas " + target_ + " LAST -replace " + ScriptWord(file) + "\n";
  return true;
}

// Engines listed the old DIDs before the dictionaries were re-created: point
// them at the new ones. The whole list is set again, so that its order, which
// is the order of priority, stays.
std::string UserDump::RelinkLines(const nv__User& user) const {
  std::string out;
  if (!user.engines) return out;
  for (const nv__Engine& e : user.engines->item) {
    if (!e.eid || !e.dictionaryInfo || !e.dictionaryInfo->list) continue;
    std::string old_dids, new_dids;
    bool relinked = false;
    for (const nv__Dictionary& d : e.dictionaryInfo->list->item) {
      bool mine = false;
      for (const OwnedDictionary& o : owned_) mine = mine || o.did == d.did;
      std::string did = std::to_string(d.did);
      old_dids += did + " ";
      new_dids += mine ? "{{DID_" + did + ":" + did + "}} " : did + " ";
      relinked = relinked || mine;
    }
    if (!relinked) continue;
    ScriptLine line("uupdate " + target_);
    line.Add(" -engSet " + *e.eid);
    line.Add(" -engDicDel \"" + old_dids + "\"");
    line.Add(" -engDicAdd \"" + new_dids + "\"");
    out += line.Finish();
  }
  return out;
}

// Other users' dictionaries this user uses: their owners share them again, and
// the target's engine takes them up again.
bool UserDump::WriteShares(const nv__User& user) {
  std::string out;
  std::set<int64_t> seen;
  if (user.engines) {
    for (const nv__Engine& e : user.engines->item) {
      if (!e.dictionaryInfo || !e.dictionaryInfo->list) continue;
      for (const nv__Dictionary& d : e.dictionaryInfo->list->item) {
        if (d.did < 10000 || !d.ownerid || *d.ownerid == userid_ || !seen.insert(d.did).second) continue;
        std::string did = std::to_string(d.did);
        ScriptLine line("dupdate {{DID_" + did + ":" + did + "}} -runas=" + *d.ownerid);
        line.Add(" -add " + ScriptWord(target_));
        out += line.Finish();
      }
    }
  }
  if (out.empty()) return true;
  std::string file = prefix_ + "_udump_dicshares.txt";
  if (!SaveFile(file, reinterpret_cast<const unsigned char*>(out.data()), out.size())) {
    ThreadPrint(thread_, "Failed to create output file: %s\n", file.c_str());
    return false;
  }
  ThreadPrint(thread_, "Dictionary shares file: %s\n", file.c_str());
  return true;
}

bool UserDump::Run() {
  const nv__User* user = FetchUser();
  if (!user) return false;
  FetchOwned(*user);

  std::string script_name = prefix_ + "_udump.txt";
  std::unique_ptr<FILE, int (*)(FILE*)> script(fopen(script_name.c_str(), "wb"), fclose);
  if (!script) {
    ThreadPrint(thread_, "Failed to create output file: %s\n", script_name.c_str());
    return false;
  }
  // The engine lines come first in the script but need what each
  // dictionary's details say about its shares.
  std::string dictionaries;
  bool ok = true;
  for (OwnedDictionary& d : owned_) {
    FetchDetails(d);
    if (!DictionaryLines(d, &dictionaries)) {
      ok = false;
      break;
    }
  }
  std::string text = "setopt utf8 true\n";
  text += "udelete -force " + target_ + "\n";
  text += UcreateLine(*user);
  text += EngineLines(*user);
  text += dictionaries;
  if (ok) text += RelinkLines(*user);
  bool written = fwrite(text.data(), 1, text.size(), script.get()) == text.size();
  written = fclose(script.release()) == 0 && written;
  if (!written) {
    ThreadPrint(thread_, "Failed to write output file: %s\n", script_name.c_str());
    return false;
  }
  if (!ok || !WriteShares(*user)) return false;
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
        ThreadPrint(thread, kMsgInvalidArg, scanner.text());
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
      ThreadPrint(thread, "Invalid arguments: no users provided. See help.\n");
      return;
    }
    if (ids.size() > 1 && (has_prefix || has_target)) {
      ThreadPrint(thread, "Invalid arguments. preifx and target cannot be used with multiple users.\n");
      return;
    }
    bool failed = false;
    for (const std::string& id : ids) {
      ThreadPrint(thread, "User ID:      %s\n", id.c_str());
      ThreadPrint(thread, kSeparator);
      // A group's user id would name a folder.
      std::string file_id = id;
      for (char& c : file_id) c = c == '/' ? '_' : c;
      UserDump dump(thread, id, has_prefix ? prefix : file_id, has_target ? target : id);
      try {
        if (!dump.Run()) failed = true;
      } catch (const Exception& e) {
        e.Print(thread);
        failed = true;
      }
      ThreadPrint(thread, kSeparator);
    }
    if (failed) ThreadPrint(thread, "\nErrors occurred during processing.\n");
    ThreadPrint(thread, "Done.\n");
  });
}

}  // namespace

const CommandRecord kUdumpRows[] = {
    {"udump", CmdUdump, 0, "Generate a script to recreate a user", kUdumpUsage},
    {nullptr, nullptr, 0, nullptr, nullptr},
};

}  // namespace lexctl
