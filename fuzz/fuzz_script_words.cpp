// The words and lines of the scripts udump writes, read back the way a
// script is read: continuation lines joined, then cut into arguments. Every
// value must come back as it was. Input: pieces separated by byte 0x01.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "commands/admin/udump.h"
#include "shell/tokenizer.h"

namespace {

using namespace lexctl;

std::vector<std::string> Arguments(std::string line) {
  ArgVector args;
  TokenizeArguments(line.data(), false, args);
  std::vector<std::string> words;
  for (const char* arg : args) words.emplace_back(arg);
  return words;
}

// The script reader's joining: trailing blanks go, a final backslash takes
// the next line.
std::string Join(const std::string& script) {
  std::string logical;
  size_t at = 0;
  while (at < script.size()) {
    size_t end = script.find('\n', at);
    if (end == std::string::npos) end = script.size();
    std::string line = script.substr(at, end - at);
    while (!line.empty() && (line.back() == ' ' || line.back() == '\t')) line.pop_back();
    at = end + 1;
    bool more = !line.empty() && line.back() == '\\';
    if (more) line.pop_back();
    logical += line;
    if (!more) break;
  }
  if (at < script.size()) abort();  // one command must stay one logical line
  return logical;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::string input(reinterpret_cast<const char*>(data), size);
  // A script line cannot hold these; nothing udump writes comes from them.
  if (input.find_first_of(std::string("\n\r\0", 3)) != std::string::npos) return 0;
  std::vector<std::string> values;
  for (size_t at = 0; at <= input.size();) {
    size_t end = input.find('\x01', at);
    if (end == std::string::npos) end = input.size();
    values.push_back(input.substr(at, end - at));
    at = end + 1;
  }
  ScriptLine line("ucreate");
  for (const std::string& value : values) line.Add(" -opt " + ScriptWord(value));
  std::vector<std::string> words = Arguments(Join(line.Finish()));
  if (words.size() != 1 + 2 * values.size() || words[0] != "ucreate") abort();
  for (size_t i = 0; i < values.size(); ++i) {
    if (words[1 + 2 * i] != "-opt" || words[2 + 2 * i] != values[i]) abort();
  }
  return 0;
}
