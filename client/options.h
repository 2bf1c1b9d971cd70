// The client's settings as setopt options.
#pragma once

#include "shell/command.h"

namespace lexctl {

/// The client's option rows ("_setopt_..."), in the order setopt lists them.
extern const CommandRecord kClientOptionRows[];
extern const size_t kClientOptionCount;

class LocalData;

/// Takes LEXCTL3_SERVER, LEXCTL3_USERID and LEXCTL3_PASSWD (clear, or the
/// 40-digit hash) from the environment into data, as "setopt server",
/// "setopt userid" and "setopt passwd" would take them; a variable that is
/// unset or empty changes nothing. For the main thread's state at start-up,
/// before lexctl3.cfg runs, so that the file still overrides them.
void ApplyEnvironmentSettings(LocalData& data);

/// True when value is a case-insensitive prefix of word (the empty value
/// included): how the client reads booleans and keywords.
bool PrefixOf(const char* value, const char* word);

}  // namespace lexctl
