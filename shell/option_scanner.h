// The option scanner shared by the command line and every client command.
#pragma once

#include <string>

#include "shell/command.h"

namespace lexctl {

enum OptionKind : int {
  kOptNoArgument = 0,
  kOptRequired = 1,  // in the next word, or after "=" in the same word
  kOptOptional = 3,  // only after "=" in the same word
};

/// One option: its id, its name with the leading dash(es), its kind. A
/// table ends with id -1.
struct OptionDef {
  int id;
  const char* name;
  int kind;
};

/// A command and the table it scans with. Each command family lists its own
/// so that a test can hold every table against the command's usage text.
struct CommandOptionTable {
  const char* command;
  const OptionDef* table;
};

enum OptionError : int {
  kOptOk = 0,
  kOptUnknown = 1,
  kOptMissingArgument = 2,
  kOptUnexpectedArgument = 3,
};

/// Walks an argument vector: options are taken out one by one with Next();
/// the other words stay, in order, as positional arguments. Names compare
/// without regard to case; "/name" is read as "-name".
class OptionScanner {
 public:
  OptionScanner(const OptionDef* table, const ArgVector& args) : table_(table), args_(args) {}

  /// False when no option is left. After true: error(), id(), text(),
  /// argument() describe the option found.
  bool Next();

  int error() const { return error_; }
  int id() const { return id_; }
  /// The option as written on the line.
  const char* text() const { return text_; }
  /// Its argument, or null.
  const char* argument() const { return argument_; }
  const ArgVector& positional() const { return positional_; }

 private:
  const OptionDef* table_;
  const ArgVector& args_;
  size_t next_ = 0;
  int error_ = kOptOk;
  int id_ = -1;
  const char* text_ = nullptr;
  const char* argument_ = nullptr;
  ArgVector positional_;
};

}  // namespace lexctl
