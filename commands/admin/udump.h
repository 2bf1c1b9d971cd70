// User dump into re-creating scripts: udump.
#pragma once

#include "shell/command.h"

namespace lexctl {

extern const CommandRecord kUdumpRows[];  ///< udump (group USERS)

}  // namespace lexctl
