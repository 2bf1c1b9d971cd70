// Command table rows, argument vectors and the hand-off between the
// interpreter and the service client.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace lexctl {

class ExecThread;

/// Ordered arguments of one command line. Elements point into the line
/// buffer of the command being run (or at static texts); handlers may
/// reorder or drop them but keep nothing beyond the call.
using ArgVector = std::vector<const char*>;

using CommandHandler = void (*)(ExecThread&, ArgVector&);

/// Convert backslash escapes in the arguments.
constexpr int32_t CMDF_ESCAPES = 1;
/// Leave the row out of every help listing (old alternative names).
constexpr int32_t CMDF_HIDDEN = 2;
/// The row's arguments carry a secret (a password): a console line that
/// gives this command, or this setopt option, a value is kept out of the
/// history file.
constexpr int32_t CMDF_SECRET = 4;

/// One row of a command table. Alias rows carry no description and stand
/// right before the main row; a row whose name is GroupMarker starts a help
/// group; a name beginning with "_setopt_" is an option of setopt.
struct CommandRecord {
  const char* name;
  CommandHandler handler;
  int32_t flags;
  const char* description;
  const char* usage;
};

/// Group header marker, compared by address.
extern const char GroupMarker[];

/// Prefix that turns a row into a setopt option.
inline constexpr char kOptionPrefix[] = "_setopt_";
inline constexpr size_t kOptionPrefixLen = sizeof(kOptionPrefix) - 1;

/// Per-thread state that the client attaches to every interpreter thread.
class ThreadData {
 public:
  virtual ~ThreadData() = default;
};

/// What the service client hands to the interpreter: its rows (options
/// first, then command groups; null-terminated) and its hooks. Registered
/// once, before RunInterpreter.
struct ClientBinding {
  const CommandRecord* commands = nullptr;
  /// Makes the console prompt of a thread.
  void (*make_prompt)(ExecThread& thread, std::string& prompt) = nullptr;
  /// Makes a thread's client state, copying parent's settings when given.
  std::unique_ptr<ThreadData> (*create_thread_data)(ExecThread& thread,
                                                   const ThreadData* parent) = nullptr;
  /// Process-wide resources of the client (TLS library and the like).
  void (*global_init)() = nullptr;
  void (*global_cleanup)() = nullptr;
  /// Console completion: command words whose arguments are files and
  /// options whose value is a file; file names complete after them.
  /// Null-terminated; compared without regard to case.
  const char* const* file_words = nullptr;
  /// Options (with their leading "-") that carry a secret wherever they
  /// stand on a line, also written "/name" or "-name=VALUE": the console
  /// keeps such a line out of the history file. Null-terminated.
  const char* const* secret_options = nullptr;
};

/// The one registration point of the client. A second call replaces the
/// first; nullptr fields fall back to the interpreter's defaults.
void RegisterClient(const ClientBinding& binding);
const ClientBinding& RegisteredClient();

// Messages shared by all handlers.
inline constexpr char kMsgInvalidArgs[] = "Invalid arguments. See help.\n";
inline constexpr char kMsgNotEnoughArgs[] = "Not enough arguments. See help.\n";
inline constexpr char kMsgTooManyArgs[] = "Too many arguments. See help.\n";
inline constexpr char kMsgInvalidArg[] = "Invalid argument: %s. See help.\n";
inline constexpr char kMsgDidRequired[] = "Invalid arguments. DID must be supplied.\n";

}  // namespace lexctl
