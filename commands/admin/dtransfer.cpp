#include "commands/admin/dtransfer.h"

namespace lexctl {

const CommandRecord kTransferRows[] = {
    {nullptr, nullptr, 0, nullptr, nullptr},
};

}  // namespace lexctl
