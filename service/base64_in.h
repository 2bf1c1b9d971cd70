// Reads the base64 text of an element into binary data, for the generated
// deserializer in place of the library's own reader.
#pragma once

#include <stdsoap2.h>

/// Decodes the text from the current position up to the next tag, as
/// soap_getbase64 does (blanks skipped, entities and CDATA honoured, '='
/// ends the data, any other character is a SOAP_TYPE error), but a whole
/// buffer at a time rather than a character at a time: dictionary exports
/// and documents run to hundreds of megabytes. The result lives in the
/// context's memory; its size goes to *size.
unsigned char* LexGetBase64(struct soap* soap, int* size);

/// Where the platform can back a large buffer with large pages, the program
/// passes the function that asks for them; a value of many megabytes then
/// costs a few page faults instead of thousands.
void LexSetLargeBufferAdvice(void (*advise)(void* data, size_t size));
