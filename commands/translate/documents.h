// Document translation: tran, tmulti and xml.
#pragma once

#include "shell/command.h"

namespace lexctl {

extern const CommandRecord kDocumentCommandRows[];  ///< tran, tmulti, xml

}  // namespace lexctl
