#include "commands/translate/lookup.h"

namespace lexctl {

const CommandRecord kLookupCommandRows[] = {
    {nullptr, nullptr, 0, nullptr, nullptr},
};

}  // namespace lexctl
