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
char** Complete(const char* text, int start, int /*end*/) {
  rl_attempted_completion_over = 1;
  completion_words.clear();
  std::string before(rl_line_buffer, start);
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
  return rl_completion_matches(text, NextCompletion);
}

void Init() {
  initialised = true;
  interactive = isatty(STDIN_FILENO) && isatty(STDOUT_FILENO);
  if (!interactive) return;
  rl_readline_name = "lexctl3";
  // Our own SIGINT handler prints the notice; readline keeps reading.
  rl_catch_signals = 0;
  rl_attempted_completion_function = Complete;
  const char* home = getenv("HOME");
  if (home && *home) {
    history_path = std::string(home) + "/.lexctl3_history";
    read_history(history_path.c_str());
  }
}

bool ReadOne(const char* prompt, std::string& line) {
  if (interactive) {
    char* text = readline(prompt);
    if (!text) return false;
    line.assign(text);
    if (*text) {
      add_history(text);
      if (!history_path.empty()) {
        FILE* probe = fopen(history_path.c_str(), "a");
        if (probe) {
          fclose(probe);
          append_history(1, history_path.c_str());
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
  if (initialised && interactive && !history_path.empty()) history_truncate_file(history_path.c_str(), 1000);
}

}  // namespace lexctl
