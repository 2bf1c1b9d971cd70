// The SOAP debug logs: every byte sent and received, per context.
#pragma once

#include <string>

struct soap;

namespace lexctl {

/// With a prefix other than "" or "off", appends what the context sends to
/// PREFIX-sent.log, what it receives to PREFIX-recv.log and one line per
/// exchange to PREFIX-test.log; otherwise logging stops.
void AttachWireLog(struct soap* soap, const std::string& prefix);

}  // namespace lexctl
