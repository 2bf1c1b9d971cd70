#include "commands/translate/text.h"

namespace lexctl {

const CommandRecord kTextCommandRows[] = {
    {nullptr, nullptr, 0, nullptr, nullptr},
};

}  // namespace lexctl
