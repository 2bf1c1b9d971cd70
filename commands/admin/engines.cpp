#include "commands/admin/engines.h"

#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "client/common_options.h"
#include "client/frame.h"
#include "commands/admin/dict_printers.h"
#include "commands/admin/einfo_options.h"
#include "commands/admin/engine_printer.h"
#include "shell/dispatch.h"
#include "shell/output.h"
#include "soapH.h"

namespace lexctl {
namespace {

enum ProfileOption { kProfileEid = kOptOwn, kProfileAdd, kProfileDel, kProfileDisplay };
constexpr auto kProfileOptions =
    CommandOptions<kCommonOptions>({SelectKey("-mustexist"),
                                    SelectKey("-replace"),
                                    SelectKey("-overrides"),
                                    {kProfileEid, "-eid", kOptRequired},
                                    {kProfileAdd, "-add", kOptRequired},
                                    {kProfileDel, "-del", kOptRequired},
                                    {kProfileDisplay, "-display", kOptRequired}});

using DisplayTexts = std::vector<std::pair<std::string, std::string>>;

// What profile changes in the profile it names.
struct ProfileEdits {
  std::string eid;
  std::vector<std::pair<std::string, std::string>> adds;
  std::vector<std::string> dels;
  DisplayTexts displays;
};

bool ScanProfileOptions(RequestFrame& frame, ArgVector& args, ProfileEdits& edits) {
  ExecThread& thread = frame.thread();
  return frame.Scan(kProfileOptions, args, [&](const OptionScanner& option) {
    std::string arg = option.argument() ? option.argument() : "";
    switch (option.id()) {
      case kProfileEid: edits.eid = arg; break;
      case kProfileAdd: {
        std::optional<Property> property = ReadEngineProperty(thread, arg);
        if (!property) return false;
        edits.adds.emplace_back(property->key, property->value);
        break;
      }
      case kProfileDel: edits.dels.push_back(arg); break;
      case kProfileDisplay:
        edits.displays.emplace_back();
        if (!ReadDisplayText(thread, arg.c_str(), edits.displays.back())) {
          Fail(thread, "Invalid display text: %s\n", arg.c_str());
          return false;
        }
        break;
    }
    return true;
  });
}

void PrintProfileProperties(ExecThread& thread, const nv__PropertyArray* properties) {
  if (!properties || properties->item.empty()) {
    ThreadPrint(thread, "No properties.\n");
    return;
  }
  ThreadPrint(thread, "Properties:\n");
  ThreadPrint(thread, "    %-30.30s  RO %s\n", "KEY", "DEFAULT VALUE");
  for (const nv__Property& property : properties->item) {
    ThreadPrint(thread, "    %-30.30s  %s  %s\n", property.key ? property.key->c_str() : "",
                property.readonly && *property.readonly ? "T" : " ",
                property.val ? property.val->c_str() : "");
  }
}

}  // namespace

void CmdEinfo(ExecThread& thread, ArgVector& args) {
  if (CheckHelpRequest(thread, CmdEinfo, args, true)) return;
  RunGuarded(thread, [&] {
    RequestFrame frame(thread, EngineQueryKeys(thread));
    EngineQuery query;
    if (!ScanEngineQuery(frame, args, query) || !frame.ExpectPositional(0, 0)) return;
    frame.PrintSelectKeys();
    PrintEngineFilter(thread, query);
    ThreadPrint(thread, "\n");

    std::string lang = query.display_lang;
    auto response = frame.Call(soap_call_nv__GetEngineInfo, lang.empty() ? nullptr : &lang,
                               query.Filter(frame.soap()));
    if (!response.engines || response.engines->item.empty()) {
      ThreadPrint(thread, "No engines available\n");
      return;
    }
    PrintEngines(thread, response.engines, query.mode);
    if (query.mode == kEngineFull) PrintPropertyDefs(thread, response.propdef);
  });
}

void CmdProfile(ExecThread& thread, ArgVector& args) {
  if (CheckHelpRequest(thread, CmdProfile, args, true)) return;
  RunGuarded(thread, [&] {
    RequestFrame frame(thread, "");
    ProfileEdits edits;
    edits.eid = frame.data().engine.eid;
    if (!ScanProfileOptions(frame, args, edits)) return;
    if (frame.positional().empty()) {
      Fail(thread, "Invalid arguments. Profile must be supplied.\n");
      return;
    }
    if (!frame.ExpectPositional(1, 1)) return;
    std::string profile = frame.positional()[0];

    frame.PrintSelectKeys();
    ThreadPrint(thread, "Engine EID:   %s\n", edits.eid.c_str());
    ThreadPrint(thread, "Profile:      %s\n", profile.c_str());
    for (const auto& [key, value] : edits.adds) ThreadPrint(thread, "Adding:       %s = %s\n", key.c_str(), value.c_str());
    for (const std::string& key : edits.dels) ThreadPrint(thread, "Removing:     %s\n", key.c_str());
    PrintDisplayTexts(thread, edits.displays);
    ThreadPrint(thread, "\n");

    // addProp always goes, empty or not: with -replace an empty set clears the profile.
    nv__KeyValArray add_prop;
    for (auto& [key, value] : edits.adds) {
      nv__KeyValPair pair;
      pair.key = key;
      pair.val = value;
      add_prop.item.push_back(pair);
    }
    nv__StringArray del_prop;
    del_prop.item = edits.dels;
    nv__DisplayTextArray display_array;
    for (auto& [lang, text] : edits.displays) {
      nv__DisplayText t;
      t.lang = &lang;
      t.text = &text;
      display_array.item.push_back(t);
    }
    auto response = frame.Call(soap_call_nv__UpdateEngineProfile, &edits.eid, &profile,
                               edits.displays.empty() ? nullptr : &display_array, &add_prop,
                               edits.dels.empty() ? nullptr : &del_prop);
    PrintDisplayTexts(thread, response.alldisplay);
    PrintProfileProperties(thread, response.properties);
  });
}

const CommandRecord kEngineInfoRows[] = {
    {"einfo", CmdEinfo, 0, "Retrieve engine information.",
     "Usage: einfo [options]\n\n"
     LEXCTL_COMMON_OPTION_HELP
     "    -timezone   Time zone of the dates in the response.\n"
     "    -uilang     Language of the display names.\n"
     "    -user       Return the user details.\n"
     "    -engines    Return the engine details.\n"
     "    -reverse    Return the engines of the reverse direction too.\n"
     "    -dic        Return the dictionaries of each engine.\n"
     "    -nomerge    Do not merge the user's overrides into the profiles.\n"
     "    -engineprop Return the engine properties.\n"
     "    -profiles   Return the property profiles.\n"
     "    -overrides  Return the user's profile overrides.\n"
     "    -propdef    Return the property definitions.\n"
     "    -limits     Return the limits.\n"
     "    -userprop   Return the user properties.\n"
     "    -sessions   Return the sessions.\n"
     "    -all        Equivalent to: -engines -dic -engineprop -profiles -propdef\n"
     "                -limits -userprop.\n"
     "    -list       Show one line per engine.\n"
     "    -userdic    Return only user dictionaries.\n"
     "    -techdic    Return only technical dictionaries.\n"
     "    -ownerdic   Return only the dictionaries the user owns.\n"
     "    -suserdic   List the user dictionaries of every engine.\n"
     "    -stechdic   List the technical dictionaries of every engine.\n"
     "    -eid        Only this engine; ALL for every engine, CURRENT for the\n"
     "                current engine.\n"
     "    -from       Only engines from this language.\n"
     "    -to         Only engines to this language.\n"
     "    -type       Only engines of these types: type flag names or a number.\n"
     "    -support    Only engines with these features: support flag names or a\n"
     "                number.\n\n"
     "See \"flags -type\" and \"flags -support\" for the flag names.\n"},
    {nullptr, nullptr, 0, nullptr, nullptr},
};

const CommandRecord kProfileRows[] = {
    {"profile", CmdProfile, 0, "Update an engine property profile.",
     "Usage: profile PROFILE\n\n"
     LEXCTL_COMMON_OPTION_HELP
     "    -mustexist  Fail unless the profile already exists.\n"
     "    -replace    Replace all properties of the profile with those added.\n"
     "    -overrides  Change the user's own overrides of the profile.\n"
     "    -eid        The engine of the profile (default: the current engine).\n"
     "    -add        KEY=VAL: add or change a property.\n"
     "    -del        KEY: remove a property.\n"
     "    -display    LANG=TEXT: the display name of the profile in a language.\n\n"
     "-add, -del and -display may be specified multiple times. LAST keywords in the\n"
     "value of the dictionaries property are replaced by the DIDs of the\n"
     "dictionaries created in this session.\n"},
    {nullptr, nullptr, 0, nullptr, nullptr},
};

const CommandOptionTable kEngineOptionTables[] = {
    {"einfo", kEngineQueryOptions},
    {"profile", kProfileOptions},
    {nullptr, nullptr},
};

}  // namespace lexctl
