#include "commands/common/payload.h"

#include "client/local_data.h"
#include "soapH.h"

namespace lexctl {

void SetPayload(LocalData& data, xsd__base64Binary& binary, std::string_view bytes,
                const char* name) {
  binary.__ptr = reinterpret_cast<unsigned char*>(const_cast<char*>(bytes.data()));
  binary.__size = static_cast<int>(bytes.size());
  binary.id = nullptr;
  binary.type = nullptr;
  binary.options = nullptr;
  if (data.settings.dime) {
    binary.type = const_cast<char*>("application/octet-stream");
    binary.options = soap_dime_option(data.context(), 0, name);
  }
}

xsd__base64Binary* Payload(LocalData& data, const std::string& bytes, const std::string& name) {
  xsd__base64Binary* binary = soap_new_xsd__base64Binary(data.context());
  SetPayload(data, *binary, bytes, name.c_str());
  return binary;
}

DimeRequest::DimeRequest(LocalData& data) {
  if (!data.settings.dime) return;
  soap_ = data.context();
  soap_set_omode(soap_, SOAP_ENC_DIME);
}

DimeRequest::~DimeRequest() {
  if (soap_) soap_clr_omode(soap_, SOAP_ENC_DIME);
}

std::string_view PayloadBytes(const xsd__base64Binary* binary) {
  if (!binary || !binary->__ptr || binary->__size <= 0) return {};
  return {reinterpret_cast<const char*>(binary->__ptr), static_cast<size_t>(binary->__size)};
}

}  // namespace lexctl
