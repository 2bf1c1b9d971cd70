// Engine information and property profiles: einfo and profile.
#pragma once

#include "shell/command.h"

namespace lexctl {

extern const CommandRecord kEngineInfoRows[];  ///< einfo (group INFORMATIONAL)
extern const CommandRecord kProfileRows[];  ///< profile (group UTILITY)

}  // namespace lexctl
