#include "commands/admin/entries.h"

#include <cstdlib>
#include <string>
#include <vector>

#include "client/common_options.h"
#include "client/did_list.h"
#include "client/frame.h"
#include "commands/admin/dict_printers.h"
#include "commands/common/files.h"
#include "commands/common/payload.h"
#include "shell/dispatch.h"
#include "shell/output.h"
#include "soapH.h"

namespace lexctl {
namespace {

constexpr char kMsgTooManyEntries[] = "Too many entries. Max = %d\n";
constexpr char kMsgCountMismatch[] = "Number of response entries does not match request size!!!!\n";

enum DaddOption { kDaddFormat = kOptOwn };
constexpr auto kDaddOptions =
    CommandOptions<kCommonOptions>({SelectKey("-asfirst"), {kDaddFormat, "-format", kOptRequired}});

enum DaddtmOption {
  kTmNewEntry = kOptOwn,
  kTmSentence,
  kTmWeight,
  kTmInfo,
  kTmAuthor,
  kTmDate,
  kTmTitle,
  kTmComment,
  kTmUserdata,
};
// daddtm does not take -neweid.
constexpr auto kDaddtmOptions = CommandOptions<(kCommonOptions & ~kTakeNeweid) | kTakeTimezone>({
    {kTmNewEntry, "-newEntry", kOptNoArgument},
    {kTmSentence, "-sentence", kOptRequired},
    {kTmWeight, "-weight", kOptRequired},
    {kTmInfo, "-info", kOptRequired},
    {kTmAuthor, "-author", kOptRequired},
    {kTmDate, "-date", kOptRequired},
    {kTmTitle, "-title", kOptRequired},
    {kTmComment, "-comment", kOptRequired},
    {kTmUserdata, "-userdata", kOptRequired},
});

enum RequestOption { kReqFormat = kOptOwn, kReqHead, kReqId, kReqStart, kReqCount };
constexpr auto kDgetOptions = CommandOptions<kCommonOptions>({{kReqFormat, "-format", kOptRequired},
                                                              {kReqHead, "-head", kOptRequired},
                                                              {kReqId, "-id", kOptRequired},
                                                              {kReqStart, "-start", kOptRequired},
                                                              {kReqCount, "-count", kOptRequired}});
constexpr auto kDdelOptions = CommandOptions<kCommonOptions>(
    {{kReqHead, "-head", kOptRequired}, {kReqId, "-id", kOptRequired}});

int Decimal(const char* text) { return static_cast<int>(strtol(text, nullptr, 10)); }

void AddUilang(RequestFrame& frame) {
  if (!frame.SelectContains("uilang=")) frame.AddSelectKey("uilang=" + frame.data().uilang);
}

// A sentence line: marker and language beside the text, whose further lines
// are indented under it.
void PrintSentence(ExecThread& thread, const std::string& lang, const std::string& text, bool key) {
  std::string shown;
  for (char c : text) {
    shown += c;
    if (c == '\n') shown += "            ";
  }
  ThreadPrint(thread, "   %s %-7s %s\n", key ? "+" : "-", lang.c_str(), shown.c_str());
}

void PrintMemoryEntry(ExecThread& thread, const nv__DicEntryMemory& entry) {
  auto text = [](const std::string* s) { return s ? s->c_str() : ""; };
  ThreadPrint(thread, "EntryID '%s'\n", text(entry.entryid));
  ThreadPrint(thread, "  Sentences:\n");
  if (entry.sentences) {
    for (const nv__EntryTextMemory& s : entry.sentences->item) {
      PrintSentence(thread, text(s.lang), text(s.text), !s.isKey || *s.isKey);
    }
  }
  if (entry.weight) ThreadPrint(thread, "  Weight:    %d\n", *entry.weight);
  if (entry.info) ThreadPrint(thread, "  Info:      %d\n", *entry.info);
  if (entry.isPattern) ThreadPrint(thread, "  IsPattern: %s\n", *entry.isPattern ? "true" : "false");
  if (entry.author) ThreadPrint(thread, "  Author:    %s\n", entry.author->c_str());
  if (entry.title) ThreadPrint(thread, "  Title:     %s\n", entry.title->c_str());
  if (entry.date) ThreadPrint(thread, "  Date:      %s\n", entry.date->c_str());
  if (entry.comment) ThreadPrint(thread, "  Comment:   %s\n", entry.comment->c_str());
  if (entry.userdata) ThreadPrint(thread, "  Userdata:  %d bytes\n", entry.userdata->__size);
  ThreadPrint(thread, "\n");
}

// The results of AddDictionaryEntry: reports a count that differs from what
// was sent, then prints each result; false when there were none.
template <typename PrintResult>
bool PrintAddResults(ExecThread& thread, const nv__AddEntryResultArray* results, size_t sent,
                     PrintResult print) {
  size_t count = results ? results->item.size() : 0;
  if (count != sent) Fail(thread, kMsgCountMismatch);
  for (size_t i = 0; i < count; ++i) print(static_cast<int>(i), results->item[i]);
  return count > 0;
}

// The -head and -id requests of dget and ddel, in command-line order.
struct EntryRequests {
  struct Request {
    bool id;
    std::string text;
  };
  std::vector<Request> requests;
  nv__DicEntryIdArray wire;

  void Add(bool id, const char* text) { requests.push_back({id, text}); }
  void Echo(ExecThread& thread) const {
    for (const Request& r : requests) {
      ThreadPrint(thread, r.id ? "EntryID:      %s\n" : "Headword:     %s\n", r.text.c_str());
    }
  }
  nv__DicEntryIdArray* Wire() {
    wire.item.resize(requests.size());
    for (size_t i = 0; i < requests.size(); ++i) {
      wire.item[i].entryid = requests[i].id ? &requests[i].text : nullptr;
      wire.item[i].headword = requests[i].id ? nullptr : &requests[i].text;
    }
    return &wire;
  }
};

}  // namespace

bool TmEntryBuilder::AddSentence(const std::string& text) {
  size_t equals = text.find('=');
  if (equals == std::string::npos) return false;
  TmEntry::Sentence sentence{text.substr(0, equals), text.substr(equals + 1), true};
  if (!sentence.text.empty() && sentence.text[0] == '#') {
    sentence.text.erase(0, 1);
    sentence.key = false;
  }
  current().sentences.push_back(std::move(sentence));
  return true;
}

void TmEntryBuilder::NewEntry() {
  if (!current().sentences.empty()) entries_.emplace_back();
}

bool TmEntryBuilder::Finish(std::vector<TmEntry>& entries) const {
  for (const TmEntry& entry : entries_) {
    if (entry.sentences.empty()) return false;
  }
  entries = entries_;
  return true;
}

void CmdDadd(ExecThread& thread, ArgVector& args) {
  if (CheckHelpRequest(thread, CmdDadd, args, true)) return;
  RunGuarded(thread, [&] {
    RequestFrame frame(thread, "");
    std::string format;
    bool has_format = false;
    bool ok = frame.Scan(kDaddOptions, args, [&](const OptionScanner& option) {
      format = option.argument();
      has_format = true;
      return true;
    });
    if (!ok) return;
    const ArgVector& words = frame.positional();
    int64_t did = words.empty() ? 0 : ResolveDid(words[0]);
    if (did == 0) {
      Fail(thread, kMsgInvalidArgs);
      return;
    }
    if (words.size() - 1 > kMaxEntries) {
      Fail(thread, kMsgTooManyEntries, static_cast<int>(kMaxEntries));
      return;
    }
    AddUilang(frame);

    frame.PrintSelectKeys();
    ThreadPrint(thread, "Dic DID:      %lld\n", static_cast<long long>(did));
    if (has_format) ThreadPrint(thread, "Format:       %s\n", format.c_str());
    ThreadPrint(thread, "\n");

    std::vector<std::string> sources(words.begin() + 1, words.end());
    std::vector<nv__DicEntryEngine> items(sources.size());
    nv__DicEntryArray entries;
    for (size_t i = 0; i < sources.size(); ++i) {
      items[i].source = &sources[i];
      entries.item.push_back(&items[i]);
    }
    auto response = frame.Call(soap_call_nv__AddDictionaryEntry, did,
                               has_format ? &format : nullptr, &entries);
    bool any = PrintAddResults(thread, response.entries, sources.size(),
                               [&](int i, const nv__AddEntryResult& result) {
                                 if (result.entryid) {
                                   for (const std::string& id : result.entryid->item)
                                     ThreadPrint(thread, "%d = %s\n", i, id.c_str());
                                 }
                                 if (result.error) {
                                   ThreadPrint(thread, "%d = %s\n", i, result.error->c_str());
                                   PrintSourceErrors(thread, result.sourceError);
                                 }
                               });
    if (!any) ThreadPrint(thread, "No entries.\n");
  });
}

namespace {

// daddtm's options: the entries, one after another.
bool ScanTmEntries(RequestFrame& frame, ArgVector& args, TmEntryBuilder& builder) {
  ExecThread& thread = frame.thread();
  return frame.Scan(kDaddtmOptions, args, [&](const OptionScanner& option) {
    const char* value = option.argument();
    TmEntry& entry = builder.current();
    switch (option.id()) {
      case kTmNewEntry: builder.NewEntry(); break;
      case kTmSentence:
        if (!builder.AddSentence(value)) {
          Fail(thread, "Invalid argument. Missing language for sentence.\n");
          return false;
        }
        break;
      case kTmWeight: entry.weight = Decimal(value); break;
      case kTmInfo: entry.info = Decimal(value); break;
      case kTmAuthor: entry.author = value; break;
      case kTmDate: entry.date = value; break;
      case kTmTitle: entry.title = value; break;
      case kTmComment: entry.comment = value; break;
      case kTmUserdata: {
        std::string data;
        if (!ReadFileData(thread, value, data)) return false;
        entry.userdata = std::move(data);
        break;
      }
    }
    return true;
  });
}

void PrintTmEntries(ExecThread& thread, const std::vector<TmEntry>& built) {
  for (size_t i = 0; i < built.size(); ++i) {
    const TmEntry& e = built[i];
    ThreadPrint(thread, "Entry: %d\n", static_cast<int>(i));
    ThreadPrint(thread, "  Sentences:\n");
    for (const TmEntry::Sentence& s : e.sentences) PrintSentence(thread, s.lang, s.text, s.key);
    if (e.author) ThreadPrint(thread, "  Author:    %s\n", e.author->c_str());
    if (e.date) ThreadPrint(thread, "  Date:      %s\n", e.date->c_str());
    ThreadPrint(thread, "  Weight:    %d\n", e.weight.value_or(0));
    ThreadPrint(thread, "  Info:      %d\n", e.info.value_or(0));
    if (e.title) ThreadPrint(thread, "  Title:     %s\n", e.title->c_str());
    if (e.comment) ThreadPrint(thread, "  Comment:   %s\n", e.comment->c_str());
    if (e.userdata) ThreadPrint(thread, "  UserData:  %d bytes\n", static_cast<int>(e.userdata->size()));
  }
}

// The memory entries as they go on the wire; they point into the built
// entries, which stay put until the call ends.
class TmEntryWire {
 public:
  TmEntryWire(LocalData& data, std::vector<TmEntry>& built) : wires_(built.size()) {
    for (size_t i = 0; i < built.size(); ++i) {
      TmEntry& e = built[i];
      Wire& w = wires_[i];
      w.sentences.item.resize(e.sentences.size());
      for (size_t k = 0; k < e.sentences.size(); ++k) {
        w.sentences.item[k].lang = &e.sentences[k].lang;
        w.sentences.item[k].text = &e.sentences[k].text;
        w.sentences.item[k].isKey = &e.sentences[k].key;
      }
      w.entry.sentences = &w.sentences;
      w.entry.weight = e.weight ? &*e.weight : nullptr;
      w.entry.info = e.info ? &*e.info : nullptr;
      w.entry.author = e.author ? &*e.author : nullptr;
      w.entry.date = e.date ? &*e.date : nullptr;
      w.entry.title = e.title ? &*e.title : nullptr;
      w.entry.comment = e.comment ? &*e.comment : nullptr;
      w.entry.userdata = e.userdata ? Payload(data, *e.userdata, "userdata") : nullptr;
      entries_.item.push_back(&w.entry);
    }
  }
  nv__DicEntryArray* entries() { return &entries_; }

 private:
  struct Wire {
    nv__DicEntryMemory entry;
    nv__EntryTextMemoryArray sentences;
  };
  std::vector<Wire> wires_;
  nv__DicEntryArray entries_;
};

}  // namespace

void CmdDaddtm(ExecThread& thread, ArgVector& args) {
  if (CheckHelpRequest(thread, CmdDaddtm, args, true)) return;
  RunGuarded(thread, [&] {
    RequestFrame frame(thread, "");
    TmEntryBuilder builder;
    if (!ScanTmEntries(frame, args, builder)) return;
    const ArgVector& words = frame.positional();
    if (words.size() != 1) {
      Fail(thread, kMsgDidRequired);
      return;
    }
    int64_t did = ResolveDid(words[0]);
    if (did == 0) {
      Fail(thread, kMsgInvalidArgs);
      return;
    }
    std::vector<TmEntry> built;
    if (!builder.Finish(built)) {
      Fail(thread, "Invalid arguments. Did you forget -sentence?\n");
      return;
    }
    AddUilang(frame);

    frame.PrintSelectKeys();
    ThreadPrint(thread, "Dic DID:      %lld\n", static_cast<long long>(did));
    PrintTmEntries(thread, built);
    ThreadPrint(thread, "\n");

    TmEntryWire wire(frame.data(), built);
    auto response = frame.Call(soap_call_nv__AddDictionaryEntry, did, nullptr, wire.entries());
    bool any = PrintAddResults(thread, response.entries, built.size(),
                               [&](int, const nv__AddEntryResult& result) {
                                 if (result.entryid) {
                                   for (const std::string& id : result.entryid->item)
                                     ThreadPrint(thread, "EntryId = %s\n", id.c_str());
                                 }
                                 if (result.error) {
                                   ThreadPrint(thread, "Error = %s\n", result.error->c_str());
                                   PrintSourceErrors(thread, result.sourceError);
                                 }
                               });
    if (!any) ThreadPrint(thread, "OK.\n");
  });
}

void CmdDget(ExecThread& thread, ArgVector& args) {
  if (CheckHelpRequest(thread, CmdDget, args, true)) return;
  RunGuarded(thread, [&] {
    RequestFrame frame(thread, "");
    EntryRequests requests;
    std::string format;
    bool has_format = false;
    LONG64 start = 0, count = 0;
    bool has_start = false, has_count = false;
    bool ok = frame.Scan(kDgetOptions, args, [&](const OptionScanner& option) {
      const char* value = option.argument();
      switch (option.id()) {
        case kReqFormat:
          format = value;
          has_format = true;
          break;
        case kReqHead: requests.Add(false, value); break;
        case kReqId: requests.Add(true, value); break;
        case kReqStart:
          start = strtoll(value, nullptr, 10);
          has_start = true;
          break;
        case kReqCount:
          count = strtoll(value, nullptr, 10);
          has_count = true;
          break;
      }
      return true;
    });
    if (!ok || !frame.ExpectPositional(1, 1)) return;
    int64_t did = ResolveDid(frame.positional()[0]);
    if (did == 0) {
      Fail(thread, kMsgInvalidArgs);
      return;
    }
    if (requests.requests.size() > kMaxEntries) {
      Fail(thread, kMsgTooManyEntries, static_cast<int>(kMaxEntries));
      return;
    }
    if (frame.data().settings.dime) frame.AddSelectKey("dime");

    frame.PrintSelectKeys();
    ThreadPrint(thread, "Dic DID:      %lld\n", static_cast<long long>(did));
    if (has_format) ThreadPrint(thread, "Format:       %s\n", format.c_str());
    requests.Echo(thread);
    if (count != 0) {
      ThreadPrint(thread, "Range:        Start = %d, Count = %d\n", static_cast<int>(start),
                  static_cast<int>(count));
    }
    ThreadPrint(thread, "\n");

    auto response = frame.Call(soap_call_nv__GetDictionaryEntry, did,
                               has_format ? &format : nullptr, has_start ? &start : nullptr,
                               has_count ? &count : nullptr,
                               requests.requests.empty() ? nullptr : requests.Wire());
    if (!response.entries || response.entries->item.empty()) {
      ThreadPrint(thread, "No entries.\n");
      return;
    }
    auto text = [](const std::string* s) { return s ? s->c_str() : ""; };
    for (const nv__DicEntry* item : response.entries->item) {
      if (auto* missing = dynamic_cast<const nv__DicEntryNotFound*>(item)) {
        if (missing->entryid) {
          ThreadPrint(thread, "EntryID '%s' = NOT FOUND\n", missing->entryid->c_str());
        } else {
          ThreadPrint(thread, "Headword '%s' = NOT FOUND\n", text(missing->headword));
        }
      } else if (auto* engine = dynamic_cast<const nv__DicEntryEngine*>(item)) {
        ThreadPrint(thread, "%s = %s = %s\n", text(engine->entryid), text(engine->headword),
                    text(engine->source));
      } else if (auto* memory = dynamic_cast<const nv__DicEntryMemory*>(item)) {
        PrintMemoryEntry(thread, *memory);
      }
    }
  });
}

void CmdDdel(ExecThread& thread, ArgVector& args) {
  if (CheckHelpRequest(thread, CmdDdel, args, true)) return;
  RunGuarded(thread, [&] {
    RequestFrame frame(thread, "");
    EntryRequests requests;
    bool ok = frame.Scan(kDdelOptions, args, [&](const OptionScanner& option) {
      requests.Add(option.id() == kReqId, option.argument());
      return true;
    });
    if (!ok) return;
    if (frame.positional().size() != 1) {
      Fail(thread, kMsgDidRequired);
      return;
    }
    int64_t did = ResolveDid(frame.positional()[0]);
    if (did == 0) {
      Fail(thread, kMsgInvalidArgs);
      return;
    }
    if (requests.requests.size() > kMaxEntries) {
      Fail(thread, kMsgTooManyEntries, static_cast<int>(kMaxEntries));
      return;
    }

    frame.PrintSelectKeys();
    ThreadPrint(thread, "Dic DID:      %lld\n", static_cast<long long>(did));
    requests.Echo(thread);
    ThreadPrint(thread, "\n");

    frame.Call(soap_call_nv__DeleteDictionaryEntry, did, requests.Wire());
    ThreadPrint(thread, "OK.\n");
  });
}

const CommandRecord kEntryRows[] = {
    {"dadd", CmdDadd, CMDF_ESCAPES, "Add entries to a normal dictionary.",
     "Usage: dadd DID DIC_ENTRY [DIC_ENTRY ...]\n"
     "              [-select KEYS]              [-strict]\n"
     "              [-reqgroup ID]              [-runas USERID]\n"
     "              [-rmax MILLISEC]\n"
     "              [-format FORMAT]            [-asfirst]\n\n"
     LEXCTL_COMMON_OPTION_HELP
     "    -format     The dictionary source format of the entries.\n"
     "    -asfirst    The new entries take priority over existing ones and are\n"
     "                added before them.\n\n"
     "Each DIC_ENTRY argument is one whole entry written in the dictionary source\n"
     "format. At most 500 entries may be added at once.\n"},
    {"daddtm", CmdDaddtm, CMDF_ESCAPES, "Add entries to a Translation Memory dictionary.",
     "Usage: daddtm DID ENTRY [-newEntry ENTRY]*\n"
     "              [-select KEYS]              [-strict]\n"
     "              [-reqgroup ID]              [-runas USERID]\n"
     "              [-rmax MILLISEC]            [-timezone TIMEZONE]\n\n"
     "ENTRY: -sentence LANG=[#]SENTENCE [-sentence LANG=[#]SENTENCE ...]\n"
     "              [-weight WEIGHT]            [-info INFO]\n"
     "              [-author AUTHOR]            [-date DATE]\n"
     "              [-title TITLE]              [-comment COMMENT]\n"
     "              [-userdata FILE]\n\n"
     LEXCTL_COMMON_OPTION_HELP
     "    -timezone   The time zone of dates given in local time (default: the\n"
     "                current user's).\n"
     "    -newEntry   Start the next entry.\n"
     "    -sentence   A sentence of the entry in language LANG. It is a search key\n"
     "                unless SENTENCE starts with \"#\".\n"
     "    -weight     A larger weight takes priority.\n"
     "    -info       0 machine translation, 1 human translation.\n"
     "    -author     The author of the entry.\n"
     "    -date       The date of the entry.\n"
     "    -title      The title of the entry.\n"
     "    -comment    A comment on the entry.\n"
     "    -userdata   A file whose data are stored with the entry.\n"},
    {"dget", CmdDget, CMDF_ESCAPES, "Retrieve entries from a dictionary.",
     "Usage: dget DID\n"
     "              [-select KEYS]              [-strict]\n"
     "              [-reqgroup ID]              [-runas USERID]\n"
     "              [-rmax MILLISEC]            [-format FORMAT]\n"
     "              [-head HEADWORD]*           [-id ENTRYID]*\n"
     "              [-start START]              [-count COUNT]\n\n"
     LEXCTL_COMMON_OPTION_HELP
     "    -format     The dictionary source format of the entries returned.\n"
     "    -head       Retrieve the entries of a headword.\n"
     "    -id         Retrieve the entry with an entry id.\n"
     "    -start      The first entry of a range (from 0).\n"
     "    -count      The number of entries of a range (at most 1000; -1 asks for\n"
     "                the maximum). A range makes the server ignore -head and -id.\n\n"
     "-head and -id may be given up to 500 times together.\n"},
    {"ddel", CmdDdel, CMDF_ESCAPES, "Delete entries from a dictionary.",
     "Usage: ddel DID\n"
     "              [-select KEYS]              [-strict]\n"
     "              [-reqgroup ID]              [-runas USERID]\n"
     "              [-rmax MILLISEC]\n"
     "              [-head HEADWORD]*           [-id ENTRYID]*\n\n"
     LEXCTL_COMMON_OPTION_HELP
     "    -head       Delete the entries of a headword.\n"
     "    -id         Delete the entry with an entry id; \"*\" deletes all entries\n"
     "                of the dictionary.\n\n"
     "-head and -id may be given up to 500 times together.\n"},
    {nullptr, nullptr, 0, nullptr, nullptr},
};

const CommandOptionTable kEntryOptionTables[] = {
    {"dadd", kDaddOptions}, {"daddtm", kDaddtmOptions}, {"dget", kDgetOptions},
    {"ddel", kDdelOptions}, {nullptr, nullptr},
};

}  // namespace lexctl
