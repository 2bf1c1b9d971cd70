#include "shell/builtins.h"

#include <strings.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <thread>

#include "shell/dispatch.h"
#include "shell/output.h"
#include "shell/platform.h"

namespace lexctl {

void CmdSleep(ExecThread& thread, ArgVector& args) {
  if (CheckHelpRequest(thread, CmdSleep, args, true)) return;
  long long ms = args.size() == 1 ? atoll(args[0]) : -1;
  if (ms < 0) {
    Fail(thread, kMsgInvalidArgs);
    return;
  }
  std::this_thread::sleep_for(std::chrono::milliseconds(ms));
}

void CmdRusage(ExecThread& thread, ArgVector& args) {
  if (CheckHelpRequest(thread, CmdRusage, args, true)) return;
  long long kernel_us, user_us;
  if (!ProcessTimes(kernel_us, user_us)) {
    Fail(thread, "Error.\n");
    return;
  }
  ThreadPrint(thread, "System: %ld.%03ld, User: %ld.%03ld\n", static_cast<long>(kernel_us / 1000000),
              static_cast<long>(kernel_us % 1000000 / 1000), static_cast<long>(user_us / 1000000),
              static_cast<long>(user_us % 1000000 / 1000));
}

void CmdPwd(ExecThread& thread, ArgVector& args) {
  if (CheckHelpRequest(thread, CmdPwd, args, true)) return;
  std::string dir;
  if (!GetCurrentDir(dir)) return;
  ThreadPrint(thread, "%s\n", dir.c_str());
}

void CmdCd(ExecThread& thread, ArgVector& args) {
  if (CheckHelpRequest(thread, CmdCd, args, true)) return;
  if (args.empty()) {
    Fail(thread, kMsgNotEnoughArgs);
    return;
  }
  if (args.size() > 1) {
    Fail(thread, kMsgTooManyArgs);
    return;
  }
  switch (ChangeDir(args[0])) {
    case ChdirResult::kOk:
      break;
    case ChdirResult::kNoSuchDir:
      Fail(thread, "Invalid directory.\n");
      break;
    case ChdirResult::kFailed:
      Fail(thread, "chdir() failed.\n");
      break;
  }
}

void CmdShell(ExecThread& thread, ArgVector& args) {
  const char* command = args.size() > 0 ? args[0] : "";
  const char* text = args.size() > 1 ? args[1] : "";
  // The shell's own help check: "=" does not switch it off, and only a lone
  // -? counts, so "shell echo -?" reaches the command processor.
  if (!*command && (strcasecmp(text, "-?") == 0 || strcasecmp(text, "/?") == 0)) {
    ShowCommandHelp(thread, CmdShell);
    return;
  }
  fflush(stdout);
  fflush(stderr);
  if (!*command && !*text) {
    RunShellCommand(DefaultShell());
    return;
  }
  std::string line(command);
  line.push_back(' ');
  line.append(text);
  RunShellCommand(line);
}

}  // namespace lexctl
