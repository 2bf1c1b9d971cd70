#include "shell/console.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "shell/console_policy.h"
#include "shell/output.h"
#include "shell/platform.h"

namespace lexctl {
namespace {

bool initialised = false;
bool interactive = false;
std::string history_path;

// GNU readline is loaded only when a person is at the console: scripts and
// command lines start without paying for it (and for the terminal library
// it pulls in). Its entry points are declared here, not by its headers,
// so that a platform without readline builds this file too.
struct Readline {
  using CompletionEntry = char* (*)(const char*, int);
  using CompletionFunction = char** (*)(const char*, int, int);
  char* (*read)(const char*) = nullptr;
  void (*add_history)(const char*) = nullptr;
  int (*read_history)(const char*) = nullptr;
  int (*append_history)(int, const char*) = nullptr;
  int (*truncate_history)(const char*, int) = nullptr;
  char** (*completion_matches)(const char*, CompletionEntry) = nullptr;
  char** line_buffer = nullptr;
  int* completion_over = nullptr;

  bool Load() {
    void* library = OpenLibrary({"libreadline.so.8", "libreadline.so"});
    if (!library) return false;
    auto bind = [library](auto& target, const char* name) { return BindSymbol(library, target, name); };
    const char** name = nullptr;
    int* catch_signals = nullptr;
    CompletionFunction* completion_function = nullptr;
    if (!(bind(read, "readline") && bind(add_history, "add_history") && bind(read_history, "read_history") &&
          bind(append_history, "append_history") && bind(truncate_history, "history_truncate_file") &&
          bind(completion_matches, "rl_completion_matches") && bind(name, "rl_readline_name") &&
          bind(catch_signals, "rl_catch_signals") && bind(completion_function, "rl_attempted_completion_function") &&
          bind(line_buffer, "rl_line_buffer") && bind(completion_over, "rl_attempted_completion_over"))) {
      return false;
    }
    *name = "lexctl3";
    // Our own SIGINT handler prints the notice; readline keeps reading.
    *catch_signals = 0;
    *completion_function = Complete;
    return true;
  }

  static char** Complete(const char* text, int start, int end);
};

Readline rl;

std::vector<std::string> completion_words;

char* NextCompletion(const char* /*text*/, int state) {
  static size_t index;
  if (state == 0) index = 0;
  return index < completion_words.size() ? strdup(completion_words[index++].c_str()) : nullptr;
}

char** Readline::Complete(const char* text, int start, int /*end*/) {
  Completion completion = CompleteWord(std::string(*rl.line_buffer, start), text);
  // File names: readline's own file name completion (folders get a "/").
  if (completion.kind == Completion::kFileNames) return nullptr;
  *rl.completion_over = 1;
  if (completion.kind == Completion::kNothing) return nullptr;
  completion_words = std::move(completion.words);
  return rl.completion_matches(text, NextCompletion);
}

void Init() {
  initialised = true;
  interactive = ConsoleIsInteractive() && rl.Load();
  if (!interactive) return;
  const char* home = getenv("HOME");
  if (home && *home) {
    history_path = std::string(home) + "/.lexctl3_history";
    // Made (or tightened) to owner-only before anything is written to it.
    PreparePrivateFile(history_path.c_str());
    rl.read_history(history_path.c_str());
  }
}

// Reads one physical line; counts the lines it adds to the session's
// history in `recalled`.
bool ReadOne(const char* prompt, std::string& line, int& recalled) {
  if (interactive) {
    char* text = rl.read(prompt);
    if (!text) return false;
    line.assign(text);
    if (*text) {
      rl.add_history(text);
      ++recalled;
    }
    free(text);
    return true;
  }
  ConsoleWrite(prompt);
  return GetLine(stdin, line);
}

void StripTrailing(std::string& line) {
  size_t end = line.find_last_not_of(" \t\r\n\v\f");
  line.resize(end == std::string::npos ? 0 : end + 1);
}

}  // namespace

bool ReadConsoleLine(const std::string& prompt, std::string& line) {
  if (!initialised) Init();
  int recalled = 0;
  if (!ReadOne(prompt.c_str(), line, recalled)) {
    // At a terminal the user's shell prompt starts on a line of its own;
    // piped input gets no more than the prompts.
    if (ConsoleIsInteractive()) ConsoleWrite("\n");
    return false;
  }
  StripTrailing(line);
  std::string more;
  while (!line.empty() && line.back() == '\\') {
    line.pop_back();
    if (!ReadOne("_ ", more, recalled)) break;
    StripTrailing(more);
    line.append(more);
  }
  // The session recalls every line; the file never gets one that carries a
  // password (judged on the whole line, continuations joined).
  if (recalled > 0 && !history_path.empty() && !CarriesSecret(line) &&
      PreparePrivateFile(history_path.c_str())) {
    rl.append_history(recalled, history_path.c_str());
  }
  return true;
}

void CloseConsole() {
  if (initialised && interactive && !history_path.empty()) rl.truncate_history(history_path.c_str(), 1000);
}

}  // namespace lexctl
