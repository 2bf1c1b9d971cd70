// Dictionary entries: dadd, daddtm, dget and ddel.
#pragma once

#include "shell/command.h"

namespace lexctl {

extern const CommandRecord kEntryRows[];  ///< dadd, daddtm, dget, ddel (group DICTIONARY ENTRIES)

}  // namespace lexctl
