// The gSOAP plugin by which an HTTP library layer takes over a context's
// connection: the library owns the socket, so closing and polling it are
// the library's business, not gSOAP's.
#pragma once

#include "stdsoap2.h"

namespace lexctl {

struct HttpHooks {
  const char* id;
  SOAP_SOCKET (*open)(struct soap*, const char* endpoint, const char* host, int port);
  int (*send)(struct soap*, const char* data, size_t size);
  size_t (*recv)(struct soap*, char* data, size_t size);
  int (*prepare_recv)(struct soap*);
};

/// For a plugin's register function; arg stays owned by its caller.
inline int InstallHttpHooks(struct soap* soap, struct soap_plugin* plugin, void* arg, const HttpHooks& hooks) {
  plugin->id = hooks.id;
  plugin->data = arg;
  plugin->fcopy = nullptr;
  plugin->fdelete = [](struct soap*, struct soap_plugin*) {};
  soap->fopen = hooks.open;
  soap->fsend = hooks.send;
  soap->frecv = hooks.recv;
  soap->fclosesocket = [](struct soap*, SOAP_SOCKET) { return static_cast<int>(SOAP_OK); };
  soap->fshutdownsocket = [](struct soap*, SOAP_SOCKET, int) { return static_cast<int>(SOAP_OK); };
  soap->fpoll = [](struct soap*) { return static_cast<int>(SOAP_OK); };
  soap->fprepareinitrecv = hooks.prepare_recv;
  return SOAP_OK;
}

}  // namespace lexctl
