#include "commands/admin/dict_printers.h"

#include <cstring>

#include "commands/admin/flag_tables.h"
#include "shell/output.h"
#include "soapH.h"

namespace lexctl {
namespace {

const char* Text(const std::string* text) { return text ? text->c_str() : ""; }

// The label of the first display line; the others are indented to match.
constexpr char kDisplayLabel[] = "Display Text:";
constexpr char kDisplayIndent[] = "             ";

}  // namespace

std::string DictionaryTypeName(int64_t type) {
  const char* name = FlagName(type, FlagTable::kDicType);
  return name ? name : "UNKNOWN";
}

bool ReadDisplayText(ExecThread& thread, const char* text,
                     std::pair<std::string, std::string>& display) {
  const char* equals = strchr(text, '=');
  if (!equals) {
    Fail(thread, "Invalid display text: %s.\n", text);
    return false;
  }
  display = {std::string(text, equals), std::string(equals + 1)};
  return true;
}

void PrintDisplayTexts(ExecThread& thread,
                       const std::vector<std::pair<std::string, std::string>>& texts) {
  const char* label = kDisplayLabel;
  for (const auto& [lang, text] : texts) {
    ThreadPrint(thread, "%s  %s = %s\n", label, lang.c_str(), text.c_str());
    label = kDisplayIndent;
  }
}

void PrintDisplayTexts(ExecThread& thread, const nv__DisplayTextArray* texts) {
  if (!texts) return;
  const char* label = kDisplayLabel;
  for (const nv__DisplayText& item : texts->item) {
    ThreadPrint(thread, "%s  %s = %s\n", label, Text(item.lang), Text(item.text));
    label = kDisplayIndent;
  }
}

void PrintMemoryDetails(ExecThread& thread, const nv__DicDetailsMemory* details) {
  if (!details) return;
  ThreadPrint(thread, "DicDetails (Memory):\n");
  if (details->comment && !details->comment->empty())
    ThreadPrint(thread, " - comment:   %s\n", details->comment->c_str());
  if (details->vender && !details->vender->empty())
    ThreadPrint(thread, " - vender:    %s\n", details->vender->c_str());
  if (details->userdata) ThreadPrint(thread, " - userdata:  %d bytes\n", details->userdata->__size);
}

void PrintDictionaryDetail(ExecThread& thread, const nv__DictionaryDetail* detail) {
  if (!detail) return;
  ThreadPrint(thread, "Dic DID:      %lld\n", static_cast<long long>(detail->did));
  if (detail->eid) ThreadPrint(thread, "Dic EID:      %s\n", detail->eid->c_str());
  if (detail->type) ThreadPrint(thread, "Dic Type:     %s\n", DictionaryTypeName(*detail->type).c_str());
  if (detail->ownerid) ThreadPrint(thread, "Dic Owner:    %s\n", detail->ownerid->c_str());
  if (detail->subject) ThreadPrint(thread, "Subject:      %s\n", detail->subject->c_str());
  if (detail->languages) ThreadPrint(thread, "Languages:    %s\n", detail->languages->c_str());
  PrintDisplayTexts(thread, detail->alldisplay);
  if (detail->headcount && *detail->headcount >= 0)
    ThreadPrint(thread, "Head Count:   %lld\n", static_cast<long long>(*detail->headcount));
  if (detail->totalcount && *detail->totalcount >= 0)
    ThreadPrint(thread, "Total Count:  %lld\n", static_cast<long long>(*detail->totalcount));
  PrintMemoryDetails(thread, detail->details);
  if (detail->share) {
    for (const std::string& user : detail->share->item) ThreadPrint(thread, "Share:        %s\n", user.c_str());
  }
}

void PrintSourceErrors(ExecThread& thread, const nv__SourceErrorArray* errors) {
  if (!errors) return;
  auto number = [](const xsd__long* value) { return value ? static_cast<long>(*value) : 0L; };
  for (const nv__SourceError& error : errors->item) {
    ThreadPrint(thread, "  Error:   %s (%ld), SrcLine: %ld, ErrLine: %ld\n",
                error.errcat && !error.errcat->empty() ? error.errcat->c_str() : "UNKNOWN",
                number(error.errcode), number(error.srcline), number(error.errline));
    if (error.errmsg) ThreadPrint(thread, "    Message: %s\n", error.errmsg->c_str());
    if (error.source) ThreadPrint(thread, "    Source:  %s\n", error.source->c_str());
    if (error.keyword) ThreadPrint(thread, "    Keyword: %s\n", error.keyword->c_str());
  }
}

}  // namespace lexctl
