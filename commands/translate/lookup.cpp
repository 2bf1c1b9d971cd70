#include "commands/translate/lookup.h"

#include <string>
#include <vector>

#include "client/common_options.h"
#include "client/frame.h"
#include "commands/admin/flag_tables.h"
#include "shell/dispatch.h"
#include "shell/output.h"
#include "soapH.h"

namespace lexctl {
namespace {

enum LookupOption { kLookupUilang = kOptOwn };

// -uilang is sent as displayLang, not as a select key.
constexpr auto kLookupOptions = CommandOptions<(kCommonOptions & ~kTakeUilang) | kEngineOptions>(
    {{kLookupUilang, "-uilang", kOptRequired},
     SelectKey("-raw"),
     SelectKey("-did"),
     SelectKey("-pos"),
     SelectKey("-rawdata"),
     SelectKey("-subject")});

constexpr auto kLookupEntryOptions =
    CommandOptions<kCommonOptions | kEngineOptions>({SelectKey("-rawpos"), SelectKey("-subject")});

constexpr char kNoWord[] = "Invalid arguments. Word to lookup must be supplied.\n";
constexpr char kEntryFormat[] = "  %-7s %-17s %-17s %-7s %-17s %-7s\n";

const char* Or(const std::string* text) { return text ? text->c_str() : ""; }

}  // namespace

void PrintLookupEntries(ExecThread& thread, const std::vector<std::string>& words,
                        const std::vector<nv__DicEntry*>& entries) {
  auto word_at = [&](int idx) {
    return idx >= 0 && static_cast<size_t>(idx) < words.size() ? words[idx].c_str()
                                                               : "!!INVALID INDEX!!";
  };
  bool headed = false;
  int last = 0;
  for (const nv__DicEntry* entry : entries) {
    if (auto* hit = dynamic_cast<const nv__DicEntryLookup*>(entry)) {
      if (!headed || hit->idx != last) {
        ThreadPrint(thread, "%s\n", std::string(79, '-').c_str());
        ThreadPrint(thread, "[%d]: '%s'\n", hit->idx, word_at(hit->idx));
        ThreadPrint(thread, kEntryFormat, "DIC", "SURFACE_FORM", "BASE_FORM", "ORG_POS",
                    "TRANSLATION", "TXN_POS");
        headed = true;
        last = hit->idx;
      }
      ThreadPrint(thread, kEntryFormat, Or(hit->did), Or(hit->orgWord), Or(hit->orgBase),
                  Or(hit->orgPos), Or(hit->txnWord), Or(hit->txnPos));
    } else if (auto* missing = dynamic_cast<const nv__DicEntryNotFound*>(entry)) {
      ThreadPrint(thread, "[%d]: '%s' = NOT FOUND\n", missing->idx, word_at(missing->idx));
    } else if (auto* error = dynamic_cast<const nv__DicEntryError*>(entry)) {
      ThreadPrint(thread, "[%d]: '%s' = %s\n", error->idx, word_at(error->idx), Or(error->err));
    } else {
      ThreadPrint(thread, "Unexpected entry type in the lookup results.\n");
    }
  }
}

namespace {

void CmdLookup(ExecThread& thread, ArgVector& args) {
  if (CheckHelpRequest(thread, CmdLookup, args, true)) return;
  RunGuarded(thread, [&] {
    RequestFrame frame(thread, "");
    std::string display_lang = frame.data().uilang;
    bool ok = frame.Scan(kLookupOptions, args, [&](const OptionScanner& option) {
      display_lang = option.argument() ? option.argument() : "";
      return true;
    });
    if (!ok) return;
    if (frame.positional().size() != 1) {
      Fail(thread, kNoWord);
      return;
    }
    std::string word = frame.positional()[0];
    frame.PrintSelectKeys();
    ThreadPrint(thread, "Headword:     %s\n\n", word.c_str());
    auto response = frame.Call(soap_call_nv__LookupFormatted,
                               display_lang.empty() ? nullptr : &display_lang, &word);
    if (response.definition) ThreadPrint(thread, "%s", response.definition->c_str());
  });
}

void CmdLookupEntry(ExecThread& thread, ArgVector& args) {
  if (CheckHelpRequest(thread, CmdLookupEntry, args, true)) return;
  RunGuarded(thread, [&] {
    RequestFrame frame(thread, "");
    if (!frame.Scan(kLookupEntryOptions, args)) return;
    if (frame.positional().empty()) {
      Fail(thread, kNoWord);
      return;
    }
    nv__StringArray words;
    words.item.assign(frame.positional().begin(), frame.positional().end());
    frame.PrintSelectKeys();
    PrintColumns(thread, words.item, "Words:        ", std::string(14, ' '));
    ThreadPrint(thread, "\n");
    auto response = frame.Call(soap_call_nv__LookupEntry, &words);
    if (!response.entries || response.entries->item.empty()) {
      ThreadPrint(thread, "No entries.\n");
      return;
    }
    PrintLookupEntries(thread, words.item, response.entries->item);
  });
}

#define LOOKUP_OPTION_HELP                                                     \
  "    -eid        Engine to use instead of the current engine.\n"          \
  "    -prop       Engine property for this request; repeatable.\n"

}  // namespace

const CommandRecord kLookupCommandRows[] = {
    {"l", CmdLookup, 0, nullptr, nullptr},
    {"lf", CmdLookup, 0, nullptr, nullptr},
    {"lformat", CmdLookup, 0, nullptr, nullptr},
    {"lookup", CmdLookup, 0, "Lookup a word in the dictionary.",
     "Usage: lookup WORD\n"
     "              [-select KEYS]              [-strict]\n"
     "              [-reqgroup ID]              [-runas USERID]\n"
     "              [-uilang LANG]              [-rmax MILLISEC]\n"
     "              [-raw]                      [-did]\n"
     "              [-pos]                      [-rawdata]\n"
     "              [-subject]                  [-eid ENGINE]\n"
     "              [-prop KEY=VALUE]*\n\n"
     LEXCTL_COMMON_OPTION_HELP
     "    -uilang     Language of the display names.\n"
     "    -raw        Equivalent to: -did -pos.\n"
     "    -did        Return the DID instead of the dictionary display name.\n"
     "    -pos        Return the POS code instead of the POS display name.\n"
     "    -rawdata    Return the raw dictionary data generated by the engine.\n"
     "    -subject    Return the dictionary subject instead of the DID.\n"
     LOOKUP_OPTION_HELP
     "\nNote: uses the current engine. See setopt for details.\n"},
    {"le", CmdLookupEntry, 0, nullptr, nullptr},
    {"lentry", CmdLookupEntry, 0, nullptr, nullptr},
    {"lookupentry", CmdLookupEntry, 0, "Lookup dictionary entries for words.",
     "Usage: lookupentry WORD\n"
     "              [-select KEYS]              [-strict]\n"
     "              [-reqgroup ID]              [-runas USERID]\n"
     "              [-uilang LANG]              [-rmax MILLISEC]\n"
     "              [-rawpos]                   [-subject]\n"
     "              [-eid ENGINE]               [-prop KEY=VALUE]*\n\n"
     LEXCTL_COMMON_OPTION_HELP
     "    -rawpos     Return the raw engine POS code instead of the QZ_POS code.\n"
     "    -subject    Return the dictionary subject instead of the DID.\n"
     LOOKUP_OPTION_HELP},
    {nullptr, nullptr, 0, nullptr, nullptr},
};

const CommandOptionTable kLookupOptionTables[] = {
    {"lookup", kLookupOptions},
    {"lookupentry", kLookupEntryOptions},
    {nullptr, nullptr},
};

}  // namespace lexctl
