#include "commands/admin/flags.h"

#include <strings.h>

#include <algorithm>
#include <cctype>
#include <string>
#include <vector>

#include "commands/admin/flag_tables.h"
#include "shell/dispatch.h"
#include "shell/output.h"

namespace lexctl {
namespace {

// A word that starts with a digit is a value, read as far as it goes ("5x" is
// 5, "0x" is 0, too many digits give the largest value).
int64_t ReadValue(const std::string& word) {
  bool hex = word.size() > 1 && word[0] == '0' && (word[1] == 'x' || word[1] == 'X');
  // Hexadecimal covers all 64 bits; the sign bit is just another flag.
  if (hex) return static_cast<int64_t>(strtoull(word.c_str() + 2, nullptr, 16));
  return strtoll(word.c_str(), nullptr, 10);
}

struct TableOption {
  const char* name;
  FlagTable table;
};
const TableOption kTableOptions[] = {
    {"type", FlagTable::kType},         {"support", FlagTable::kSupport},
    {"rewrite", FlagTable::kRewrite},   {"texttype", FlagTable::kTextType},
    {"dictype", FlagTable::kDicType},   {"proptype", FlagTable::kPropType},
    {"api", FlagTable::kApi},
};

const TableOption* FindTableOption(const char* word) {
  for (const TableOption& option : kTableOptions) {
    if (strcasecmp(word, option.name) == 0) return &option;
  }
  return nullptr;
}

const char kIndent[] = "    ";

}  // namespace

void CmdFlags(ExecThread& thread, ArgVector& args) {
  if (CheckHelpRequest(thread, CmdFlags, args, true)) return;
  FlagTable table = FlagTable::kSupport;
  std::vector<std::string> words;
  for (const char* arg : args) {
    // "/name" is an option as well as "-name"; "-NAME" of a flag is a word to fold.
    bool dash = arg[0] == '-' || (arg[0] == '/' && arg[1] != '-' && arg[1] != '\0');
    const TableOption* option = dash ? FindTableOption(arg + 1) : nullptr;
    if (option) {
      table = option->table;
    } else {
      words.emplace_back(arg);
      if (dash) words.back()[0] = '-';
    }
  }
  // A dash word is a flag to clear only when the chosen table knows the name.
  for (const std::string& word : words) {
    if (word[0] == '-' && FlagValue(word.substr(1), table) == -1) {
      Fail(thread, kMsgInvalidArg, word.c_str());
      return;
    }
  }
  if (words.empty()) words.emplace_back("0x0FFFFFFFFFFFFFFF");

  std::vector<std::string> names;
  for (const std::string& word : words) {
    if (isdigit(static_cast<unsigned char>(word[0]))) {
      for (std::string& name : FlagNames(ReadValue(word), table)) names.push_back(std::move(name));
    } else {
      names.push_back(word);
    }
  }
  FlagFold fold = FoldFlagNames(names, table);
  if (!fold.unknown.empty()) {
    Fail(thread, "Invalid flags:\n");
    PrintColumns(thread, fold.unknown, kIndent, kIndent);
  }
  // Round trip through the names so that bits without a name drop out.
  std::vector<std::string> shown = FlagNames(fold.value, table);
  int64_t value = FoldFlagNames(shown, table).value;
  ThreadPrint(thread, "flags  %lld  0x%llx =\n", static_cast<long long>(value),
              static_cast<unsigned long long>(value));
  PrintColumns(thread, shown, kIndent, kIndent);
}

void CmdFeatures(ExecThread& thread, ArgVector& args) {
  if (CheckHelpRequest(thread, CmdFeatures, args, true)) return;
  std::vector<std::string> lines;
  // features has no options: every word is a code to look up.
  for (const char* arg : args) {
    const char* display = FeatureDisplay(arg);
    lines.push_back(std::string(arg) + " = " + (display ? display : arg));
  }
  if (args.empty()) {
    for (const Feature& feature : Features()) {
      lines.push_back(std::string(feature.code) + " = " + feature.display);
    }
  }
  std::sort(lines.begin(), lines.end());
  PrintColumns(thread, lines, kIndent, kIndent);
}

const CommandRecord kFlagCommandRows[] = {
    {"flags", CmdFlags, 0, "Flag and flag value calculator.",
     "Usage: flags [type] { FLAGS | VALUE }\n\n"
     "    -type       Engine type flags.\n"
     "    -support    Engine support flags (the default).\n"
     "    -rewrite    HTML URL rewrite flags.\n"
     "    -texttype   Translation text types.\n"
     "    -dictype    Dictionary types.\n"
     "    -proptype   Property types.\n"
     "    -api        API function flags.\n\n"
     "Each VALUE (decimal, or hexadecimal with 0x) is turned into the names of its\n"
     "flags, and the names are combined in the order given; -NAME removes a flag.\n"
     "The result is shown as a value and as names. Without FLAGS or VALUE every\n"
     "flag of the table is shown. No data is sent to the server.\n"},
    {"feat", CmdFeatures, CMDF_HIDDEN, nullptr, nullptr},
    {"features", CmdFeatures, 0, "Show the list of all known features",
     "Usage: features [code]*\n\n"
     "Shows the name of each feature code given, or of every known feature code.\n"
     "Codes are used with ucreate -userFeat and uupdate -userFeat. No data is\n"
     "sent to the server.\n"},
    {nullptr, nullptr, 0, nullptr, nullptr},
};

}  // namespace lexctl
