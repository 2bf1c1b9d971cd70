#include "commands/translate/tfile.h"

namespace lexctl {

const CommandRecord kTfileCommandRows[] = {
    {nullptr, nullptr, 0, nullptr, nullptr},
};

}  // namespace lexctl
