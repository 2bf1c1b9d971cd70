// Printers of engines and what hangs off them: validity, dictionary
// information, profiles and property definitions. Shared by einfo and uget.
// Every printer takes what the server sent and prints what is there.
#pragma once

#include <string>

#include "shell/exec_thread.h"

class nv__DictionaryInfo;
class nv__EngineArray;
class nv__ProfileArray;
class nv__PropertyList;
class nv__Validity;

namespace lexctl {

/// How engines are shown.
enum EngineDisplayMode : int {
  kEngineFull = 0,       ///< every detail, an empty line between engines
  kEngineList = 1,       ///< one line per engine and the count
  kEngineUserDics = 2,   ///< the user dictionaries (DID 10000 and above)
  kEngineTechDics = 3,   ///< the technical dictionaries (below 10000, not SYSTEM)
};

/// The engines in one of the display modes.
void PrintEngines(ExecThread& thread, const nv__EngineArray* engines, int mode);

/// "Validity:     From: ..., To: ..." with UNLIMITED for a missing bound.
void PrintValidity(ExecThread& thread, const nv__Validity* validity, const std::string& prefix = "");

/// "Dictionaries:" with the limits, the formats and the available
/// dictionaries; memory marks the dictionaries "TM".
void PrintDictionaryInfo(ExecThread& thread, const nv__DictionaryInfo* info, bool memory);

/// "Profile: DISPLAY (NAME)" and the properties of each profile.
void PrintProfiles(ExecThread& thread, const nv__ProfileArray* profiles);

/// "Property Details:" and every definition with its allowed values;
/// nothing for an empty list.
void PrintPropertyDefs(ExecThread& thread, const nv__PropertyList* defs);

}  // namespace lexctl
