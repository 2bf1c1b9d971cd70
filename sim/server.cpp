#include "server.h"

#include <openssl/ssl.h>
#include <strings.h>

#include <algorithm>
#include <cstring>

#include "crypto.h"
#include "sys.h"

namespace lexsim {
namespace {

std::atomic<bool> g_stop{false};

// Bad input must not exhaust the server: these bound what one request may make us do.
constexpr unsigned kMaxXmlDepth = 64;
constexpr size_t kMaxOccurs = 20000;
constexpr int kIoTimeoutSecs = 10;
constexpr size_t kMaxQueued = 512;
// gSOAP looks attributes up in a list, so their number per element costs quadratic time:
// 60,000 of them in one 1 MB request took ten seconds. No real request comes near this.
constexpr unsigned kMaxAttributes = 256;
// The request limit is for XML; DIME attachments after it may be this large.
constexpr ULONG64 kMaxDimeRequest = 4ULL << 30;

bool IsLoopback(const std::string& host) {
  return host.rfind("127.", 0) == 0 || host == "::1" || host.rfind("::ffff:127.", 0) == 0;
}

// Counts the attributes of each start tag in the body as it arrives (after inflating).
// One per worker thread: each worker owns one context.
struct TagScan {
  bool active = false;  ///< a request body is being read
  enum { kText, kTag, kQuoted } state = kText;
  char quote = 0;
  unsigned attributes = 0;
  // In a DIME request only the first record is XML: its header, then where it ends.
  bool dime = false;
  unsigned char head[12] = {};
  size_t seen = 0;
  size_t xml_end = 0;
};
thread_local TagScan t_scan;

void StartBodyScan(bool dime) {
  t_scan = TagScan{};
  t_scan.active = true;
  t_scan.dime = dime;
}

size_t Padded(size_t n) { return (n + 3) & ~size_t{3}; }

// How much of buf is still the XML record; past it, attachments may exceed the XML limit.
size_t XmlPart(struct soap* soap, TagScan& s, const char* buf, size_t len) {
  if (!s.dime) return len;
  for (size_t i = 0; s.seen + i < 12 && i < len; ++i) s.head[s.seen + i] = static_cast<unsigned char>(buf[i]);
  if (s.xml_end == 0 && s.seen + len >= 12) {
    const unsigned char* h = s.head;
    if (h[0] & 1) {  // a chunked XML record: the limit stays on the whole request
      s.dime = false;
      return len;
    }
    s.xml_end = 12 + Padded((h[2] << 8) | h[3]) + Padded((h[4] << 8) | h[5]) + Padded((h[6] << 8) | h[7]) +
                Padded((size_t{h[8]} << 24) | (h[9] << 16) | (h[10] << 8) | h[11]);
  }
  size_t start = s.seen;
  s.seen += len;
  if (s.xml_end == 0 || s.seen < s.xml_end) return len;
  s.active = false;
  soap->recv_maxlength = kMaxDimeRequest;
  return s.xml_end > start ? s.xml_end - start : 0;
}

int PrepareRecvHook(struct soap* soap, const char* buf, size_t len) {
  TagScan& s = t_scan;
  if (!s.active) return SOAP_OK;  // header bytes; gSOAP hands the body over again later
  const char* p = buf;
  const char* end = buf + XmlPart(soap, s, buf, len);
  while (p < end) {
    if (s.state == TagScan::kText) {
      p = static_cast<const char*>(std::memchr(p, '<', end - p));
      if (!p) break;
      ++p;
      s.state = TagScan::kTag;
      s.attributes = 0;
    } else if (s.state == TagScan::kQuoted) {
      p = static_cast<const char*>(std::memchr(p, s.quote, end - p));
      if (!p) break;
      ++p;
      s.state = TagScan::kTag;
    } else {
      char c = *p++;
      if (c == '>') {
        s.state = TagScan::kText;
      } else if (c == '"' || c == '\'') {
        s.state = TagScan::kQuoted;
        s.quote = c;
      } else if (c == '=' && ++s.attributes > kMaxAttributes) {
        s.active = false;
        return soap->error = SOAP_OCCURS;
      }
    }
  }
  return SOAP_OK;
}

int ParseHook(struct soap* soap) {
  Conn& c = ConnOf(soap);
  c.trusted_user.reset();
  c.basic.reset();
  // Responses are compressed only for clients that said they accept it, and carry DIME
  // attachments only for clients that sent DIME (a literal service inlines them otherwise).
  soap_clr_omode(soap, SOAP_ENC_ZLIB | SOAP_ENC_DIME);
  int status = c.next_parse(soap);
  if (status) return status;
  std::string path = soap->path;
  path = path.substr(0, path.find('?'));
  // Servers must take the absolute form too ("POST http://host:port/path"),
  // which proxies and clients inside a proxy tunnel may send.
  if (size_t scheme = path.find("://"); scheme != std::string::npos && path.compare(0, 1, "/") != 0) {
    size_t slash = path.find('/', scheme + 3);
    path = slash == std::string::npos ? "/" : path.substr(slash);
  }
  if (path != kServicePath) {
    soap->keep_alive = 0;
    return 404;
  }
  c.request_read = true;
  // Only a DIME body of known length can be told apart into XML and attachments.
  bool dime = (soap->omode & SOAP_ENC_DIME) && soap->length > 0 && !soap->zlib_in;
  if (soap->length > (dime ? kMaxDimeRequest : soap->recv_maxlength)) {
    soap->keep_alive = 0;
    return 413;
  }
  StartBodyScan(dime);
  // gSOAP reads on past Content-Length; stop it there so that a short body ends in a
  // fault at once instead of a wait for bytes that never come.
  if (soap->length > 0) {
    long long buffered = static_cast<long long>(soap->buflen - soap->bufidx);
    c.body_left = std::max(0LL, static_cast<long long>(soap->length) - buffered);
  }
  // gSOAP answers a body that ends early only when no gSOAP timeouts are set; while the
  // body is read, the socket's own timeouts (see Worker) bound the wait instead.
  soap->recv_timeout = 0;
  soap->send_timeout = 0;
  return SOAP_OK;
}

// Between requests the gSOAP timeouts are back, so an idle keep-alive connection is closed
// silently rather than answered with a fault nobody asked for.
int ServeLoopHook(struct soap* soap) {
  Conn& c = ConnOf(soap);
  t_scan.active = false;
  c.body_left = -1;
  c.request_read = c.responded = false;
  soap->recv_maxlength = static_cast<ULONG64>(c.env->opts.max_request_mb) << 20;
  soap->recv_timeout = kIoTimeoutSecs;
  soap->send_timeout = kIoTimeoutSecs;
  return SOAP_OK;
}

int ParseHeaderHook(struct soap* soap, const char* key, const char* val) {
  Conn& c = ConnOf(soap);
  const std::string& trust = c.env->opts.trust_header;
  if (key && val) {
    if (!trust.empty() && !strcasecmp(key, trust.c_str())) {
      c.trusted_user = val;
    } else if (!strcasecmp(key, "Accept-Encoding") && ToLower(val).find("gzip") != std::string::npos) {
      soap_set_omode(soap, SOAP_ENC_ZLIB);
    } else if (!strcasecmp(key, "Content-Type") && !strncasecmp(val, "application/dime", 16)) {
      soap_set_omode(soap, SOAP_ENC_DIME);
    } else if (!strcasecmp(key, "Authorization") && !strncasecmp(val, "Basic ", 6)) {
      int n = 0;
      const char* decoded = soap_base642s(soap, val + 6, nullptr, 0, &n);
      if (decoded) {
        std::string pair(decoded, static_cast<size_t>(n));
        size_t colon = pair.find(':');
        if (colon != std::string::npos)
          c.basic.emplace(pair.substr(0, colon), pair.substr(colon + 1));
      }
    }
  }
  return c.next_parsehdr(soap, key, val);
}

size_t RecvHook(struct soap* soap, char* buf, size_t len) {
  Conn& c = ConnOf(soap);
  if (c.body_left < 0) return c.next_recv(soap, buf, len);
  if (c.body_left == 0) return 0;
  size_t n = c.next_recv(soap, buf, std::min(len, static_cast<size_t>(c.body_left)));
  c.body_left -= static_cast<long long>(n);
  return n;
}

int ResponseHook(struct soap* soap, int status, ULONG64 count) {
  Conn& c = ConnOf(soap);
  c.responded = true;
  return c.next_response(soap, status, count);
}

// gSOAP closes without a word when a request's XML ends early or is not XML at all; the
// client gets a 400 with a SOAP fault instead.
int CloseHook(struct soap* soap) {
  Conn& c = ConnOf(soap);
  if (c.request_read && !c.responded && soap_valid_socket(soap->socket)) {
    c.responded = true;
    static const std::string kBody =
        "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<SOAP-ENV:Envelope "
        "xmlns:SOAP-ENV=\"http://schemas.xmlsoap.org/soap/envelope/\"><SOAP-ENV:Body>"
        "<SOAP-ENV:Fault><faultcode>SOAP-ENV:Client</faultcode><faultstring>Malformed or "
        "incomplete request</faultstring></SOAP-ENV:Fault></SOAP-ENV:Body></SOAP-ENV:Envelope>";
    std::string reply = std::string("HTTP/1.1 400 Bad Request\r\nServer: ") + kServerHeader +
                        "\r\nContent-Type: text/xml; charset=utf-8\r\nContent-Length: " +
                        std::to_string(kBody.size()) + "\r\nConnection: close\r\n\r\n" + kBody;
    soap->fsend(soap, reply.data(), reply.size());
  }
  return c.next_close(soap);
}

int PostHeaderHook(struct soap* soap, const char* key, const char* val) {
  Conn& c = ConnOf(soap);
  if (key && !std::strcmp(key, "Server")) val = kServerHeader;
  return c.next_posthdr(soap, key, val);
}

}  // namespace

Server::Server(const Env& env) : env_(env) {}

Server::~Server() {
  if (master_) {
    soap_destroy(master_);
    soap_end(master_);
    soap_free(master_);
  }
}

void Server::Stop() { g_stop = true; }

void Server::Configure(struct soap* soap) const {
  soap->bind_flags = SO_REUSEADDR;
  soap->max_keep_alive = 1000000;
  soap->recv_maxlength = static_cast<ULONG64>(env_.opts.max_request_mb) << 20;
  soap->maxlevel = kMaxXmlDepth;
  soap->maxoccurs = kMaxOccurs;
  soap->recv_timeout = kIoTimeoutSecs;
  soap->send_timeout = kIoTimeoutSecs;
  // Short accept waits let the loop notice a stop request.
  soap->accept_timeout = -200000;
}

bool Server::Start(std::string* address, std::string* error) {
  const Options& o = env_.opts;
  master_ = soap_new2(SOAP_IO_KEEPALIVE | SOAP_C_UTFSTRING, SOAP_IO_KEEPALIVE | SOAP_C_UTFSTRING);
  Configure(master_);
  if (!o.tls_cert.empty()) {
    tls_ = true;
    soap_ssl_init();
    if (soap_ssl_server_context(master_, SOAP_SSL_NO_AUTHENTICATION, nullptr, nullptr, nullptr,
                                nullptr, nullptr, nullptr, "lexsim")) {
      *error = "TLS set-up failed";
      return false;
    }
    SSL_CTX* ctx = master_->ctx;
    if (!ctx || SSL_CTX_use_certificate_chain_file(ctx, o.tls_cert.c_str()) != 1 ||
        SSL_CTX_use_PrivateKey_file(ctx, o.tls_key.c_str(), SSL_FILETYPE_PEM) != 1 ||
        SSL_CTX_check_private_key(ctx) != 1) {
      *error = "cannot use TLS certificate " + o.tls_cert + " with key " + o.tls_key;
      return false;
    }
    if (!o.tls_client_ca.empty()) {
      if (SSL_CTX_load_verify_locations(ctx, o.tls_client_ca.c_str(), nullptr) != 1) {
        *error = "cannot read client CA file " + o.tls_client_ca;
        return false;
      }
      SSL_CTX_set_verify(ctx, SSL_VERIFY_PEER | SSL_VERIFY_FAIL_IF_NO_PEER_CERT, nullptr);
    }
  }
  if (!soap_valid_socket(soap_bind(master_, o.host.c_str(), o.port, 128))) {
    *error = "cannot listen on " + o.host + ":" + std::to_string(o.port) + ": " +
             std::strerror(master_->errnum);
    return false;
  }
  sockaddr_storage addr{};
  socklen_t len = sizeof addr;
  int port = o.port;
  if (getsockname(master_->master, reinterpret_cast<sockaddr*>(&addr), &len) == 0)
    port = ntohs(addr.ss_family == AF_INET6 ? reinterpret_cast<sockaddr_in6*>(&addr)->sin6_port
                                            : reinterpret_cast<sockaddr_in*>(&addr)->sin_port);
  std::string host = o.host.find(':') != std::string::npos ? "[" + o.host + "]" : o.host;
  *address = std::string(tls_ ? "https" : "http") + "://" + host + ":" + std::to_string(port);
  return true;
}

void Server::Run() {
  int n = env_.opts.threads;
  active_.assign(n, SOAP_INVALID_SOCKET);
  // Copied here, before accepting starts: soap_accept writes into the master context.
  std::vector<struct soap*> contexts;
  for (int i = 0; i < n; ++i) contexts.push_back(soap_copy(master_));
  for (int i = 0; i < n; ++i) workers_.emplace_back(&Server::Worker, this, i, contexts[i]);

  while (!g_stop) {
    SOAP_SOCKET s = soap_accept(master_);
    if (!soap_valid_socket(s)) continue;  // timeout, EINTR or a failed accept
    std::lock_guard<std::mutex> lock(mu_);
    if (queue_.size() >= kMaxQueued) {
      CloseSocket(s);
      continue;
    }
    queue_.push_back(Pending{s, master_->host});
    cv_.notify_one();
  }

  {
    std::lock_guard<std::mutex> lock(mu_);
    draining_ = true;
    for (Pending& p : queue_) CloseSocket(p.socket);
    queue_.clear();
    WakeIdleConnections();
  }
  cv_.notify_all();
  for (std::thread& t : workers_) t.join();
  workers_.clear();
}

// Ends the wait of workers parked on idle keep-alive connections; a request already read
// is still answered because only the receiving side is shut.
void Server::WakeIdleConnections() {
  for (SOAP_SOCKET s : active_)
    if (soap_valid_socket(s)) ShutdownReceive(s);
}

void Server::Worker(size_t slot, struct soap* soap) {
  Conn conn;
  conn.env = &env_;
  soap->user = &conn;
  // The listening socket belongs to the master context alone.
  soap->master = SOAP_INVALID_SOCKET;
  conn.next_parse = soap->fparse;
  conn.next_parsehdr = soap->fparsehdr;
  conn.next_posthdr = soap->fposthdr;
  conn.next_recv = soap->frecv;
  conn.next_response = soap->fresponse;
  conn.next_close = soap->fclose;
  soap->fparse = ParseHook;
  soap->fparsehdr = ParseHeaderHook;
  soap->fposthdr = PostHeaderHook;
  soap->fserveloop = ServeLoopHook;
  soap->frecv = RecvHook;
  soap->fresponse = ResponseHook;
  soap->fclose = CloseHook;
  // No plug-in is registered, so there is no earlier hook to chain to.
  soap->fpreparerecv = PrepareRecvHook;

  for (;;) {
    Pending p;
    {
      std::unique_lock<std::mutex> lock(mu_);
      cv_.wait(lock, [&] { return draining_ || !queue_.empty(); });
      if (draining_) break;
      p = std::move(queue_.front());
      queue_.pop_front();
      active_[slot] = p.socket;
    }
    SetSocketTimeouts(p.socket, kIoTimeoutSecs);
    ServeLoopHook(soap);
    // gSOAP keeps unread bytes for pipelined requests; those of the last connection
    // must not be taken for the first request of this one.
    soap->bufidx = soap->buflen = 0;
    soap->ahead = 0;
    soap->socket = p.socket;
    conn.peer = p.peer;
    conn.loopback = IsLoopback(p.peer);
    if (!tls_ || soap_ssl_accept(soap) == SOAP_OK) soap_serve(soap);
    {
      std::lock_guard<std::mutex> lock(mu_);
      active_[slot] = SOAP_INVALID_SOCKET;
    }
    soap->keep_alive = 0;
    soap_closesock(soap);
    soap_force_closesock(soap);
    soap_destroy(soap);
    soap_end(soap);
  }
  soap_destroy(soap);
  soap_end(soap);
  soap_free(soap);
}

}  // namespace lexsim
