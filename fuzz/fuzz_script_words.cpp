// Every writer of the scripts udump writes, with values a server might send,
// read back the way `read` reads a script: the interpreter's own command loop
// (continuation lines, {{...}} substitution, comments, line prefixes, the
// help check, tokenizing) dispatching to the real rows of the commands the
// scripts use, whose handlers only record their arguments. A server may send
// anything: line breaks, "{{", quotes, backslashes, "; shell ...", "-?".
// Either udump refuses the user, or each value comes back as exactly the
// argument it was written as, each command is one the writer wrote, no other
// command runs, and ucreate's and uupdate's own parser reads the values back
// unchanged.
//
// Input: pieces separated by byte 0x01, taken in turn for the fields of a
// user with two engines and two owned dictionaries; the first byte chooses
// which optional fields are present.
#include <strings.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "commands/admin/dictionaries.h"
#include "commands/admin/import_export.h"
#include "commands/admin/udump.h"
#include "commands/admin/user_update.h"
#include "commands/admin/users.h"
#include "shell/dispatch.h"
#include "shell/exec_thread.h"
#include "shell/script.h"
#include "shell/variables.h"

namespace {

using namespace lexctl;

struct Recorded {
  std::string command;
  std::vector<std::string> args;
};

std::vector<Recorded> recorded;
std::map<std::string, CommandHandler> originals;
std::vector<CommandRecord> client_rows;
FILE* sink = nullptr;

void Record(ExecThread& thread, ArgVector& args) {
  // A value taken for a request for help would have shown help instead.
  if (CheckHelpRequest(thread, Record, args, false)) abort();
  Recorded r;
  r.command = thread.current_command ? thread.current_command : "";
  for (const char* arg : args) r.args.emplace_back(arg);
  recorded.push_back(r);
  // The scripts' first line makes the rest of the file UTF-8.
  if (r.command == "setopt") originals["setopt"](thread, args);
}

void Setup() {
  for (const CommandRecord* family : {kUserRows, kDictionaryRows, kImportExportRows}) {
    for (const CommandRecord* row = family; row->name; ++row) client_rows.push_back(*row);
  }
  client_rows.push_back({nullptr, nullptr, 0, nullptr, nullptr});
  ClientBinding binding;
  binding.commands = client_rows.data();
  RegisterClient(binding);
  BuildCommandTable();
  auto* rows = const_cast<CommandRecord*>(CommandTableRows());
  for (CommandRecord* row = rows; row->name; ++row) {
    if (!row->handler || strncmp(row->name, "_setopt_", 8) == 0) continue;
    originals[row->name] = row->handler;
    row->handler = Record;
  }
  sink = fopen("/dev/null", "w");
  // What dcreate would have left; DID_n stay unset, so {{DID_n:n}} gives n.
  SetVariable("LAST", "10999");
}

// Runs a script through the command loop, as read runs a file.
void RunScript(const std::string& text) {
  if (text.empty()) return;
  std::vector<char> script(text.begin(), text.end());
  ExecThread thread("fuzz", true);
  thread.redirect = sink;
  thread.input.file = fmemopen(script.data(), script.size(), "r");
  thread.input.path = "fuzz";
  if (!thread.input.file) abort();
  RunCommandLoop(thread);
}

class Pieces {
 public:
  explicit Pieces(const std::string& input) {
    for (size_t at = 0; at <= input.size();) {
      size_t end = input.find('\x01', at);
      if (end == std::string::npos) end = input.size();
      pieces_.push_back(input.substr(at, end - at));
      at = end + 1;
    }
  }
  std::string Next(const char* fallback) {
    return next_ < pieces_.size() ? pieces_[next_++] : fallback;
  }

 private:
  std::vector<std::string> pieces_;
  size_t next_ = 0;
};

// A command's arguments read with the option scanner, as its handler reads
// them: the values of each option (all take one), and the other words.
struct Scanned {
  std::map<std::string, std::vector<std::string>> options;
  std::vector<std::string> positional;
  std::optional<std::string> Get(const std::string& name) const {
    auto it = options.find(name);
    if (it == options.end() || it->second.size() != 1) return std::nullopt;
    return it->second[0];
  }
};

Scanned Scan(const std::vector<std::string>& words, const std::vector<std::string>& names,
             size_t switches = 0) {
  // The last `switches` names take no argument.
  std::vector<OptionDef> table;
  for (size_t i = 0; i < names.size(); ++i) {
    table.push_back({static_cast<int>(i), names[i].c_str(),
                     i + switches >= names.size() ? kOptNoArgument : kOptRequired});
  }
  table.push_back({-1, nullptr, 0});
  ArgVector args;
  for (const std::string& w : words) args.push_back(w.c_str());
  OptionScanner scanner(table.data(), args);
  Scanned out;
  while (scanner.Next()) {
    if (scanner.error() != kOptOk) abort();
    out.options[names[scanner.id()]].push_back(scanner.argument() ? scanner.argument() : "");
  }
  for (const char* word : scanner.positional()) out.positional.emplace_back(word);
  return out;
}

// A finding names the check that failed.
#define Expect(condition)                                                              \
  do {                                                                                 \
    if (!(condition)) {                                                                \
      fprintf(stderr, "fuzz_script_words.cpp:%d: not so: %s\n", __LINE__, #condition); \
      abort();                                                                         \
    }                                                                                  \
  } while (false)

// ucreate and uupdate read their arguments back into the values written.
UserEdits ParseUserUpdate(const std::vector<std::string>& words) {
  ArgVector args;
  for (const std::string& w : words) args.push_back(w.c_str());
  ExecThread thread("parse", false);
  thread.redirect = sink;
  UserUpdateParser parser(thread);
  OptionScanner scanner(kUserUpdateOptions, args);
  while (scanner.Next()) {
    Expect(scanner.error() == kOptOk);
    if (scanner.id() >= kOptOwn) Expect(parser.Take(scanner.id(), scanner.argument()));
  }
  Expect(scanner.positional().size() == 1);
  return parser.edits();
}

}  // namespace

// "shell" and "!" reach the process's shell through system(): no script line
// may get there.
extern "C" int system(const char*) { abort(); }

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static bool ready = (Setup(), true);
  (void)ready;
  if (size > 1 << 14) return 0;
  std::string input(reinterpret_cast<const char*>(data), size);
  unsigned flags = input.empty() ? 0xff : static_cast<unsigned char>(input[0]);
  Pieces p(input.empty() ? input : input.substr(1));

  std::string userid = p.Next("ann");
  std::string target = p.Next("");
  if (target.empty()) target = userid;
  std::string prefix = flags & 0x80 ? p.Next("dump") : DumpFilePrefix(userid);

  DumpUser user;
  if (flags & 1) user.features = p.Next("ECHO SOAP");
  if (flags & 2) user.username = p.Next("Ann");
  if (flags & 4) user.timezone = p.Next("UTC");
  if (flags & 8) {
    user.from = p.Next("2020-01-01");
    user.to = p.Next("2030-01-01");
  }
  user.api = static_cast<int64_t>(p.Next("").size()) * 0x1234;
  for (int i = 0; i < 2; ++i) user.ips.push_back(p.Next("127.0.0.1"));
  for (int i = 0; i < 2; ++i) {
    std::string type = p.Next("sessions");
    user.limits.emplace_back(type, static_cast<int64_t>(type.size()) - 1);
  }
  for (int i = 0; i < 2; ++i) {
    DumpProperty prop;
    prop.key = p.Next("key");
    prop.val = p.Next("value");
    prop.readonly = prop.key.size() % 2;
    user.properties.push_back(prop);
  }
  std::vector<DumpDictionary> owned(2);
  for (int i = 0; i < 2; ++i) {
    DumpDictionary& d = owned[i];
    d.did = 10001 + i;
    d.eid = p.Next("QZ-EJ");
    d.format = i == 0 ? p.Next("native") : "";
    d.type_name = "USER_SHARED";
    d.subject = p.Next("Law");
    d.languages = p.Next("en-ja");
    d.comment = p.Next("");
    d.vender = p.Next("");
    d.display.emplace_back(p.Next("en"), p.Next("Law terms"));
    d.shares = {p.Next("bob"), p.Next("cy")};
    d.has_userdata = flags & 0x10;
  }
  for (int i = 0; i < 2; ++i) {
    DumpEngine e;
    e.eid = p.Next("QZ-EK");
    e.support = 0x1234 * (i + 1);
    e.hidden = flags & 0x20;
    if (flags & 0x40) {
      e.from = p.Next("2020-01-01Z");
      e.to = p.Next("2099-01-01Z");
    }
    e.max_tech = 4;
    e.max_user = i;
    e.dics = {{101, std::nullopt},
              {10001 + i, userid},
              {20000 + i, p.Next("owner")},
              {102, std::nullopt}};
    user.engines.push_back(e);
  }

  UserScript script = WriteUserScript(user, owned, userid, target, prefix);
  if (script.refused) {
    Expect(script.main_commands.size() > 0 && !script.refused->second.empty());
    return 0;
  }

  recorded.clear();
  RunScript(script.main);
  RunScript(script.shares);
  std::vector<ScriptCommand> expected = script.main_commands;
  expected.insert(expected.end(), script.share_commands.begin(), script.share_commands.end());
  Expect(recorded.size() == expected.size());
  ExecThread substituter("subst", false);
  for (size_t i = 0; i < expected.size(); ++i) {
    Expect(strcasecmp(recorded[i].command.c_str(), expected[i].command.c_str()) == 0);
    Expect(recorded[i].args.size() == expected[i].args.size());
    for (size_t j = 0; j < expected[i].args.size(); ++j) {
      std::string want = expected[i].args[j].text;
      if (!expected[i].args[j].value) SubstituteVariables(substituter, want);
      Expect(recorded[i].args[j] == want);
    }
  }

  // The values are where the writers put them, and read back as themselves.
  size_t at = 0;
  auto next = [&](const char* command) -> const Recorded& {
    while (at < recorded.size() && recorded[at].command != command) ++at;
    Expect(at < recorded.size());
    return recorded[at++];
  };
  const Recorded& remove = next("udelete");
  Expect(remove.args.size() == 2 && remove.args[1] == target);
  UserEdits edits = ParseUserUpdate(next("ucreate").args);
  Expect(edits.password == target && edits.features == user.features &&
         edits.name == user.username && edits.zone == user.timezone);
  Expect(edits.from == (user.from && !user.from->empty() ? user.from : std::nullopt));
  Expect(edits.to == (user.to && !user.to->empty() ? user.to : std::nullopt));
  Expect(edits.ips == user.ips && edits.limits == user.limits &&
         edits.props.size() == user.properties.size());
  for (size_t i = 0; i < user.properties.size(); ++i) {
    Expect(edits.props[i].key == user.properties[i].key &&
           edits.props[i].val == user.properties[i].val &&
           edits.props[i].readonly == user.properties[i].readonly && !edits.props[i].session);
  }
  for (const DumpEngine& e : user.engines) {
    UserEdits engine = ParseUserUpdate(next("uupdate").args);
    Expect(engine.engines.size() == 1 && engine.engines[0].action == "add" &&
           engine.engines[0].eid == e.eid);
    Expect(engine.engines[0].from == (e.from && !e.from->empty() ? e.from : std::nullopt));
    Expect(engine.engines[0].to == (e.to && !e.to->empty() ? e.to : std::nullopt));
  }
  for (const DumpDictionary& d : owned) {
    Scanned create =
        Scan(next("dcreate").args, {"-runas", "-eid", "-type", "-subject", "-languages", "-display",
                                    "-comment", "-vendor", "-userdata"});
    Expect(create.positional.empty() && create.Get("-runas") == target &&
           create.Get("-eid") == d.eid);
    for (auto [name, value] : {std::pair{"-subject", &d.subject},
                               {"-languages", &d.languages},
                               {"-comment", &d.comment},
                               {"-vendor", &d.vender}}) {
      Expect(value->empty() ? !create.options.count(name) : create.Get(name) == *value);
    }
    Expect(create.Get("-display") == d.display[0].first + "=" + d.display[0].second);
    Expect(d.has_userdata ? create.Get("-userdata") == DumpUserdataFile(prefix, d)
                          : !create.options.count("-userdata"));
    if (d.format.empty()) continue;
    Scanned import = Scan(next("dimport").args, {"-runas", "-replace"}, 1);
    Expect(import.Get("-runas") == target && import.options.count("-replace") &&
           import.positional.size() == 2 && import.positional[1] == DumpDataFile(prefix, d));
  }
  for (const DumpDictionary& d : owned) {
    for (const std::string& u : d.shares) {
      Scanned share = Scan(next("dupdate").args, {"-runas", "-add"});
      Expect(share.positional.size() == 1 && share.positional[0] == std::to_string(d.did) &&
             share.Get("-runas") == target && share.Get("-add") == u);
    }
  }
  return 0;
}
