// Sends one TestEcho through lexctl3's generated client, checks the echo, and writes the
// request body exactly as sent, for wrk to replay. Usage: capture_echo URL BODY_FILE
#include <cstdio>
#include <cstring>
#include <fstream>
#include <string>

#include "soapH.h"

namespace {
std::string g_sent;
int (*g_next_send)(struct soap*, const char*, size_t);
}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) {
    std::fprintf(stderr, "usage: capture_echo URL BODY_FILE\n");
    return 2;
  }
  struct soap* soap = soap_new1(SOAP_C_UTFSTRING);
  soap->connect_timeout = 5;
  soap->recv_timeout = soap->send_timeout = 10;
  g_next_send = soap->fsend;
  soap->fsend = [](struct soap* s, const char* buf, size_t len) {
    g_sent.append(buf, len);
    return g_next_send(s, buf, len);
  };
  // A typical `test -string -number -binary` call.
  std::string str = "The quick brown fox jumps over the lazy dog";
  LONG64 num = 1234567890123456789LL;
  unsigned char bytes[256];
  for (int i = 0; i < 256; ++i) bytes[i] = static_cast<unsigned char>(i);
  xsd__base64Binary bin{};
  bin.__ptr = bytes;
  bin.__size = sizeof bytes;
  nv__TestEchoResponse r;
  if (soap_call_nv__TestEcho(soap, argv[1], "", nullptr, nullptr, nullptr, nullptr, &str, &num,
                             &bin, r) != SOAP_OK) {
    soap_print_fault(soap, stderr);
    return 1;
  }
  if (!r.str || *r.str != str || !r.num || *r.num != num || !r.bin ||
      r.bin->__size != bin.__size || std::memcmp(r.bin->__ptr, bytes, sizeof bytes) != 0) {
    std::fprintf(stderr, "capture_echo: %s did not echo the values\n", argv[1]);
    return 1;
  }
  size_t body = g_sent.find("\r\n\r\n");
  if (body == std::string::npos) {
    std::fprintf(stderr, "capture_echo: no HTTP header in what was sent\n");
    return 1;
  }
  std::ofstream(argv[2], std::ios::binary) << g_sent.substr(body + 4);
  std::printf("%zu %zu\n", body + 4, g_sent.size() - body - 4);  // header and body sizes
  soap_destroy(soap);
  soap_end(soap);
  soap_free(soap);
  return 0;
}
