// Engine information and property profiles: einfo and profile.
#pragma once

#include "shell/command.h"
#include "shell/option_scanner.h"

namespace lexctl {

void CmdEinfo(ExecThread& thread, ArgVector& args);
void CmdProfile(ExecThread& thread, ArgVector& args);

extern const CommandRecord kEngineInfoRows[];  ///< einfo (group INFORMATIONAL)
extern const CommandRecord kProfileRows[];  ///< profile (group UTILITY)
extern const CommandOptionTable kEngineOptionTables[];  ///< their option tables

}  // namespace lexctl
