// Text translation: text, utext and stext.
#pragma once

#include "shell/command.h"
#include "shell/option_scanner.h"

namespace lexctl {

extern const CommandRecord kTextCommandRows[];  ///< text, utext, stext
extern const CommandOptionTable kTextOptionTables[];  ///< their option tables

}  // namespace lexctl
