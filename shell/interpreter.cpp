// The interpreter's command table. To add a command:
//   1. write its handler, void Cmd...(ExecThread&, ArgVector&), in the file
//      of its group, starting with CheckHelpRequest;
//   2. declare it in builtins.h;
//   3. add its row (aliases first, the described main row last) below;
//   4. add an end-to-end case under tests/e2e/shell.
#include "shell/interpreter.h"

#include <atomic>

#include "shell/builtins.h"
#include "shell/console.h"
#include "shell/dispatch.h"
#include "shell/output.h"
#include "shell/platform.h"
#include "shell/script.h"
#include "shell/threads.h"
#include "shell/variables.h"

namespace lexctl {
namespace {

const CommandRecord kCommands[] = {
    {GroupMarker, nullptr, 0, "GENERAL", nullptr},
    {"?", CmdHelp, 0, nullptr, nullptr},
    {"help", CmdHelp, 0, "Display command help. Use \"help /?\" for more details.",
     "Usage: help [<command>]\n\n    <command>   Show detailed help for a specific command. By "
     "default only\n                summary help is shown for commands. Use \"help <command>\" "
     "or\n                \"<command> -?\" for full help for that command.\n\nNote: the "
     "interpretation of an -? argument as a request for help can be disabled so that it is "
     "passed through to the command by prefixing the command with the '-' character."},
    {"x", CmdExit, 0, nullptr, nullptr},
    {"quit", CmdExit, 0, nullptr, nullptr},
    {"exit", CmdExit, 0, "Exit the application.",
     "By default the exit command will only exit the currently executing thread. If the "
     "current thread is the main thread, it will wait for all other threads to exit before "
     "returning. To force an immediate exit from all threads, use the command \"exit now\". "
     "This may be called from any executing thread.\n\nUsage: exit [now]"},
    {"setopt", CmdSetopt, 0, "Set or display options.",
     "Usage: setopt [<option>] [<value>]\n\nIf no option or value to set is supplied the "
     "current values will be displayed. Use \"setopt <option> -?\" for help on available "
     "options.\n\nUsage: setopt {-save|-load} [<file>]\n\nSave or load options with an "
     "options file. If no file name is supplied then a default filename will be used."},
    {GroupMarker, nullptr, 0, "FILE SYSTEM", nullptr},
    {"pwd", CmdPwd, 0, "Display the current working directory.", nullptr},
    {"cd", CmdCd, 0, "Change the current working directory.", "Usage: cd <path>"},
    {"!", CmdShell, 0, nullptr, nullptr},
    {"shell", CmdShell, 0, "Execute a shell command.",
     "If no command is supplied then a shell will be started. All characters are passed to "
     "the shell unchanged (no quoted characters are unquoted).\n\nUsage: shell [<command> "
     "[<arguments>]]"},
    {GroupMarker, nullptr, 0, "INPUT AND OUTPUT", nullptr},
    {"e", CmdEcho, CMDF_ESCAPES, nullptr, nullptr},
    {"echo", CmdEcho, CMDF_ESCAPES, "Echo all arguments.",
     "Each argument is echoed with all quoted characters (e.g. \\t \\n \\\" etc) converted. "
     "Arguments are echoed immediately following each other, so to echo a full line of text, "
     "start the line with a quotation mark. For example:\n\necho \"This full line will be "
     "echoed."},
    {"r", CmdRead, 0, nullptr, nullptr},
    {"read", CmdRead, 0, "Read and execute a script file.", "Usage: read <path>"},
    {"tee", CmdTee, 0, "Copy all output to a file.",
     "When a tee has been created, all output that is sent to the screen is also written to "
     "the output file. The tee file is created by overwriting any existing file by default. "
     "Specify \"-append\" to force data to be appended to the tee file. Stop output from "
     "being written to the tee file by omitting the file path. Shell command output cannot be "
     "redirected with a tee.\n\nUsage: tee [-append] [<path>]"},
    {GroupMarker, nullptr, 0, "SCRIPTING", nullptr},
    {"setvar", CmdSetvar, 0, "Set or display variables.",
     "Usage: setvar [<variable> <value>]\n\nIf no variable is supplied the current variables "
     "will be displayed. All current variables will be saved to the same file as the setopt "
     "options. All variables are shared by all threads. To create a thread local variable, "
     "use the name or ID of the thread in the variable name. "},
    {"timer", CmdTimer, 0, "Start, stop and display timers.",
     "If no arguments are given, all timers are reported.\n\nUsage: timer [<command> <id> "
     "[<name>]]\n\n  start    Create a new timer running or restart an existing one.\n  stop   "
     "  Stop an existing timer from running. The timer is not deleted.\n  lap      Store the "
     "current time as a lap and start a new lap. If the timer\n           doesn't exist this "
     "is the same as Start().\n  reset    Reset the current elapsed time and all lap details "
     "of the timer.\n  tell     Display the current timer details.\n  tellraw  Display the "
     "current timer details in raw format.\n  tellxml  Display the current timer details in "
     "XML JUnit test result\n           format. All current timers will be output and the "
     "<id> will\n           be used as the testsuite name.\n  delete   Delete an existing "
     "timer."},
    {"sleep", CmdSleep, 0, "Pause script execution for a period of time.",
     "Usage: sleep <milliseconds>"},
    {"proc", CmdProc, 0, "Start, end or call a procedure.",
     "This may only be used when reading from a file. The procedure name must not be "
     "specified for \"proc end\".\n\nUsage: proc {begin|end|call} [<name>]"},
    {"loop", CmdLoop, 0, "Repetitively call a procedure.",
     "The number of times the procedure will be called depends on the type of limit that is "
     "created. A procedure name always needs to be supplied. The <limit> text depends on the "
     "<type> that is specified. When using \"until\", the time is specified using the 24 hour "
     "clock. Times in the past are assumed to be 24 hours in the future. When using \"for\", "
     "the maximum period that can be specified is 7 days.\n\nUsage: loop <proc-name> <type> "
     "<limit>\n\n  count <iterations>    Loop a fixed number of times.\n  until HH:MM[:SS]    "
     "  Loop until the specified time (24 hour time).\n  for [[HH:]MM:]SS      Loop for the "
     "specified period of time."},
    {"rusage", CmdRusage, 0, "Display resource utilization for the process.", "Usage: rusage"},
    {"threads", CmdThreads, 0, "Manage execution threads.",
     "Threads must always execute on an input file. By default, a new thread will start with "
     "console display set to \"off\". If threads are not supported by the application then "
     "this command will return an error. If no name is supplied for a new thread then a name "
     "will be generated from the thread ID (e.g. threads start \"\" file.txt).\n\nUsage: "
     "threads <command> [<name> [<path>]]\n\n  start <name> <path>  Create a new thread with "
     "<name> using file <path>.\n  stop <name>          Stop the thread with <name> "
     "immediately.\n  stopall              Stop all threads immediately.\n  join <name>      "
     "    Join with the thread with <name>.\n  joinall              Join with all threads.\n  "
     "list                 List all threads."},
    {"_setopt_console", OptConsole, 0, "Enable or disable console display.",
     "The display of command output and the echoing of the command prompt can be selectively "
     "disabled. For example, if input is from a file and is being tee'd to an output file, all "
     "console output can be disabled so that only the tee file receives the output. Note that "
     "disabling command prompt echo only affects the echoing of command prompt during file "
     "input. Standard console input will always display the command prompt. Shell output "
     "cannot be disabled (or tee'd).\n\nUsage: setopt console {all|prompt|output|none}\n\n  "
     "all     Command prompt: echoed. Command output: echoed.\n  prompt  Command prompt: "
     "echoed. Command output: none.\n  output  Command prompt: none.   Command output: "
     "echoed.\n  none    Command prompt: none.   Command output: none.\n"},
    {"_setopt_threads", OptThreads, 0, "Are threads enabled (read-only).", nullptr},
    {"_setopt_utf8", OptUtf8, 0, "Force file input to use UTF-8 encoding.",
     "Usage: setopt utf8 {true|false}"},
    {"_setopt_timestamp", OptTimestamp, 0, "Display timestamps for each command",
     "Usage: setopt timestamp {true|false}"},
    {"_setopt_threadname", OptThreadname, 0, "Display the threadname with every output",
     "Usage: setopt threadname {true|false}"},
    {nullptr, nullptr, 0, nullptr, nullptr},
};

std::atomic<bool> interpreter_running{false};
ClientBinding client_binding;

}  // namespace

const CommandRecord* InterpreterCommands() { return kCommands; }

void RegisterClient(const ClientBinding& binding) { client_binding = binding; }
const ClientBinding& RegisteredClient() { return client_binding; }

bool RunInterpreter(const char* script, bool threads_enabled) {
  if (interpreter_running.exchange(true)) return false;
  BuildCommandTable();
  std::unique_ptr<ExecThread> main = CreateExecThread("_main_", true, nullptr);
  SetMainThread(main.get());
  SetThreadsEnabled(threads_enabled);

  bool go = true;
  if (script) {
    ArgVector args{script};
    ExecuteCommand(*main, "read", args);
    if (main->input.IsConsole()) {
      go = false;
    } else {
      // The end of the script ends the program instead of going on at the console.
      main->input_stack.clear();
    }
  }
  if (go) {
    if (FileExists("lexctl3.cfg") && !IsDirectory("lexctl3.cfg")) ReadSettingsFile(*main, "lexctl3.cfg");
    RunCommandLoop(*main);
  }
  if (threads_enabled) {
    ArgVector args{"joinall"};
    ExecuteCommand(*main, "threads", args);
  }
  CloseConsole();
  SetMainThread(nullptr);
  main.reset();
  FreeCommandTable();
  interpreter_running = false;
  return true;
}

}  // namespace lexctl
