#include "commands/admin/udump.h"

namespace lexctl {

const CommandRecord kUdumpRows[] = {
    {nullptr, nullptr, 0, nullptr, nullptr},
};

}  // namespace lexctl
