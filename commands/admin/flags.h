// Flag tables and their calculator: flags and features.
#pragma once

#include "shell/command.h"

namespace lexctl {

extern const CommandRecord kFlagCommandRows[];  ///< flags, features (group UTILITY)

}  // namespace lexctl
