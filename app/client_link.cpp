#include "app/client_link.h"

#include <memory>
#include <vector>

#include "client/local_data.h"
#include "client/options.h"
#include "client/session_commands.h"
#include "commands/admin/dictionaries.h"
#include "commands/admin/dtransfer.h"
#include "commands/admin/engines.h"
#include "commands/admin/entries.h"
#include "commands/admin/flags.h"
#include "commands/admin/import_export.h"
#include "commands/admin/udump.h"
#include "commands/admin/users.h"
#include "commands/translate/analysis.h"
#include "commands/translate/documents.h"
#include "commands/translate/html.h"
#include "commands/translate/lookup.h"
#include "commands/translate/text.h"
#include "commands/translate/tfile.h"
#include "service/base64_in.h"
#include "shell/exec_thread.h"
#include "shell/platform.h"
#include "soapH.h"

namespace lexctl {
namespace {

void ClientPrompt(ExecThread&, std::string& prompt) { prompt = "> "; }

std::unique_ptr<ThreadData> NewThreadData(ExecThread& thread, const ThreadData* parent) {
  if (auto* source = dynamic_cast<const LocalData*>(parent)) {
    return std::make_unique<LocalData>(&thread, *source);
  }
  auto data = std::make_unique<LocalData>(&thread);
  // The main thread is made before lexctl3.cfg runs: the environment gives
  // the defaults (a password kept out of the process list) and the file
  // still overrides them. Started threads copy their creator's settings.
  if (thread.is_main()) ApplyEnvironmentSettings(*data);
  return data;
}

// Words after which the console completes file names: the commands whose
// arguments are files and the options whose value is a file.
const char* const kFileWords[] = {
    "tran", "tmulti", "tfile", "recode", "dimport", "dexport",
    "-file", "-indata", "-infile", "-rules", "-input", "-transform", "-userdata", "-binary",
    "-outdata", "-outfile", "-output", "-outdir", "-downfile", nullptr,
};

// Options whose value is a password wherever they stand on a line; the
// console keeps such lines out of its history file (as do the rows marked
// CMDF_SECRET: passwd, pwhash, setopt passwd, setopt sslkeypass).
const char* const kSecretOptions[] = {"-userPass", nullptr};

// OpenSSL initialises itself on first use; gSOAP's eager set-up of every
// cipher would cost each start-up several milliseconds.
void ClientGlobalInit() { soap_ssl_noinit(); }

void Append(std::vector<CommandRecord>& table, const CommandRecord* rows) {
  for (const CommandRecord* row = rows; row->name; ++row) table.push_back(*row);
}

// The client's table: its options first, then its command groups in the
// order help lists them. The groups are laid out here, not in the families,
// because some groups gather rows of several families.
const std::vector<CommandRecord>& ClientTable() {
  static const std::vector<CommandRecord> table = [] {
    struct Group {
      const char* title;
      std::vector<const CommandRecord*> families;
    };
    const Group groups[] = {
        {"INFORMATIONAL", {kInformationalRows, kEngineInfoRows}},
        {"SESSION CONTROL", {kSessionControlRows}},
        {"TRANSLATION", {kTextCommandRows, kHtmlCommandRows}},
        {"DOCUMENT TRANSLATION", {kDocumentCommandRows, kTfileCommandRows}},
        {"TEXT ANALYSIS", {kAnalysisCommandRows}},
        {"DICTIONARY LOOKUP", {kLookupCommandRows}},
        {"UTILITY", {kFlagCommandRows, kProfileRows, kLastdidRows}},
        {"DICTIONARIES", {kDictionaryRows, kImportExportRows, kTransferRows}},
        {"DICTIONARY ENTRIES", {kEntryRows}},
        {"USERS", {kPasswordCommandRows, kUserRows, kUdumpRows}},
    };
    std::vector<CommandRecord> rows;
    Append(rows, kClientOptionRows);
    for (const Group& group : groups) {
      size_t header = rows.size();
      rows.push_back({GroupMarker, nullptr, 0, group.title, nullptr});
      for (const CommandRecord* family : group.families) Append(rows, family);
      // A group whose families have no rows yet is left out of help.
      if (rows.size() == header + 1) rows.pop_back();
    }
    rows.push_back({nullptr, nullptr, 0, nullptr, nullptr});
    return rows;
  }();
  return table;
}

}  // namespace

void LinkClient() {
  ClientBinding binding;
  binding.commands = ClientTable().data();
  binding.make_prompt = ClientPrompt;
  binding.create_thread_data = NewThreadData;
  binding.global_init = ClientGlobalInit;
  binding.file_words = kFileWords;
  binding.secret_options = kSecretOptions;
  RegisterClient(binding);
  LexSetLargeBufferAdvice(PreferLargePages);
}

}  // namespace lexctl
