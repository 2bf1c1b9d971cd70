#include "client/local_data.h"
#include "client/tls_checks.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <sys/socket.h>
#include <openssl/err.h>
#include <openssl/ssl.h>
#include <openssl/x509v3.h>
#include <strings.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "client/credentials.h"
#include "client/curl_transport.h"
#include "client/wire_log.h"
#include "shell/exec_thread.h"
#include "shell/output.h"
#include "soapH.h"

namespace lexctl {
namespace {

// Hooks of a context, kept per context so that a copied context chains to
// the library's own functions.
struct Hooks {
  SoapClient* client;
  int (*posthdr)(struct soap*, const char*, const char*);
  int (*parsehdr)(struct soap*, const char*, const char*);
  SOAP_SOCKET (*open)(struct soap*, const char*, const char*, int);
  int (*send)(struct soap*, const char*, size_t);
  size_t (*recv)(struct soap*, char*, size_t);
  int (*post)(struct soap*, const char*, const char*, int, const char*, const char*, ULONG64);
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
  // The low-speed rule: bytes received since the window began.
  std::chrono::steady_clock::time_point window_start{};
  size_t window_bytes = 0;
};

Hooks* HooksOf(struct soap* soap) { return static_cast<Hooks*>(soap->user); }

int PostHeader(struct soap* soap, const char* key, const char* value) {
  return HooksOf(soap)->client->SendHeader(soap, key, value);
}

int ParseHeader(struct soap* soap, const char* key, const char* value) {
  Hooks* hooks = HooksOf(soap);
  HeaderObserver& observer = CurrentHeaderObserver();
  if (observer) observer(key, value);
  return hooks->parsehdr(soap, key, value);
}

// On a plain connection the library waits in select() before every send
// and every receive, because it keeps the socket non-blocking for its
// time-outs. A blocking socket with the time-outs set on the socket itself
// does the same in one system call instead of two.
SOAP_SOCKET OpenPlain(struct soap* soap, const char* endpoint, const char* host, int port) {
  Hooks* hooks = HooksOf(soap);
  SOAP_SOCKET socket = hooks->open(soap, endpoint, host, port);
  hooks->direct_socket = SOAP_INVALID_SOCKET;
  if (!soap_valid_socket(socket) || soap->ssl) return socket;
  int flags = fcntl(socket, F_GETFL);
  if (flags < 0 || fcntl(socket, F_SETFL, flags & ~O_NONBLOCK) < 0) return socket;
  // Positive time-outs are seconds, negative ones microseconds, 0 none.
  auto interval = [](int timeout) {
    struct timeval tv = {0, 0};
    if (timeout > 0) tv.tv_sec = timeout;
    if (timeout < 0) tv = {-timeout / 1000000, -timeout % 1000000};
    return tv;
  };
  struct timeval receive = interval(soap->recv_timeout), send = interval(soap->send_timeout);
  setsockopt(socket, SOL_SOCKET, SO_RCVTIMEO, &receive, sizeof(receive));
  setsockopt(socket, SOL_SOCKET, SO_SNDTIMEO, &send, sizeof(send));
  hooks->direct_socket = socket;
  return socket;
}

bool IsDirect(struct soap* soap) {
  return !soap->ssl && soap_valid_socket(soap->socket) && soap->socket == HooksOf(soap)->direct_socket;
}

int SendDirect(struct soap* soap, const char* data, size_t size) {
  if (!IsDirect(soap)) return HooksOf(soap)->send(soap, data, size);
  while (size > 0) {
    ssize_t sent = send(soap->socket, data, size, MSG_NOSIGNAL);
    if (sent > 0) {
      data += sent;
      size -= static_cast<size_t>(sent);
    } else if (sent < 0 && errno == EINTR) {
      continue;
    } else {
      // EAGAIN on a blocking socket is its time-out; errnum 0 makes the
      // library report it as one.
      soap->errnum = sent < 0 && errno != EAGAIN && errno != EWOULDBLOCK ? errno : 0;
      return SOAP_EOF;
    }
  }
  return SOAP_OK;
}

size_t RecvDirect(struct soap* soap, char* data, size_t size) {
  if (!IsDirect(soap)) return HooksOf(soap)->recv(soap, data, size);
  for (;;) {
    ssize_t got = recv(soap->socket, data, size, 0);
    if (got >= 0) return static_cast<size_t>(got);
    if (errno == EINTR) continue;
    soap->errnum = errno == EAGAIN || errno == EWOULDBLOCK ? 0 : errno;
    return 0;
  }
}

int StartReply(struct soap* soap) {
  Hooks* hooks = HooksOf(soap);
  hooks->window_start = std::chrono::steady_clock::now();
  hooks->window_bytes = 0;
  return SOAP_OK;
}

// The time-out bounds each read; this bounds a reply that keeps trickling
// in: every time-out's worth of seconds must bring kLowSpeedLimit bytes a
// second, as libcurl's low-speed rule asks on the other layer.
size_t RecvMetered(struct soap* soap, char* data, size_t size) {
  size_t n = RecvDirect(soap, data, size);
  int timeout = soap->recv_timeout;
  if (n == 0 || timeout <= 0) return n;
  Hooks* hooks = HooksOf(soap);
  hooks->window_bytes += n;
  auto now = std::chrono::steady_clock::now();
  // A proxy's answer to CONNECT is read before any reply has begun.
  if (hooks->window_start == std::chrono::steady_clock::time_point{}) hooks->window_start = now;
  if (now - hooks->window_start < std::chrono::seconds(timeout)) return n;
  if (hooks->window_bytes < static_cast<size_t>(kLowSpeedLimit) * timeout) {
    char text[120];
    snprintf(text, sizeof(text), "Operation too slow. Less than %ld bytes/sec transferred the last %d seconds",
             kLowSpeedLimit, timeout);
    soap_set_receiver_error(soap, soap_strdup(soap, text), nullptr, SOAP_EOF);
    soap->errnum = 0;
    return 0;
  }
  hooks->window_start = now;
  hooks->window_bytes = 0;
  return n;
}

// Inside a proxy's CONNECT tunnel the request goes to the server itself, so
// it names only the path, as curl's does; the library would send the full
// URL there, which some servers refuse.
int PostInTunnel(struct soap* soap, const char* endpoint, const char* host, int port, const char* path,
                 const char* action, ULONG64 count) {
  Hooks* hooks = HooksOf(soap);
  if (!soap->ssl || !soap->proxy_host || soap->status == SOAP_CONNECT) {
    return hooks->post(soap, endpoint, host, port, path, action, count);
  }
  const char* proxy = soap->proxy_host;
  soap->proxy_host = nullptr;
  int status = hooks->post(soap, endpoint, host, port, path, action, count);
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
bool LoadClientKey(struct soap* soap, Hooks* hooks) {
  if (hooks->key_file.empty() || hooks->key_loaded || !soap->ctx) return true;
  SSL_CTX_set_default_passwd_cb(soap->ctx, KeyPassword);
  SSL_CTX_set_default_passwd_cb_userdata(soap->ctx, &hooks->key_password);
  ERR_clear_error();
  if (SSL_CTX_use_certificate_chain_file(soap->ctx, hooks->key_file.c_str()) != 1 ||
      SSL_CTX_use_PrivateKey_file(soap->ctx, hooks->key_file.c_str(), SSL_FILETYPE_PEM) != 1) {
    const char* reason = ERR_reason_error_string(ERR_peek_last_error());
    std::string text = "unable to use the SSL key file '" + hooks->key_file + "'" +
                       (reason ? std::string(" (") + reason + ")" : std::string());
    ERR_clear_error();
    soap_set_sender_error(soap, soap_strdup(soap, text.c_str()), nullptr, SOAP_SSL_ERROR);
    return false;
  }
  hooks->key_loaded = true;
  return true;
}

// gSOAP's own host check is looser than common practice (CN fallback with
// a SAN present, "*" certificates, "-" as a wildcard), so the check is ours.
SOAP_SOCKET OpenCheckingHost(struct soap* soap, const char* endpoint, const char* host, int port) {
  Hooks* hooks = HooksOf(soap);
  if (!hooks->ca_problem.empty()) {
    soap_set_sender_error(soap, soap_strdup(soap, hooks->ca_problem.c_str()), nullptr, SOAP_SSL_ERROR);
    return SOAP_INVALID_SOCKET;
  }
  if (!LoadClientKey(soap, hooks)) return SOAP_INVALID_SOCKET;
  LastVerifyError() = X509_V_OK;
  SOAP_SOCKET socket = hooks->open(soap, endpoint, host, port);
  if (!soap_valid_socket(socket) && soap->error == SOAP_SSL_ERROR && LastVerifyError() != X509_V_OK) {
    // Name the reason, as libcurl does, rather than the bare SSL_ERROR_SSL.
    std::string text = std::string("SSL certificate problem: ") + X509_verify_cert_error_string(LastVerifyError());
    soap_set_sender_error(soap, soap_strdup(soap, text.c_str()), nullptr, SOAP_SSL_ERROR);
    return socket;
  }
  if (!soap_valid_socket(socket) || !soap->ssl || !hooks->check_host) return socket;
  X509* cert = SSL_get1_peer_certificate(soap->ssl);
  bool match = false;
  if (cert) {
    match = IsIpAddress(hooks->host)
                ? X509_check_ip_asc(cert, hooks->host.c_str(), 0) == 1
                : X509_check_host(cert, hooks->host.c_str(), 0,
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

bool StartsWithNoCase(const std::string& text, const char* prefix) {
  return strncasecmp(text.c_str(), prefix, strlen(prefix)) == 0;
}

}  // namespace

size_t MaxReplyBytes() {
  static const size_t limit = [] {
    const char* text = getenv("LEXCTL3_MAX_REPLY_MB");
    long long megabytes = text ? atoll(text) : 0;
    return megabytes > 0 ? static_cast<size_t>(megabytes) << 20 : size_t{1} << 30;
  }();
  return limit;
}

HeaderObserver& CurrentHeaderObserver() {
  thread_local HeaderObserver observer;
  return observer;
}

SoapClient::SoapClient() = default;

SoapClient::~SoapClient() {
  if (soap_) {
    delete HooksOf(soap_);
    soap_->user = nullptr;
    soap_destroy(soap_);
    soap_end(soap_);
    soap_free(soap_);
  }
}

int SoapClient::ssl_auth_effective() const {
  // libcurl has no "no checks at all" mode beyond skipping both checks.
  if (settings.windows_layer && settings.ssl_auth == kSslNone) return kSslMinimum;
  return settings.ssl_auth;
}

int SoapClient::SendHeader(struct soap* soap, const char* key, const char* value) {
  return HooksOf(soap)->posthdr(soap, key, value);
}

void SoapClient::RebuildEndpoint(bool build) {
  if (settings.server.empty()) settings.server = "http://localhost";
  if (!StartsWithNoCase(settings.server, "http")) settings.server = "http://" + settings.server;
  settings.endpoint = settings.server + settings.path;
  if (build) RebuildContext();
}

void SoapClient::RebuildContext() {
  struct soap* old = soap_;
  struct soap* fresh = soap_new();
  if (!fresh) OutOfMemory();
  if (old) {
    soap_set_imode(fresh, old->imode);
    soap_set_omode(fresh, old->omode);
  } else {
    // The service is document/literal: replies carry no id/href references,
    // and reading them as a tree spares a walk of the id table per array item.
    soap_set_imode(fresh, SOAP_IO_KEEPALIVE | SOAP_C_UTFSTRING | SOAP_XML_TREE);
    soap_set_omode(fresh, SOAP_IO_KEEPALIVE | SOAP_C_UTFSTRING);
  }
  fresh->connect_timeout = settings.connect_timeout;
  fresh->recv_timeout = settings.io_timeout;
  fresh->send_timeout = settings.io_timeout;
  fresh->recv_maxlength = MaxReplyBytes();
  // The library's fixed 64 KB socket buffers turn off the kernel's sizing:
  // a reply a little larger than that then waits on the window for
  // milliseconds, which is most of a 100-line translation's round trip.
  fresh->sndbuf = 0;
  fresh->rcvbuf = 0;

  auto* hooks = new Hooks{this, fresh->fposthdr, fresh->fparsehdr, fresh->fopen, fresh->fsend,
                          fresh->frecv, fresh->fpost, HostOf(settings.endpoint)};
  fresh->user = hooks;
  bool https = StartsWithNoCase(settings.endpoint, "https:");
  int mode = ssl_auth_effective();
  if (!settings.windows_layer && https) {
    hooks->check_host = mode == kSslFull || mode == kSslNoExpire;
    fresh->fopen = OpenCheckingHost;
    fresh->fpost = PostInTunnel;
    fresh->fsslverify = mode == kSslNoExpire || mode == kSslMinimum ? VerifyNotingIgnoringDates : VerifyNoting;
    unsigned short flags = mode == kSslNone ? SOAP_SSL_NO_AUTHENTICATION
                                            : SOAP_SSL_REQUIRE_SERVER_AUTHENTICATION | SOAP_SSL_SKIP_HOST_CHECK;
    flags |= SOAP_SSL_NO_DEFAULT_CA_PATH;
    hooks->key_file = settings.ssl_key_file;
    hooks->key_password = settings.ssl_key_password;
    hooks->ca_file = CaFileFor(settings);
    hooks->ca_dir = settings.ssl_ca_dir;
    // Without authentication no CA is consulted, so none can be missed.
    if (mode != kSslNone) hooks->ca_problem = UnreadableCaSetting(settings);
    auto optional = [](const std::string& text) { return text.empty() ? nullptr : text.c_str(); };
    if (soap_ssl_client_context(fresh, flags, nullptr, nullptr, optional(hooks->ca_file), optional(hooks->ca_dir),
                                nullptr)) {
      const char** detail = soap_faultdetail(fresh);
      ConsoleOut("Failed to initialize SSL: %s\n", detail && *detail ? *detail : "[no detail]");
    }
  }
  fresh->fposthdr = PostHeader;
  fresh->fparsehdr = ParseHeader;
  soap_set_namespaces(fresh, namespaces);
  if (settings.windows_layer) {
    if (!curl_) curl_ = std::make_unique<CurlTransport>();
    curl_->Attach(fresh, settings, mode);
  } else {
    if (!https) {
      fresh->fopen = OpenPlain;
      fresh->fsend = SendDirect;
    }
    fresh->frecv = RecvMetered;
    fresh->fprepareinitrecv = StartReply;
  }

  soap_ = fresh;
  if (old) {
    delete HooksOf(old);
    old->user = nullptr;
    soap_destroy(old);
    soap_end(old);
    soap_free(old);
  }
  ApplyAfterBuild();
}

void SoapClient::ApplyAfterBuild() {
  SetProxy(settings.proxy);
  if (settings.compress) {
    soap_set_imode(soap_, SOAP_ENC_ZLIB);
    soap_set_omode(soap_, SOAP_ENC_ZLIB);
  } else {
    soap_clr_imode(soap_, SOAP_ENC_ZLIB);
    soap_clr_omode(soap_, SOAP_ENC_ZLIB);
  }
  // Every request goes out with a Content-Length, which some proxies insist
  // on. gSOAP's sockets get it built whole and sent in one write, the fastest
  // way for the small requests that are most of the traffic. The libcurl
  // transport needs the request in one piece anyway: measured first and then
  // written straight into it, a large document is held once rather than
  // twice. Compressed requests can only be measured by building them.
  bool measure = settings.windows_layer && !settings.compress;
  soap_->omode = (soap_->omode & ~SOAP_IO) | (measure ? SOAP_IO_BUFFER : SOAP_IO_STORE);
  if (settings.keepalive) {
    soap_set_imode(soap_, SOAP_IO_KEEPALIVE);
    soap_set_omode(soap_, SOAP_IO_KEEPALIVE);
  } else {
    soap_clr_imode(soap_, SOAP_IO_KEEPALIVE);
    soap_clr_omode(soap_, SOAP_IO_KEEPALIVE);
  }
  soap_->connect_timeout = settings.connect_timeout;
  soap_->recv_timeout = settings.io_timeout;
  soap_->send_timeout = settings.io_timeout;
  AttachWireLog(soap_, settings.soap_debug);
  if (curl_) curl_->SetTrace(settings.curl_log);
}

bool SoapClient::SetProxy(const std::string& proxy) {
  if (proxy.empty()) {
    settings.proxy.clear();
    if (soap_) {
      soap_->proxy_host = nullptr;
      soap_->proxy_port = 0;
    }
    return true;
  }
  size_t colon = proxy.find(':');
  if (colon == std::string::npos) return false;
  settings.proxy = proxy;
  proxy_host_ = proxy.substr(0, colon);
  if (soap_) {
    soap_->proxy_host = proxy_host_.c_str();
    soap_->proxy_port = atoi(proxy.c_str() + colon + 1);
  }
  // Tools started by the client (wget) go through the same proxy.
  setenv("http_proxy", proxy.c_str(), 1);
  return true;
}

void SoapClient::UseBasicAuth(const std::string& user, const std::string& password) {
  basic_user_ = user;
  basic_password_ = password;
  context()->userid = basic_user_.c_str();
  context()->passwd = basic_password_.c_str();
}

void SoapClient::EndCall() {
  // gSOAP forgets these after a parsed response, not after a failed connect.
  if (soap_) {
    soap_->userid = nullptr;
    soap_->passwd = nullptr;
  }
  basic_user_.clear();
  basic_password_.clear();
}

LocalData::LocalData(ExecThread* owner_thread) : owner(owner_thread) {
  settings.client_name = kClientName;
  settings.io_timeout = 3600;
  RebuildEndpoint(false);
}

LocalData::LocalData(ExecThread* owner_thread, const LocalData& source) : owner(owner_thread) {
  settings = source.settings;
  userid_ = source.userid_;
  passwd_ = source.passwd_;
  engine = source.engine;
  clientid = source.clientid;
  reqgroup = source.reqgroup;
  uilang = source.uilang;
  trustheader = source.trustheader;
  forwardedfor = source.forwardedfor;
  sesskey = source.sesskey;
  sesstoken = source.sesstoken;
  licence_ = source.licence_;
  licence_valid_ = source.licence_valid_;
  cachemark = source.cachemark;
  neweid = source.neweid;
  RebuildEndpoint(false);
}

void LocalData::SetUserId(const std::string& userid) {
  SoapClient::SetUserId(userid);
  licence_valid_ = false;
}

void LocalData::SetPassword(const std::string& passwd) {
  SoapClient::SetPassword(passwd);
  licence_valid_ = false;
}

void LocalData::SetSessionKey(const std::string& key) {
  sesskey = key;
  sesstoken.clear();
  licence_valid_ = false;
}

void LocalData::SetSessionToken(const std::string& token) {
  sesstoken = token;
  licence_valid_ = false;
}

const std::string& LocalData::Licence() {
  if (!licence_valid_) {
    licence_ = BuildLicence(userid_, passwd_, sesskey, sesstoken);
    licence_valid_ = true;
  }
  return licence_;
}

int LocalData::SendHeader(struct soap* soap, const char* key, const char* value) {
  if (key && value && strcasecmp(key, "Accept-Encoding") == 0 && !settings.compress) return SOAP_OK;
  if (!key) {
    int error;
    if (!trustheader.empty() && (error = SoapClient::SendHeader(soap, trustheader.c_str(), userid_.c_str()))) {
      return error;
    }
    if (!forwardedfor.empty() &&
        (error = SoapClient::SendHeader(soap, "X-Forwarded-For", forwardedfor.c_str()))) {
      return error;
    }
  }
  return SoapClient::SendHeader(soap, key, value);
}

LocalData& Local(ExecThread& thread) { return *static_cast<LocalData*>(thread.data.get()); }

}  // namespace lexctl
