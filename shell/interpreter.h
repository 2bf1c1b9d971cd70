// The interpreter's entry: its own command rows and RunInterpreter.
#pragma once

#include "shell/command.h"

namespace lexctl {

/// The interpreter's own rows: groups and commands, then its options;
/// ends with a null name.
const CommandRecord* InterpreterCommands();

/// Runs the interpreter on a script (UTF-8 path) or, when script is null,
/// on the console. False only when an interpreter already runs.
bool RunInterpreter(const char* script, bool threads_enabled);

}  // namespace lexctl
