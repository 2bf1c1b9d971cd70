// Document translation: tran, tmulti and xml.
#pragma once

#include "shell/command.h"
#include "shell/option_scanner.h"

namespace lexctl {

extern const CommandRecord kDocumentCommandRows[];  ///< tran, tmulti, xml
extern const CommandOptionTable kDocumentOptionTables[];  ///< their option tables

}  // namespace lexctl
