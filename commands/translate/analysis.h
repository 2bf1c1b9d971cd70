// Text analysis: parse, split, dlang and recode.
#pragma once

#include <string>

#include "shell/command.h"
#include "shell/option_scanner.h"

class nv__SourceBlockArray;
class nv__TextBlockArray;

namespace lexctl {

extern const CommandRecord kAnalysisCommandRows[];  ///< parse, split, dlang, recode
extern const CommandOptionTable kAnalysisOptionTables[];  ///< their option tables

/// What parse shows of the blocks sent and the sentences and words that came
/// back, after the block count check (printed on the thread).
std::string ParseListing(ExecThread& thread, const nv__SourceBlockArray& sent,
                         const nv__TextBlockArray* received);

}  // namespace lexctl
