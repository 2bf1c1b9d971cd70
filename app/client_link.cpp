#include "app/client_link.h"

namespace lexctl {

// The service client is not part of this build yet: the interpreter runs
// with its own commands only.
void LinkClient() {}

}  // namespace lexctl
