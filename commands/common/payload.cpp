#include "commands/common/payload.h"

#include "client/local_data.h"
#include "soapH.h"

namespace lexctl {

xsd__base64Binary* Payload(LocalData& data, const std::string& bytes, const std::string& name) {
  struct soap* soap = data.context();
  xsd__base64Binary* binary = soap_new_xsd__base64Binary(soap);
  binary->__ptr = reinterpret_cast<unsigned char*>(const_cast<char*>(bytes.data()));
  binary->__size = static_cast<int>(bytes.size());
  if (data.settings.dime) {
    binary->type = soap_strdup(soap, "application/octet-stream");
    binary->options = soap_dime_option(soap, 0, name.c_str());
  }
  return binary;
}

void SetBinary(LocalData& data, std::string& bytes, xsd__base64Binary& binary) {
  binary = *Payload(data, bytes, "binary");
}

std::string_view BinaryBytes(const xsd__base64Binary* binary) {
  if (!binary || !binary->__ptr || binary->__size <= 0) return {};
  return {reinterpret_cast<const char*>(binary->__ptr), static_cast<size_t>(binary->__size)};
}

}  // namespace lexctl
