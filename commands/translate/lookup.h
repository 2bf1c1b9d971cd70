// Dictionary lookup: lookup and lookupentry.
#pragma once

#include "shell/command.h"

namespace lexctl {

extern const CommandRecord kLookupCommandRows[];  ///< lookup, lookupentry

}  // namespace lexctl
