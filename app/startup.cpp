#include "app/startup.h"

#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <new>
#include <string>

#include "app/client_link.h"
#include "client/local_data.h"
#include "shell/command.h"
#include "shell/interpreter.h"
#include "shell/option_scanner.h"
#include "shell/output.h"
#include "shell/platform.h"
#include "shell/script.h"
#include "shell/version.h"

namespace lexctl {
namespace {

const OptionDef kOptions[] = {
    {0, "-?", kOptNoArgument},     {0, "-h", kOptNoArgument},
    {0, "-help", kOptNoArgument},  {0, "--help", kOptNoArgument},
    {1, "--script", kOptRequired}, {2, "--output", kOptRequired},
    {3, "--version", kOptNoArgument}, {4, "--errexit", kOptNoArgument},
    {-1, nullptr, 0},
};

const char kUsage[] =
    "Usage: " LEXCTL_EXECUTABLE " [--script SCRIPT] [--output FILE] [COMMANDS]\n\n"
    " --script SCRIPT    Execute commands from a script file. If a script is\n"
    "                    used, all other command line arguments are ignored.\n"
    " --output FILE      Writes all output to the specified file. This inserts\n"
    "                    a 'tee' command before the first command.\n";

const char kBanner[] =
    "Norvane Lexary Server " LEXCTL_VERSION " Administration Client\n\n"
    "NOTES:\n"
    " - input files must be UTF-8 encoded and use either a UTF-8 signature or\n"
    "   specify 'setopt utf8 true' before any non-ASCII text.\n"
    " - use 'help' for help on common commands\n\n";

void OnAllocationFailure() { OutOfMemory(); }

}  // namespace

int Main(const std::vector<const char*>& args) {
  std::set_new_handler(OnAllocationFailure);
  PlatformInit();
  srand(static_cast<unsigned>(time(nullptr)));

  const char* script = nullptr;
  const char* output = nullptr;
  bool errexit = false;
  ArgVector words(args.begin(), args.end());
  OptionScanner scanner(kOptions, words);
  while (scanner.Next()) {
    if (scanner.error() != kOptOk) {
      fprintf(stderr, kMsgInvalidArg, scanner.text());
      return 1;
    }
    switch (scanner.id()) {
      case 0:
        fputs(kUsage, stdout);
        return 0;
      case 1:
        script = scanner.argument();
        break;
      case 2:
        output = scanner.argument();
        break;
      case 3:
        printf("%s%s\n", kClientName, kClientVersionSuffix);
        return 0;
      case 4:
        errexit = true;
        break;
    }
  }
  const ArgVector& commands = scanner.positional();

  std::string temp_path;
  std::string temp_remove;  // whole path: a script may change directory
  const char* run_script = script;
  if (commands.empty() && !script) {
    // An --output given alone is ignored: only a command file carries the tee.
    fputs(kBanner, stdout);
    fflush(stdout);
  } else if (!commands.empty() || output) {
    char name[260];
    snprintf(name, sizeof(name), "lexctl3-%lx.tmp", ProcessId());
    FILE* file = OpenFile(name, "w");
    if (!file) {
      fputs("Unable to create temporary file in current directory.\n", stderr);
      return 1;
    }
    temp_path = name;
    std::string cwd;
    temp_remove = GetCurrentDir(cwd) ? cwd + "/" + name : temp_path;
    if (output) fprintf(file, "@tee \"%s\"\n", output);
    for (const char* command : commands) fprintf(file, "%s\n", command);
    // Unquoted, as it always was: a script path with blanks does not work here.
    if (script) fprintf(file, "@read %s\n", script);
    fclose(file);
    run_script = temp_path.c_str();
  }

  LinkClient();
  const ClientBinding& client = RegisteredClient();
  if (client.global_init) client.global_init();
  SetErrexit(errexit);
  bool ok = RunInterpreter(run_script, true);
  if (client.global_cleanup) client.global_cleanup();
  if (!temp_remove.empty()) RemoveFile(temp_remove.c_str());
  if (!ok) return 1;
  // For scripts run in CI: a failed command anywhere fails the run.
  return errexit && AnyCommandFailed() ? 2 : 0;
}

}  // namespace lexctl
