#include "commands/admin/einfo_options.h"

#include <strings.h>

#include "commands/admin/flag_tables.h"
#include "shell/output.h"
#include "soapH.h"

namespace lexctl {
namespace {

enum EngineQueryOption {
  kQueryUilang = kOptOwn,
  kQueryAll,
  kQueryList,
  kQueryUserDics,
  kQueryTechDics,
  kQueryEid,
  kQueryFrom,
  kQueryTo,
  kQueryType,
  kQuerySupport,
};

// Dictionary listings leave bridges out: DIRECT, MEMORY and HIDDEN engines.
constexpr int kDictionaryEngines = 0x13;

bool ScanFlags(ExecThread& thread, const char* text, FlagTable table, std::optional<int>& member) {
  int64_t value = 0;
  if (!ParseFlagArgument(text ? text : "", table, value)) {
    Fail(thread, "The flags '%s' are not valid\n", text ? text : "");
    return false;
  }
  member = member.value_or(0) | static_cast<int>(value);
  return true;
}

// -uilang is sent as displayLang, not as a select key.
constexpr auto kEngineQueryTable = CommandOptions<(kCommonOptions & ~kTakeUilang) | kTakeTimezone>(
    kDetailKeyOptions, {{kQueryUilang, "-uilang", kOptRequired},
                        SelectKey("-sessions"),
                        {kQueryAll, "-all", kOptNoArgument},
                        {kQueryList, "-list", kOptNoArgument},
                        SelectKey("-userdic"),
                        SelectKey("-techdic"),
                        SelectKey("-ownerdic"),
                        {kQueryUserDics, "-suserdic", kOptNoArgument},
                        {kQueryTechDics, "-stechdic", kOptNoArgument},
                        {kQueryEid, "-eid", kOptRequired},
                        {kQueryFrom, "-from", kOptRequired},
                        {kQueryTo, "-to", kOptRequired},
                        {kQueryType, "-type", kOptRequired},
                        {kQuerySupport, "-support", kOptRequired}});

}  // namespace

const OptionDef* const kEngineQueryOptions = kEngineQueryTable;

std::string EngineQueryKeys(ExecThread& thread) {
  return Local(thread).neweid ? " features neweid" : " features";
}

nv__EngineFilter* EngineQuery::Filter(struct soap* soap) const {
  if (!Filtered()) return nullptr;
  auto text = [soap](const std::optional<std::string>& value) -> std::string* {
    if (!value) return nullptr;
    std::string* copy = soap_new_std__string(soap);
    *copy = *value;
    return copy;
  };
  auto number = [soap](const std::optional<int>& value) -> int* {
    if (!value) return nullptr;
    int* copy = soap_new_xsd__int(soap);
    *copy = *value;
    return copy;
  };
  return soap_new_set_nv__EngineFilter(soap, text(eid), text(from), text(to), number(type),
                                       number(support));
}

bool ScanEngineQuery(RequestFrame& frame, const ArgVector& args, EngineQuery& query) {
  ExecThread& thread = frame.thread();
  query.display_lang = frame.data().uilang;
  return frame.Scan(kEngineQueryOptions, args, [&](const OptionScanner& option) {
    const char* arg = option.argument() ? option.argument() : "";
    switch (option.id()) {
      case kQueryUilang: query.display_lang = arg; break;
      case kQueryAll: frame.AddSelectKey("engines dic engineprop profiles propdef limits userprop"); break;
      case kQueryList: query.mode = kEngineList; break;
      case kQueryUserDics:
      case kQueryTechDics:
        query.mode = option.id() == kQueryUserDics ? kEngineUserDics : kEngineTechDics;
        if (!frame.HasSelectKey("dic")) frame.AddSelectKey("dic");
        query.type = kDictionaryEngines;
        break;
      case kQueryEid:
        if (strcasecmp(arg, "ALL") == 0) {
          query.eid.reset();
        } else if (strcasecmp(arg, "CURRENT") == 0) {
          query.eid = frame.data().engine.eid;
        } else {
          query.eid = arg;
        }
        break;
      case kQueryFrom: query.from = arg; break;
      case kQueryTo: query.to = arg; break;
      case kQueryType: return ScanFlags(thread, arg, FlagTable::kType, query.type);
      case kQuerySupport: return ScanFlags(thread, arg, FlagTable::kSupport, query.support);
    }
    return true;
  });
}

void PrintEngineFilter(ExecThread& thread, const EngineQuery& query) {
  if (!query.Filtered()) return;
  ThreadPrint(thread, "Filter:\n");
  if (query.eid) ThreadPrint(thread, "  EID:        %s\n", query.eid->c_str());
  if (query.from) ThreadPrint(thread, "  From:       %s\n", query.from->c_str());
  if (query.to) ThreadPrint(thread, "  To:         %s\n", query.to->c_str());
  if (query.type) ThreadPrint(thread, "  Type:       0x%x\n", static_cast<unsigned>(*query.type));
  if (query.support) ThreadPrint(thread, "  Support:    0x%x\n", static_cast<unsigned>(*query.support));
}

}  // namespace lexctl
