// Dictionary entries: dadd, daddtm, dget and ddel.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "shell/command.h"
#include "shell/option_scanner.h"

namespace lexctl {

extern const CommandRecord kEntryRows[];  ///< dadd, daddtm, dget, ddel (group DICTIONARY ENTRIES)
extern const CommandOptionTable kEntryOptionTables[];  ///< their option tables

/// Most entries one dadd sends, and most -head/-id requests of dget and ddel.
inline constexpr size_t kMaxEntries = 500;

/// One translation-memory entry as daddtm's options describe it.
struct TmEntry {
  struct Sentence {
    std::string lang;
    std::string text;
    bool key = true;
  };
  std::vector<Sentence> sentences;
  std::optional<int> weight;
  std::optional<int> info;
  std::optional<std::string> author, date, title, comment, userdata;
};

/// Builds daddtm's entries from its options in command-line order.
class TmEntryBuilder {
 public:
  /// Adds LANG=TEXT (TEXT starting with "#": not a search key) to the
  /// current entry; false when there is no "=".
  bool AddSentence(const std::string& text);
  /// Starts a new entry, unless the current one has no sentence yet.
  void NewEntry();
  TmEntry& current() { return entries_.back(); }
  /// The entries; false when one of them has no sentence.
  bool Finish(std::vector<TmEntry>& entries) const;

 private:
  std::vector<TmEntry> entries_ = std::vector<TmEntry>(1);
};

}  // namespace lexctl
