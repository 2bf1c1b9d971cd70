#include "commands/admin/dtransfer.h"

#include <cinttypes>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "client/common_options.h"
#include "client/did_list.h"
#include "client/frame.h"
#include "commands/admin/flag_tables.h"
#include "commands/admin/user_update.h"
#include "commands/common/engine_list.h"
#include "shell/dispatch.h"
#include "shell/output.h"
#include "soapH.h"

namespace lexctl {
namespace {

constexpr char kDtransferUsage[] =
    "Usage: dtransfer USERID+ -from EID[,EID...] -to EID[,EID...] [-dryrun]\n\n"
    LEXCTL_COMMON_OPTION_HELP
    "    -from       The engines whose dictionaries are transferred.\n"
    "    -to         The engines they are transferred to: the first -from engine\n"
    "                pairs with the first -to engine, and so on.\n"
    "    -dryrun     Show what would be transferred; nothing is changed.\n\n"
    "Copies each dictionary that a user owns on a -from engine to the paired -to\n"
    "engine, as that user: the same type, subject, languages, display texts and\n"
    "memory details, the exported source imported with replace, the same shares,\n"
    "and the new DID added to the user's settings for the -to engine (LAST names\n"
    "the newest copy). A dictionary whose subject the user already has on the -to\n"
    "engine is ignored. The source dictionaries are left as they are. USERID may\n"
    "hold \"*\" wildcards; your own userid is skipped.\n";

enum TransferOption { kTransferFrom = kOptOwn, kTransferTo, kTransferDryrun };
constexpr auto kTransferOptions =
    CommandOptions<kCommonOptions>({{kTransferFrom, "-from", kOptRequired},
                                    {kTransferTo, "-to", kOptRequired},
                                    {kTransferDryrun, "-dryrun", kOptNoArgument}});

constexpr int64_t kApiImport = 0x4000;
constexpr int64_t kApiExport = 0x8000;

std::vector<std::string> SplitEids(const std::string& list) {
  std::vector<std::string> out;
  std::string word;
  for (char c : list + ",") {
    if (c == ',' || c == ' ') {
      if (!word.empty()) out.push_back(word);
      word.clear();
    } else {
      word += c;
    }
  }
  return out;
}

std::string FormatFor(const nv__Engine& e, int64_t api) {
  if (!e.dictionaryInfo || !e.dictionaryInfo->formats) return "";
  for (const nv__Format& f : e.dictionaryInfo->formats->item) {
    if (f.api && (*f.api & api) && f.format) return *f.format;
  }
  return "";
}

std::string* Str(struct soap* soap, const std::string& s) {
  std::string* p = soap_new_std__string(soap);
  *p = s;
  return p;
}

struct Counts {
  int transferred = 0, ignored = 0, failed = 0;
};

class Transfer {
 public:
  Transfer(ExecThread& thread, const std::string& keys, bool dryrun)
      : thread_(thread), keys_(keys), dryrun_(dryrun) {}

  /// The server's engines by EID, with their formats.
  void LoadEngines() {
    const nv__EngineArray* engines = ListEngines(thread_, keys_ + " dic");
    if (!engines) return;
    for (const nv__Engine& e : engines->item) {
      if (e.eid) formats_[*e.eid] = {FormatFor(e, kApiExport), FormatFor(e, kApiImport)};
    }
  }
  bool Knows(const std::string& eid) const { return formats_.count(eid) > 0; }

  void User(const std::string& userid, const std::vector<std::pair<std::string, std::string>>& pairs,
            Counts& counts);

 private:
  int64_t Copy(const std::string& userid, int64_t did, const std::string& from,
               const std::string& to);
  /// Fills the new copy: the source data, the shares, the user's engine.
  void Complete(const std::string& userid, int64_t new_did, const std::string& to,
                const nv__DictionaryDetail& src, const nv__DictionaryExportResponse& exported);

  ExecThread& thread_;
  std::string keys_;
  bool dryrun_;
  std::map<std::string, std::pair<std::string, std::string>> formats_;  // export, import
};

void Transfer::User(const std::string& userid,
                    const std::vector<std::pair<std::string, std::string>>& pairs, Counts& counts) {
  // What the user owns now, per engine, with subjects.
  const nv__EngineArray* engines = ListEngines(thread_, keys_ + " dic ownerdic runas=" + userid);
  std::map<std::string, std::vector<const nv__Dictionary*>> owned;
  std::set<std::pair<std::string, std::string>> subjects;  // engine, subject
  if (engines) {
    for (const nv__Engine& e : engines->item) {
      if (!e.eid || !e.dictionaryInfo || !e.dictionaryInfo->list) continue;
      for (const nv__Dictionary& d : e.dictionaryInfo->list->item) {
        if (!d.ownerid || *d.ownerid != userid) continue;
        owned[*e.eid].push_back(&d);
        subjects.insert({*e.eid, d.subject ? *d.subject : ""});
      }
    }
  }
  for (const auto& [from, to] : pairs) {
    for (const nv__Dictionary* d : owned[from]) {
      std::string subject = d->subject ? *d->subject : "";
      ThreadPrint(thread_, "%-20s %-8" PRId64 " %s -> %s  ", userid.c_str(),
                  static_cast<int64_t>(d->did), from.c_str(), to.c_str());
      if (!subjects.insert({to, subject}).second) {
        ThreadPrint(thread_, "IGNORED: Duplicated subject\n");
        ++counts.ignored;
        continue;
      }
      if (dryrun_) {
        ThreadPrint(thread_, "to be transferred\n");
        ++counts.transferred;
        continue;
      }
      try {
        int64_t did = Copy(userid, d->did, from, to);
        ThreadPrint(thread_, "%" PRId64 "\n", did);
        ++counts.transferred;
      } catch (const Exception& e) {
        ThreadPrint(thread_, "FAILED\n");
        e.Print(thread_);
        ++counts.failed;
      }
    }
  }
}

int64_t Transfer::Copy(const std::string& userid, int64_t did, const std::string& from,
                       const std::string& to) {
  std::string runas = keys_ + " runas=" + userid;

  RequestFrame info(thread_, runas + " details");
  info.UseSelectKeys();
  auto detail = info.CallWithoutWarnings(soap_call_nv__UpdateDictionaryInfo, did, nullptr,
                                         nullptr, nullptr, nullptr, nullptr);
  if (!detail.dic) throw Exception("no details of dictionary " + std::to_string(did));
  const nv__DictionaryDetail& src = *detail.dic;

  RequestFrame out(thread_, runas + (Local(thread_).settings.dime ? " dime" : ""));
  out.UseSelectKeys();
  std::string* out_format =
      formats_[from].first.empty() ? nullptr : Str(out.soap(), formats_[from].first);
  auto exported = out.CallWithoutWarnings(soap_call_nv__DictionaryExport, did, out_format, nullptr);

  RequestFrame create(thread_, runas + (Local(thread_).neweid ? " neweid" : ""));
  create.UseSelectKeys();
  LONG64 type = src.type ? *src.type : 0x10;
  auto made = create.CallWithoutWarnings(soap_call_nv__CreateDictionary, Str(create.soap(), to),
                                         &type, src.languages, src.subject, src.alldisplay,
                                         src.details);
  if (!made.dic) throw Exception("no dictionary came back");
  int64_t new_did = made.dic->did;
  try {
    Complete(userid, new_did, to, src, exported);
  } catch (const Exception&) {
    // No half-made copy stays behind; the source is untouched either way.
    RequestFrame undo(thread_, keys_);
    undo.UseSelectKeys();
    nv__DeleteDictionaryResponse gone;
    undo.Send(soap_call_nv__DeleteDictionary, new_did, gone);
    undo.data().EndCall();
    throw;
  }
  AddCreatedDid(CreatedDid{to, kApiCreateDictionary, type, new_did});
  return new_did;
}

void Transfer::Complete(const std::string& userid, int64_t new_did, const std::string& to,
                        const nv__DictionaryDetail& src,
                        const nv__DictionaryExportResponse& exported) {
  std::string runas = keys_ + " runas=" + userid;

  bool has_data = false;
  if (exported.data) {
    for (const nv__DictionaryData& item : exported.data->item) {
      has_data = has_data || (item.filedata && item.filedata->__size > 0);
    }
  }
  if (has_data) {
    RequestFrame in(thread_, runas + " replace");
    in.UseSelectKeys();
    std::string* in_format =
        formats_[to].second.empty() ? nullptr : Str(in.soap(), formats_[to].second);
    auto imported = in.CallWithoutWarnings(soap_call_nv__DictionaryImport, new_did, in_format,
                                           nullptr, exported.data);
    if (imported.sourceError && !imported.sourceError->item.empty()) {
      throw Exception("the import of " + std::to_string(new_did) + " reported source errors");
    }
  }

  if (src.share && !src.share->item.empty()) {
    RequestFrame share(thread_, runas);
    share.UseSelectKeys();
    share.CallWithoutWarnings(soap_call_nv__UpdateDictionaryInfo, new_did, nullptr, nullptr,
                              src.share, nullptr, nullptr);
  }

  RequestFrame engine(thread_, keys_);
  engine.UseSelectKeys();
  UserEdits edits;
  EngineEdit e;
  e.action = "set";
  e.eid = to;
  e.dic_add = std::to_string(new_did);
  edits.engines.push_back(e);
  std::string lang = engine.data().uilang;
  engine.Call(soap_call_nv__UpdateUser, lang.empty() ? nullptr : &lang,
              BuildUserUpdate(engine.soap(), edits, userid));
}

void CmdDtransfer(ExecThread& thread, ArgVector& args) {
  if (CheckHelpRequest(thread, CmdDtransfer, args, true)) return;
  RunGuarded(thread, [&] {
    RequestFrame frame(thread, "");
    std::vector<std::string> from, to;
    bool dryrun = false;
    bool ok = frame.Scan(kTransferOptions, args, [&](const OptionScanner& o) {
      if (o.id() == kTransferDryrun) {
        dryrun = true;
      } else {
        for (std::string& eid : SplitEids(o.argument())) {
          (o.id() == kTransferFrom ? from : to).push_back(eid);
        }
      }
      return true;
    });
    if (!ok) return;
    if (frame.positional().empty() || from.empty() || from.size() != to.size()) {
      Fail(thread, kMsgInvalidArgs);
      return;
    }
    frame.UseSelectKeys();
    std::string keys = frame.select() ? " " + *frame.select() : "";
    Transfer transfer(thread, keys, dryrun);
    transfer.LoadEngines();
    for (const std::string& eid : from) {
      if (!transfer.Knows(eid)) {
        Fail(thread, "Unknown engine: %s\n", eid.c_str());
        return;
      }
    }
    for (const std::string& eid : to) {
      if (!transfer.Knows(eid)) {
        Fail(thread, "Unknown engine: %s\n", eid.c_str());
        return;
      }
    }
    std::vector<std::string> ids;
    std::vector<std::string> patterns(frame.positional().begin(), frame.positional().end());
    if (!ResolveUserIds(thread, patterns, true, false, ServerUserLister(thread), &ids)) return;
    frame.PrintSelectKeys();
    for (size_t i = 0; i < from.size(); ++i) {
      ThreadPrint(thread, "Transfer:     %s -> %s\n", from[i].c_str(), to[i].c_str());
    }
    if (dryrun) ThreadPrint(thread, "Dry run:      nothing is changed\n");
    ThreadPrint(thread, "\n");
    std::vector<std::pair<std::string, std::string>> pairs;
    for (size_t i = 0; i < from.size(); ++i) pairs.emplace_back(from[i], to[i]);
    Counts counts;
    for (const std::string& id : ids) transfer.User(id, pairs, counts);
    ThreadPrint(thread, "\n%d transferred, %d ignored, %d failed.\n", counts.transferred,
                counts.ignored, counts.failed);
  });
}

}  // namespace

const CommandRecord kTransferRows[] = {
    {"dtransfer", CmdDtransfer, 0, "Transfer users' dictionaries to other engines.", kDtransferUsage},
    {nullptr, nullptr, 0, nullptr, nullptr},
};

const CommandOptionTable kTransferOptionTables[] = {
    {"dtransfer", kTransferOptions},
    {nullptr, nullptr},
};

}  // namespace lexctl
