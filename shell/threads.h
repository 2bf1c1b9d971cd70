// The registry of started interpreter threads.
#pragma once

#include <memory>
#include <string>

#include "shell/exec_thread.h"

namespace lexctl {

/// Creates an interpreter thread with its client state, copied from
/// parent's when given. Ends the process on allocation failure.
std::unique_ptr<ExecThread> CreateExecThread(std::string name, bool is_main,
                                             const ExecThread* parent);

void SetMainThread(ExecThread* thread);
ExecThread* MainThread();
void SetThreadsEnabled(bool enabled);
bool ThreadsEnabled();

/// Sets the stop flag of every registered thread.
void StopAllThreads();
/// Waits for every registered thread and removes it.
void JoinAllThreads();

}  // namespace lexctl
