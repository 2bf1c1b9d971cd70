// The process-wide variable store and {{...}} substitution.
#pragma once

#include <map>
#include <string>

#include "shell/exec_thread.h"

namespace lexctl {

/// Replaces {{...}} references in text, innermost (last) first. Returns
/// true when anything was replaced.
bool SubstituteVariables(ExecThread& thread, std::string& text);

void SetVariable(const std::string& name, const std::string& value);
/// A copy of the store, in name order.
std::map<std::string, std::string> SnapshotVariables();

/// Prints one name and value as a command that recreates it:
/// "setvar name value", quoting the value when it holds a blank.
void PrintSetting(ExecThread& thread, const char* command, const char* name,
                  const std::string& value);

/// Undoes the \\xHH escapes of the options file's escaped form.
std::string DecodeEscaped(const char* text);

void CmdSetvar(ExecThread& thread, ArgVector& args);
void CmdEcho(ExecThread& thread, ArgVector& args);

}  // namespace lexctl
