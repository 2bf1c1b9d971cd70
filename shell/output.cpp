#include "shell/output.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <atomic>
#include <mutex>

#include "shell/dispatch.h"
#include "shell/platform.h"
#include "shell/variables.h"

namespace lexctl {
namespace {

std::mutex console_lock;
std::mutex output_lock;

void FormatInto(std::string& buffer, size_t offset, const char* format, va_list args) {
  char small[1024];
  va_list copy;
  va_copy(copy, args);
  int n = vsnprintf(small, sizeof(small), format, copy);
  va_end(copy);
  if (n < 0) return;
  if (static_cast<size_t>(n) < sizeof(small)) {
    buffer.append(small, n);
    return;
  }
  buffer.resize(offset + n + 1);
  vsnprintf(buffer.data() + offset, n + 1, format, args);
  buffer.resize(offset + n);
}

std::atomic<bool> any_failed{false};

// Keeps the thread's first report as one line: its line breaks become
// blanks, so a summary on standard error stays one line too.
void MarkFailed(ExecThread& thread, std::string_view report) {
  thread.failed = true;
  any_failed = true;
  if (!thread.first_failure.empty()) return;
  std::string& line = thread.first_failure;
  for (char c : report) {
    bool blank = c == '\n' || c == '\r';
    if (!blank) {
      line.push_back(c);
    } else if (!line.empty() && line.back() != ' ') {
      line.push_back(' ');
    }
  }
  while (!line.empty() && line.back() == ' ') line.pop_back();
}

// Sends the text in the thread's print buffer where its output goes.
void Route(ExecThread& thread) {
  std::string& text = thread.print_buffer;
  if (thread.substitution) SubstituteVariables(thread, text);

  if (thread.redirect) {
    fwrite(text.data(), 1, text.size(), thread.redirect);
    return;
  }
  if (thread.console_mode == kConsoleOutput || thread.console_mode == kConsoleAll) {
    ConsoleWrite(text);
  }
  if (thread.tee) {
    std::lock_guard<std::mutex> hold(output_lock);
    fwrite(text.data(), 1, text.size(), thread.tee);
    fflush(thread.tee);
  }
}

void StartLine(ExecThread& thread) {
  thread.print_buffer.clear();
  if (thread.threadname && !thread.redirect) {
    thread.print_buffer.append(thread.name);
    thread.print_buffer.push_back(' ');
  }
}

void FailV(ExecThread& thread, bool to_stderr, const char* format, va_list args) {
  std::string report;
  FormatInto(report, 0, format, args);
  MarkFailed(thread, report);
  if (to_stderr) {
    ConsoleError("%s", report.c_str());
    return;
  }
  StartLine(thread);
  thread.print_buffer.append(report);
  Route(thread);
}

}  // namespace

bool AnyCommandFailed() { return any_failed; }

void ThreadPrintV(ExecThread& thread, const char* format, va_list args) {
  // A load script prints nothing: its calls should not pay for formatting.
  bool shown = thread.console_mode == kConsoleOutput || thread.console_mode == kConsoleAll;
  if (!shown && !thread.tee && !thread.redirect) return;
  StartLine(thread);
  FormatInto(thread.print_buffer, thread.print_buffer.size(), format, args);
  Route(thread);
}

void Fail(ExecThread& thread, const char* format, ...) {
  va_list args;
  va_start(args, format);
  FailV(thread, false, format, args);
  va_end(args);
}

void FailToStderr(ExecThread& thread, const char* format, ...) {
  va_list args;
  va_start(args, format);
  FailV(thread, true, format, args);
  va_end(args);
}

void ThreadPrint(ExecThread& thread, const char* format, ...) {
  va_list args;
  va_start(args, format);
  ThreadPrintV(thread, format, args);
  va_end(args);
}

void TeeOnly(ExecThread& thread, const char* format, ...) {
  if (!thread.tee || thread.redirect) return;
  std::string text;
  va_list args;
  va_start(args, format);
  FormatInto(text, 0, format, args);
  va_end(args);
  std::lock_guard<std::mutex> hold(output_lock);
  fwrite(text.data(), 1, text.size(), thread.tee);
  fflush(thread.tee);
}

void ConsoleWrite(std::string_view text) {
  std::lock_guard<std::mutex> hold(console_lock);
  WriteConsoleText(text);
}

void ConsoleOut(const char* format, ...) {
  std::string text;
  va_list args;
  va_start(args, format);
  FormatInto(text, 0, format, args);
  va_end(args);
  ConsoleWrite(text);
}

void ConsoleError(const char* format, ...) {
  std::string text;
  va_list args;
  va_start(args, format);
  FormatInto(text, 0, format, args);
  va_end(args);
  std::lock_guard<std::mutex> hold(console_lock);
  fflush(stdout);
  fwrite(text.data(), 1, text.size(), stderr);
  fflush(stderr);
}

void PrintTimestamp(ExecThread& thread, const char* label) {
  auto now = std::chrono::system_clock::now();
  auto since_epoch = std::chrono::duration_cast<std::chrono::milliseconds>(now.time_since_epoch());
  struct tm local;
  time_t seconds = std::chrono::system_clock::to_time_t(now);
  localtime_r(&seconds, &local);
  ThreadPrint(thread, "%s %04u-%02u-%02u %02u:%02u:%02u.%03u\n", label,
              static_cast<unsigned>(local.tm_year + 1900), static_cast<unsigned>(local.tm_mon + 1),
              static_cast<unsigned>(local.tm_mday), static_cast<unsigned>(local.tm_hour),
              static_cast<unsigned>(local.tm_min), static_cast<unsigned>(local.tm_sec),
              static_cast<unsigned>(since_epoch.count() % 1000));
}

void OutOfMemory() { ExitNow("Out of memory.\n"); }

void CmdTee(ExecThread& thread, ArgVector& args) {
  if (CheckHelpRequest(thread, CmdTee, args, true)) return;
  const char* path = nullptr;
  bool append = false;
  if (args.size() == 2 && strcasecmp(args[0], "-append") == 0) {
    path = args[1];
    append = true;
  } else if (!args.empty()) {
    path = args[0];
  }
  FILE* file = nullptr;
  if (path) {
    file = OpenFile(path, append ? "ab" : "wb");
    if (!file) {
      FailToStderr(thread, "Error opening file '%s'\n", path);
      return;
    }
  }
  if (thread.tee) {
    {
      std::lock_guard<std::mutex> hold(output_lock);
      fclose(thread.tee);
      thread.tee = nullptr;
    }
    ConsoleOut("Closed tee output file\n");
  }
  if (file) {
    thread.tee = file;
    ConsoleOut("Started to tee output to '%s'\n", path);
  }
}

}  // namespace lexctl
