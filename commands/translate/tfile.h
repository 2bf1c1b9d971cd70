// Text files translated line by line: tfile.
#pragma once

#include "shell/command.h"

namespace lexctl {

extern const CommandRecord kTfileCommandRows[];  ///< tfile

}  // namespace lexctl
