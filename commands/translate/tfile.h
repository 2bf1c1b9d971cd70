// Text files translated line by line: tfile.
#pragma once

#include "shell/command.h"
#include "shell/option_scanner.h"

namespace lexctl {

extern const CommandRecord kTfileCommandRows[];  ///< tfile
extern const CommandOptionTable kTfileOptionTables[];  ///< their option tables

}  // namespace lexctl
