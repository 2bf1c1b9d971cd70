// Binary request data, sent inline or as a DIME attachment.
#pragma once

#include <string>

class xsd__base64Binary;

namespace lexctl {

class LocalData;

/// bytes as a binary element of the next request: a DIME attachment named
/// name when the thread's dime setting is on, else inline base64. The bytes
/// are not copied and must outlive the call; the element lives in the
/// thread's SOAP context until the call's data are released.
xsd__base64Binary* Payload(LocalData& data, const std::string& bytes, const std::string& name);

}  // namespace lexctl
