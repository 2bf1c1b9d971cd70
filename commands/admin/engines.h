// Engine information and property profiles: einfo and profile.
#pragma once

#include "shell/command.h"

namespace lexctl {

void CmdEinfo(ExecThread& thread, ArgVector& args);
void CmdProfile(ExecThread& thread, ArgVector& args);

extern const CommandRecord kEngineInfoRows[];  ///< einfo (group INFORMATIONAL)
extern const CommandRecord kProfileRows[];  ///< profile (group UTILITY)

}  // namespace lexctl
