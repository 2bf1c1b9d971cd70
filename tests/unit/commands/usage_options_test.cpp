// A command's option table and its usage text name the same options.
#include <gtest/gtest.h>

#include <cctype>
#include <map>
#include <set>
#include <string>

#include "client/session_commands.h"
#include "commands/admin/dictionaries.h"
#include "commands/admin/dtransfer.h"
#include "commands/admin/engines.h"
#include "commands/admin/entries.h"
#include "commands/admin/import_export.h"
#include "commands/admin/udump.h"
#include "commands/admin/users.h"
#include "commands/translate/analysis.h"
#include "commands/translate/documents.h"
#include "commands/translate/html.h"
#include "commands/translate/lookup.h"
#include "commands/translate/text.h"
#include "commands/translate/tfile.h"
#include "shell/console_policy.h"

namespace lexctl {
namespace {

const CommandRecord* const kRows[] = {
    kInformationalRows,   kSessionControlRows,  kPasswordCommandRows,
    kEngineInfoRows,      kProfileRows,         kUserRows,
    kUdumpRows,           kDictionaryRows,      kImportExportRows,
    kTransferRows,        kEntryRows,           kTextCommandRows,
    kHtmlCommandRows,     kDocumentCommandRows, kTfileCommandRows,
    kAnalysisCommandRows, kLookupCommandRows};
const CommandOptionTable* const kTables[] = {
    kSessionOptionTables,    kEngineOptionTables,       kUserOptionTables,     kUdumpOptionTables,
    kDictionaryOptionTables, kImportExportOptionTables, kTransferOptionTables, kEntryOptionTables,
    kTextOptionTables,       kHtmlOptionTables,         kDocumentOptionTables, kTfileOptionTables,
    kAnalysisOptionTables,   kLookupOptionTables};

// Select keys that usage texts may leave out.
const std::string kUnnamed = " -uilang -resetsessions -dbcache -neweid -bmax -smax -timezone -- ";
// Select keys that the user commands' texts name without the "-".
const std::string kDetailKeys =
    " -user -engines -reverse -dic -nomerge -engineprop -profiles -overrides -propdef -limits "
    "-userprop ";
// Deliberate differences, by command.
const std::map<std::string, std::string> kExceptions = {
    {"dcreate", " -vendor "},        // the user-dump spelling of -vender
    {"pwhash", " -licence -http "},  // long forms of -l and -h
    {"test", " -delay "},            // a select key the text leaves out
    {"tran", " -intype "},           // listed, but refused as unknown
    {"tmulti", " -intype "},
    {"udump", " -force "},                                    // udelete's, named in the text
    {"ucreate", kDetailKeys + "-force -userfeatures -api "},  // -api: "see flags -api"
    {"uupdate", kDetailKeys + "-force -userfeatures -api -template -alldic "},  // ucreate's table
    {"uget", kDetailKeys + "-sessions -userdic -techdic -ownerdic "},           // einfo's table
};

std::string Lower(std::string text) {
  for (char& c : text) c = static_cast<char>(tolower(static_cast<unsigned char>(c)));
  return text;
}

bool Listed(const std::string& list, const std::string& option) {
  return list.find(" " + option + " ") != std::string::npos;
}

TEST(UsageOptions, TableAndUsageTextNameTheSameOptions) {
  std::map<std::string, std::string> usage;
  for (const CommandRecord* rows : kRows) {
    for (const CommandRecord* row = rows; row->name; ++row) {
      if (row->usage) usage[row->name] = row->usage;
    }
  }
  usage["utext"] += usage["text"];  // "all text options are also available"
  std::set<std::string> checked;
  for (const CommandOptionTable* tables : kTables) {
    for (const CommandOptionTable* t = tables; t->command; ++t) {
      checked.insert(t->command);
      std::string except = kExceptions.count(t->command) ? kExceptions.at(t->command) : "";
      std::set<std::string> in_table, in_usage;
      for (const OptionDef* row = t->table; row->id != -1; ++row) {
        EXPECT_TRUE(in_table.insert(Lower(row->name)).second) << t->command << " " << row->name;
      }
      if (!usage.count(t->command)) continue;  // versions has none
      for (const std::string& option : UsageOptions(usage[t->command].c_str())) {
        in_usage.insert(Lower(option));
      }
      for (const std::string& option : in_table) {
        EXPECT_TRUE(in_usage.count(option) || Listed(kUnnamed, option) || Listed(except, option))
            << t->command << ": the usage text lacks " << option;
      }
      for (const std::string& option : in_usage) {
        EXPECT_TRUE(in_table.count(option) || Listed(except, option))
            << t->command << ": the table lacks " << option;
      }
    }
  }
  for (const auto& [command, text] : usage) {
    EXPECT_TRUE(checked.count(command) || text.find("-select") == std::string::npos) << command;
  }
}

}  // namespace
}  // namespace lexctl
