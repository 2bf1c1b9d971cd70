# Points the generated base64 deserializer at LexGetBase64 (base64_in.h).
# Fails the build if soapcpp2 ever writes that call differently, rather than
# quietly falling back to the slow reader.
file(READ ${SOAPC} text)
set(call "a->__ptr = soap_getbase64(soap, &a->__size, 0);")
string(FIND "${text}" "${call}" at)
if(at EQUAL -1)
  message(FATAL_ERROR "${SOAPC}: no '${call}' to replace")
endif()
string(REPLACE "${call}" "a->__ptr = LexGetBase64(soap, &a->__size);" text "${text}")
string(REPLACE "#include \"soapH.h\"" "#include \"soapH.h\"\n#include \"base64_in.h\"" text "${text}")
file(WRITE ${SOAPC} "${text}")
