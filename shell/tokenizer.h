// Splitting a command's argument text into arguments.
#pragma once

#include "shell/command.h"

namespace lexctl {

/// Cuts text into arguments in place: blanks and tabs separate them outside
/// double quotes; backslashes escape quotes the way C runtimes parse command
/// lines. With convert_escapes, \n \r \t become control characters.
void TokenizeArguments(char* text, bool convert_escapes, ArgVector& args);

/// Rewrites \n, \r and \t in place; other backslash pairs are kept.
void ConvertEscapes(char* token);

}  // namespace lexctl
