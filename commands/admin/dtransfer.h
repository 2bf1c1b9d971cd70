// Moving users' dictionaries between engines: dtransfer.
#pragma once

#include "shell/command.h"

namespace lexctl {

extern const CommandRecord kTransferRows[];  ///< dtransfer (group DICTIONARIES)

}  // namespace lexctl
