#include "shell/console_policy.h"

#include <strings.h>

#include <cctype>
#include <cstring>

#include "shell/builtins.h"
#include "shell/dispatch.h"
#include "shell/tokenizer.h"
#include "shell/variables.h"

namespace lexctl {
namespace {

// The interpreter's own commands that take file names.
const char* const kOwnFileWords[] = {"read", "tee", "cd", nullptr};
// Line prefixes of the script syntax before the command word.
constexpr char kLinePrefixes[] = "@$=-+";

bool IsBlank(char c) { return c == ' ' || c == '\t'; }

bool InList(const char* const* list, const std::string& word) {
  for (; list && *list; ++list) {
    if (strcasecmp(*list, word.c_str()) == 0) return true;
  }
  return false;
}

bool IsFileWord(const std::string& word) {
  return InList(kOwnFileWords, word) || InList(RegisteredClient().file_words, word);
}

bool StartsWithNoCase(const std::string& text, const std::string& start) {
  return text.size() >= start.size() && strncasecmp(text.c_str(), start.c_str(), start.size()) == 0;
}

// The row that describes the command a (maybe alias) row runs: alias rows
// carry neither description nor usage.
const CommandRecord* DescribedRow(const CommandRecord* row) {
  for (const CommandRecord* other = CommandTableRows(); other->name; ++other) {
    if (other->name != GroupMarker && other->handler == row->handler && other->description)
      return other;
  }
  return row;
}

// Splits a line into its command word (after the line prefixes) and the
// text after it. False when there is no command word.
bool SplitCommand(const std::string& line, std::string& word, std::string& rest) {
  size_t i = line.find_first_not_of(" \t");
  if (i == std::string::npos) return false;
  i = line.find_first_not_of(kLinePrefixes, i);
  if (i == std::string::npos) return false;
  i = line.find_first_not_of(" \t", i);
  if (i == std::string::npos) return false;
  size_t end = i;
  while (end < line.size() && !IsBlank(line[end])) ++end;
  word = line.substr(i, end - i);
  rest = line.substr(end);
  return true;
}

std::vector<std::string> SplitBlanks(const std::string& text) {
  std::vector<std::string> words;
  size_t i = 0;
  while (true) {
    while (i < text.size() && IsBlank(text[i])) ++i;
    if (i >= text.size()) return words;
    size_t end = i;
    while (end < text.size() && !IsBlank(text[end])) ++end;
    words.push_back(text.substr(i, end - i));
    i = end;
  }
}

Completion Words(const std::vector<std::string>& candidates, const std::string& word) {
  Completion completion;
  completion.kind = Completion::kWords;
  for (const std::string& candidate : candidates) {
    if (StartsWithNoCase(candidate, word)) completion.words.push_back(candidate);
  }
  return completion;
}

Completion FileNames() {
  Completion completion;
  completion.kind = Completion::kFileNames;
  return completion;
}

Completion CommandNames(const std::string& word) {
  std::vector<std::string> names;
  for (const CommandRecord* row = CommandTableRows(); row->name; ++row) {
    if (row->name == GroupMarker || (row->flags & CMDF_HIDDEN) || row->name[0] == '_') continue;
    names.emplace_back(row->name);
  }
  return Words(names, word);
}

Completion OptionNames(const std::string& word) {
  std::vector<std::string> names;
  for (const CommandRecord* row = CommandTableRows(); row->name; ++row) {
    if (row->name != GroupMarker && strncasecmp(row->name, kOptionPrefix, kOptionPrefixLen) == 0) {
      names.emplace_back(row->name + kOptionPrefixLen);
    }
  }
  names.emplace_back("-save");
  names.emplace_back("-load");
  return Words(names, word);
}

bool IsOptionWord(const std::string& word) {
  return word.size() > 1 && (word[0] == '-' || word[0] == '/');
}

}  // namespace

std::vector<std::string> UsageOptions(const char* usage) {
  std::vector<std::string> options;
  if (!usage) return options;
  for (const char* p = usage; *p; ++p) {
    bool starts = p == usage || strchr(" \t\n[{|<(", p[-1]);
    if (!starts || p[0] != '-' || !isalpha(static_cast<unsigned char>(p[1]))) continue;
    const char* end = p + 1;
    bool lower = false;
    while (isalnum(static_cast<unsigned char>(*end)) || *end == '_') {
      lower = lower || islower(static_cast<unsigned char>(*end));
      ++end;
    }
    std::string option(p, end);
    bool seen = false;
    for (const std::string& known : options) seen = seen || known == option;
    if (lower && !seen) options.push_back(option);
    p = end - 1;
  }
  return options;
}

Completion CompleteWord(const std::string& before, const std::string& word) {
  std::string command, rest;
  if (!SplitCommand(before, command, rest)) return CommandNames(word);
  if (command[0] == '!') return FileNames();
  std::vector<std::string> args = SplitBlanks(rest);
  // Readline cuts words at "=" too: "-indata=" before the word means the
  // word is that option's value.
  bool inside_word = !before.empty() && !IsBlank(before.back());
  if (inside_word) {
    if (args.empty()) return {};  // the command word itself is cut, as in "{{x"
    std::string last = args.back();
    if (IsOptionWord(last) && last.back() == '=') {
      last.pop_back();
      last[0] = '-';
      if (IsFileWord(last)) return FileNames();
    }
    return {};
  }
  const CommandRecord* row = FindCommand(command.c_str());
  if (!row || !row->handler) return {};
  row = DescribedRow(row);
  if (row->handler == CmdShell) return FileNames();
  if (row->handler == CmdHelp) return args.empty() ? CommandNames(word) : Completion{};
  if (row->handler == CmdSetopt) {
    if (args.empty()) return OptionNames(word);
    bool file = args.size() == 1 && (strcasecmp(args[0].c_str(), "-load") == 0 ||
                                     strcasecmp(args[0].c_str(), "-save") == 0);
    return file ? FileNames() : Completion{};
  }
  if (!args.empty() && IsOptionWord(args.back())) {
    std::string option = args.back();
    option[0] = '-';
    if (IsFileWord(option)) return FileNames();
  }
  if (!word.empty() && word[0] == '-') return Words(UsageOptions(row->usage), word);
  if (IsFileWord(row->name)) return FileNames();
  if (word.empty()) return Words(UsageOptions(row->usage), word);
  return {};
}

bool CarriesSecret(const std::string& line) {
  for (const char* const* option = RegisteredClient().secret_options; option && *option; ++option) {
    std::string name(*option);
    name.erase(0, name.find_first_not_of('-'));
    if (name.empty()) continue;
    // "-name", "--name", "/name", "-name=VALUE", quoted or not: anywhere.
    for (size_t at = 1; at + name.size() <= line.size(); ++at) {
      if ((line[at - 1] == '-' || line[at - 1] == '/') &&
          strncasecmp(line.c_str() + at, name.c_str(), name.size()) == 0) {
        return true;
      }
    }
  }
  std::string command, rest;
  if (!SplitCommand(line, command, rest)) return false;
  const CommandRecord* row = FindCommand(command.c_str());
  if (!row || !row->handler) return false;
  std::vector<char> buffer(rest.begin(), rest.end());
  buffer.push_back('\0');
  ArgVector args;
  TokenizeArguments(buffer.data(), false, args);
  if (((row->flags | DescribedRow(row)->flags) & CMDF_SECRET) && !args.empty()) return true;
  if (row->handler != CmdSetopt || args.size() < 2) return false;
  std::string option = args[0];
  if (strcasecmp(args[0], "-escaped") == 0) {
    if (args.size() < 3) return false;
    option = DecodeEscaped(args[1]);
  }
  const CommandRecord* option_row = FindOption(option.c_str());
  return option_row && (option_row->flags & CMDF_SECRET);
}

}  // namespace lexctl
