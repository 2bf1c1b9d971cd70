// The engines as the server lists them, for the commands that look them up
// on the way to something else.
#pragma once

#include <string>

class nv__EngineArray;

namespace lexctl {

class ExecThread;

/// GetEngineInfo with these select keys (each with a leading blank), not
/// echoed, display names in the user's language. The engines live until the
/// command's call data are released; null when the reply lists none.
const nv__EngineArray* ListEngines(ExecThread& thread, const std::string& keys);

}  // namespace lexctl
