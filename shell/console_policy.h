// What the console completes, and which lines it keeps out of the history
// file. Pure rules over the command table, apart from readline.
#pragma once

#include <string>
#include <vector>

namespace lexctl {

/// What the console offers for the word being completed.
struct Completion {
  enum Kind { kNothing, kWords, kFileNames };
  Kind kind = kNothing;
  /// For kWords: the candidates that begin with the word (without regard
  /// to case), in table order.
  std::vector<std::string> words;
};

/// before: the line up to the word being completed; word: that word so far.
/// The first word completes to command names; the word after "help" to
/// command names; after "setopt" to option names (and -save, -load); a word
/// beginning with "-" (or an empty one) to the options that the command's
/// usage text names; the word after a file-taking option, and the arguments
/// of a file-taking command or a shell line, to file names.
Completion CompleteWord(const std::string& before, const std::string& word);

/// The options ("-name") that a usage text names, in order, each once.
/// Upper-case words such as "-KEY" are placeholders, not options.
std::vector<std::string> UsageOptions(const char* usage);

/// True when a console line carries a secret and so must stay out of the
/// history file: a command row marked CMDF_SECRET given arguments, "setopt"
/// giving a value to an option row marked so, or one of the client's secret
/// options anywhere on the line.
bool CarriesSecret(const std::string& line);

}  // namespace lexctl
