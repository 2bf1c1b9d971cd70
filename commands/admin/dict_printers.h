// Printers of dictionaries, their translation-memory details, display texts
// and source errors: one printer each, shared by the dictionary, import,
// entry and user commands.
#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

class nv__DicDetailsMemory;
class nv__DictionaryDetail;
class nv__DisplayTextArray;
class nv__SourceErrorArray;

namespace lexctl {

class ExecThread;

/// The name of a dictionary type, or "UNKNOWN".
std::string DictionaryTypeName(int64_t type);

/// LANG=TEXT split at the first "=". Prints "Invalid display text: %s.\n"
/// and returns false when there is no "=" or no language before it.
bool ReadDisplayText(ExecThread& thread, const char* text,
                     std::pair<std::string, std::string>& display);

/// "Display Text:" beside the first "LANG = TEXT" line, blanks beside the
/// others; nothing when there are none.
void PrintDisplayTexts(ExecThread& thread,
                       const std::vector<std::pair<std::string, std::string>>& texts);
void PrintDisplayTexts(ExecThread& thread, const nv__DisplayTextArray* texts);

/// "DicDetails (Memory):" and the comment, vender and user-data size present.
void PrintMemoryDetails(ExecThread& thread, const nv__DicDetailsMemory* details);

/// A dictionary as the server describes it: DID, EID, type, owner, the
/// optional subject, languages, display texts, counts, memory details and
/// share list. Members the reply leaves out are not printed.
void PrintDictionaryDetail(ExecThread& thread, const nv__DictionaryDetail* detail);

/// One "  Error: ..." block per source error, with its message, source line
/// and keyword when present.
void PrintSourceErrors(ExecThread& thread, const nv__SourceErrorArray* errors);

}  // namespace lexctl
