// The "windows" comms layer of the Windows build: HTTP(S) through WinINet
// underneath gSOAP.
//
// gSOAP still writes the whole request (headers included) and parses the
// whole reply, so hooks, Basic authentication, DIME and compression behave
// as on gSOAP's own sockets; WinINet carries the bytes, keeps connections
// alive and checks certificates against the Windows store. The request body
// goes to WinINet as gSOAP writes it; the reply is held once, within
// MaxReplyBytes, and handed to gSOAP with a Content-Length of its own.
#include <winsock2.h>  // before windows.h, as gSOAP includes it
#include <windows.h>
#include <wininet.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <memory>
#include <string>

#include "client/http_hooks.h"
#include "client/local_data.h"
#include "client/transport.h"
#include "shell/platform.h"
#include "soapH.h"

namespace lexctl {
namespace {

const char kPluginId[] = "lexctl3-wininet";
// The log shows this much of each body: enough to read a SOAP fault, bounded
// for large documents.
constexpr size_t kLogBodyBytes = 2048;

struct InternetHandle {
  HINTERNET handle = nullptr;
  ~InternetHandle() { Reset(); }
  void Reset(HINTERNET next = nullptr) {
    if (handle) InternetCloseHandle(handle);
    handle = next;
  }
};

// gSOAP time-outs (seconds; negative: microseconds; 0: none) in WinINet's
// milliseconds.
DWORD Millis(int timeout) {
  if (timeout > 0) return static_cast<DWORD>(timeout) * 1000;
  if (timeout < 0) return static_cast<DWORD>((-static_cast<long long>(timeout) + 999) / 1000);
  return 0xFFFFFFFF;
}

std::string ErrorText(DWORD error) {
  char* text = nullptr;
  DWORD n = FormatMessageA(FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_HMODULE |
                               FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS,
                           GetModuleHandleA("wininet.dll"), error, 0, reinterpret_cast<char*>(&text), 0, nullptr);
  std::string message = n && text ? std::string(text, n) : "";
  if (text) LocalFree(text);
  // The caller's line adds its own full stop.
  while (!message.empty() && strchr(" \r\n.", message.back())) message.pop_back();
  if (!message.empty()) return message;
  // Certificate refusals that Wine's WinINet has no text for.
  switch (error) {
    case ERROR_INTERNET_INVALID_CA:
      return "The certificate authority is invalid or incorrect";
    case ERROR_INTERNET_SEC_CERT_REV_FAILED:
      return "The certificate's issuer could not be verified";
    case WSAETIMEDOUT:
      return "Timeout was reached";
    case ERROR_INTERNET_SEC_INVALID_CERT:
      return "The SSL certificate is invalid";
    case ERROR_INTERNET_SECURITY_CHANNEL_ERROR:
      return "The secure channel could not be set up";
    default:
      return "WinINet error " + std::to_string(error);
  }
}

int ErrorStatus(DWORD error) {
  switch (error) {
    case ERROR_INTERNET_INVALID_CA:
    case ERROR_INTERNET_SEC_CERT_DATE_INVALID:
    case ERROR_INTERNET_SEC_CERT_CN_INVALID:
    case ERROR_INTERNET_SEC_CERT_ERRORS:
    case ERROR_INTERNET_SEC_CERT_REVOKED:
    case ERROR_INTERNET_SEC_CERT_NO_REV:
    case ERROR_INTERNET_SEC_CERT_REV_FAILED:
    case ERROR_INTERNET_SEC_INVALID_CERT:
    case ERROR_INTERNET_SECURITY_CHANNEL_ERROR:
    case ERROR_INTERNET_CLIENT_AUTH_CERT_NEEDED:
      return SOAP_SSL_ERROR;
    case ERROR_INTERNET_INVALID_URL:
    case ERROR_INTERNET_UNRECOGNIZED_SCHEME:
    case ERROR_HTTP_INVALID_SERVER_RESPONSE:
    case ERROR_HTTP_INVALID_HEADER:
      return SOAP_HTTP_ERROR;
    default:
      return SOAP_TCP_ERROR;
  }
}

// Request headers that WinINet writes itself, or that this layer decides.
bool WinInetOwnsHeader(const char* line, size_t length) {
  static const char* const kOwned[] = {"Host", "Content-Length", "Connection", "User-Agent", "Transfer-Encoding",
                                       "Expect"};
  for (const char* owned : kOwned) {
    size_t n = strlen(owned);
    if (length > n && line[n] == ':' && _strnicmp(line, owned, n) == 0) return true;
  }
  return false;
}

class WinInetTransport : public Transport {
 public:
  ~WinInetTransport() override {
    request_.Reset();
    connection_.Reset();
    session_.Reset();
    if (log_) fclose(log_);
  }

  void Attach(struct soap* soap, const TransportSettings& settings, int ssl_mode) override {
    client_name_ = settings.client_name;
    keepalive_ = settings.keepalive;
    // The sslauth modes as WinINet request flags: the store's trust is never waived.
    security_flags_ = 0;
    if (ssl_mode == kSslNoExpire || ssl_mode >= kSslMinimum) security_flags_ |= INTERNET_FLAG_IGNORE_CERT_DATE_INVALID;
    if (ssl_mode == kSslNoHost || ssl_mode >= kSslMinimum) security_flags_ |= INTERNET_FLAG_IGNORE_CERT_CN_INVALID;
    soap_register_plugin_arg(soap, Register, this);
  }

  void SetTrace(const std::string& file) override {
    if (log_) fclose(log_);
    log_ = file.empty() ? nullptr : OpenFile(file.c_str(), "ab");
  }

  int Open(const char* endpoint) {
    ResetRequest();
    url_ = endpoint ? endpoint : "";
    // gSOAP wants a descriptor; the connection itself is WinINet's.
    return NullDescriptor();
  }

  void BeginCall(struct soap*) override { lost_kept_ = false; }
  bool LostKeptConnection(struct soap*) const override { return lost_kept_; }

  int Send(struct soap* soap, const char* data, size_t size);
  int Perform(struct soap* soap);
  size_t Receive(char* data, size_t size);

 private:
  static int Register(struct soap* soap, struct soap_plugin* plugin, void* arg);
  bool StartRequest(struct soap* soap, size_t body_size, const std::string* whole = nullptr);
  bool Write(const char* data, size_t size);
  bool ReadReply(struct soap* soap);
  bool DatesValid();
  static void SetTimeouts(struct soap* soap, HINTERNET handle);
  void Fail(DWORD error) {
    if (!error_.empty()) return;
    error_code_ = error;
    error_ = ErrorText(error);
  }
  void ResetRequest() {
    state_ = kHead;
    head_.clear();
    body_.clear();
    request_.Reset();
    error_.clear();
    error_code_ = 0;
  }
  void LogLine(const char* prefix, const char* data, size_t size);
  void LogBody(const char* prefix, const char* data, size_t size);

  enum State { kHead, kStreaming, kBuffering, kSent, kFailed };

  std::string client_name_;
  bool keepalive_ = true;
  DWORD security_flags_ = 0;
  bool https_ = false;
  std::string url_;
  State state_ = kHead;
  std::string head_;  // the request line and headers as gSOAP wrote them
  std::string body_;  // a request body without a Content-Length, sent whole
  size_t logged_body_ = 0;
  std::string error_;
  DWORD error_code_ = 0;
  std::string proxy_;
  std::string server_;  // host:port:scheme of connection_
  // Whether the last reply left a connection open to reuse, and whether this
  // call found such a one closed before any reply came.
  bool kept_ = false;
  bool lost_kept_ = false;
  bool bare_reply_ = false;  // a status line alone, no headers, no body
  InternetHandle session_;
  InternetHandle connection_;
  InternetHandle request_;
  std::string reply_;
  std::string reply_body_;
  size_t reply_pos_ = 0;
  FILE* log_ = nullptr;
};

WinInetTransport* Find(struct soap* soap) { return static_cast<WinInetTransport*>(soap_lookup_plugin(soap, kPluginId)); }

SOAP_SOCKET HookOpen(struct soap* soap, const char* endpoint, const char*, int) { return Find(soap)->Open(endpoint); }
int HookSend(struct soap* soap, const char* data, size_t size) { return Find(soap)->Send(soap, data, size); }
size_t HookRecv(struct soap* soap, char* data, size_t size) { return Find(soap)->Receive(data, size); }
int HookPrepareRecv(struct soap* soap) { return Find(soap)->Perform(soap); }

int WinInetTransport::Register(struct soap* soap, struct soap_plugin* plugin, void* arg) {
  return InstallHttpHooks(soap, plugin, arg, {kPluginId, HookOpen, HookSend, HookRecv, HookPrepareRecv});
}

void WinInetTransport::LogLine(const char* prefix, const char* data, size_t size) {
  fputs(prefix, log_);
  fwrite(data, 1, size, log_);
  fputc('\n', log_);
}

void WinInetTransport::LogBody(const char* prefix, const char* data, size_t size) {
  if (!log_ || size == 0) return;
  fputs(prefix, log_);
  fwrite(data, 1, size, log_);
  if (data[size - 1] != '\n') fputc('\n', log_);
}

// Once gSOAP's headers are in, the request starts; the body then goes
// straight to WinINet. Failures are kept for Perform, which reports them.
int WinInetTransport::Send(struct soap* soap, const char* data, size_t size) {
  if (state_ == kStreaming) {
    Write(data, size);
    return SOAP_OK;
  }
  if (state_ == kBuffering) {
    body_.append(data, size);
    return SOAP_OK;
  }
  if (state_ == kFailed) return SOAP_OK;
  size_t searched = head_.size() > 3 ? head_.size() - 3 : 0;
  head_.append(data, size);
  size_t head_end = head_.find("\r\n\r\n", searched);
  if (head_end == std::string::npos) return SOAP_OK;
  std::string rest = head_.substr(head_end + 4);
  head_.resize(head_end + 2);
  const char* length = nullptr;
  for (size_t line = 0; line < head_.size(); line = head_.find("\r\n", line) + 2) {
    if (_strnicmp(head_.c_str() + line, "Content-Length:", 15) == 0) length = head_.c_str() + line + 15;
  }
  // Wine's WinINet loses a streamed body inside a proxy's tunnel.
  bool tunnel = soap->proxy_host && _strnicmp(url_.c_str(), "https:", 6) == 0;
  if (!length || tunnel) {
    state_ = kBuffering;
    body_ = std::move(rest);
    return SOAP_OK;
  }
  if (StartRequest(soap, strtoull(length, nullptr, 10))) Write(rest.data(), rest.size());
  return SOAP_OK;
}

bool WinInetTransport::StartRequest(struct soap* soap, size_t body_size, const std::string* whole) {
  state_ = kFailed;
  if (body_size > 0xFFFFFFFFu) {
    error_ = "request too large";
    return false;
  }
  char host[256] = "", path[4096] = "", extra[4096] = "";
  URL_COMPONENTSA parts{};
  parts.dwStructSize = sizeof(parts);
  parts.lpszHostName = host;
  parts.dwHostNameLength = sizeof(host);
  parts.lpszUrlPath = path;
  parts.dwUrlPathLength = sizeof(path);
  parts.lpszExtraInfo = extra;
  parts.dwExtraInfoLength = sizeof(extra);
  if (!InternetCrackUrlA(url_.c_str(), 0, 0, &parts)) {
    Fail(GetLastError());
    return false;
  }
  bool https = parts.nScheme == INTERNET_SCHEME_HTTPS;
  https_ = https;

  std::string proxy = soap->proxy_host ? std::string(soap->proxy_host) + ":" + std::to_string(soap->proxy_port) : "";
  if (!session_.handle || proxy != proxy_) {
    connection_.Reset();
    kept_ = false;
    server_.clear();
    proxy_ = proxy;
    std::string agent = client_name_ + kClientVersionSuffix;
    // "<-loopback>": a proxy that is set is used for loopback servers too.
    session_.Reset(proxy.empty() ? InternetOpenA(agent.c_str(), INTERNET_OPEN_TYPE_DIRECT, nullptr, nullptr, 0)
                                 : InternetOpenA(agent.c_str(), INTERNET_OPEN_TYPE_PROXY, proxy.c_str(),
                                                 "<-loopback>", 0));
    if (!session_.handle) {
      Fail(GetLastError());
      return false;
    }
  }
  // The connection handle is kept while the server stays: WinINet reuses
  // its kept-alive sockets under it.
  std::string server = std::string(host) + ":" + std::to_string(parts.nPort) + (https ? ":s" : ":p");
  if (!connection_.handle || server != server_) {
    connection_.Reset(
        InternetConnectA(session_.handle, host, parts.nPort, nullptr, nullptr, INTERNET_SERVICE_HTTP, 0, 0));
    server_ = connection_.handle ? server : "";
    kept_ = false;
    if (!connection_.handle) {
      Fail(GetLastError());
      return false;
    }
  }
  // Wine's WinINet takes a request's time-outs from its connection handle
  // and, once connected, from the request handle; Windows from either.
  SetTimeouts(soap, connection_.handle);
  DWORD flags = INTERNET_FLAG_NO_CACHE_WRITE |
                INTERNET_FLAG_NO_COOKIES | INTERNET_FLAG_NO_UI | INTERNET_FLAG_NO_AUTH | INTERNET_FLAG_NO_AUTO_REDIRECT;
  if (keepalive_) flags |= INTERNET_FLAG_KEEP_CONNECTION;
  if (https) flags |= INTERNET_FLAG_SECURE | security_flags_;
  std::string target = std::string(path) + extra;
  request_.Reset(HttpOpenRequestA(connection_.handle, "POST", target.c_str(), "HTTP/1.1", nullptr, nullptr, flags, 0));
  if (!request_.handle) {
    Fail(GetLastError());
    return false;
  }
  SetTimeouts(soap, request_.handle);

  std::string headers;
  size_t line = head_.find("\r\n") + 2;  // past the request line
  while (line < head_.size()) {
    size_t end = head_.find("\r\n", line);
    if (!WinInetOwnsHeader(head_.c_str() + line, end - line)) headers.append(head_, line, end + 2 - line);
    line = end + 2;
  }
  if (!keepalive_) headers += "Connection: close\r\n";
  if (!headers.empty() && !HttpAddRequestHeadersA(request_.handle, headers.c_str(), static_cast<DWORD>(headers.size()),
                                                  HTTP_ADDREQ_FLAG_ADD | HTTP_ADDREQ_FLAG_REPLACE)) {
    Fail(GetLastError());
    return false;
  }
  if (log_) {
    time_t now = time(nullptr);
    char stamp[32] = "";
    strftime(stamp, sizeof(stamp), "%Y-%m-%d %H:%M:%S", localtime(&now));
    fprintf(log_, "== %s %s%s\n", stamp, url_.c_str(), proxy.empty() ? "" : (" via proxy " + proxy).c_str());
  }
  INTERNET_BUFFERSA buffers{};
  buffers.dwStructSize = sizeof(buffers);
  buffers.dwBufferTotal = static_cast<DWORD>(body_size);
  if (whole ? !HttpSendRequestA(request_.handle, nullptr, 0, const_cast<char*>(whole->data()), buffers.dwBufferTotal)
            : !HttpSendRequestExA(request_.handle, &buffers, nullptr, 0, 0)) {
    Fail(GetLastError());
    return false;
  }
  if (log_) {
    // The request as WinINet sent it, its own headers included.
    std::string sent(4096, '\0');
    DWORD size = static_cast<DWORD>(sent.size());
    if (HttpQueryInfoA(request_.handle, HTTP_QUERY_RAW_HEADERS_CRLF | HTTP_QUERY_FLAG_REQUEST_HEADERS, sent.data(),
                       &size, nullptr)) {
      sent.resize(size);
    } else {
      sent = head_;
    }
    for (size_t at = 0, end; at < sent.size(); at = end + 2) {
      end = sent.find("\r\n", at);
      if (end == std::string::npos) end = sent.size();
      if (end > at) LogLine("> ", sent.c_str() + at, end - at);
    }
    fprintf(log_, "> [%zu bytes of body]\n", body_size);
    logged_body_ = 0;
  }
  // A reused connection keeps the time-outs of the call that made it.
  SetTimeouts(soap, request_.handle);
  state_ = whole ? kSent : kStreaming;
  if (whole) LogBody("> ", whole->data(), std::min(whole->size(), kLogBodyBytes));
  return true;
}

void WinInetTransport::SetTimeouts(struct soap* soap, HINTERNET handle) {
  DWORD connect = Millis(soap->connect_timeout), send = Millis(soap->send_timeout),
        receive = Millis(soap->recv_timeout);
  InternetSetOptionA(handle, INTERNET_OPTION_CONNECT_TIMEOUT, &connect, sizeof(connect));
  InternetSetOptionA(handle, INTERNET_OPTION_SEND_TIMEOUT, &send, sizeof(send));
  InternetSetOptionA(handle, INTERNET_OPTION_RECEIVE_TIMEOUT, &receive, sizeof(receive));
}

bool WinInetTransport::Write(const char* data, size_t size) {
  if (log_ && logged_body_ < kLogBodyBytes) {
    size_t shown = std::min(size, kLogBodyBytes - logged_body_);
    LogBody("> ", data, shown);
    logged_body_ += shown;
  }
  while (size > 0) {
    DWORD written = 0;
    DWORD chunk = static_cast<DWORD>(std::min<size_t>(size, 1u << 20));
    if (!InternetWriteFile(request_.handle, data, chunk, &written) || written == 0) {
      Fail(GetLastError());
      state_ = kFailed;
      return false;
    }
    data += written;
    size -= written;
  }
  return true;
}

// Wine's WinINet lets a certificate's dates pass whenever the name check is
// waived; only the date flag may waive them. It can be seen only once the
// exchange is over (closing a request cut short would leave its connection
// in the pool half-written), so the reply is then refused.
bool WinInetTransport::DatesValid() {
  // Wine's WinINet crashes when asked for the certificate of a plain
  // connection or of one through a proxy.
  if (!https_ || !proxy_.empty() || (security_flags_ & INTERNET_FLAG_IGNORE_CERT_DATE_INVALID)) return true;
  INTERNET_CERTIFICATE_INFO cert{};
  DWORD cert_size = sizeof(cert);
  if (!InternetQueryOptionA(request_.handle, INTERNET_OPTION_SECURITY_CERTIFICATE_STRUCT, &cert, &cert_size)) {
    return true;
  }
  for (LPTSTR text : {cert.lpszSubjectInfo, cert.lpszIssuerInfo, cert.lpszProtocolName, cert.lpszSignatureAlgName,
                      cert.lpszEncryptionAlgName}) {
    if (text) LocalFree(text);
  }
  FILETIME now;
  GetSystemTimeAsFileTime(&now);
  if (CompareFileTime(&now, &cert.ftStart) >= 0 && CompareFileTime(&now, &cert.ftExpiry) <= 0) return true;
  Fail(ERROR_INTERNET_SEC_CERT_DATE_INVALID);
  return false;
}

int WinInetTransport::Perform(struct soap* soap) {
  if (state_ == kHead) {
    ResetRequest();
    return soap_set_sender_error(soap, "incomplete request", nullptr, SOAP_HTTP_ERROR);
  }
  if (state_ == kBuffering) {
    std::string body;
    body.swap(body_);
    StartRequest(soap, body.size(), &body);
  }
  bool sent = state_ == kStreaming || state_ == kSent;
  if (state_ == kStreaming && !HttpEndRequestA(request_.handle, nullptr, 0, 0)) Fail(GetLastError());
  bool unanswered = !error_.empty();
  bool ok = !unanswered && ReadReply(soap) && DatesValid();
  // A peer that closed a kept-alive connection: the request finds it gone
  // (Wine's WinINet then reads nothing at all as a bare 200 reply).
  bool nothing = (unanswered && (error_code_ == ERROR_INTERNET_CONNECTION_RESET ||
                                 error_code_ == ERROR_INTERNET_CONNECTION_ABORTED)) ||
                 (ok && bare_reply_);
  // A reply that never came within the time-out falls under the low-speed
  // rule, as on the libcurl layer.
  if (sent && (error_code_ == ERROR_INTERNET_TIMEOUT || error_code_ == WSAETIMEDOUT) && soap->recv_timeout > 0) {
    error_ = TooSlowMessage(soap->recv_timeout);
  }
  if (nothing) {
    ok = false;
    lost_kept_ = kept_;
    error_code_ = 0;
    error_ = "Empty reply from server";
  }
  kept_ = ok && keepalive_;
  if (!ok) {
    if (log_) {
      fprintf(log_, "! %s\n", error_.c_str());
      fflush(log_);
    }
    // A connection that failed is not one to reuse.
    connection_.Reset();
    // SOAP_EOF asks the caller to send the request again on a fresh connection.
    int status = nothing ? (lost_kept_ ? SOAP_EOF : SOAP_TCP_ERROR)
                         : error_code_ ? ErrorStatus(error_code_) : SOAP_HTTP_ERROR;
    std::string text = error_;
    ResetRequest();
    reply_body_.clear();
    return soap_set_sender_error(soap, soap_strdup(soap, text.c_str()), nullptr, status);
  }
  if (log_) fflush(log_);
  ResetRequest();
  return SOAP_OK;
}

// The reply as gSOAP would have read it from a socket, less the chunking
// WinINet already undid.
bool WinInetTransport::ReadReply(struct soap* soap) {
  std::string headers(1024, '\0');
  DWORD size = static_cast<DWORD>(headers.size());
  while (!HttpQueryInfoA(request_.handle, HTTP_QUERY_RAW_HEADERS_CRLF, headers.data(), &size, nullptr)) {
    if (GetLastError() != ERROR_INSUFFICIENT_BUFFER || size > MaxReplyBytes()) {
      Fail(GetLastError());
      return false;
    }
    headers.resize(size);
  }
  headers.resize(size);
  reply_.clear();
  reply_pos_ = 0;
  unsigned long long length = 0;
  bool has_length = false;
  for (size_t at = 0, end; at < headers.size(); at = end + 2) {
    end = headers.find("\r\n", at);
    if (end == std::string::npos) end = headers.size();
    if (end == at) continue;
    const char* line = headers.c_str() + at;
    size_t n = end - at;
    if (log_) LogLine("< ", line, n);
    if (reply_.empty()) {
      const char* space = static_cast<const char*>(memchr(line, ' ', n));
      reply_ = "HTTP/1.1" + (space ? std::string(space, line + n - space) : std::string(" 200 OK")) + "\r\n";
      continue;
    }
    if (n > 15 && _strnicmp(line, "Content-Length:", 15) == 0) {
      length = strtoull(line + 15, nullptr, 10);
      has_length = true;
      continue;
    }
    if (n > 18 && _strnicmp(line, "Transfer-Encoding:", 18) == 0) continue;
    reply_.append(line, n).append("\r\n");
  }
  if (reply_.empty()) reply_ = "HTTP/1.1 200 OK\r\n";

  if (reply_body_.capacity() > (1u << 20)) std::string().swap(reply_body_);
  reply_body_.clear();
  if (has_length && length > MaxReplyBytes()) {
    error_ = "reply too large";
    return false;
  }
  if (has_length) reply_body_.reserve(length);
  // A reply that arrives slower than kLowSpeedLimit bytes a second over the
  // receive time-out is given up, as on the other layers; the time-out on
  // each wait ends a stalled one.
  int window = soap->recv_timeout;
  auto window_start = std::chrono::steady_clock::now();
  size_t window_bytes = 0;
  for (;;) {
    DWORD available = 0;
    if (!InternetQueryDataAvailable(request_.handle, &available, 0, 0)) {
      Fail(GetLastError());
      return false;
    }
    if (available == 0) break;
    available = std::min<DWORD>(available, 1u << 20);
    if (reply_body_.size() + available > MaxReplyBytes()) {
      error_ = "reply too large";
      return false;
    }
    size_t old = reply_body_.size();
    reply_body_.resize(old + available);
    DWORD got = 0;
    if (!InternetReadFile(request_.handle, reply_body_.data() + old, available, &got)) {
      reply_body_.resize(old);
      Fail(GetLastError());
      return false;
    }
    reply_body_.resize(old + got);
    if (got == 0) break;
    if (window <= 0) continue;
    window_bytes += got;
    auto now = std::chrono::steady_clock::now();
    if (now - window_start < std::chrono::seconds(window)) continue;
    if (window_bytes < static_cast<size_t>(kLowSpeedLimit) * window) {
      error_code_ = ERROR_INTERNET_TIMEOUT;
      error_ = TooSlowMessage(window);
      return false;
    }
    window_start = now;
    window_bytes = 0;
  }
  if (has_length && reply_body_.size() < length) {
    // Wine's WinINet reads a reset connection as the end of the reply.
    error_code_ = ERROR_INTERNET_CONNECTION_RESET;
    error_ = "Connection reset or closed with " + std::to_string(length - reply_body_.size()) +
             " bytes of the reply still to come";
    return false;
  }
  if (log_) {
    fprintf(log_, "< [%zu bytes of body]\n", reply_body_.size());
    LogBody("< ", reply_body_.data(), std::min(reply_body_.size(), kLogBodyBytes));
  }
  bare_reply_ = reply_.find("\r\n") + 2 == reply_.size() && reply_body_.empty();
  reply_ += "Content-Length: " + std::to_string(reply_body_.size()) + "\r\n\r\n";
  return true;
}

size_t WinInetTransport::Receive(char* data, size_t size) {
  // The rebuilt head first, then the body as WinINet delivered it.
  size_t n = 0;
  if (reply_pos_ < reply_.size()) {
    n = std::min(size, reply_.size() - reply_pos_);
    memcpy(data, reply_.data() + reply_pos_, n);
  } else {
    size_t offset = reply_pos_ - reply_.size();
    n = std::min(size, reply_body_.size() - offset);
    memcpy(data, reply_body_.data() + offset, n);
    // Once the library has a large body, this copy is only weight.
    if (n > 0 && offset + n == reply_body_.size() && reply_body_.size() > (1u << 20)) {
      std::string().swap(reply_body_);
      reply_pos_ = reply_.size();
      return n;
    }
  }
  reply_pos_ += n;
  return n;
}

}  // namespace

std::unique_ptr<Transport> MakePlatformHttpTransport() { return std::make_unique<WinInetTransport>(); }

}  // namespace lexctl
