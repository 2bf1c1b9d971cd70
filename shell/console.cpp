#include "shell/console.h"

#include <readline/history.h>
#include <readline/readline.h>
#include <strings.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "shell/dispatch.h"
#include "shell/output.h"
#include "shell/platform.h"

namespace lexctl {
namespace {

bool initialised = false;
bool interactive = false;
std::string history_path;

// GNU readline is loaded only when a person is at the console: scripts and
// command lines start without paying for it (and for the terminal library
// it pulls in).
struct Readline {
  decltype(&::readline) read = nullptr;
  decltype(&::add_history) add_history = nullptr;
  decltype(&::read_history) read_history = nullptr;
  decltype(&::append_history) append_history = nullptr;
  decltype(&::history_truncate_file) truncate_history = nullptr;
  decltype(&::rl_completion_matches) completion_matches = nullptr;
  decltype(&::rl_line_buffer) line_buffer = nullptr;
  decltype(&::rl_attempted_completion_over) completion_over = nullptr;

  bool Load() {
    void* library = OpenLibrary({"libreadline.so.8", "libreadline.so"});
    if (!library) return false;
    auto bind = [library](auto& target, const char* name) { return BindSymbol(library, target, name); };
    const char** name = nullptr;
    int* catch_signals = nullptr;
    rl_completion_func_t** completion_function = nullptr;
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

char* NextCompletion(const char* text, int state) {
  static size_t index;
  if (state == 0) index = 0;
  size_t len = strlen(text);
  while (index < completion_words.size()) {
    const std::string& word = completion_words[index++];
    if (strncasecmp(word.c_str(), text, len) == 0) return strdup(word.c_str());
  }
  return nullptr;
}

// Completes command words at the start of a line and option names after
// "setopt".
char** Readline::Complete(const char* text, int start, int /*end*/) {
  *rl.completion_over = 1;
  completion_words.clear();
  std::string before(*rl.line_buffer, start);
  size_t first = before.find_first_not_of(" \t@$=-+");
  std::string head = first == std::string::npos ? "" : before.substr(first);
  bool options = false;
  if (!head.empty()) {
    size_t space = head.find_first_of(" \t");
    std::string word = head.substr(0, space);
    std::string rest = space == std::string::npos ? "" : head.substr(space);
    bool second_word = rest.find_first_not_of(" \t") == std::string::npos;
    if (strcasecmp(word.c_str(), "setopt") != 0 || !second_word) return nullptr;
    options = true;
  }
  for (const CommandRecord* row = CommandTableRows(); row->name; ++row) {
    if (row->name == GroupMarker || (row->flags & CMDF_HIDDEN)) continue;
    bool is_option = strncasecmp(row->name, kOptionPrefix, kOptionPrefixLen) == 0;
    if (options && is_option) completion_words.emplace_back(row->name + kOptionPrefixLen);
    if (!options && row->name[0] != '_') completion_words.emplace_back(row->name);
  }
  if (options) {
    completion_words.emplace_back("-save");
    completion_words.emplace_back("-load");
  }
  return rl.completion_matches(text, NextCompletion);
}

void Init() {
  initialised = true;
  interactive = isatty(STDIN_FILENO) && isatty(STDOUT_FILENO) && rl.Load();
  if (!interactive) return;
  const char* home = getenv("HOME");
  if (home && *home) {
    history_path = std::string(home) + "/.lexctl3_history";
    rl.read_history(history_path.c_str());
  }
}

bool ReadOne(const char* prompt, std::string& line) {
  if (interactive) {
    char* text = rl.read(prompt);
    if (!text) return false;
    line.assign(text);
    if (*text) {
      rl.add_history(text);
      if (!history_path.empty()) {
        FILE* probe = fopen(history_path.c_str(), "a");
        if (probe) {
          fclose(probe);
          rl.append_history(1, history_path.c_str());
        }
      }
    }
    free(text);
    return true;
  }
  ConsoleWrite(prompt);
  thread_local GetlineBuffer buffer;
  ssize_t n = getline(&buffer.data, &buffer.capacity, stdin);
  if (n < 0) return false;
  line.assign(buffer.data, n);
  return true;
}

void StripTrailing(std::string& line) {
  size_t end = line.find_last_not_of(" \t\r\n\v\f");
  line.resize(end == std::string::npos ? 0 : end + 1);
}

}  // namespace

bool ReadConsoleLine(const std::string& prompt, std::string& line) {
  if (!initialised) Init();
  if (!ReadOne(prompt.c_str(), line)) {
    ConsoleWrite("\n");  // leave the last prompt on a line of its own
    return false;
  }
  StripTrailing(line);
  std::string more;
  while (!line.empty() && line.back() == '\\') {
    line.pop_back();
    if (!ReadOne("_ ", more)) break;
    StripTrailing(more);
    line.append(more);
  }
  return true;
}

void CloseConsole() {
  if (initialised && interactive && !history_path.empty()) rl.truncate_history(history_path.c_str(), 1000);
}

}  // namespace lexctl
