// Flag tables and their calculator: flags and features.
#pragma once

#include "shell/command.h"

namespace lexctl {

void CmdFlags(ExecThread& thread, ArgVector& args);
void CmdFeatures(ExecThread& thread, ArgVector& args);

extern const CommandRecord kFlagCommandRows[];  ///< flags, features (group UTILITY)

}  // namespace lexctl
