#include "commands/admin/engine_printer.h"

#include "commands/admin/flag_tables.h"
#include "shell/output.h"
#include "soapH.h"

namespace lexctl {
namespace {

const char* Text(const std::string* s) { return s ? s->c_str() : ""; }
bool Given(const std::string* s) { return s && !s->empty(); }

const char* DicTypeName(const xsd__long* type) {
  if (!type) return "";
  const char* name = FlagName(*type, FlagTable::kDicType);
  return name ? name : "UNKNOWN";
}

void PrintDictionaryRows(ExecThread& thread, const nv__Engine& engine, int mode) {
  if (!engine.dictionaryInfo || !engine.dictionaryInfo->list) return;
  for (const nv__Dictionary& dic : engine.dictionaryInfo->list->item) {
    bool user = dic.did >= 10000;
    bool system = dic.type && *dic.type == FlagValue("SYSTEM", FlagTable::kDicType);
    if (mode == kEngineUserDics ? !user : (user || system)) continue;
    ThreadPrint(thread, "%-12s %-6ld %-12s %-19s %-13s %s\n", Text(engine.eid), static_cast<long>(dic.did),
                DicTypeName(dic.type), Text(dic.ownerid), Text(dic.subject), Text(dic.display));
  }
}

void PrintEngineDetails(ExecThread& thread, const nv__Engine& engine) {
  if (Given(engine.eidLeft)) {
    ThreadPrint(thread, "Bridge Left:  %s (%s -> %s)\n", engine.eidLeft->c_str(), Text(engine.from),
                Text(engine.inter));
  }
  if (Given(engine.eidRight)) {
    ThreadPrint(thread, "Bridge Right: %s (%s -> %s)\n", engine.eidRight->c_str(), Text(engine.inter),
                Text(engine.to));
  }
  if (Given(engine.reverse)) ThreadPrint(thread, "Reverse:      %s\n", engine.reverse->c_str());
  if (engine.validity) PrintValidity(thread, engine.validity);
  if (engine.type) PrintTypeMask(thread, static_cast<uint32_t>(*engine.type));
  if (engine.support) PrintSupportMask(thread, static_cast<uint32_t>(*engine.support));
  if (engine.dictionaryInfo) {
    bool memory = engine.type && (*engine.type & FlagValue("MEMORY", FlagTable::kType));
    PrintDictionaryInfo(thread, engine.dictionaryInfo, memory);
  }
  PrintProfiles(thread, engine.profiles);
}

}  // namespace

void PrintEngines(ExecThread& thread, const nv__EngineArray* engines, int mode) {
  ThreadPrint(thread, "\n");
  if (!engines) return;
  if (mode == kEngineUserDics || mode == kEngineTechDics) {
    ThreadPrint(thread,
                "EID          DID    TYPE         OWNER               SUBJECT       DISPLAY-NAME\n");
    for (const nv__Engine& engine : engines->item) PrintDictionaryRows(thread, engine, mode);
    return;
  }
  bool first = true;
  for (const nv__Engine& engine : engines->item) {
    if (mode == kEngineFull && !first) ThreadPrint(thread, "\n");
    first = false;
    if (Given(engine.inter)) {
      ThreadPrint(thread, "%s (%s -> %s -> %s), '%s'\n", Text(engine.eid), Text(engine.from),
                  engine.inter->c_str(), Text(engine.to), Text(engine.display));
    } else {
      ThreadPrint(thread, "%s (%s -> %s), '%s'\n", Text(engine.eid), Text(engine.from), Text(engine.to),
                  Text(engine.display));
    }
    if (mode == kEngineFull) PrintEngineDetails(thread, engine);
  }
  if (mode == kEngineList) ThreadPrint(thread, "%d engines\n", static_cast<int>(engines->item.size()));
}

void PrintValidity(ExecThread& thread, const nv__Validity* validity, const std::string& prefix) {
  const std::string* from = validity ? validity->from : nullptr;
  const std::string* to = validity ? validity->to : nullptr;
  std::string range = std::string("From: ") + (Given(from) ? from->c_str() : "UNLIMITED") +
                      ", To: " + (Given(to) ? to->c_str() : "UNLIMITED");
  ThreadPrint(thread, "%s%-*.*s%s\n", prefix.c_str(), 14, 14, "Validity:", range.c_str());
}

void PrintDictionaryInfo(ExecThread& thread, const nv__DictionaryInfo* info, bool memory) {
  if (!info) return;
  ThreadPrint(thread, "Dictionaries:\n");
  if (const nv__DictionaryLimits* limits = info->limits) {
    auto count = [](const xsd__long* n) { return static_cast<long>(n ? *n : 0); };
    ThreadPrint(thread, " - Limits: Tech = %ld, User = %ld, Total = %ld\n", count(limits->tech),
                count(limits->user), count(limits->total));
  }
  if (info->formats && !info->formats->item.empty()) {
    ThreadPrint(thread, " - Formats:\n");
    for (const nv__Format& format : info->formats->item) {
      std::string apis;
      if (format.api) {
        for (const std::string& name : FlagNames(*format.api, FlagTable::kApi)) {
          apis += apis.empty() ? name : " " + name;
        }
      }
      ThreadPrint(thread, "    %-20.20s = %s\n", apis.c_str(), Text(format.format));
    }
  }
  ThreadPrint(thread, " - Available:\n");
  ThreadPrint(thread, "   DID     TM TYPE         OWNER               SUBJECT       DISPLAY-NAME\n");
  if (!info->list) return;
  for (const nv__Dictionary& dic : info->list->item) {
    ThreadPrint(thread, "   %-7ld %-2s %-12s %-19s %-13s %s\n", static_cast<long>(dic.did), memory ? "TM" : "",
                DicTypeName(dic.type), Text(dic.ownerid), Text(dic.subject), Text(dic.display));
  }
}

void PrintProfiles(ExecThread& thread, const nv__ProfileArray* profiles) {
  if (!profiles) return;
  for (const nv__Profile& profile : profiles->item) {
    ThreadPrint(thread, "Profile: %s (%s)\n", Text(profile.display), Text(profile.profile));
    if (!profile.properties || profile.properties->item.empty()) continue;
    ThreadPrint(thread, "    %-55s  RO %s\n", "KEY", "DEFAULT VALUE");
    for (const nv__Property& property : profile.properties->item) {
      ThreadPrint(thread, "    %-55s  %s  %s\n", Text(property.key),
                  property.readonly && *property.readonly ? "T" : " ", Text(property.val));
    }
  }
}

void PrintPropertyDefs(ExecThread& thread, const nv__PropertyList* defs) {
  if (!defs || defs->item.empty()) return;
  ThreadPrint(thread, "\nProperty Details:\n");
  for (const nv__PropertyDef& def : defs->item) {
    // An unknown type character is shown as it came.
    const char* type = Text(def.type);
    const char* name = def.type && def.type->size() == 1
                           ? FlagName(static_cast<unsigned char>((*def.type)[0]), FlagTable::kPropType)
                           : nullptr;
    ThreadPrint(thread, "\n   '%s', Type: %s\n", Text(def.key), name ? name : type);
    ThreadPrint(thread, "   %s\n", Text(def.display));
    if (!def.values) continue;
    for (const nv__PropertyValue& value : def.values->item) {
      ThreadPrint(thread, "     Value: '%s', Display: '%s'\n", Text(value.value), Text(value.display));
    }
  }
}

}  // namespace lexctl
