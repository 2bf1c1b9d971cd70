// The user printer that ucreate, uupdate and uget share.
#pragma once

#include "shell/exec_thread.h"

class nv__User;

namespace lexctl {

/// Prints a user under the title (none when null): ids and names, features or
/// the API mask, validity, limits, client addresses, properties, sessions, and
/// the engines with the engine printer in the display mode.
void PrintUser(ExecThread& thread, const char* title, const nv__User& user, int mode);

}  // namespace lexctl
