// The merged command table, dispatch and help.
#pragma once

#include <string>
#include <vector>

#include "shell/exec_thread.h"

namespace lexctl {

/// Merges the interpreter's rows with the client's (interpreter first) and
/// reports client rows shadowed by an interpreter row on standard error.
void BuildCommandTable();
void FreeCommandTable();
/// The merged table; ends with an all-null row.
const CommandRecord* CommandTableRows();
/// True when the row came from the client's table.
bool IsClientRow(const CommandRecord* row);

/// First row whose name equals word without regard to case, or null.
const CommandRecord* FindCommand(const char* word);
/// First option row "_setopt_" + option, or null.
const CommandRecord* FindOption(const char* option);

/// escape_mode: 0 the row decides, 1 force conversion on, 2 force it off.
/// Returns false exactly when the exit handler ran.
bool DispatchCommand(ExecThread& thread, char* word, char* argument_text, int escape_mode);

/// Runs a command by name with ready-made arguments, as if it were typed.
void ExecuteCommand(ExecThread& thread, const char* word, ArgVector& args);

/// True (after printing help when print is set) when args hold -? or /?.
bool CheckHelpRequest(ExecThread& thread, CommandHandler handler, const ArgVector& args,
                      bool print);
/// Detailed help of one handler, or the summary listing when null.
void ShowCommandHelp(ExecThread& thread, CommandHandler handler);
/// Cuts a usage text into lines of at most 79 columns at whitespace.
std::vector<std::string> FormatUsage(const char* usage);

void CmdHelp(ExecThread& thread, ArgVector& args);

}  // namespace lexctl
