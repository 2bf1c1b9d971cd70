#include "client/gsoap_transport.h"

#include <openssl/err.h>
#include <openssl/ssl.h>
#include <openssl/x509v3.h>
#include <strings.h>

#include <chrono>
#include <cstdio>
#include <cstring>

#include "client/local_data.h"
#include "client/tls_checks.h"
#include "shell/output.h"
#include "shell/platform.h"
#include "soapH.h"

namespace lexctl {
namespace {

const char kPluginId[] = "lexctl3-gsoap-sockets";

// A context's hooks chain to the library's own functions, saved here.
struct Sockets {
  SOAP_SOCKET (*open)(struct soap*, const char*, const char*, int);
  int (*send)(struct soap*, const char*, size_t);
  size_t (*recv)(struct soap*, char*, size_t);
  int (*post)(struct soap*, const char*, const char*, int, const char*, const char*, ULONG64);
  int (*poll)(struct soap*);
  std::string host;  // to check the server's certificate against
  // The TLS files as the context was built with them: the library keeps
  // pointers to these for as long as the context lives.
  std::string key_file{}, key_password{}, ca_file{}, ca_dir{};
  // Why a CA file or folder that is set cannot be used; every https
  // connection that would check the server's certificate fails with it.
  std::string ca_problem{};
  bool key_loaded = false;
  bool check_host = false;
  SOAP_SOCKET direct_socket = SOAP_INVALID_SOCKET;  // a plain socket made blocking by OpenPlain
  std::string held{};  // a request's head, sent with what follows it
  // The low-speed rule: bytes received since the window began.
  std::chrono::steady_clock::time_point window_start{};
  size_t window_bytes = 0;
  // Since BeginCall: whether a connection was opened, how much reply came.
  bool opened = false;
  size_t reply_bytes = 0;
};

Sockets* SocketsOf(struct soap* soap) { return static_cast<Sockets*>(soap_lookup_plugin(soap, kPluginId)); }

int Register(struct soap*, struct soap_plugin* plugin, void* arg) {
  plugin->id = kPluginId;
  plugin->data = arg;
  plugin->fcopy = nullptr;
  plugin->fdelete = [](struct soap*, struct soap_plugin* self) { delete static_cast<Sockets*>(self->data); };
  return SOAP_OK;
}

// On a plain connection the library waits in select() before every send
// and every receive, because it keeps the socket non-blocking for its
// time-outs. A blocking socket with the time-outs set on the socket itself
// does the same in one system call instead of two.
SOAP_SOCKET OpenPlain(struct soap* soap, const char* endpoint, const char* host, int port) {
  Sockets* sockets = SocketsOf(soap);
  SOAP_SOCKET socket = sockets->open(soap, endpoint, host, port);
  sockets->opened = true;
  sockets->direct_socket = SOAP_INVALID_SOCKET;
  sockets->held.clear();
  if (!soap_valid_socket(socket) || soap->ssl) return socket;
  if (!MakeSocketBlocking(socket, soap->recv_timeout, soap->send_timeout)) return socket;
  sockets->direct_socket = socket;
  return socket;
}

bool IsDirect(struct soap* soap) {
  return !soap->ssl && soap_valid_socket(soap->socket) && soap->socket == SocketsOf(soap)->direct_socket;
}

int SendAll(struct soap* soap, const char* data, size_t size) {
  while (size > 0) {
    long long sent = SocketSend(soap->socket, data, size, soap->errnum);
    if (sent <= 0) return SOAP_EOF;
    data += sent;
    size -= static_cast<size_t>(sent);
  }
  return SOAP_OK;
}

// A stored request comes in two writes, its head and then its body; they
// go out together, in one system call and one segment, when they are small.
// A head with nothing after it goes when the reply is read.
constexpr size_t kHeldLimit = 8192;

int SendDirect(struct soap* soap, const char* data, size_t size) {
  if (!IsDirect(soap)) return SocketsOf(soap)->send(soap, data, size);
  std::string& held = SocketsOf(soap)->held;
  if (held.empty() && size < kHeldLimit && size >= 4 && memcmp(data + size - 4, "\r\n\r\n", 4) == 0) {
    held.assign(data, size);
    return SOAP_OK;
  }
  if (!held.empty() && held.size() + size <= 8 * kHeldLimit) {
    held.append(data, size);
    data = held.data();
    size = held.size();
  } else if (!held.empty() && SendAll(soap, held.data(), held.size()) != SOAP_OK) {
    held.clear();
    return SOAP_EOF;
  }
  int status = SendAll(soap, data, size);
  held.clear();
  return status;
}

size_t RecvDirect(struct soap* soap, char* data, size_t size) {
  if (!IsDirect(soap)) return SocketsOf(soap)->recv(soap, data, size);
  std::string& held = SocketsOf(soap)->held;
  if (!held.empty()) {
    int status = SendAll(soap, held.data(), held.size());
    held.clear();
    if (status != SOAP_OK) return 0;
  }
  long long got = SocketReceive(soap->socket, data, size, soap->errnum);
  return got > 0 ? static_cast<size_t>(got) : 0;
}

// The library polls a kept connection before every request to see whether
// the server closed it. On a plain socket a closed connection fails the
// request before any reply, which goes again once on a fresh connection
// (LostKeptConnection), so the poll's system call is spared there.
int PollKept(struct soap* soap) { return IsDirect(soap) ? SOAP_OK : SocketsOf(soap)->poll(soap); }

int StartReply(struct soap* soap) {
  Sockets* sockets = SocketsOf(soap);
  sockets->window_start = std::chrono::steady_clock::now();
  sockets->window_bytes = 0;
  return SOAP_OK;
}

// The time-out bounds each read; this bounds a reply that keeps trickling
// in: every time-out's worth of seconds must bring kLowSpeedLimit bytes a
// second, as libcurl's low-speed rule asks on the other layer.
size_t RecvMetered(struct soap* soap, char* data, size_t size) {
  size_t n = RecvDirect(soap, data, size);
  Sockets* sockets = SocketsOf(soap);
  sockets->reply_bytes += n;
  int timeout = soap->recv_timeout;
  if (n == 0 || timeout <= 0) return n;
  sockets->window_bytes += n;
  auto now = std::chrono::steady_clock::now();
  // A proxy's answer to CONNECT is read before any reply has begun.
  if (sockets->window_start == std::chrono::steady_clock::time_point{}) sockets->window_start = now;
  if (now - sockets->window_start < std::chrono::seconds(timeout)) return n;
  if (sockets->window_bytes < static_cast<size_t>(kLowSpeedLimit) * timeout) {
    soap_set_receiver_error(soap, soap_strdup(soap, TooSlowMessage(timeout).c_str()), nullptr, SOAP_EOF);
    soap->errnum = 0;
    return 0;
  }
  sockets->window_start = now;
  sockets->window_bytes = 0;
  return n;
}

// Inside a proxy's CONNECT tunnel the request goes to the server itself, so
// it names only the path, as curl's does; the library would send the full
// URL there, which some servers refuse.
int PostInTunnel(struct soap* soap, const char* endpoint, const char* host, int port, const char* path,
                 const char* action, ULONG64 count) {
  Sockets* sockets = SocketsOf(soap);
  if (!soap->ssl || !soap->proxy_host || soap->status == SOAP_CONNECT) {
    return sockets->post(soap, endpoint, host, port, path, action, count);
  }
  const char* proxy = soap->proxy_host;
  soap->proxy_host = nullptr;
  int status = sockets->post(soap, endpoint, host, port, path, action, count);
  soap->proxy_host = proxy;
  return status;
}

// OpenSSL asks on the terminal when a key needs a pass phrase and none is
// given; the client never asks: no pass phrase fails the key.
int KeyPassword(char* buffer, int size, int, void* data) {
  const std::string& password = *static_cast<const std::string*>(data);
  if (password.empty() || static_cast<int>(password.size()) >= size) return 0;
  memcpy(buffer, password.data(), password.size());
  return static_cast<int>(password.size());
}

// The client key is loaded when a request first needs it, with the pass
// phrase set by then, whatever order the two settings came in.
bool LoadClientKey(struct soap* soap, Sockets* sockets) {
  if (sockets->key_file.empty() || sockets->key_loaded || !soap->ctx) return true;
  SSL_CTX_set_default_passwd_cb(soap->ctx, KeyPassword);
  SSL_CTX_set_default_passwd_cb_userdata(soap->ctx, &sockets->key_password);
  ERR_clear_error();
  if (SSL_CTX_use_certificate_chain_file(soap->ctx, sockets->key_file.c_str()) != 1 ||
      SSL_CTX_use_PrivateKey_file(soap->ctx, sockets->key_file.c_str(), SSL_FILETYPE_PEM) != 1) {
    const char* reason = ERR_reason_error_string(ERR_peek_last_error());
    std::string text = "unable to use the SSL key file '" + sockets->key_file + "'" +
                       (reason ? std::string(" (") + reason + ")" : std::string());
    ERR_clear_error();
    soap_set_sender_error(soap, soap_strdup(soap, text.c_str()), nullptr, SOAP_SSL_ERROR);
    return false;
  }
  sockets->key_loaded = true;
  return true;
}

// gSOAP's own host check is looser than common practice (CN fallback with
// a SAN present, "*" certificates, "-" as a wildcard), so the check is ours.
SOAP_SOCKET OpenCheckingHost(struct soap* soap, const char* endpoint, const char* host, int port) {
  Sockets* sockets = SocketsOf(soap);
  if (!sockets->ca_problem.empty()) {
    soap_set_sender_error(soap, soap_strdup(soap, sockets->ca_problem.c_str()), nullptr, SOAP_SSL_ERROR);
    return SOAP_INVALID_SOCKET;
  }
  if (!LoadClientKey(soap, sockets)) return SOAP_INVALID_SOCKET;
  LastVerifyError() = X509_V_OK;
  SOAP_SOCKET socket = sockets->open(soap, endpoint, host, port);
  sockets->opened = true;
  if (!soap_valid_socket(socket) && soap->error == SOAP_SSL_ERROR && LastVerifyError() != X509_V_OK) {
    // Name the reason, as libcurl does, rather than the bare SSL_ERROR_SSL.
    std::string text = std::string("SSL certificate problem: ") + X509_verify_cert_error_string(LastVerifyError());
    soap_set_sender_error(soap, soap_strdup(soap, text.c_str()), nullptr, SOAP_SSL_ERROR);
    return socket;
  }
  if (!soap_valid_socket(socket) || !soap->ssl || !sockets->check_host) return socket;
  X509* cert = SSL_get1_peer_certificate(soap->ssl);
  bool match = false;
  if (cert) {
    match = IsIpAddress(sockets->host)
                ? X509_check_ip_asc(cert, sockets->host.c_str(), 0) == 1
                : X509_check_host(cert, sockets->host.c_str(), 0,
                                  X509_CHECK_FLAG_NO_PARTIAL_WILDCARDS, nullptr) == 1;
    X509_free(cert);
  }
  if (match) return socket;
  SSL_free(soap->ssl);
  soap->ssl = nullptr;
  soap->fclosesocket(soap, socket);
  soap_set_sender_error(soap, "SSL/TLS error: the server's certificate does not match its host name",
                        nullptr, SOAP_SSL_ERROR);
  return SOAP_INVALID_SOCKET;
}

// https on this layer: the library's TLS, with the checks that ssl_mode asks
// for made by the hooks above.
void UseTls(struct soap* soap, Sockets& sockets, const TransportSettings& settings, int mode) {
  sockets.check_host = mode == kSslFull || mode == kSslNoExpire;
  soap->fopen = OpenCheckingHost;
  soap->fpost = PostInTunnel;
  soap->fsslverify = mode == kSslNoExpire || mode == kSslMinimum ? VerifyNotingIgnoringDates : VerifyNoting;
  unsigned short flags = mode == kSslNone ? SOAP_SSL_NO_AUTHENTICATION
                                          : SOAP_SSL_REQUIRE_SERVER_AUTHENTICATION | SOAP_SSL_SKIP_HOST_CHECK;
  flags |= SOAP_SSL_NO_DEFAULT_CA_PATH;
  sockets.key_file = settings.ssl_key_file;
  sockets.key_password = settings.ssl_key_password;
  sockets.ca_file = CaFileFor(settings);
  sockets.ca_dir = settings.ssl_ca_dir;
  // Without authentication no CA is consulted, so none can be missed.
  if (mode != kSslNone) sockets.ca_problem = UnreadableCaSetting(settings);
  auto optional = [](const std::string& text) { return text.empty() ? nullptr : text.c_str(); };
  if (soap_ssl_client_context(soap, flags, nullptr, nullptr, optional(sockets.ca_file), optional(sockets.ca_dir),
                              nullptr)) {
    const char** detail = soap_faultdetail(soap);
    ConsoleOut("Failed to initialize SSL: %s\n", detail && *detail ? *detail : "[no detail]");
    return;
  }
  // The key and an unreadable CA setting are taken up on connecting (see
  // LoadClientKey); a file that cannot be read is said now, as the context
  // is built.
  int key_problem = sockets.key_file.empty() ? 0 : FileReadError(sockets.key_file.c_str());
  if (!sockets.ca_problem.empty()) {
    ConsoleOut("Failed to initialize SSL: %s\n", sockets.ca_problem.c_str());
  } else if (key_problem) {
    ConsoleOut("Failed to initialize SSL: cannot read key file %s (%s)\n", sockets.key_file.c_str(),
               strerror(key_problem));
  }
}

}  // namespace

std::unique_ptr<Transport> MakeGsoapTransport() { return std::make_unique<GsoapTransport>(); }

void GsoapTransport::Attach(struct soap* soap, const TransportSettings& settings, int ssl_mode) {
  // The library's fixed 64 KB socket buffers turn off the kernel's sizing:
  // a reply a little larger than that then waits on the window for
  // milliseconds, which is most of a 100-line translation's round trip.
  soap->sndbuf = 0;
  soap->rcvbuf = 0;
  auto* sockets =
      new Sockets{soap->fopen, soap->fsend, soap->frecv, soap->fpost, soap->fpoll, HostOf(settings.endpoint)};
  soap_register_plugin_arg(soap, Register, sockets);
  if (strncasecmp(settings.endpoint.c_str(), "https:", 6) == 0) {
    UseTls(soap, *sockets, settings, ssl_mode);
  } else {
    soap->fopen = OpenPlain;
    soap->fsend = SendDirect;
    soap->fpoll = PollKept;
  }
  soap->frecv = RecvMetered;
  soap->fprepareinitrecv = StartReply;
}

void GsoapTransport::BeginCall(struct soap* soap) {
  if (Sockets* sockets = SocketsOf(soap)) {
    sockets->opened = false;
    sockets->reply_bytes = 0;
  }
}

bool GsoapTransport::LostKeptConnection(struct soap* soap) const {
  const Sockets* sockets = SocketsOf(soap);
  return sockets && !sockets->opened && sockets->reply_bytes == 0;
}

}  // namespace lexctl
