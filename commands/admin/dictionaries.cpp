#include "commands/admin/dictionaries.h"

namespace lexctl {

const CommandRecord kDictionaryRows[] = {
    {nullptr, nullptr, 0, nullptr, nullptr},
};

const CommandRecord kLastdidRows[] = {
    {nullptr, nullptr, 0, nullptr, nullptr},
};

}  // namespace lexctl
