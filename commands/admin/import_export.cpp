#include "commands/admin/import_export.h"

namespace lexctl {

const CommandRecord kImportExportRows[] = {
    {nullptr, nullptr, 0, nullptr, nullptr},
};

}  // namespace lexctl
