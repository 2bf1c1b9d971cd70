// Dictionary lookup: lookup and lookupentry.
#pragma once

#include <string>
#include <vector>

#include "shell/command.h"
#include "shell/option_scanner.h"

class nv__DicEntry;

namespace lexctl {

extern const CommandRecord kLookupCommandRows[];  ///< lookup, lookupentry
extern const CommandOptionTable kLookupOptionTables[];  ///< their option tables

/// The entries of a LookupEntry reply for the requested words: a headed
/// group whenever the word index changes, then not-found and error lines.
void PrintLookupEntries(ExecThread& thread, const std::vector<std::string>& words,
                        const std::vector<nv__DicEntry*>& entries);

}  // namespace lexctl
