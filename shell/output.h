// Output routing: every command's output goes through ThreadPrint.
#pragma once

#include <cstdarg>
#include <string_view>

#include "shell/exec_thread.h"

namespace lexctl {

/// printf-style output of a thread: thread-name prefix, variable
/// substitution, console mode and tee file all apply.
void ThreadPrint(ExecThread& thread, const char* format, ...)
    __attribute__((format(printf, 2, 3)));
void ThreadPrintV(ExecThread& thread, const char* format, va_list args);

/// Reports that the thread's current command failed: prints exactly as
/// ThreadPrint does and marks the command failed (see --errexit).
void Fail(ExecThread& thread, const char* format, ...) __attribute__((format(printf, 2, 3)));
/// The same for the reports that go to standard error, as ConsoleError's do.
void FailToStderr(ExecThread& thread, const char* format, ...)
    __attribute__((format(printf, 2, 3)));
/// True once a command has failed on any thread of the process.
bool AnyCommandFailed();

/// Writes text to the thread's tee file only, if one is open.
void TeeOnly(ExecThread& thread, const char* format, ...) __attribute__((format(printf, 2, 3)));

/// Writes UTF-8 text to standard output under the console lock, flushed so
/// that the order with standard error and shell commands is kept.
void ConsoleWrite(std::string_view text);
/// printf-style ConsoleWrite, bypassing console mode and tee.
void ConsoleOut(const char* format, ...) __attribute__((format(printf, 1, 2)));
/// printf-style message on standard error, ordered after pending output.
void ConsoleError(const char* format, ...) __attribute__((format(printf, 1, 2)));

/// Prints the "Begin:" or "End:  " stamp of the timestamp option.
void PrintTimestamp(ExecThread& thread, const char* label);

/// Writes "Out of memory." to standard error and ends the process.
[[noreturn]] void OutOfMemory();

void CmdTee(ExecThread& thread, ArgVector& args);

}  // namespace lexctl
