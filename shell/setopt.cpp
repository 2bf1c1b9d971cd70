#include <strings.h>

#include <cctype>
#include <cstring>

#include "shell/builtins.h"
#include "shell/dispatch.h"
#include "shell/output.h"
#include "shell/platform.h"
#include "shell/script.h"
#include "shell/threads.h"
#include "shell/variables.h"

namespace lexctl {
namespace {

constexpr char kDefaultOptionsFile[] = "lexctl3.cfg";

bool IsOptionRow(const CommandRecord* row) {
  return row->name != GroupMarker && strncasecmp(row->name, kOptionPrefix, kOptionPrefixLen) == 0;
}

// True when an option handler is asked to set (else it reports).
bool ParseOptionCall(ExecThread& thread, CommandHandler self, ArgVector& args, const char*& value) {
  value = args.size() > 2 ? args[2] : "";
  if (CheckHelpRequest(thread, self, args, true)) return false;
  return !args.empty() && (args[0][0] == 's' || args[0][0] == 'S');
}

bool ParseBool(const char* value) {
  return value[0] == 't' || value[0] == 'T' || value[0] == '1' || strcasecmp(value, "on") == 0;
}

void BoolOption(ExecThread& thread, CommandHandler self, ArgVector& args, const char* name,
                bool& flag) {
  const char* value;
  if (ParseOptionCall(thread, self, args, value)) {
    flag = ParseBool(value);
  } else if (!args.empty() && (args[0][0] == 'g' || args[0][0] == 'G')) {
    PrintSetting(thread, "setopt", name, flag ? "true" : "false");
  }
}

void CallOption(ExecThread& thread, const CommandRecord* row, const char* action,
                const char* value) {
  ArgVector args{action, row->name + kOptionPrefixLen, value};
  row->handler(thread, args);
}

void SaveOptions(ExecThread& thread, const char* path) {
  FILE* file = CreatePrivateFile(path);
  if (!file) {
    Fail(thread, "Failed to open options file.\n");
    return;
  }
  fputs("@setopt console none\n@setopt utf8 true\n\n", file);
  // Values are written as they are: no thread-name prefix, no expansion.
  bool substitution = thread.substitution;
  thread.substitution = false;
  thread.redirect = file;
  thread.saving_options = true;
  for (const CommandRecord* row = CommandTableRows(); row->name; ++row) {
    if (IsClientRow(row) && IsOptionRow(row)) CallOption(thread, row, "getopt", "");
  }
  for (const auto& [name, value] : SnapshotVariables()) {
    PrintSetting(thread, "setvar", name.c_str(), value);
  }
  thread.redirect = nullptr;
  thread.saving_options = false;
  thread.substitution = substitution;
  fclose(file);
}

void ShowSetoptHelp(ExecThread& thread) {
  ShowCommandHelp(thread, CmdSetopt);
  int mode = thread.console_mode;
  bool substitution = thread.substitution;
  thread.console_mode = kConsoleAll;
  thread.substitution = false;
  ThreadPrint(thread, "\nAvailable options are:\n");
  for (const CommandRecord* row = CommandTableRows(); row->name; ++row) {
    if (IsOptionRow(row)) {
      ThreadPrint(thread, "  %-15s%s\n", row->name + kOptionPrefixLen,
                  row->description ? row->description : "");
    }
  }
  thread.console_mode = mode;
  thread.substitution = substitution;
}

}  // namespace

void CmdSetopt(ExecThread& thread, ArgVector& args) {
  if (CheckHelpRequest(thread, CmdSetopt, args, false)) {
    if (args.size() == 2) {
      const char* option = strcmp(args[0], "-?") == 0 || strcmp(args[0], "/?") == 0 ? args[1] : args[0];
      const CommandRecord* row = FindOption(option);
      if (row) {
        ShowCommandHelp(thread, row->handler);
      } else {
        Fail(thread, "Unrecognized option: %s\n", option);
      }
    } else {
      ShowSetoptHelp(thread);
    }
    return;
  }
  if (args.empty()) {
    for (const CommandRecord* row = CommandTableRows(); row->name; ++row) {
      if (IsOptionRow(row)) CallOption(thread, row, "getopt", "");
    }
    return;
  }
  if (args[0][0] == '-') {
    const char* path = args.size() > 1 ? args[1] : kDefaultOptionsFile;
    if (strcasecmp(args[0], "-load") == 0) {
      ReadSettingsFile(thread, path);
    } else if (strcasecmp(args[0], "-save") == 0) {
      SaveOptions(thread, path);
    } else if (strcasecmp(args[0], "-escaped") == 0 && args.size() == 3) {
      // A value written by -save in its escaped form.
      std::string name = DecodeEscaped(args[1]), value = DecodeEscaped(args[2]);
      const CommandRecord* row = FindOption(name.c_str());
      if (row) {
        CallOption(thread, row, "setopt", value.c_str());
      } else {
        Fail(thread, "Unrecognized option: %s\n", name.c_str());
      }
    } else {
      Fail(thread, kMsgInvalidArgs);
    }
    return;
  }
  const CommandRecord* row = FindOption(args[0]);
  if (!row) {
    Fail(thread, "Unrecognized option: %s\n", args[0]);
    return;
  }
  if (args.size() == 1) {
    CallOption(thread, row, "getopt", "");
  } else {
    CallOption(thread, row, "setopt", args[1]);
  }
}

void OptConsole(ExecThread& thread, ArgVector& args) {
  static const char* const kNames[] = {"none", "prompt", "output", "all"};
  const char* value;
  if (ParseOptionCall(thread, OptConsole, args, value)) {
    switch (tolower(static_cast<unsigned char>(value[0]))) {
      case 'a': thread.console_mode = kConsoleAll; break;
      case 'p': thread.console_mode = kConsolePrompt; break;
      case 'o': thread.console_mode = kConsoleOutput; break;
      case 'n': thread.console_mode = kConsoleNone; break;
      default: Fail(thread, kMsgInvalidArgs); break;
    }
  } else if (!args.empty() && (args[0][0] == 'g' || args[0][0] == 'G')) {
    PrintSetting(thread, "setopt", "console", kNames[thread.console_mode & 3]);
  }
}

void OptThreads(ExecThread& thread, ArgVector& args) {
  bool enabled = ThreadsEnabled();
  BoolOption(thread, OptThreads, args, "threads", enabled);  // read-only
}

void OptUtf8(ExecThread& thread, ArgVector& args) {
  BoolOption(thread, OptUtf8, args, "utf8", thread.input.utf8);
}

void OptTimestamp(ExecThread& thread, ArgVector& args) {
  BoolOption(thread, OptTimestamp, args, "timestamp", thread.timestamp);
}

void OptThreadname(ExecThread& thread, ArgVector& args) {
  BoolOption(thread, OptThreadname, args, "threadname", thread.threadname);
}

}  // namespace lexctl
