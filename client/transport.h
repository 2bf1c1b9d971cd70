// A comms layer carries the requests and replies of a SOAP context: gSOAP's
// own sockets ("gsoap") or the platform's HTTP library ("windows": libcurl
// here, WinINet in a Windows build). Each layer lives in its own file.
#pragma once

#include <memory>
#include <string>

struct soap;

namespace lexctl {

struct TransportSettings;

/// A reply that arrives slower than this many bytes a second, averaged over
/// the time-out, is given up (both layers), so a dripping server cannot hold
/// a command; a stalled one ends at the time-out itself.
inline constexpr long kLowSpeedLimit = 10;

/// How every layer reports a reply given up under that rule (libcurl's words).
inline std::string TooSlowMessage(long long seconds) {
  return "Operation too slow. Less than " + std::to_string(kLowSpeedLimit) + " bytes/sec transferred the last " +
         std::to_string(seconds) + " seconds";
}

class Transport {
 public:
  virtual ~Transport() = default;
  /// Makes a freshly built context carry its calls through this layer.
  virtual void Attach(struct soap* soap, const TransportSettings& settings, int ssl_mode) = 0;
  /// Appends the layer's own trace to file; "" stops it. A layer without
  /// a trace of its own ignores it.
  virtual void SetTrace(const std::string& /*file*/) {}
  /// Marks the start of a call, for LostKeptConnection.
  virtual void BeginCall(struct soap* /*soap*/) {}
  /// Whether a call that ended in EOF went out on a kept-alive connection
  /// the peer had closed, before any of the reply came. Servers and proxies
  /// close idle connections whenever they like (tinyproxy after every reply,
  /// without saying so), so such a request goes again once on a fresh
  /// connection, as libcurl does on the other layer.
  virtual bool LostKeptConnection(struct soap* /*soap*/) const { return false; }
};

/// The platform's HTTP library layer ("windows").
std::unique_ptr<Transport> MakePlatformHttpTransport();
/// gSOAP's own sockets ("gsoap").
std::unique_ptr<Transport> MakeGsoapTransport();

}  // namespace lexctl
