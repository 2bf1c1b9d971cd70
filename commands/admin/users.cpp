#include "commands/admin/users.h"

namespace lexctl {

const CommandRecord kUserRows[] = {
    {nullptr, nullptr, 0, nullptr, nullptr},
};

}  // namespace lexctl
