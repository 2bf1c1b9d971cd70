// The "gsoap" comms layer: gSOAP's own sockets, with the checks and limits
// the library leaves out (the server's host name, a slow reply) and a
// faster path for plain connections.
#pragma once

#include "client/transport.h"

namespace lexctl {

class GsoapTransport : public Transport {
 public:
  /// Each context keeps its own hooks: nothing outlives the context.
  void Attach(struct soap* soap, const TransportSettings& settings, int ssl_mode) override;
  void BeginCall(struct soap* soap) override;
  bool LostKeptConnection(struct soap* soap) const override;
};

}  // namespace lexctl
