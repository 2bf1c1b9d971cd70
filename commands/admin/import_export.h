// Dictionary import and export: dimport and dexport.
#pragma once

#include "shell/command.h"

namespace lexctl {

extern const CommandRecord kImportExportRows[];  ///< dimport, dexport (group DICTIONARIES)

}  // namespace lexctl
