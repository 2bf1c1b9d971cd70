#include "commands/common/payload.h"

#include "client/local_data.h"
#include "soapH.h"

namespace lexctl {

void SetBinary(LocalData& data, std::string& bytes, xsd__base64Binary& binary) {
  binary = xsd__base64Binary();
  binary.__ptr = reinterpret_cast<unsigned char*>(bytes.data());
  binary.__size = static_cast<int>(bytes.size());
  if (data.settings.dime) {
    binary.type = const_cast<char*>("application/octet-stream");
    binary.options = soap_dime_option(data.context(), 0, "binary");
  }
}

std::string_view BinaryBytes(const xsd__base64Binary* binary) {
  if (!binary || !binary->__ptr || binary->__size <= 0) return {};
  return {reinterpret_cast<const char*>(binary->__ptr), static_cast<size_t>(binary->__size)};
}

}  // namespace lexctl
