// Handlers of the interpreter's own commands and options.
#pragma once

#include "shell/command.h"

namespace lexctl {

// Scripts, procedures and loops (script.cpp).
void CmdRead(ExecThread& thread, ArgVector& args);
void CmdProc(ExecThread& thread, ArgVector& args);
void CmdLoop(ExecThread& thread, ArgVector& args);
void CmdExit(ExecThread& thread, ArgVector& args);

// Small commands (builtins.cpp).
void CmdSleep(ExecThread& thread, ArgVector& args);
void CmdRusage(ExecThread& thread, ArgVector& args);
void CmdPwd(ExecThread& thread, ArgVector& args);
void CmdCd(ExecThread& thread, ArgVector& args);
/// args: the command part (text after "!", or empty) and the raw argument text.
void CmdShell(ExecThread& thread, ArgVector& args);

void CmdTimer(ExecThread& thread, ArgVector& args);      // timer.cpp
void CmdThreads(ExecThread& thread, ArgVector& args);    // threads.cpp

// setopt and the interpreter's options (setopt.cpp).
void CmdSetopt(ExecThread& thread, ArgVector& args);
void OptConsole(ExecThread& thread, ArgVector& args);
void OptThreads(ExecThread& thread, ArgVector& args);
void OptUtf8(ExecThread& thread, ArgVector& args);
void OptTimestamp(ExecThread& thread, ArgVector& args);
void OptThreadname(ExecThread& thread, ArgVector& args);

}  // namespace lexctl
