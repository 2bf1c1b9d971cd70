// Binary payloads of requests and replies: inline base64, or DIME
// attachments when the thread's dime setting is on.
#pragma once

#include <string_view>

class xsd__base64Binary;

namespace lexctl {

class LocalData;

/// Points binary at bytes without copying them (bytes must outlive the
/// call); with dime on, the value travels as a DIME attachment whose
/// option names it.
void SetPayload(LocalData& data, xsd__base64Binary& binary, std::string_view bytes,
                const char* name);

/// The bytes of a received value; empty when it is absent.
std::string_view PayloadBytes(const xsd__base64Binary* binary);

}  // namespace lexctl
