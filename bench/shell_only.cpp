// The interpreter without the service client: the start-up baseline that
// lexctl3 is measured against.
#include "app/client_link.h"

namespace lexctl {

void LinkClient() {}

}  // namespace lexctl
