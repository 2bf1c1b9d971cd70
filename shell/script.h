// The command loop of a thread, line processing and the script commands.
#pragma once

#include <string>

#include "shell/exec_thread.h"

namespace lexctl {

/// Runs a thread's command loop until its input ends, exit runs, or its
/// stop flag is set.
void RunCommandLoop(ExecThread& thread);

/// Processes one line (substitution, comments, prefixes, echo, dispatch).
/// Returns false when the exit command ran.
bool ProcessLine(ExecThread& thread, std::string& line, bool from_console,
                 const std::string& prompt);

/// Makes a thread's prompt through the client hook ("> " by default).
void MakePrompt(ExecThread& thread, std::string& prompt);

/// With errexit on, the first failed command on the main thread ends the
/// run (the other threads are told to stop).
void SetErrexit(bool on);

/// Opens path and makes it the thread's current input, saving the previous
/// one. Returns false (after reporting on standard error) when it cannot;
/// the failure is reporter's command's, when given, else thread's.
bool PushInputFile(ExecThread& thread, const char* path, ExecThread* reporter = nullptr);

/// Reads a settings file (setopt -load, lexctl3.cfg at start-up) as a nested
/// script, like read. A saved file begins with "@setopt console none"; when
/// the file ends, the thread's console mode returns to what it was when the
/// file began, so a saved file never leaves the console mute.
bool ReadSettingsFile(ExecThread& thread, const char* path);

}  // namespace lexctl
