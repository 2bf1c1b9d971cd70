#include "commands/translate/documents.h"

namespace lexctl {

const CommandRecord kDocumentCommandRows[] = {
    {nullptr, nullptr, 0, nullptr, nullptr},
};

}  // namespace lexctl
