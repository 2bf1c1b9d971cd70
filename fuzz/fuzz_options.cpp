// A command's arguments through the option scanner and the request frame's
// option handling (select keys folded from options, request group, own
// options), with the common block plus one own option of each kind.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "client/common_options.h"
#include "client/frame.h"
#include "shell/exec_thread.h"

namespace {

using namespace lexctl;

enum Own { kName = kOptOwn, kFlag, kLevel, kRefused };
constexpr auto kTable = CommandOptions<kCommonOptions>({SelectKey("-delay", kOptRequired),
                                                        {kName, "-name", kOptRequired},
                                                        {kFlag, "-flag", kOptNoArgument},
                                                        {kLevel, "-level", kOptOptional},
                                                        {kRefused, "refused", kOptNoArgument}});

// Every word is an option, an option's argument or a positional, exactly
// once; an argument is the next word or the text after "=" in the option.
void CheckScanner(const ArgVector& args) {
  OptionScanner scanner(kTable, args);
  size_t options = 0, arguments = 0;
  while (scanner.Next()) {
    ++options;
    if ((scanner.error() == kOptUnknown) != (scanner.id() == -1)) abort();
    const char* option = scanner.text();
    const char* argument = scanner.argument();
    if (!argument) continue;
    if (argument > option && argument <= option + strlen(option)) {
      if (argument[-1] != '=') abort();
      continue;
    }
    bool found = false;
    for (const char* arg : args) found = found || arg == argument;
    if (!found) abort();
    ++arguments;
  }
  if (options + arguments + scanner.positional().size() != args.size()) abort();
}

ExecThread* thread = nullptr;

void Setup() {
  thread = new ExecThread("fuzz", true);
  thread->redirect = fopen("/dev/null", "w");
  thread->data = std::make_unique<LocalData>(thread);
}

}  // namespace

// Input: the arguments, one per line.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static bool ready = (Setup(), true);
  (void)ready;
  std::vector<std::string> words;
  std::string text(reinterpret_cast<const char*>(data), size);
  for (size_t pos = 0; pos <= text.size();) {
    size_t end = text.find('\n', pos);
    if (end == std::string::npos) end = text.size();
    words.push_back(text.substr(pos, end - pos));
    pos = end + 1;
  }
  ArgVector args;
  for (const std::string& word : words) args.push_back(word.c_str());
  CheckScanner(args);

  RequestFrame frame(*thread, " neweid");
  bool scanned = frame.Scan(kTable, args, [](const OptionScanner& option) {
    return option.id() != kRefused;
  });
  if (scanned && frame.ExpectPositional(0, 3)) frame.PrintSelectKeys();
  return 0;
}
