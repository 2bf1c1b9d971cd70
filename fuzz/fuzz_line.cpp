// A script through the interpreter's command loop: continuation lines,
// comments, prefixes, {{...}} substitution, tokenizing and dispatch. Only
// echo, help and setvar (on a few scratch names) really run; every other
// row records its arguments instead, so that no input can touch files,
// start processes or threads, or sleep.
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "shell/dispatch.h"
#include "shell/exec_thread.h"
#include "shell/script.h"
#include "shell/variables.h"

namespace {

using namespace lexctl;

// The only names setvar may change (names are case-sensitive); each input
// starts from these values.
const char* const kScratch[][2] = {
    {"a", "alpha"}, {"b", "{{a}}"}, {"x", ""}, {"n_0", "zero"}, {"open", "{{"}, {"q", "\"q q\""},
};

size_t touched = 0;

void Record(ExecThread& thread, ArgVector& args) {
  CheckHelpRequest(thread, Record, args, false);
  for (const char* arg : args) touched += strlen(arg);
}

void ScratchSetvar(ExecThread& thread, ArgVector& args) {
  if (!args.empty()) {
    bool known = false;
    for (const auto& row : kScratch) known = known || strcmp(args[0], row[0]) == 0;
    if (!known) return Record(thread, args);
  }
  CmdSetvar(thread, args);
}

FILE* sink = nullptr;

}  // namespace

// "shell" and "!" reach the process's shell through system(); here they go
// no further than the arguments.
extern "C" int system(const char* command) {
  touched += command ? strlen(command) : 0;
  return 0;
}

namespace {

void Setup() {
  BuildCommandTable();
  auto* rows = const_cast<CommandRecord*>(CommandTableRows());
  for (CommandRecord* row = rows; row->name; ++row) {
    if (!row->handler || row->handler == CmdEcho || row->handler == CmdHelp) continue;
    row->handler = row->handler == CmdSetvar ? ScratchSetvar : Record;
  }
  sink = fopen("/dev/null", "w");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static bool ready = (Setup(), true);
  (void)ready;
  if (size == 0 || size > 1 << 16) return 0;
  for (const auto& row : kScratch) SetVariable(row[0], row[1]);

  std::vector<char> script(data, data + size);
  ExecThread thread("fuzz", true);
  thread.redirect = sink;
  thread.input.file = fmemopen(script.data(), script.size(), "r");
  thread.input.path = "fuzz";
  if (!thread.input.file) return 0;
  RunCommandLoop(thread);
  return 0;
}
