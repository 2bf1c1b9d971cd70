#include "shell/dispatch.h"

#include <strings.h>

#include <cstring>
#include <exception>
#include <new>
#include <string>
#include <unordered_map>

#include "shell/builtins.h"
#include "shell/interpreter.h"
#include "shell/output.h"
#include "shell/script.h"
#include "shell/tokenizer.h"

namespace lexctl {

const char GroupMarker[] = "";

namespace {

std::vector<CommandRecord> table;
size_t client_begin = 0;

bool IsOptionName(const char* name) {
  return strncasecmp(name, kOptionPrefix, kOptionPrefixLen) == 0;
}

// Forces console mode "all" and plain output while help prints.
class HelpOutput {
 public:
  explicit HelpOutput(ExecThread& thread)
      : thread_(thread), mode_(thread.console_mode), substitution_(thread.substitution) {
    thread.console_mode = kConsoleAll;
    thread.substitution = false;
  }
  ~HelpOutput() {
    thread_.console_mode = mode_;
    thread_.substitution = substitution_;
  }

 private:
  ExecThread& thread_;
  int mode_;
  bool substitution_;
};

const char kClosingText[] =
    "\nSpecial line prefixes to change default behaviour are:\n"
    "  ;   Single line comment.\n"
    "  #   Single line comment.\n"
    "  @   Suppress the echoing of the prompt and command.\n"
    "  $   Report the execution time of the command.\n"
    "  -   Force off the parsing of special characters.\n"
    "  +   Force on the parsing of special characters.\n"
    "  =   Prevent \"-?\" or \"/?\" from being interpreted as a help request.\n"
    "  !   Execute the command as a shell command.\n"
    "  /*  Start multiple line comment (must be the only text on a line).\n"
    "  */  End multiple line comment (must be the only text on a line).\n"
    "\n"
    "Variables:\n"
    "  {{name}}      Any variable set with setvar can be specified.\n"
    "  {{UNIQ}}      Special variable. Counter, starting at 1.\n"
    "  {{RAND}}      Special variable. Random number.\n"
    "  {{NOW}}       Special variable. Current time and date.\n"
    "  {{TID}}       Special variable. Current thread ID.\n"
    "  {{TNAME}}     Special variable. Current thread name.\n";

void ShowSummary(ExecThread& thread) {
  bool first_group = true;
  std::string names;
  for (const CommandRecord* row = CommandTableRows(); row->name; ++row) {
    if (row->name == GroupMarker) {
      ThreadPrint(thread, "%s%s\n", first_group ? "" : "\n", row->description ? row->description : "");
      first_group = false;
      names.clear();
      continue;
    }
    if (row->name[0] == '_' || (row->flags & CMDF_HIDDEN)) continue;
    if (!names.empty()) names.append(", ");
    names.append(row->name);
    if (row->description) {
      ThreadPrint(thread, "%-15s%s\n", names.c_str(), row->description);
      names.clear();
    }
  }
  ThreadPrint(thread, "%s", kClosingText);
}

}  // namespace

void BuildCommandTable() {
  table.clear();
  const CommandRecord* own = InterpreterCommands();
  const CommandRecord* client = RegisteredClient().commands;
  for (const CommandRecord* row = own; row->name; ++row) table.push_back(*row);
  client_begin = table.size();
  if (client) {
    for (const CommandRecord* row = client; row->name; ++row) {
      if (row->name != GroupMarker) {
        for (const CommandRecord* mine = own; mine->name; ++mine) {
          if (mine->name != GroupMarker && strcasecmp(mine->name, row->name) == 0) {
            ConsoleError("Command '%s' is shadowed by internal command of the same name\n",
                         mine->name);
            break;
          }
        }
      }
      table.push_back(*row);
    }
  }
  table.push_back(CommandRecord{nullptr, nullptr, 0, nullptr, nullptr});
}

void FreeCommandTable() {
  table.clear();
  table.shrink_to_fit();
}

const CommandRecord* CommandTableRows() {
  static const CommandRecord empty{nullptr, nullptr, 0, nullptr, nullptr};
  return table.empty() ? &empty : table.data();
}

bool IsClientRow(const CommandRecord* row) {
  return !table.empty() && row >= table.data() + client_begin && row < table.data() + table.size();
}

static std::string AsciiLower(const char* text) {
  std::string lower(text);
  for (char& c : lower) {
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  }
  return lower;
}

const CommandRecord* FindCommand(const char* word) {
  // Every script line looks its command up: the table is indexed once.
  static const std::unordered_map<std::string, const CommandRecord*> index = [] {
    std::unordered_map<std::string, const CommandRecord*> rows;
    for (const CommandRecord* row = CommandTableRows(); row->name; ++row) {
      if (row->name != GroupMarker) rows.emplace(AsciiLower(row->name), row);  // the first of a name wins
    }
    return rows;
  }();
  auto found = index.find(AsciiLower(word));
  return found == index.end() ? nullptr : found->second;
}

const CommandRecord* FindOption(const char* option) {
  for (const CommandRecord* row = CommandTableRows(); row->name; ++row) {
    if (IsOptionName(row->name) && strcasecmp(row->name + kOptionPrefixLen, option) == 0) {
      return row;
    }
  }
  return nullptr;
}

namespace {

void RunHandler(ExecThread& thread, const CommandRecord* row, ArgVector& args) {
  thread.current_command = row->name;
  try {
    row->handler(thread, args);
  } catch (const std::bad_alloc&) {
    OutOfMemory();
  } catch (const std::exception& e) {
    // Handlers report their own failures; this keeps a stray one from
    // ending the script.
    Fail(thread, "FAILED: %s.\n", e.what());
  }
  thread.current_command = nullptr;
}

}  // namespace

bool DispatchCommand(ExecThread& thread, char* word, char* argument_text, int escape_mode) {
  if (word[0] == '!' || strcasecmp(word, "shell") == 0) {
    ArgVector args{word[0] == '!' ? word + 1 : "", argument_text};
    CmdShell(thread, args);
    return true;
  }
  const CommandRecord* row = word[0] == '_' ? nullptr : FindCommand(word);
  if (!row || !row->handler) {
    Fail(thread, "Unrecognized command: %s\n", word);
    return true;
  }
  bool escapes = escape_mode != 2 && ((row->flags & CMDF_ESCAPES) || escape_mode == 1);
  ArgVector args;
  TokenizeArguments(argument_text, escapes, args);
  RunHandler(thread, row, args);
  return row->handler != CmdExit;
}

void ExecuteCommand(ExecThread& thread, const char* word, ArgVector& args) {
  const CommandRecord* row = FindCommand(word);
  if (row && row->handler) RunHandler(thread, row, args);
}

bool CheckHelpRequest(ExecThread& thread, CommandHandler handler, const ArgVector& args,
                      bool print) {
  if (!thread.help_detection || args.empty()) return false;
  for (const char* arg : args) {
    if (strcasecmp(arg, "-?") == 0 || strcasecmp(arg, "/?") == 0) {
      if (print) ShowCommandHelp(thread, handler);
      return true;
    }
  }
  return false;
}

std::vector<std::string> FormatUsage(const char* usage) {
  std::string text;
  for (const char* p = usage; *p; ++p) {
    if (*p == '\t') {
      text.append("    ");
    } else {
      text.push_back(*p);
    }
  }
  auto is_space = [](char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r'; };
  std::vector<std::string> lines;
  size_t pos = 0;
  const size_t n = text.size();
  while (pos < n) {
    size_t i = pos;
    size_t last_space = std::string::npos;
    bool broke = false;
    while (i < n && i - pos < 79) {
      if (text[i] == '\n') {
        lines.push_back(text.substr(pos, i - pos));
        pos = i + 1;
        broke = true;
        break;
      }
      if (is_space(text[i])) last_space = i;
      ++i;
    }
    if (broke) continue;
    if (i >= n) {
      lines.push_back(text.substr(pos));
      break;
    }
    if (last_space != std::string::npos) {
      lines.push_back(text.substr(pos, last_space - pos));
      pos = last_space + 1;
    } else {
      size_t j = i;
      while (j < n && !is_space(text[j])) ++j;
      lines.push_back(text.substr(pos, j - pos));
      pos = j + 1;
    }
  }
  return lines;
}

void ShowCommandHelp(ExecThread& thread, CommandHandler handler) {
  HelpOutput forced(thread);
  if (!handler) {
    ShowSummary(thread);
    return;
  }
  std::string names;
  const CommandRecord* described = nullptr;
  for (const CommandRecord* row = CommandTableRows(); row->name; ++row) {
    if (row->handler != handler || (row->flags & CMDF_HIDDEN)) continue;
    if (!names.empty()) names.append(", ");
    if (IsOptionName(row->name)) {
      names.append("setopt ");
      names.append(row->name + kOptionPrefixLen);
    } else {
      names.append(row->name);
    }
    if (row->description) {
      described = row;
      break;
    }
  }
  if (!described) return;
  ThreadPrint(thread, "Commands:  %s\nSummary:   %s\n", names.c_str(), described->description);
  if (described->usage) {
    ThreadPrint(thread, "\n");
    for (const std::string& line : FormatUsage(described->usage)) {
      ThreadPrint(thread, "%s\n", line.c_str());
    }
  }
}

void CmdHelp(ExecThread& thread, ArgVector& args) {
  int mode = thread.console_mode;
  thread.console_mode = kConsoleAll;
  if (!CheckHelpRequest(thread, CmdHelp, args, true)) {
    if (args.empty()) {
      ShowCommandHelp(thread, nullptr);
    } else {
      // As in dispatch, options are not commands.
      const CommandRecord* row = args[0][0] == '_' ? nullptr : FindCommand(args[0]);
      if (!row || !row->handler) {
        Fail(thread, "Unknown command.\n");
      } else {
        ArgVector help_args;
        if (row->handler == CmdShell) help_args.push_back("");
        help_args.push_back("/?");
        bool detection = thread.help_detection;
        thread.help_detection = true;
        row->handler(thread, help_args);
        thread.help_detection = detection;
      }
    }
  }
  thread.console_mode = mode;
}

}  // namespace lexctl
