// The context of one interpreter thread, handed to every command handler.
#pragma once

#include <atomic>
#include <cstdint>
#include <cstdio>
#include <map>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "shell/command.h"

namespace lexctl {

enum ConsoleMode : int {
  kConsoleNone = 0,
  kConsolePrompt = 1,
  kConsoleOutput = 2,
  kConsoleAll = 3,
};

/// Where lines come from: a script file, or the console when file is null.
struct InputSource {
  FILE* file = nullptr;
  std::string path = "stdin";
  bool utf8 = false;
  size_t call_depth = 0;  // procedure calls open when this input began
  /// The console mode the thread returns to when this file ends (a settings
  /// file: setopt -load, the start-up lexctl3.cfg); -1 leaves it as it is.
  int console_on_end = -1;
  bool IsConsole() const { return file == nullptr; }
};

class ExecThread {
 public:
  /// The main thread gets id 0 and restarts the id counter; others take
  /// the next number.
  ExecThread(std::string name, bool is_main);
  ~ExecThread();
  ExecThread(const ExecThread&) = delete;
  ExecThread& operator=(const ExecThread&) = delete;

  int id() const { return id_; }
  bool is_main() const { return is_main_; }

  /// The client's per-thread state (may be null when no client is bound).
  std::unique_ptr<ThreadData> data;

  std::string name;
  const char* current_command = nullptr;
  /// Set when the command being run reported a failure (Fail).
  bool failed = false;
  /// The text of the thread's first failure report, for the exit summary.
  std::string first_failure;
  std::atomic<bool> stop{false};
  std::atomic<bool> running{false};

  // Input (scripts, procedures, loops).
  InputSource input;
  std::vector<InputSource> input_stack;
  std::map<std::string, int64_t> procedures;
  std::vector<int64_t> call_stack;
  int64_t loop_start = 0;
  int64_t loop_limit = 0;  // 0 none; <0 -iterations left; >0 end time
  size_t loop_depth = 0;   // call-stack depth of the looped procedure
  bool in_block_comment = false;

  // Output.
  FILE* tee = nullptr;
  FILE* redirect = nullptr;  // while set, output goes only here
  int console_mode = kConsoleAll;
  bool timestamp = false;
  bool threadname = false;
  bool help_detection = true;
  bool substitution = true;
  bool saving_options = false;  // settings print in the form the options file needs
  unsigned uniq = 0;
  std::string print_buffer;

  std::thread os_thread;

  /// Closes every open input file and the tee file.
  void CloseFiles();

 private:
  int id_;
  bool is_main_;
};

}  // namespace lexctl
