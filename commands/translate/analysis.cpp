#include "commands/translate/analysis.h"

namespace lexctl {

const CommandRecord kAnalysisCommandRows[] = {
    {nullptr, nullptr, 0, nullptr, nullptr},
};

}  // namespace lexctl
