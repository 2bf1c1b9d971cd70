#include "shell/script.h"

#include <strings.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "shell/builtins.h"
#include "shell/console.h"
#include "shell/dispatch.h"
#include "shell/output.h"
#include "shell/platform.h"
#include "shell/threads.h"
#include "shell/variables.h"

namespace lexctl {
namespace {

// Bounds that keep a runaway script (a file that reads itself, a procedure
// that calls itself) from exhausting the process; real scripts stay far below.
constexpr size_t kMaxInputDepth = 200;
constexpr size_t kMaxCallDepth = 100000;

bool IsSpace(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n' || c == '\v' || c == '\f'; }

void StripTrailingSpace(std::string& line) {
  size_t end = line.size();
  while (end > 0 && IsSpace(line[end - 1])) --end;
  line.resize(end);
}

// Reads one physical line of the current file. False at end of file or on
// a read error (reported).
bool ReadPhysicalLine(ExecThread& thread, std::string& line) {
  if (!GetLine(thread.input.file, line)) {
    if (ferror(thread.input.file)) {
      Fail(thread, "Error while reading input file: %s\n", thread.input.path.c_str());
    }
    return false;
  }
  return true;
}

// Reads one logical line of the current file: trailing whitespace goes,
// a trailing backslash joins the next line, and the native encoding is
// turned into UTF-8. False when the file is done.
bool ReadFileLine(ExecThread& thread, std::string& line) {
  if (!ReadPhysicalLine(thread, line)) return false;
  StripTrailingSpace(line);
  std::string next;
  while (!line.empty() && line.back() == '\\') {
    line.pop_back();
    if (!ReadPhysicalLine(thread, next)) break;
    StripTrailingSpace(next);
    line.append(next);
  }
  if (!thread.input.utf8 && !NativeToUtf8(line)) {
    Fail(thread, "Native encoding error reading input file: %s\n", thread.input.path.c_str());
    return false;
  }
  return true;
}

// Ends the current file: warns about procedures left open, and goes back
// to the input it interrupted. False when there is none.
bool EndOfInputFile(ExecThread& thread) {
  // The call stack is the thread's: a procedure still open in the file
  // that read this one counts too. Only this file's own calls are dropped,
  // since their offsets mean nothing in the file we return to.
  if (!thread.call_stack.empty()) {
    ThreadPrint(thread, "WARNING: procedure stack not empty at end of file.\n");
  }
  if (thread.call_stack.size() > thread.input.call_depth) {
    thread.call_stack.resize(thread.input.call_depth);
    if (thread.loop_depth > thread.call_stack.size()) thread.loop_limit = 0;
  }
  if (thread.input.console_on_end >= 0) thread.console_mode = thread.input.console_on_end;
  fclose(thread.input.file);
  thread.input.file = nullptr;
  thread.in_block_comment = false;
  if (thread.input_stack.empty()) return false;
  thread.input = thread.input_stack.back();
  thread.input_stack.pop_back();
  return true;
}

bool Seek(ExecThread& thread, int64_t offset) {
  return thread.input.file && fseeko(thread.input.file, offset, SEEK_SET) == 0;
}

int64_t Tell(ExecThread& thread) { return ftello(thread.input.file); }

// Splits "word rest" at the first whitespace, in place.
void SplitWord(char* text, char*& word, char*& rest) {
  while (IsSpace(*text)) ++text;
  word = text;
  while (*text && !IsSpace(*text)) ++text;
  if (*text) *text++ = '\0';
  rest = text;
  size_t len = strlen(rest);
  while (len > 0 && IsSpace(rest[len - 1])) rest[--len] = '\0';
}

long long NowMillis() {
  auto now = std::chrono::system_clock::now().time_since_epoch();
  return std::chrono::duration_cast<std::chrono::milliseconds>(now).count();
}

// Asks whether the looped procedure should run once more.
bool LoopIterationDue(ExecThread& thread) {
  if (thread.loop_limit == 0) return false;
  if (thread.loop_limit < 0) {
    ++thread.loop_limit;
    return true;
  }
  if (time(nullptr) < thread.loop_limit) return true;
  thread.loop_limit = 0;
  return false;
}

bool errexit = false;

// With errexit, a failure on the main thread ends the run.
bool StopsOnFailure(ExecThread& thread) {
  if (!errexit || !thread.failed || !thread.is_main()) return false;
  StopAllThreads();
  return true;
}

}  // namespace

void SetErrexit(bool on) { errexit = on; }

void MakePrompt(ExecThread& thread, std::string& prompt) {
  auto hook = RegisteredClient().make_prompt;
  if (hook) {
    hook(thread, prompt);
  } else {
    prompt = "> ";
  }
}

bool ProcessLine(ExecThread& thread, std::string& line, bool from_console,
                 const std::string& prompt) {
  bool substituted = thread.substitution && SubstituteVariables(thread, line);
  char *word, *rest;
  SplitWord(line.data(), word, rest);

  if (strcmp(word, "*/") == 0) {
    thread.in_block_comment = false;
    return true;
  }
  if (thread.in_block_comment) return true;
  if (strcmp(word, "/*") == 0) {
    thread.in_block_comment = true;
    return true;
  }
  if (word[0] == ';' || word[0] == '#' || word[0] == '\0') return true;

  bool quiet = false, timed = false, no_help = false, escapes_off = false, escapes_on = false;
  for (;; ++word) {
    char c = *word;
    if (c == '@') {
      quiet = true;
    } else if (c == '$') {
      timed = true;
    } else if (c == '=') {
      no_help = true;
    } else if (c == '-') {
      escapes_off = true;
    } else if (c == '+') {
      escapes_on = true;
    } else {
      break;
    }
  }
  if (!*word) SplitWord(rest, word, rest);

  if ((thread.console_mode == kConsoleAll || thread.console_mode == kConsolePrompt) && !quiet) {
    if (from_console && !substituted) {
      TeeOnly(thread, "%s%s %s\n", prompt.c_str(), word, rest);
    } else {
      ThreadPrint(thread, "%s%s %s\n", prompt.c_str(), word, rest);
    }
  }
  long long started = timed ? NowMillis() : 0;
  bool go_on = true;
  // A prefix with no command still reports its (empty) timing.
  if (*word) {
    if (thread.timestamp) PrintTimestamp(thread, "Begin:");
    if (no_help) thread.help_detection = false;
    thread.failed = false;
    go_on = DispatchCommand(thread, word, rest, escapes_off ? 2 : escapes_on ? 1 : 0);
    thread.help_detection = true;
    if (thread.timestamp) PrintTimestamp(thread, "End:  ");
  }
  if (timed) {
    long long elapsed = NowMillis() - started;
    long seconds = static_cast<long>(elapsed / 1000), millis = static_cast<long>(elapsed % 1000);
    if (thread.console_mode == kConsolePrompt) {
      char text[101];
      snprintf(text, sizeof(text), "Elapsed time %ld.%03ld seconds.\n", seconds, millis);
      ConsoleWrite(text);
    } else {
      ThreadPrint(thread, "Elapsed time %ld.%03ld seconds.\n", seconds, millis);
    }
  }
  if (StopsOnFailure(thread)) return false;
  return go_on;
}

void RunCommandLoop(ExecThread& thread) {
  thread.running = true;
  std::string line, prompt;
  line.reserve(2048);
  while (!thread.stop) {
    MakePrompt(thread, prompt);
    bool from_console = thread.input.IsConsole();
    if (!from_console) {
      if (!ReadFileLine(thread, line)) {
        if (StopsOnFailure(thread) || !EndOfInputFile(thread)) break;
        continue;
      }
    } else {
      if (thread.tee) fflush(thread.tee);
      if (!ReadConsoleLine(prompt, line)) break;
    }
    if (!ProcessLine(thread, line, from_console, prompt)) break;
  }
  // Threads print nothing on the console by default: say why the run fails.
  if (errexit && !thread.is_main() && !thread.first_failure.empty()) {
    ConsoleError("Thread %s failed: %s\n", thread.name.c_str(), thread.first_failure.c_str());
  }
  thread.running = false;
}

bool PushInputFile(ExecThread& thread, const char* path, ExecThread* reporter) {
  FILE* file = thread.input_stack.size() < kMaxInputDepth ? OpenScriptFile(path) : nullptr;
  if (!file) {
    FailToStderr(reporter ? *reporter : thread, "Error opening file '%s'\n", path);
    return false;
  }
  InputSource next;
  next.file = file;
  next.path = path;
  unsigned char bom[3];
  if (fread(bom, 1, 3, file) == 3 && bom[0] == 0xEF && bom[1] == 0xBB && bom[2] == 0xBF) {
    next.utf8 = true;
  } else {
    fseeko(file, 0, SEEK_SET);
  }
  next.call_depth = thread.call_stack.size();
  thread.input_stack.push_back(thread.input);
  thread.input = next;
  return true;
}

bool ReadSettingsFile(ExecThread& thread, const char* path) {
  int mode = thread.console_mode;
  if (!PushInputFile(thread, path)) return false;
  thread.input.console_on_end = mode;
  return true;
}

void CmdRead(ExecThread& thread, ArgVector& args) {
  if (CheckHelpRequest(thread, CmdRead, args, true)) return;
  if (args.size() != 1) {
    Fail(thread, kMsgInvalidArgs);
    return;
  }
  PushInputFile(thread, args[0]);
}

void CmdProc(ExecThread& thread, ArgVector& args) {
  if (CheckHelpRequest(thread, CmdProc, args, true)) return;
  if (args.empty()) {
    Fail(thread, kMsgInvalidArgs);
    return;
  }
  if (thread.input.IsConsole()) {
    Fail(thread, "Invalid during console input.\n");
    return;
  }
  const char* sub = args[0];
  std::string name = args.size() > 1 ? args[1] : "";
  if (strcasecmp(sub, "begin") == 0) {
    int64_t start = Tell(thread);
    if (!thread.procedures.emplace(name, start).second) {
      ThreadPrint(thread, "Ignoring duplicate procedure definition: \"%s\".\n", name.c_str());
    }
    std::string line;
    while (ReadFileLine(thread, line)) {
      char *first, *rest, *second, *tail;
      SplitWord(line.data(), first, rest);
      SplitWord(rest, second, tail);
      if (strcasecmp(first, "proc") == 0 && strcasecmp(second, "end") == 0) return;
    }
    Fail(thread, "End of procedure definition not found: \"%s\".\n", name.c_str());
  } else if (strcasecmp(sub, "end") == 0) {
    if (thread.call_stack.size() <= thread.input.call_depth) {
      Fail(thread, "Invalid return from procedure call.\n");
      return;
    }
    // Only the looped procedure's own end repeats it; procedures it calls
    // return normally.
    if (thread.call_stack.size() == thread.loop_depth && LoopIterationDue(thread)) {
      if (Seek(thread, thread.loop_start)) return;
      FailToStderr(thread, "Failed loop procedure call. Exiting loop.\n");
      thread.loop_limit = 0;
    }
    int64_t back = thread.call_stack.back();
    thread.call_stack.pop_back();
    if (!Seek(thread, back)) Fail(thread, "Failed return from procedure call.\n");
  } else if (strcasecmp(sub, "call") == 0) {
    auto it = thread.procedures.find(name);
    if (it == thread.procedures.end()) {
      Fail(thread, "Unknown procedure call: \"%s\".\n", name.c_str());
      return;
    }
    int64_t back = Tell(thread);
    if (thread.call_stack.size() >= kMaxCallDepth || !Seek(thread, it->second)) {
      Fail(thread, "Failed procedure call: \"%s\".\n", name.c_str());
      return;
    }
    thread.call_stack.push_back(back);
  } else {
    Fail(thread, "Invalid command.\n");
  }
}

void CmdLoop(ExecThread& thread, ArgVector& args) {
  if (CheckHelpRequest(thread, CmdLoop, args, true)) return;
  if (args.size() != 3) {
    Fail(thread, kMsgInvalidArgs);
    return;
  }
  if (thread.input.IsConsole()) {
    Fail(thread, "Invalid during console input.\n");
    return;
  }
  auto proc = thread.procedures.find(args[0]);
  if (proc == thread.procedures.end()) {
    Fail(thread, "Unknown procedure call: \"%s\".\n", args[0]);
    return;
  }
  const char* type = args[1];
  int64_t limit;
  if (strcasecmp(type, "count") == 0) {
    long long count = atoll(args[2]);
    limit = count < 0 ? 0 : -count;
  } else if (strcasecmp(type, "for") == 0 || strcasecmp(type, "until") == 0) {
    unsigned a = 0, b = 0, c = 0;
    int fields = sscanf(args[2], "%u:%u:%u", &a, &b, &c);
    bool until = strcasecmp(type, "until") == 0;
    if (fields < 1 || (until && fields < 2)) {
      Fail(thread, kMsgInvalidArgs);
      return;
    }
    time_t now = time(nullptr);
    time_t end;
    if (until) {
      struct tm local;
      localtime_r(&now, &local);
      local.tm_hour = static_cast<int>(a);
      local.tm_min = static_cast<int>(b);
      local.tm_sec = fields == 3 ? static_cast<int>(c) : 0;
      local.tm_isdst = -1;
      end = mktime(&local);
      if (end < now) end += 86400;
    } else {
      int64_t period = fields == 1 ? a : fields == 2 ? int64_t{a} * 60 + b
                                                     : int64_t{a} * 3600 + int64_t{b} * 60 + c;
      end = now + period;
    }
    int64_t period = static_cast<int64_t>(end) - now;
    if (period > 604800) {
      Fail(thread, "Period too long. See help.\n");
      return;
    }
    char now_text[32], end_text[32];
    ctime_r(&now, now_text);
    ctime_r(&end, end_text);
    // The 32-bit build passed 64-bit values to %d fields, so the line shows
    // the period, then 0, the whole hours, and 0; scripts parse it as is.
    ThreadPrint(thread, "Time now is:   %sLooping until: %sLooping for:   %d secs (%d h, %d m, %d s)\n",
                now_text, end_text, static_cast<int>(period), 0, static_cast<int>(period / 3600), 0);
    limit = end;
  } else {
    Fail(thread, "Invalid loop type.\n");
    return;
  }
  thread.loop_start = proc->second;
  thread.loop_limit = limit;
  if (!LoopIterationDue(thread)) return;
  int64_t back = Tell(thread);
  if (!Seek(thread, thread.loop_start)) {
    FailToStderr(thread, "Failed loop procedure call. Exiting loop.\n");
    thread.loop_limit = 0;
    return;
  }
  thread.call_stack.push_back(back);
  thread.loop_depth = thread.call_stack.size();
}

void CmdExit(ExecThread& thread, ArgVector& args) {
  if (CheckHelpRequest(thread, CmdExit, args, true)) return;
  if (args.empty()) return;
  if (args.size() == 1 && strcasecmp(args[0], "now") == 0) {
    StopAllThreads();
    if (ExecThread* main = MainThread()) main->stop = true;
    return;
  }
  Fail(thread, kMsgInvalidArgs);
}

}  // namespace lexctl
