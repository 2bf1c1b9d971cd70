// Where the service client is bound to the interpreter.
#pragma once

namespace lexctl {

/// Registers the service client's commands and hooks with the interpreter.
void LinkClient();

}  // namespace lexctl
