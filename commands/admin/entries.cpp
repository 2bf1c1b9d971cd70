#include "commands/admin/entries.h"

namespace lexctl {

const CommandRecord kEntryRows[] = {
    {nullptr, nullptr, 0, nullptr, nullptr},
};

}  // namespace lexctl
