// Reading command lines from the console.
#pragma once

#include <string>

namespace lexctl {

/// Reads one line with the prompt; a trailing backslash continues it on
/// the next line (prompt "_ "). Uses readline with history and completion
/// when standard input is a terminal. False at end of input.
bool ReadConsoleLine(const std::string& prompt, std::string& line);

/// Writes the history file; called when the interpreter ends.
void CloseConsole();

}  // namespace lexctl
