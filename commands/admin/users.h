// User accounts: ucreate, uupdate, uget, ulist and udelete.
#pragma once

#include "shell/command.h"

namespace lexctl {

extern const CommandRecord kUserRows[];  ///< ucreate .. udelete (group USERS)

}  // namespace lexctl
