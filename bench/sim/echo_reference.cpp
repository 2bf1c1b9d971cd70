// Reference echo server for the lexsim benchmark: one thread per connection, keep-alive,
// nothing else. Prints its URL on the first line, like lexsim with --port 0.
#include <netinet/in.h>
#include <signal.h>
#include <sys/socket.h>

#include <cstdio>
#include <cstdlib>
#include <thread>

#include "echoref.nsmap"
#include "soapH.h"

int nv__TestEcho(struct soap*, std::string* str, LONG64* num, xsd__base64Binary* bin,
                 nv__TestEchoResponse& r) {
  r.str = str;
  r.num = num;
  r.bin = bin;
  return SOAP_OK;
}

int main(int argc, char** argv) {
  int port = argc > 1 ? std::atoi(argv[1]) : 0;
  signal(SIGPIPE, SIG_IGN);
  struct soap* master = soap_new1(SOAP_IO_KEEPALIVE | SOAP_C_UTFSTRING);
  master->bind_flags = SO_REUSEADDR;
  master->max_keep_alive = 1000000;  // wrk keeps one connection for the whole run
  master->recv_timeout = master->send_timeout = 10;
  if (!soap_valid_socket(soap_bind(master, "127.0.0.1", port, 128))) {
    soap_print_fault(master, stderr);
    return 1;
  }
  sockaddr_in addr{};
  socklen_t len = sizeof addr;
  getsockname(master->master, reinterpret_cast<sockaddr*>(&addr), &len);
  std::printf("http://127.0.0.1:%d/nvsoap/nvsoap.cgi\n", ntohs(addr.sin_port));
  std::fflush(stdout);
  for (;;) {
    if (!soap_valid_socket(soap_accept(master))) continue;
    struct soap* conn = soap_copy(master);
    std::thread([conn] {
      soap_serve(conn);
      soap_destroy(conn);
      soap_end(conn);
      soap_free(conn);
    }).detach();
  }
}
