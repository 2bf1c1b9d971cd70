// A command's option table and its usage text name the same options.
#include <gtest/gtest.h>

#include <cctype>
#include <cstring>
#include <map>
#include <set>
#include <string>

#include "app/client_link.h"
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
#include "shell/dispatch.h"

namespace lexctl {
namespace {

// Select keys that usage texts may leave out.
const std::string kUnnamed = " -uilang -resetsessions -dbcache -neweid -bmax -smax -timezone -- ";
// Select keys that the user commands' texts name without the "-".
const std::string kDetailKeys =
    " -user -engines -reverse -dic -nomerge -engineprop -profiles -overrides -propdef -limits -userprop ";
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

std::set<std::string> Lower(const std::vector<std::string>& options) {
  std::set<std::string> lower;
  for (std::string option : options) {
    for (char& c : option) c = static_cast<char>(tolower(static_cast<unsigned char>(c)));
    EXPECT_TRUE(lower.insert(option).second) << "twice: " << option;
  }
  return lower;
}

TEST(UsageOptions, TableAndUsageTextNameTheSameOptions) {
  LinkClient();
  BuildCommandTable();
  const CommandOptionTable* const kTables[] = {
      kSessionOptionTables, kEngineOptionTables, kUserOptionTables, kUdumpOptionTables,
      kDictionaryOptionTables, kImportExportOptionTables, kTransferOptionTables, kEntryOptionTables,
      kTextOptionTables, kHtmlOptionTables, kDocumentOptionTables, kTfileOptionTables,
      kAnalysisOptionTables, kLookupOptionTables};
  std::set<std::string> checked;
  for (const CommandOptionTable* tables : kTables) {
    for (const CommandOptionTable* t = tables; t->command; ++t) {
      checked.insert(t->command);
      const CommandRecord* row = FindCommand(t->command);
      ASSERT_NE(row, nullptr) << t->command;
      if (!row->usage) continue;  // versions has none
      std::string usage = row->usage;
      if (usage.starts_with("Usage: utext")) usage += FindCommand("text")->usage;  // "all text options"
      std::string except = kExceptions.count(t->command) ? kExceptions.at(t->command) : " ";
      std::vector<std::string> names;
      for (const OptionDef* option = t->table; option->id != -1; ++option) names.push_back(option->name);
      std::set<std::string> in_table = Lower(names), in_usage = Lower(UsageOptions(usage.c_str()));
      for (const std::string& option : in_table) {
        EXPECT_TRUE(in_usage.count(option) || (kUnnamed + except).find(" " + option + " ") != std::string::npos)
            << t->command << ": the usage text lacks " << option;
      }
      for (const std::string& option : in_usage) {
        EXPECT_TRUE(in_table.count(option) || except.find(" " + option + " ") != std::string::npos)
            << t->command << ": the table lacks " << option;
      }
    }
  }
  for (const CommandRecord* row = CommandTableRows(); row->name; ++row) {
    EXPECT_TRUE(checked.count(row->name) || !row->usage || !strstr(row->usage, "-select")) << row->name;
  }
  FreeCommandTable();
}

}  // namespace
}  // namespace lexctl
