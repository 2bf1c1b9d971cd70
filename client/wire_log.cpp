#include "client/wire_log.h"

#include <strings.h>

#include <cstdio>

#include "shell/platform.h"
#include "soapH.h"

namespace lexctl {
namespace {

const char kPluginId[] = "lexctl3-wire-log";

struct WireLog {
  int (*fsend)(struct soap*, const char*, size_t);
  size_t (*frecv)(struct soap*, char*, size_t);
  FILE* sent;
  FILE* received;
  FILE* test;
};

WireLog* Find(struct soap* soap) { return static_cast<WireLog*>(soap_lookup_plugin(soap, kPluginId)); }

int LoggedSend(struct soap* soap, const char* data, size_t size) {
  WireLog* log = Find(soap);
  if (log->sent) {
    fwrite(data, 1, size, log->sent);
    fflush(log->sent);
  }
  return log->fsend(soap, data, size);
}

size_t LoggedRecv(struct soap* soap, char* data, size_t size) {
  WireLog* log = Find(soap);
  size_t n = log->frecv(soap, data, size);
  if (log->received && n > 0) {
    fwrite(data, 1, n, log->received);
    fflush(log->received);
  }
  if (log->test) {
    fprintf(log->test, "received %zu bytes\n", n);
    fflush(log->test);
  }
  return n;
}

void CloseFiles(WireLog* log) {
  for (FILE** file : {&log->sent, &log->received, &log->test}) {
    if (*file) fclose(*file);
    *file = nullptr;
  }
}

void Delete(struct soap* soap, struct soap_plugin* plugin) {
  WireLog* log = static_cast<WireLog*>(plugin->data);
  soap->fsend = log->fsend;
  soap->frecv = log->frecv;
  CloseFiles(log);
  delete log;
}

int Register(struct soap* soap, struct soap_plugin* plugin, void*) {
  plugin->id = kPluginId;
  plugin->data = new WireLog{soap->fsend, soap->frecv, nullptr, nullptr, nullptr};
  plugin->fcopy = nullptr;
  plugin->fdelete = Delete;
  soap->fsend = LoggedSend;
  soap->frecv = LoggedRecv;
  return SOAP_OK;
}

}  // namespace

void AttachWireLog(struct soap* soap, const std::string& prefix) {
  bool on = !prefix.empty() && strcasecmp(prefix.c_str(), "off") != 0;
  WireLog* log = Find(soap);
  if (!log) {
    if (!on) return;
    soap_register_plugin(soap, Register);
    log = Find(soap);
    if (!log) return;
  }
  CloseFiles(log);
  if (!on) return;
  log->sent = OpenFile((prefix + "-sent.log").c_str(), "ab");
  log->received = OpenFile((prefix + "-recv.log").c_str(), "ab");
  log->test = OpenFile((prefix + "-test.log").c_str(), "ab");
}

}  // namespace lexctl
