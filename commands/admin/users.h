// User accounts: ucreate, uupdate, uget, ulist and udelete.
#pragma once

#include "shell/command.h"
#include "shell/option_scanner.h"

namespace lexctl {

extern const CommandRecord kUserRows[];  ///< ucreate .. udelete (group USERS)
extern const CommandOptionTable kUserOptionTables[];  ///< their option tables

}  // namespace lexctl
