#include "commands/admin/dictionaries.h"

#include <string>
#include <utility>
#include <vector>

#include "client/common_options.h"
#include "client/did_list.h"
#include "client/frame.h"
#include "commands/admin/dict_printers.h"
#include "commands/admin/flag_tables.h"
#include "commands/common/files.h"
#include "commands/common/payload.h"
#include "shell/dispatch.h"
#include "shell/output.h"
#include "soapH.h"

namespace lexctl {
namespace {

constexpr size_t kMaxDisplayTexts = 100;

enum CreateOption {
  kOptEid = kOptOwn,
  kOptType,
  kOptSubject,
  kOptDisplay,
  kOptLanguages,
  kOptComment,
  kOptVender,
  kOptUserdata,
  kOptAdd,
  kOptDel,
  kOptDid,
  kOptFrom,
  kOptTo,
};

constexpr auto kCreateOptions =
    CommandOptions<kCommonOptions>({{kOptEid, "-eid", kOptRequired},
                                    SelectKey("-details"),
                                    {kOptType, "-type", kOptRequired},
                                    {kOptSubject, "-subject", kOptRequired},
                                    {kOptDisplay, "-display", kOptRequired},
                                    {kOptLanguages, "-languages", kOptRequired},
                                    {kOptComment, "-comment", kOptRequired},
                                    {kOptVender, "-vender", kOptRequired},
                                    // The spelling user-dump scripts write.
                                    {kOptVender, "-vendor", kOptRequired},
                                    {kOptUserdata, "-userdata", kOptRequired}});

constexpr auto kUpdateOptions =
    CommandOptions<kCommonOptions>({SelectKey("-details"),
                                    {kOptAdd, "-add", kOptRequired},
                                    {kOptDel, "-del", kOptRequired},
                                    {kOptSubject, "-subject", kOptRequired},
                                    {kOptDisplay, "-display", kOptRequired},
                                    {kOptComment, "-comment", kOptRequired}});

constexpr auto kCopyOptions = CommandOptions<kCommonOptions>(
    {{kOptDid, "-did", kOptRequired}, {kOptType, "-type", kOptRequired}});

constexpr auto kRemoveOptions = CommandOptions<kCommonOptions>(
    {{kOptFrom, "-from", kOptRequired}, {kOptTo, "-to", kOptRequired}});

constexpr auto kChownOptions = CommandOptions<kCommonOptions>();

// The display texts and memory details that dcreate and dupdate share.
struct DictionaryTexts {
  std::vector<std::pair<std::string, std::string>> display;
  std::string comment, vender, userdata;
  bool has_comment = false, has_vender = false, has_userdata = false;
  nv__DisplayTextArray display_wire;
  nv__DicDetailsMemory details;

  // False (after its message) for a malformed or surplus display text.
  bool AddDisplay(ExecThread& thread, const char* text) {
    std::pair<std::string, std::string> entry;
    if (!ReadDisplayText(thread, text, entry)) {
      Fail(thread, "Invalid display text: %s\n", text);
      return false;
    }
    if (display.size() == kMaxDisplayTexts) {
      Fail(thread, "Too many display texts. Max = %d\n", static_cast<int>(kMaxDisplayTexts));
      return false;
    }
    display.push_back(std::move(entry));
    return true;
  }
  bool HasDetails() const { return has_comment || has_vender || has_userdata; }
  nv__DisplayTextArray* DisplayWire() {
    if (display.empty()) return nullptr;
    display_wire.item.resize(display.size());
    for (size_t i = 0; i < display.size(); ++i) {
      display_wire.item[i].lang = &display[i].first;
      display_wire.item[i].text = &display[i].second;
    }
    return &display_wire;
  }
  // The details to send, or null; userdata goes inline or as DIME.
  nv__DicDetailsMemory* Details(LocalData& data) {
    if (!HasDetails()) return nullptr;
    details.comment = has_comment ? &comment : nullptr;
    details.vender = has_vender ? &vender : nullptr;
    details.userdata = has_userdata ? Payload(data, userdata, "userdata") : nullptr;
    return &details;
  }
};

// A dictionary type name from the type table; the four a copy may take only.
int64_t DictionaryType(const char* name, bool copy) {
  int64_t value = FlagValue(name, FlagTable::kDicType);
  if (value == -1) return 0;
  if (copy && value != 0x10 && value != 0x20 && value != 0x100 && value != 0x200) return 0;
  return value;
}

}  // namespace


void CmdDcreate(ExecThread& thread, ArgVector& args) {
  if (CheckHelpRequest(thread, CmdDcreate, args, true)) return;
  RunGuarded(thread, [&] {
    RequestFrame frame(thread, Local(thread).neweid ? " neweid" : "");
    std::string eid = frame.data().engine.eid;
    int64_t type = 0x10;  // USER
    std::string subject, languages;
    bool has_subject = false, has_languages = false;
    DictionaryTexts texts;
    bool ok = frame.Scan(kCreateOptions, args, [&](const OptionScanner& option) {
      const char* value = option.argument();
      switch (option.id()) {
        case kOptEid: eid = value; break;
        case kOptType:
          type = DictionaryType(value, false);
          if (type == 0) {
            Fail(thread, "Invalid type: %s. See help.\n", value);
            return false;
          }
          break;
        case kOptSubject:
          subject = value;
          has_subject = true;
          break;
        case kOptDisplay: return texts.AddDisplay(thread, value);
        case kOptLanguages:
          languages = value;
          has_languages = true;
          break;
        case kOptComment:
          texts.comment = value;
          texts.has_comment = true;
          break;
        case kOptVender:
          texts.vender = value;
          texts.has_vender = true;
          break;
        case kOptUserdata:
          if (!ReadFileData(thread, value, texts.userdata)) return false;
          texts.has_userdata = true;
          break;
      }
      return true;
    });
    if (!ok || !frame.ExpectPositional(0, 0)) return;
    nv__DicDetailsMemory* details = texts.Details(frame.data());

    frame.PrintSelectKeys();
    ThreadPrint(thread, "Engine EID:   %s\n", eid.c_str());
    ThreadPrint(thread, "Dic Type:     %s\n", DictionaryTypeName(type).c_str());
    if (has_languages) ThreadPrint(thread, "Languages:    %s\n", languages.c_str());
    if (has_subject) ThreadPrint(thread, "Subject:      %s\n", subject.c_str());
    PrintDisplayTexts(thread, texts.display);
    PrintMemoryDetails(thread, details);
    ThreadPrint(thread, "\n");

    LONG64 sent_type = type;
    auto response = frame.Call(soap_call_nv__CreateDictionary, &eid, &sent_type,
                               has_languages ? &languages : nullptr,
                               has_subject ? &subject : nullptr, texts.DisplayWire(), details);
    PrintDictionaryDetail(thread, response.dic);
    if (response.dic) AddCreatedDid({eid, kApiCreateDictionary, type, response.dic->did});
  });
}

void CmdDupdate(ExecThread& thread, ArgVector& args) {
  if (CheckHelpRequest(thread, CmdDupdate, args, true)) return;
  RunGuarded(thread, [&] {
    RequestFrame frame(thread, "");
    std::string subject;
    bool has_subject = false;
    std::vector<std::string> adds, dels;
    DictionaryTexts texts;
    bool ok = frame.Scan(kUpdateOptions, args, [&](const OptionScanner& option) {
      const char* value = option.argument();
      switch (option.id()) {
        case kOptAdd: adds.push_back(value); break;
        case kOptDel: dels.push_back(value); break;
        case kOptSubject:
          subject = value;
          has_subject = true;
          break;
        case kOptDisplay: return texts.AddDisplay(thread, value);
        case kOptComment:
          texts.comment = value;
          texts.has_comment = true;
          break;
      }
      return true;
    });
    if (!ok) return;
    if (frame.positional().size() != 1) {
      Fail(thread, kMsgDidRequired);
      return;
    }
    int64_t did = ResolveDid(frame.positional()[0]);
    if (did == 0) {
      Fail(thread, kMsgInvalidArg, frame.positional()[0]);
      return;
    }
    if (frame.data().settings.dime) frame.AddSelectKey("dime");
    nv__DicDetailsMemory* details = texts.Details(frame.data());

    frame.PrintSelectKeys();
    ThreadPrint(thread, "Dic DID:      %lld\n", static_cast<long long>(did));
    if (has_subject) ThreadPrint(thread, "Subject:      %s\n", subject.c_str());
    PrintDisplayTexts(thread, texts.display);
    for (const std::string& user : adds) ThreadPrint(thread, "Adding:       %s\n", user.c_str());
    for (const std::string& user : dels) ThreadPrint(thread, "Removing:     %s\n", user.c_str());
    PrintMemoryDetails(thread, details);
    ThreadPrint(thread, "\n");

    nv__StringArray add_share, del_share;
    add_share.item = adds;
    del_share.item = dels;
    auto response = frame.Call(soap_call_nv__UpdateDictionaryInfo, did,
                               has_subject ? &subject : nullptr, texts.DisplayWire(),
                               adds.empty() ? nullptr : &add_share,
                               dels.empty() ? nullptr : &del_share, details);
    PrintDictionaryDetail(thread, response.dic);
  });
}

void CmdDcopy(ExecThread& thread, ArgVector& args) {
  if (CheckHelpRequest(thread, CmdDcopy, args, true)) return;
  RunGuarded(thread, [&] {
    RequestFrame frame(thread, Local(thread).neweid ? " neweid" : "");
    const char* target_text = nullptr;
    const char* type_text = nullptr;
    bool ok = frame.Scan(kCopyOptions, args, [&](const OptionScanner& option) {
      (option.id() == kOptDid ? target_text : type_text) = option.argument();
      return true;
    });
    if (!ok) return;
    if (frame.positional().size() != 1) {
      Fail(thread, kMsgDidRequired);
      return;
    }
    int64_t source = ResolveDid(frame.positional()[0]);
    LONG64 target = target_text ? ResolveDid(target_text) : 0;
    LONG64 type = type_text ? DictionaryType(type_text, true) : 0;
    if (source == 0 || (target_text && target == 0)) {
      Fail(thread, kMsgInvalidArg, source == 0 ? frame.positional()[0] : target_text);
      return;
    }
    if (type_text && type == 0) {
      Fail(thread, kMsgInvalidArgs);
      return;
    }

    frame.PrintSelectKeys();
    ThreadPrint(thread, "Source DID:   %lld\n", static_cast<long long>(source));
    if (target_text) ThreadPrint(thread, "Target DID:   %lld\n", static_cast<long long>(target));
    if (type_text) ThreadPrint(thread, "Target type:  %s\n", DictionaryTypeName(type).c_str());
    ThreadPrint(thread, "\n");

    auto response = frame.Call(soap_call_nv__CopyDictionary, source,
                               target_text ? &target : nullptr, type_text ? &type : nullptr);
    if (!response.destDid) return;
    int64_t copy = *response.destDid;
    ThreadPrint(thread, "Copy DID:     %lld\n", static_cast<long long>(copy));
    if (copy == source) return;
    CreatedDid record;
    bool known = FindCreatedDid(source, record);
    AddCreatedDid({known ? record.eid : "UNKNOWN", kApiCopyDictionary,
                   type_text ? type : (known ? record.type : 0), copy});
  });
}

void CmdDremove(ExecThread& thread, ArgVector& args) {
  if (CheckHelpRequest(thread, CmdDremove, args, true)) return;
  RunGuarded(thread, [&] {
    RequestFrame frame(thread, "");
    const char* from_text = nullptr;
    const char* to_text = nullptr;
    bool ok = frame.Scan(kRemoveOptions, args, [&](const OptionScanner& option) {
      (option.id() == kOptFrom ? from_text : to_text) = option.argument();
      return true;
    });
    if (!ok) return;
    std::vector<int64_t> dids;
    auto resolve = [&](const char* text, int64_t& did) {
      did = ResolveDid(text);
      if (did == 0) Fail(thread, kMsgInvalidArg, text);
      return did != 0;
    };
    for (const char* word : frame.positional()) {
      int64_t did;
      if (!resolve(word, did)) return;
      dids.push_back(did);
    }
    if ((from_text == nullptr) != (to_text == nullptr)) {
      Fail(thread, kMsgInvalidArgs);
      return;
    }
    int64_t from = 1, to = 0;  // an empty range unless -from and -to say otherwise
    if (from_text && (!resolve(from_text, from) || !resolve(to_text, to))) return;
    if (dids.empty() && !from_text) {
      Fail(thread, kMsgDidRequired);
      return;
    }

    frame.PrintSelectKeys();
    ThreadPrint(thread, "\n");
    auto remove = [&](int64_t did) {
      ThreadPrint(thread, "Dic DID:      %lld\n", static_cast<long long>(did));
      frame.Call(soap_call_nv__DeleteDictionary, did);
      ThreadPrint(thread, "OK.\n");
    };
    for (int64_t did : dids) remove(did);
    // The range is walked, not listed first: a failed call ends it anyway.
    for (int64_t did = from; did <= to; ++did) {
      remove(did);
      if (did == to) break;  // no step past the largest number
    }
  });
}

void CmdDchown(ExecThread& thread, ArgVector& args) {
  if (CheckHelpRequest(thread, CmdDchown, args, true)) return;
  RunGuarded(thread, [&] {
    RequestFrame frame(thread, "");
    if (!frame.Scan(kChownOptions, args) || !frame.ExpectPositional(2, 2)) return;
    int64_t did = ResolveDid(frame.positional()[0]);
    if (did == 0) {
      Fail(thread, kMsgInvalidArg, frame.positional()[0]);
      return;
    }
    std::string owner = frame.positional()[1];

    frame.PrintSelectKeys();
    ThreadPrint(thread, "Dic DID:      %lld\n", static_cast<long long>(did));
    ThreadPrint(thread, "Target User:  %s\n", owner.c_str());

    frame.Call(soap_call_nv__ChangeDictionaryOwner, did, &owner);
    ThreadPrint(thread, "OK.\n");
  });
}

void CmdLastdid(ExecThread& thread, ArgVector& args) {
  if (CheckHelpRequest(thread, CmdLastdid, args, true)) return;
  if (!args.empty()) {
    Fail(thread, kMsgInvalidArgs);
    return;
  }
  std::vector<CreatedDid> list = CreatedDids();
  if (list.empty()) {
    ThreadPrint(thread, "None.\n");
    return;
  }
  for (size_t back = 0; back < list.size(); ++back) {
    const CreatedDid& r = list[list.size() - 1 - back];
    const char* operation = FlagName(r.operation, FlagTable::kApi);
    std::string type = DictionaryTypeName(r.type);
    if (back == 0) {
      ThreadPrint(thread, "LAST      %6.6lld    %-12s  %-12s   %s\n", static_cast<long long>(r.did),
                  r.eid.c_str(), type.c_str(), operation ? operation : "UNKNOWN");
    } else {
      ThreadPrint(thread, "LAST-%-3d  %6.6lld    %-12s  %-12s   %s\n", static_cast<int>(back),
                  static_cast<long long>(r.did), r.eid.c_str(), type.c_str(),
                  operation ? operation : "UNKNOWN");
    }
  }
}

const CommandRecord kDictionaryRows[] = {
    {"dcreate", CmdDcreate, 0, "Create a new dictionary.",
     "Usage: dcreate -type {user|learn}\n"
     "              [-select KEYS]              [-strict]\n"
     "              [-reqgroup ID]              [-runas USERID]\n"
     "              [-rmax MILLISEC]            [-eid EID]\n"
     "              [-details]                  [-subject SUBJECT]\n"
     "              [-display LANG=TEXT]*       [-languages LANG]\n"
     "              [-comment COMMENT]          [-vender VENDER]\n"
     "              [-userdata FILE]\n\n"
     LEXCTL_COMMON_OPTION_HELP
     "    -eid        The engine of the dictionary (default: the current engine).\n"
     "    -details    Return the details of the new dictionary.\n"
     "    -type       The dictionary type: user, learn, user_shared or\n"
     "                learn_shared.\n"
     "    -subject    The subject of the dictionary.\n"
     "    -display    The display name of the dictionary in language LANG.\n"
     "    -languages  The languages of a Translation Memory dictionary.\n"
     "    -comment    A comment on a Translation Memory dictionary.\n"
     "    -vender     The vender of a Translation Memory dictionary.\n"
     "    -userdata   A file whose data are stored with a Translation Memory\n"
     "                dictionary.\n\n"
     "-display may be specified multiple times to define entries for multiple "
     "languages. The dictionary is created for the current engine. See setopt for details."},
    {"dupdate", CmdDupdate, 0, "Update the dictionary meta-data.",
     "Usage: dupdate DID\n"
     "              [-select KEYS]              [-strict]\n"
     "              [-reqgroup ID]              [-runas USERID]\n"
     "              [-rmax MILLISEC]            [-details]\n"
     "              [-add USERID]*              [-del USERID]*\n"
     "              [-subject SUBJECT]          [-display LANG=TEXT]*\n"
     "              [-comment COMMENT]\n\n"
     LEXCTL_COMMON_OPTION_HELP
     "    -details    Return the details of the dictionary.\n"
     "    -add        Share the dictionary with a user.\n"
     "    -del        Stop sharing the dictionary with a user.\n"
     "    -subject    The subject of the dictionary.\n"
     "    -display    The display name of the dictionary in language LANG.\n"
     "    -comment    A comment on a Translation Memory dictionary.\n\n"
     "-add and -del may be specified multiple times to add or remove multiple userid "
     "from the list of users permitted to use a shared dictionary (USER_SHARED or "
     "LEARN_SHARED dictionary types only). The current list of shared users for this "
     "dictionary will be returned for shared dictionaries."},
    {"dcopy", CmdDcopy, 0, "Copy a dictionary.",
     "Usage: dcopy SOURCE_DID\n"
     "              [-select KEYS]              [-strict]\n"
     "              [-reqgroup ID]              [-runas USERID]\n"
     "              [-rmax MILLISEC]\n"
     "              [-did DID]                  [-type TYPE]\n\n"
     LEXCTL_COMMON_OPTION_HELP
     "    -did        The dictionary to be replaced by the copy.\n"
     "    -type       The type of the copy: USER, USER_SHARED, LEARN or\n"
     "                LEARN_SHARED.\n\n"
     "If neither -did nor -type is specified, a new copy of the dictionary will with "
     "the same type will be created. If -did is used, then the specified dictionary "
     "will be replaced. If -type is used, then the dictionary type may be changed "
     "between private and shared."},
    {"dremove", CmdDremove, 0, "Remove an existing dictionary.",
     "Usage: dremove DID [DID ...]\n"
     "       dremove -from DID -to DID\n"
     "              [-select KEYS]              [-strict]\n"
     "              [-reqgroup ID]              [-runas USERID]\n"
     "              [-rmax MILLISEC]\n\n"
     LEXCTL_COMMON_OPTION_HELP
     "    -from       The first DID of a range of dictionaries to remove.\n"
     "    -to         The last DID of the range.\n\n"
     "Every DID may be written LAST or LAST-N for the dictionaries created in this run.\n"},
    {"dchown", CmdDchown, 0, "Change the owner of a dictionary.",
     "Usage: dchown DID TARGET_OWNER\n"
     "              [-select KEYS]              [-strict]\n"
     "              [-reqgroup ID]              [-runas USERID]\n"
     "              [-rmax MILLISEC]\n\n"
     LEXCTL_COMMON_OPTION_HELP},
    {nullptr, nullptr, 0, nullptr, nullptr},
};

const CommandRecord kLastdidRows[] = {
    {"last", CmdLastdid, CMDF_HIDDEN, nullptr, nullptr},
    {"lastdid", CmdLastdid, 0, "Show the list of all created DID",
     "Usage: lastdid\n\n"
     "Lists the dictionaries created or copied in this run, newest first. Every DID\n"
     "argument may be written LAST (the newest) or LAST-N (N places older).\n"},
    {nullptr, nullptr, 0, nullptr, nullptr},
};

const CommandOptionTable kDictionaryOptionTables[] = {
    {"dcreate", kCreateOptions}, {"dupdate", kUpdateOptions}, {"dcopy", kCopyOptions},
    {"dremove", kRemoveOptions}, {"dchown", kChownOptions},   {nullptr, nullptr},
};

}  // namespace lexctl
