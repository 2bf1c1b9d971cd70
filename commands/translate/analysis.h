// Text analysis: parse, split, dlang and recode.
#pragma once

#include "shell/command.h"

namespace lexctl {

extern const CommandRecord kAnalysisCommandRows[];  ///< parse, split, dlang, recode

}  // namespace lexctl
