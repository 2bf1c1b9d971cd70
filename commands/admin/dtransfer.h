// Moving users' dictionaries between engines: dtransfer.
#pragma once

#include "shell/command.h"
#include "shell/option_scanner.h"

namespace lexctl {

extern const CommandRecord kTransferRows[];  ///< dtransfer (group DICTIONARIES)
extern const CommandOptionTable kTransferOptionTables[];  ///< their option tables

}  // namespace lexctl
