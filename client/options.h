// The client's settings as setopt options.
#pragma once

#include "shell/command.h"

namespace lexctl {

/// The client's option rows ("_setopt_..."), in the order setopt lists them.
extern const CommandRecord kClientOptionRows[];
extern const size_t kClientOptionCount;

/// True when value is a case-insensitive prefix of word (the empty value
/// included): how the client reads booleans and keywords.
bool PrefixOf(const char* value, const char* word);

}  // namespace lexctl
