// Binary request data, sent inline or as a DIME attachment, and the bytes
// of binary data received.
#pragma once

#include <string>
#include <string_view>

class xsd__base64Binary;

namespace lexctl {

class LocalData;

/// bytes as a binary element of the next request: a DIME attachment named
/// name when the thread's dime setting is on, else inline base64. The bytes
/// are not copied and must outlive the call; the element lives in the
/// thread's SOAP context until the call's data are released.
xsd__base64Binary* Payload(LocalData& data, const std::string& bytes, const std::string& name);

/// Points binary at bytes as Payload does, for a binary member held by value.
void SetBinary(LocalData& data, std::string& bytes, xsd__base64Binary& binary);

/// The bytes of a received binary object, inline or attached; empty when
/// it is absent.
std::string_view BinaryBytes(const xsd__base64Binary* binary);

}  // namespace lexctl
