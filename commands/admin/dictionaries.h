// Dictionaries: dcreate, dupdate, dcopy, dremove, dchown and lastdid.
#pragma once

#include "shell/command.h"

namespace lexctl {

extern const CommandRecord kDictionaryRows[];  ///< dcreate .. dchown (group DICTIONARIES)
extern const CommandRecord kLastdidRows[];  ///< lastdid (group UTILITY)

}  // namespace lexctl
