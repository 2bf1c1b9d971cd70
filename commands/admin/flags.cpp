#include "commands/admin/flags.h"

namespace lexctl {

const CommandRecord kFlagCommandRows[] = {
    {nullptr, nullptr, 0, nullptr, nullptr},
};

}  // namespace lexctl
