// Text translation: text, utext and stext.
#pragma once

#include "shell/command.h"

namespace lexctl {

extern const CommandRecord kTextCommandRows[];  ///< text, utext, stext

}  // namespace lexctl
