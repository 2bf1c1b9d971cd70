#include "app/client_link.h"

#include <memory>
#include <vector>

#include "client/local_data.h"
#include "client/options.h"
#include "client/session_commands.h"
#include "shell/exec_thread.h"
#include "soapH.h"

namespace lexctl {
namespace {

void ClientPrompt(ExecThread&, std::string& prompt) { prompt = "> "; }

std::unique_ptr<ThreadData> NewThreadData(ExecThread& thread, const ThreadData* parent) {
  if (auto* source = dynamic_cast<const LocalData*>(parent)) {
    return std::make_unique<LocalData>(&thread, *source);
  }
  return std::make_unique<LocalData>(&thread);
}

// OpenSSL initialises itself on first use; gSOAP's eager set-up of every
// cipher would cost each start-up several milliseconds.
void ClientGlobalInit() { soap_ssl_noinit(); }

void Append(std::vector<CommandRecord>& table, const CommandRecord* rows) {
  for (const CommandRecord* row = rows; row->name; ++row) table.push_back(*row);
}

// The client's table: its options first, then its command groups in the
// order help lists them.
const std::vector<CommandRecord>& ClientTable() {
  static const std::vector<CommandRecord> table = [] {
    std::vector<CommandRecord> rows;
    Append(rows, kClientOptionRows);
    Append(rows, kSessionCommandRows);
    rows.push_back({GroupMarker, nullptr, 0, "USERS", nullptr});
    Append(rows, kPasswordCommandRows);
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
  RegisterClient(binding);
}

}  // namespace lexctl
