#include "commands/admin/engines.h"

namespace lexctl {

const CommandRecord kEngineInfoRows[] = {
    {nullptr, nullptr, 0, nullptr, nullptr},
};

const CommandRecord kProfileRows[] = {
    {nullptr, nullptr, 0, nullptr, nullptr},
};

}  // namespace lexctl
