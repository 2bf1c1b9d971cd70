// The Windows build has no "windows" (WinINet) layer yet. Choosing it must
// not quietly fall back to another layer: every call on it fails and says
// why, and "setopt commslayer gsoap" is the way on.
#include <memory>

#include "client/transport.h"
#include "soapH.h"

namespace lexctl {
namespace {

SOAP_SOCKET Refuse(struct soap* soap, const char*, const char*, int) {
  soap_set_sender_error(soap, "The \"windows\" comms layer (WinINet) is not in this build; use \"setopt commslayer gsoap\"",
                        nullptr, SOAP_TCP_ERROR);
  return SOAP_INVALID_SOCKET;
}

class AbsentTransport : public Transport {
 public:
  void Attach(struct soap* soap, const TransportSettings&, int) override { soap->fopen = Refuse; }
};

}  // namespace

std::unique_ptr<Transport> MakePlatformHttpTransport() { return std::make_unique<AbsentTransport>(); }

}  // namespace lexctl
