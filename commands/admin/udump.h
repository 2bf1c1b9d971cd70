// User dump into re-creating scripts: udump.
#pragma once

#include <string>

#include "shell/command.h"

namespace lexctl {

extern const CommandRecord kUdumpRows[];  ///< udump (group USERS)

/// One command of a generated script. Pieces are appended whole; a piece that
/// would take the line past 96 columns goes onto a continuation line: the line
/// is padded to 96 columns and ended with " \", and the next one starts with
/// four blanks.
class ScriptLine {
 public:
  static constexpr size_t kWidth = 96;
  explicit ScriptLine(const std::string& start) : text_(start), column_(start.size()) {}
  void Add(const std::string& piece);
  /// The command with its final newline.
  std::string Finish() const { return text_ + "\n"; }

 private:
  std::string text_;
  size_t column_;
};

/// A word as the line tokeniser reads it back: as it stands when it holds no
/// blank, tab or double quote, is not empty and does not end in a backslash;
/// else in double quotes.
std::string ScriptWord(const std::string& text);

/// The file extension ("." and the name) of an export format.
std::string ExportExtension(const std::string& format);

}  // namespace lexctl
