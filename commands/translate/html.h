// HTML translation and page download: html.
#pragma once

#include "shell/command.h"

namespace lexctl {

extern const CommandRecord kHtmlCommandRows[];  ///< html

}  // namespace lexctl
