// Connectivity, session and password commands of the client core.
#pragma once

#include "shell/command.h"
#include "shell/option_scanner.h"

namespace lexctl {

void CmdVersions(ExecThread& thread, ArgVector& args);
void CmdTest(ExecThread& thread, ArgVector& args);
void CmdCreates(ExecThread& thread, ArgVector& args);
void CmdEnds(ExecThread& thread, ArgVector& args);
void CmdPwhash(ExecThread& thread, ArgVector& args);
void CmdPasswd(ExecThread& thread, ArgVector& args);

/// Rows of versions and test (group INFORMATIONAL; null-terminated).
extern const CommandRecord kInformationalRows[];
/// Rows of creates and ends (group SESSION CONTROL).
extern const CommandRecord kSessionControlRows[];
/// Rows of the password commands, which belong to the group USERS.
extern const CommandRecord kPasswordCommandRows[];
/// The option tables of all these commands.
extern const CommandOptionTable kSessionOptionTables[];

}  // namespace lexctl
