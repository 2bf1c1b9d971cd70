// Dictionaries: dcreate, dupdate, dcopy, dremove, dchown and lastdid.
#pragma once

#include "shell/command.h"
#include "shell/option_scanner.h"

namespace lexctl {

extern const CommandRecord kDictionaryRows[];  ///< dcreate .. dchown (group DICTIONARIES)
extern const CommandRecord kLastdidRows[];  ///< lastdid (group UTILITY)
extern const CommandOptionTable kDictionaryOptionTables[];  ///< their option tables

}  // namespace lexctl
