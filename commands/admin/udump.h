// User dump into re-creating scripts: udump.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "shell/command.h"
#include "shell/option_scanner.h"

namespace lexctl {

extern const CommandRecord kUdumpRows[];  ///< udump (group USERS)
extern const CommandOptionTable kUdumpOptionTables[];  ///< their option tables

/// What a value written into a script must be able to stand as. Every kind
/// refuses what no quoting can carry (a line break or other control
/// character but the tab, "{{"); the others add their own rules.
enum class ScriptValue {
  kText,      ///< an option's argument: any text
  kSelect,    ///< a select key's argument (-runas): no blank or tab, not empty
  kWord,      ///< a positional word: not empty, no leading - or /, no "*"
  kUserId,    ///< a user id the script names as a word and runs as: kWord and kSelect
  kFileName,  ///< a file a positional word names: kWord, and no "?"
};

/// Why the text cannot stand in a script as that kind of value, or null
/// when it can.
const char* ScriptValueProblem(const std::string& text, ScriptValue kind);

/// One argument of a generated command as the script reader must give it
/// back: a value read back byte for byte, or text of the dump's own (an
/// option name, a number, a {{DID_n:n}} reference), read back after
/// variable substitution.
struct ScriptArg {
  std::string text;
  bool value = false;
};

/// One command of a generated script. Pieces are appended whole; a piece that
/// would take the line past 96 columns goes onto a continuation line: the line
/// is padded to 96 columns and ended with " \", and the next one starts with
/// four blanks. Values are written so that each reads back as exactly one
/// argument with exactly its bytes; one that cannot be is refused, and the
/// command must then not be written.
class ScriptLine {
 public:
  static constexpr size_t kWidth = 96;
  /// The command word (text of the dump's own, without blanks).
  explicit ScriptLine(const std::string& command)
      : command_(command), text_(command), column_(command.size()) {}

  /// Words of the dump's own: " WORD" (quoted when it holds a blank).
  ScriptLine& Fixed(const std::string& word);
  ScriptLine& Fixed(const std::string& option, const std::string& word);
  /// A value as a positional word: " VALUE".
  ScriptLine& Value(const std::string& value, ScriptValue kind);
  /// An option and its value as one piece: " -name VALUE", or " -name=VALUE"
  /// when the value alone would be taken as a help request ("-?").
  ScriptLine& Option(const std::string& option, const std::string& value,
                     ScriptValue kind = ScriptValue::kText);
  /// The same with the value always in double quotes: " -name "VALUE"".
  ScriptLine& QuotedOption(const std::string& option, const std::string& value);
  /// An option joined to its value in one word: " -name=VALUE".
  ScriptLine& Joined(const std::string& option, const std::string& value, ScriptValue kind);

  /// A list of DIDs (or references to them) as one argument: ' -name "', then
  /// "DID " each as a piece of its own, then the closing quote.
  ScriptLine& Dids(const std::string& option, const std::vector<std::string>& dids);
  /// A piece of the dump's own, written as it stands, and the words it reads
  /// back as.
  ScriptLine& Piece(const std::string& piece, const std::vector<std::string>& words);

  /// Refuses a value the command's parser would read otherwise.
  void Refuse(const std::string& value, const char* why);

  /// Appends raw text as one piece (layout only; it adds no argument).
  void Add(const std::string& piece);
  /// The command with its final newline.
  std::string Finish() const { return text_ + "\n"; }

  const std::string& command() const { return command_; }
  /// The arguments the command must read back as.
  const std::vector<ScriptArg>& args() const { return args_; }
  /// The first value refused (with why), if any.
  const std::optional<std::pair<std::string, std::string>>& refused() const { return refused_; }

 private:
  bool Check(const std::string& value, ScriptValue kind);
  ScriptLine& OptionWord(const std::string& option, const std::string& value, ScriptValue kind, bool quoted);

  std::string command_;
  std::string text_;
  size_t column_;
  std::vector<ScriptArg> args_;
  std::optional<std::pair<std::string, std::string>> refused_;
};

/// A word as the line tokeniser reads it back: as it stands when it holds no
/// blank, tab or double quote, is not empty and does not end in a backslash
/// (and is not to be quoted always); else in double quotes.
std::string ScriptWord(const std::string& text, bool always_quoted = false);

/// The file extension ("." and the name) of an export format.
std::string ExportExtension(const std::string& format);

/// The file-name prefix made from a user id: a name in the current folder
/// (no folder separator, drive colon, wildcard, quote, blank or control
/// character; no leading "-"), every other byte kept.
std::string DumpFilePrefix(const std::string& userid);

/// Text safe to print: control characters, "{" and "}" as \xHH.
std::string PrintableValue(const std::string& text);

// What a user's dump is made from: the server's values, in plain types.

struct DumpDictionaryRef {
  int64_t did = 0;
  std::optional<std::string> owner;
};

struct DumpEngine {
  std::string eid;
  uint32_t support = 0;
  bool hidden = false;
  std::optional<std::string> from, to;
  std::optional<int64_t> max_tech, max_user;
  std::vector<DumpDictionaryRef> dics;  ///< in order of priority
};

struct DumpProperty {
  std::string key, val;
  bool readonly = false;
};

struct DumpUser {
  std::optional<std::string> features, username, timezone, from, to;
  int64_t api = 0;
  std::vector<std::string> ips;
  std::vector<std::pair<std::string, int64_t>> limits;
  std::vector<DumpProperty> properties;
  std::vector<DumpEngine> engines;
};

/// A dictionary the user owns.
struct DumpDictionary {
  int64_t did = 0;
  std::string eid;
  std::string format;  ///< export format of its engine; empty: none
  std::string type_name;
  std::string subject, languages, comment, vender;
  std::vector<std::pair<std::string, std::string>> display;
  std::vector<std::string> shares;
  bool has_userdata = false;
};

/// One command of a script as written, for checking how it reads back.
struct ScriptCommand {
  std::string command;
  std::vector<ScriptArg> args;
};

struct UserScript {
  std::string main;    ///< PREFIX_udump.txt
  std::string shares;  ///< PREFIX_udump_dicshares.txt; empty: no file
  std::vector<ScriptCommand> main_commands, share_commands;
  /// The first value that no script can carry, and why; nothing is to be written then.
  std::optional<std::pair<std::string, std::string>> refused;
};

/// The data file of an owned dictionary and the file of its user data.
std::string DumpDataFile(const std::string& prefix, const DumpDictionary& d);
std::string DumpUserdataFile(const std::string& prefix, const DumpDictionary& d);

/// Writes the scripts that re-create the user (dumped as userid) as target:
/// the main script re-creates the user and its own dictionaries; the shares
/// file shares its dictionaries with other users, takes up other users'
/// dictionaries and puts them in the engines' lists, to be read after the
/// main scripts of every user dumped together.
UserScript WriteUserScript(const DumpUser& user, const std::vector<DumpDictionary>& owned,
                           const std::string& userid, const std::string& target,
                           const std::string& prefix);

}  // namespace lexctl
