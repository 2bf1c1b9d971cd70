// Binary payloads of requests and replies: inline base64, or DIME
// attachments when the thread's dime setting is on.
#pragma once

#include <string>
#include <string_view>

class xsd__base64Binary;
struct soap;

namespace lexctl {

class LocalData;

/// Points binary at bytes without copying them (bytes must outlive the
/// call); with dime on, the value travels as a DIME attachment whose
/// option names it.
void SetPayload(LocalData& data, xsd__base64Binary& binary, std::string_view bytes,
                const char* name);

/// The same for an optional member: a new element in the thread's SOAP
/// context, which lives until the call's data are released.
xsd__base64Binary* Payload(LocalData& data, const std::string& bytes, const std::string& name);

/// While alive, the payloads of the request being sent travel as DIME
/// attachments when the dime setting is on: in literal messages the
/// library finds attachments below the top level of a request only in
/// DIME mode. Hold it around the send alone.
class DimeRequest {
 public:
  explicit DimeRequest(LocalData& data);
  ~DimeRequest();
  DimeRequest(const DimeRequest&) = delete;
  DimeRequest& operator=(const DimeRequest&) = delete;

 private:
  struct soap* soap_ = nullptr;
};

/// The bytes of a received value; empty when it is absent.
std::string_view PayloadBytes(const xsd__base64Binary* binary);

}  // namespace lexctl
