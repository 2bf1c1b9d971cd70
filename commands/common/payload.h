// Binary request data: inline base64, or a DIME attachment when the
// thread's dime setting is on.
#pragma once

#include <string>
#include <string_view>

class xsd__base64Binary;

namespace lexctl {

class LocalData;

/// Points binary at bytes, which must outlive the call; as a DIME
/// attachment when data's dime setting is on.
void SetBinary(LocalData& data, std::string& bytes, xsd__base64Binary& binary);

/// The bytes of a received binary object, inline or attached; empty when
/// it is absent.
std::string_view BinaryBytes(const xsd__base64Binary* binary);

}  // namespace lexctl
