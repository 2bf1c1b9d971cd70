#include "shell/exec_thread.h"

#include <atomic>

namespace lexctl {
namespace {
std::atomic<int> next_thread_id{1};
}  // namespace

ExecThread::ExecThread(std::string thread_name, bool is_main)
    : name(std::move(thread_name)), is_main_(is_main) {
  if (is_main) {
    id_ = 0;
    next_thread_id = 1;
  } else {
    id_ = next_thread_id++;
  }
  console_mode = is_main ? kConsoleAll : kConsoleNone;
}

ExecThread::~ExecThread() {
  CloseFiles();
  // The client's state may print through this thread while it goes away.
  data.reset();
}

void ExecThread::CloseFiles() {
  if (input.file) fclose(input.file);
  input.file = nullptr;
  for (auto& saved : input_stack) {
    if (saved.file) fclose(saved.file);
  }
  input_stack.clear();
  if (tee) fclose(tee);
  tee = nullptr;
}

}  // namespace lexctl
