#include "commands/translate/html.h"

namespace lexctl {

const CommandRecord kHtmlCommandRows[] = {
    {nullptr, nullptr, 0, nullptr, nullptr},
};

}  // namespace lexctl
