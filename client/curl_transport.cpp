#include "client/curl_transport.h"

#include <curl/curl.h>
#include <openssl/ssl.h>
#include <openssl/x509v3.h>
#include <strings.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "client/http_hooks.h"
#include "client/tls_checks.h"
#include "shell/platform.h"
#include "soapH.h"

namespace lexctl {

// What libcurl's own options cannot say: forgive only validity dates, and
// take an IP host only from an IP subject alternative name (libcurl falls
// back to the common name there; the other layer does not).
struct TlsRules {
  bool ignore_dates = false;
  std::string ip_host;
};

namespace {

const char kPluginId[] = "lexctl3-curl";

// libcurl and the libraries it pulls in are many; they are loaded on the
// first request of this layer so that start-up never pays for them.
// The SSL_CTX libcurl hands over belongs to the OpenSSL libcurl loaded, which
// need not be the one linked into this program: it is configured only
// through that library's own functions, bound here beside libcurl's.
struct CurlApi {
  decltype(&curl_global_init) global_init = nullptr;
  decltype(&curl_easy_init) easy_init = nullptr;
  decltype(&curl_easy_setopt) easy_setopt = nullptr;
  decltype(&curl_easy_perform) easy_perform = nullptr;
  decltype(&curl_easy_getinfo) easy_getinfo = nullptr;
  decltype(&curl_easy_reset) easy_reset = nullptr;
  decltype(&curl_easy_cleanup) easy_cleanup = nullptr;
  decltype(&curl_easy_strerror) easy_strerror = nullptr;
  decltype(&curl_slist_append) slist_append = nullptr;
  decltype(&curl_slist_free_all) slist_free_all = nullptr;
  decltype(&curl_easy_pause) easy_pause = nullptr;
  decltype(&curl_multi_init) multi_init = nullptr;
  decltype(&curl_multi_add_handle) multi_add = nullptr;
  decltype(&curl_multi_remove_handle) multi_remove = nullptr;
  decltype(&curl_multi_perform) multi_perform = nullptr;
  decltype(&curl_multi_poll) multi_poll = nullptr;
  decltype(&curl_multi_info_read) multi_info_read = nullptr;
  decltype(&curl_multi_cleanup) multi_cleanup = nullptr;
  decltype(&curl_url) url_new = nullptr;
  decltype(&curl_url_set) url_set = nullptr;
  decltype(&curl_url_cleanup) url_cleanup = nullptr;
  decltype(&SSL_CTX_set_verify) ctx_set_verify = nullptr;
  decltype(&SSL_CTX_get0_param) ctx_get0_param = nullptr;
  decltype(&X509_VERIFY_PARAM_set1_ip_asc) param_set1_ip_asc = nullptr;
  decltype(&X509_STORE_CTX_get_error) store_get_error = nullptr;
  decltype(&X509_STORE_CTX_set_error) store_set_error = nullptr;
  bool loaded = false;
  bool tls_loaded = false;
};

const CurlApi& Curl() {
  static const CurlApi api = [] {
    CurlApi loaded;
    void* library = OpenLibrary({"libcurl.so.4"});
    if (!library) return loaded;
    auto bind = [library](auto& function, const char* name) { return BindSymbol(library, function, name); };
    loaded.loaded = bind(loaded.global_init, "curl_global_init") && bind(loaded.easy_init, "curl_easy_init") &&
                    bind(loaded.easy_setopt, "curl_easy_setopt") &&
                    bind(loaded.easy_perform, "curl_easy_perform") &&
                    bind(loaded.easy_getinfo, "curl_easy_getinfo") &&
                    bind(loaded.easy_reset, "curl_easy_reset") &&
                    bind(loaded.easy_cleanup, "curl_easy_cleanup") &&
                    bind(loaded.easy_strerror, "curl_easy_strerror") &&
                    bind(loaded.slist_append, "curl_slist_append") &&
                    bind(loaded.slist_free_all, "curl_slist_free_all") &&
                    bind(loaded.easy_pause, "curl_easy_pause") && bind(loaded.multi_init, "curl_multi_init") &&
                    bind(loaded.multi_add, "curl_multi_add_handle") &&
                    bind(loaded.multi_remove, "curl_multi_remove_handle") &&
                    bind(loaded.multi_perform, "curl_multi_perform") &&
                    bind(loaded.multi_poll, "curl_multi_poll") &&
                    bind(loaded.multi_info_read, "curl_multi_info_read") &&
                    bind(loaded.multi_cleanup, "curl_multi_cleanup") && bind(loaded.url_new, "curl_url") &&
                    bind(loaded.url_set, "curl_url_set") && bind(loaded.url_cleanup, "curl_url_cleanup");
    if (loaded.loaded) loaded.global_init(CURL_GLOBAL_DEFAULT);
    void* ssl = OpenLibrary({"libssl.so.3"});
    void* crypto = OpenLibrary({"libcrypto.so.3"});
    loaded.tls_loaded = ssl && crypto && BindSymbol(ssl, loaded.ctx_set_verify, "SSL_CTX_set_verify") &&
                        BindSymbol(ssl, loaded.ctx_get0_param, "SSL_CTX_get0_param") &&
                        BindSymbol(crypto, loaded.param_set1_ip_asc, "X509_VERIFY_PARAM_set1_ip_asc") &&
                        BindSymbol(crypto, loaded.store_get_error, "X509_STORE_CTX_get_error") &&
                        BindSymbol(crypto, loaded.store_set_error, "X509_STORE_CTX_set_error");
    return loaded;
  }();
  return api;
}

CurlTransport* Find(struct soap* soap) {
  return static_cast<CurlTransport*>(soap_lookup_plugin(soap, kPluginId));
}

SOAP_SOCKET HookOpen(struct soap* soap, const char* endpoint, const char*, int) {
  return Find(soap)->Open(soap, endpoint);
}
int HookSend(struct soap* soap, const char* data, size_t size) { return Find(soap)->Send(soap, data, size); }
size_t HookRecv(struct soap* soap, char* data, size_t size) { return Find(soap)->Receive(soap, data, size); }
int HookPrepareRecv(struct soap* soap) { return Find(soap)->Perform(soap); }

int Register(struct soap* soap, struct soap_plugin* plugin, void* arg) {
  return InstallHttpHooks(soap, plugin, arg, {kPluginId, HookOpen, HookSend, HookRecv, HookPrepareRecv});
}


int CurlVerifyIgnoringDates(int ok, X509_STORE_CTX* store) {
  const CurlApi& api = Curl();
  return ForgiveDates(ok, store, api.store_get_error, api.store_set_error);
}

CURLcode ConfigureTls(CURL*, void* ssl_ctx, void* data) {
  auto* rules = static_cast<const TlsRules*>(data);
  auto* ctx = static_cast<SSL_CTX*>(ssl_ctx);
  const CurlApi& tls = Curl();
  if (!tls.tls_loaded) return CURLE_SSL_ENGINE_INITFAILED;
  if (rules->ignore_dates) tls.ctx_set_verify(ctx, SSL_VERIFY_PEER, CurlVerifyIgnoringDates);
  if (!rules->ip_host.empty()) tls.param_set1_ip_asc(tls.ctx_get0_param(ctx), rules->ip_host.c_str());
  return CURLE_OK;
}

// Request headers that libcurl sets itself.
bool CurlOwnsHeader(const std::string& name) {
  static const char* const kOwned[] = {"Host", "Content-Length", "Connection", "User-Agent",
                                       "Accept-Encoding", "Transfer-Encoding", "Expect"};
  for (const char* owned : kOwned) {
    if (strcasecmp(name.c_str(), owned) == 0) return true;
  }
  return false;
}

// The request's header lines less those libcurl sets itself, each ended
// by "\n": the list libcurl is given is rebuilt only when these change.
std::string OwnHeaderLines(const std::string& request, size_t head_end) {
  std::string lines;
  size_t line_start = request.find("\r\n") + 2;  // past the request line
  while (line_start < head_end) {
    size_t line_end = request.find("\r\n", line_start);
    size_t colon = request.find(':', line_start);
    if (colon < line_end && !CurlOwnsHeader(request.substr(line_start, colon - line_start))) {
      lines.append(request, line_start, line_end - line_start).push_back('\n');
    }
    line_start = line_end + 2;
  }
  return lines;
}

curl_slist* HeaderList(const std::string& lines) {
  curl_slist* headers = nullptr;
  for (size_t start = 0, end; (end = lines.find('\n', start)) != std::string::npos; start = end + 1) {
    headers = Curl().slist_append(headers, lines.substr(start, end - start).c_str());
  }
  return Curl().slist_append(headers, "Expect:");
}

// The request's Content-Length; -1 when it has none (libcurl then sends
// the body chunked).
long long RequestLength(const std::string& request, size_t head_end) {
  long long length = -1;
  for (size_t line = request.find("\r\n"); line != std::string::npos && line < head_end;
       line = request.find("\r\n", line + 2)) {
    if (strncasecmp(request.c_str() + line + 2, "Content-Length:", 15) == 0) {
      length = strtoll(request.c_str() + line + 17, nullptr, 10);
    }
  }
  return length;
}

// A body up to this long is gathered and sent with its head in one piece.
constexpr long long kGatherBytes = 4ll << 20;

int ErrorStatus(CURLcode code) {
  switch (code) {
    case CURLE_SSL_CONNECT_ERROR:
    case CURLE_PEER_FAILED_VERIFICATION:
    case CURLE_SSL_CERTPROBLEM:
    case CURLE_SSL_CIPHER:
    case CURLE_SSL_CACERT_BADFILE:
    case CURLE_SSL_ENGINE_NOTFOUND:
    case CURLE_SSL_ENGINE_SETFAILED:
    case CURLE_SSL_ENGINE_INITFAILED:
    case CURLE_SSL_ISSUER_ERROR:
    case CURLE_SSL_CRL_BADFILE:
    case CURLE_SSL_SHUTDOWN_FAILED:
    case CURLE_SSL_PINNEDPUBKEYNOTMATCH:
    case CURLE_SSL_INVALIDCERTSTATUS:
    case CURLE_SSL_CLIENTCERT:
      return SOAP_SSL_ERROR;
    case CURLE_WRITE_ERROR:
    case CURLE_TOO_MANY_REDIRECTS:
    case CURLE_WEIRD_SERVER_REPLY:
    case CURLE_HTTP2:
    case CURLE_BAD_CONTENT_ENCODING:
      return SOAP_HTTP_ERROR;
    default:
      return SOAP_TCP_ERROR;
  }
}

}  // namespace

// The reply waits here for gSOAP, at most this much at a time.
constexpr size_t kReplyQueueBytes = size_t{1} << 20;

size_t CurlWrite(char* data, size_t size, size_t count, void* self) {
  auto* transport = static_cast<CurlTransport*>(self);
  size_t n = size * count;
  // DIME attachments may go to files; gSOAP bounds the XML itself.
  if (!transport->dime_reply_ && transport->reply_seen_ + n > MaxReplyBytes()) {
    transport->reply_too_large_ = true;
    return 0;  // libcurl ends the transfer
  }
  std::string& queue = transport->reply_body_;
  size_t& taken = transport->reply_pos_;
  if (queue.size() - taken >= kReplyQueueBytes) {
    transport->recv_paused_ = true;
    return CURL_WRITEFUNC_PAUSE;  // libcurl offers the same bytes again later
  }
  if (taken > 0 && (taken == queue.size() || taken >= kReplyQueueBytes)) {
    queue.erase(0, taken);
    taken = 0;
  }
  queue.append(data, n);
  transport->reply_seen_ += n;
  transport->moved_ += n;
  return n;
}

// libcurl sends a request again when a kept connection turns out dead,
// which it finds out early: the start of each body is kept for that.
constexpr size_t kReplayBytes = size_t{8} << 20;

size_t CurlRead(char* data, size_t size, size_t count, void* self) {
  auto* t = static_cast<CurlTransport*>(self);
  std::string& replay = t->replay_;
  if (t->read_pos_ < replay.size()) {
    size_t n = std::min(size * count, replay.size() - t->read_pos_);
    memcpy(data, replay.data() + t->read_pos_, n);
    t->read_pos_ += n;
    return n;
  }
  if (t->feed_left_ == 0) {
    t->send_paused_ = true;
    return CURL_READFUNC_PAUSE;  // until gSOAP writes the next piece
  }
  size_t n = std::min(size * count, t->feed_left_);
  memcpy(data, t->feed_, n);
  if (t->replay_whole_ && replay.size() + n <= kReplayBytes) {
    replay.append(t->feed_, n);
  } else if (t->replay_whole_) {
    t->replay_whole_ = false;
    std::string().swap(replay);
  }
  t->feed_ += n;
  t->feed_left_ -= n;
  t->read_pos_ += n;
  return n;
}

int CurlSeek(void* self, curl_off_t offset, int origin) {
  return origin == SEEK_SET && static_cast<CurlTransport*>(self)->Rewind(offset) ? CURL_SEEKFUNC_OK
                                                                               : CURL_SEEKFUNC_CANTSEEK;
}

size_t CurlHeader(char* data, size_t size, size_t count, void* self) {
  auto* transport = static_cast<CurlTransport*>(self);
  size_t n = size * count;
  // Interim replies (100 Continue, a proxy's CONNECT) start a new header.
  if (n >= 5 && strncmp(data, "HTTP/", 5) == 0) {
    transport->reply_headers_.clear();
    transport->dime_reply_ = false;
  }
  if (transport->reply_headers_.size() + n > MaxReplyBytes()) return 0;
  transport->reply_headers_.append(data, n);
  transport->moved_ += n;
  if (n > 13 && strncasecmp(data, "Content-Type:", 13) == 0) {
    const char* value = data + 13;
    while (*value == ' ') ++value;
    transport->dime_reply_ = strncasecmp(value, "application/dime", 16) == 0;
  }
  return n;
}

int CurlTrace(CURL*, int type, char* data, size_t size, void* self) {
  auto* transport = static_cast<CurlTransport*>(self);
  if (!transport->trace_) return 0;
  static const char* const kLabels[] = {"* ", "< ", "> ", "<= ", "=> ", "<= ", "=> "};
  const char* label = type >= 0 && type < 7 ? kLabels[type] : "? ";
  fputs(label, transport->trace_);
  fwrite(data, 1, size, transport->trace_);
  if (size == 0 || data[size - 1] != '\n') fputc('\n', transport->trace_);
  fflush(transport->trace_);
  return 0;
}

std::unique_ptr<Transport> MakePlatformHttpTransport() { return std::make_unique<CurlTransport>(); }

CurlTransport::CurlTransport() = default;

CurlTransport::~CurlTransport() {
  EndTransfer();
  if (multi_) Curl().multi_cleanup(multi_);
  if (headers_) Curl().slist_free_all(headers_);
  if (curl_) Curl().easy_cleanup(curl_);
  if (url_handle_) Curl().url_cleanup(url_handle_);
  if (trace_) fclose(trace_);
}

void CurlTransport::Attach(struct soap* soap, const TransportSettings& settings, int ssl_mode) {
  settings_ = settings;
  ssl_mode_ = ssl_mode;
  configured_ = false;
  soap_register_plugin_arg(soap, Register, this);
}

void CurlTransport::SetTrace(const std::string& file) {
  if (trace_) fclose(trace_);
  trace_ = nullptr;
  trace_path_ = file;
  if (!file.empty()) trace_ = OpenFile(file.c_str(), "ab");
}

int CurlTransport::Open(struct soap*, const char* endpoint) {
  EndTransfer();
  request_.clear();
  setup_error_.clear();
  replying_ = false;
  url_ = endpoint ? endpoint : "";
  // gSOAP wants a descriptor; the connection itself is libcurl's.
  return NullDescriptor();
}

int CurlTransport::Send(struct soap* soap, const char* data, size_t size) {
  if (started_ && !replying_) {
    if (!whole_) Feed(data, size);
    return SOAP_OK;
  }
  // A new request: what gSOAP left unread of the last reply is dropped.
  if (replying_) {
    EndTransfer();
    request_.clear();
    replying_ = false;
  }
  if (!setup_error_.empty()) return SOAP_OK;
  // The head is gathered whole: libcurl needs its headers before the body.
  // A stored request's body follows in a write of its own; one of bounded
  // length is gathered too, to go out in one piece with its head.
  request_.append(data, size);
  size_t head_end = request_.find("\r\n\r\n");
  if (head_end == std::string::npos) return SOAP_OK;
  long long length = RequestLength(request_, head_end);
  if (length >= 0 && length <= kGatherBytes && request_.size() - head_end - 4 < static_cast<size_t>(length)) {
    return SOAP_OK;
  }
  StartTransfer(soap, head_end, length);
  if (!started_ || whole_) return SOAP_OK;
  std::string head;
  head.swap(request_);
  Feed(head.data() + head_end + 4, head.size() - head_end - 4);
  return SOAP_OK;
}

void CurlTransport::StartTransfer(struct soap* soap, size_t head_end, long long length) {
  const CurlApi& api = Curl();
  EndTransfer();
  setup_error_.clear();
  if (!api.loaded) {
    setup_error_ = "libcurl (libcurl.so.4) could not be loaded";
    setup_status_ = SOAP_PLUGIN_ERROR;
    return;
  }
  if (!curl_) curl_ = api.easy_init();
  if (!multi_) multi_ = api.multi_init();
  if (!curl_ || !multi_) {
    setup_error_ = "out of memory";
    setup_status_ = SOAP_EOM;
    return;
  }
  if (!configured_) ca_problem_ = UnreadableCaSetting(settings_);
  // libcurl would name only the certificate it could not verify; a CA file
  // or folder that is set and cannot be read is the reason to name.
  if (!ca_problem_.empty() && strncasecmp(url_.c_str(), "https:", 6) == 0) {
    setup_error_ = ca_problem_;
    setup_status_ = SOAP_SSL_ERROR;
    return;
  }
  if (!configured_) Configure();
  std::string lines = OwnHeaderLines(request_, head_end);
  if (!headers_ || lines != header_lines_) {
    if (headers_) api.slist_free_all(headers_);
    headers_ = HeaderList(lines);
    header_lines_.swap(lines);
    api.easy_setopt(curl_, CURLOPT_HTTPHEADER, headers_);
  }
  error_text_[0] = '\0';
  // A request that came in one piece (most do) goes out in one, with its head.
  whole_ = length >= 0 && request_.size() - head_end - 4 == static_cast<size_t>(length);
  api.easy_setopt(curl_, CURLOPT_POSTFIELDS, whole_ ? request_.data() + head_end + 4 : nullptr);
  replay_.clear();
  replay_whole_ = true;
  read_pos_ = 0;
  api.easy_setopt(curl_, CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(length));
  SetCallOptions(soap);
  ClearReply();
  if (api.multi_add(multi_, curl_) != CURLM_OK) {
    setup_error_ = "out of memory";
    setup_status_ = SOAP_EOM;
    return;
  }
  started_ = true;
  result_ = CURLE_OK;
}

bool CurlTransport::Rewind(long long offset) {
  if (!replay_whole_ || offset < 0 || static_cast<unsigned long long>(offset) > replay_.size()) return false;
  read_pos_ = static_cast<size_t>(offset);
  return true;
}

template <typename Done>
void CurlTransport::Drive(Done done) {
  const CurlApi& api = Curl();
  using Clock = std::chrono::steady_clock;
  Clock::time_point idle_since{};
  unsigned long long moved = 0;
  bool going = false;  // the request has begun to go out
  while (!finished_ && !done()) {
    int running = 0;
    api.multi_perform(multi_, &running);
    int left = 0;
    while (CURLMsg* message = api.multi_info_read(multi_, &left)) {
      if (message->msg == CURLMSG_DONE) {
        finished_ = true;
        result_ = message->data.result;
      }
    }
    if (finished_ || done()) break;
    int wait_ms = 1000;
    // Connecting has a time-out of its own.
    if (!going && idle_limit_ms_ > 0) {
      curl_off_t connected = 0, sent = 0;
      api.easy_getinfo(curl_, CURLINFO_PRETRANSFER_TIME_T, &connected);
      api.easy_getinfo(curl_, CURLINFO_SIZE_UPLOAD_T, &sent);
      going = connected > 0 || sent > 0;
    }
    if (going) {
      // libcurl's low-speed rule averages over seconds that include the
      // request going out, so a silent server would get several time-outs'
      // worth: the time-out is also a bound on a wait with nothing moving
      // (no byte handed over, no event on the connection).
      Clock::time_point now = Clock::now();
      if (idle_since == Clock::time_point{} || moved_ != moved) {
        idle_since = now;
        moved = moved_;
      }
      long long idle_ms = std::chrono::duration_cast<std::chrono::milliseconds>(now - idle_since).count();
      if (idle_ms >= idle_limit_ms_) {
        finished_ = true;
        result_ = CURLE_OPERATION_TIMEDOUT;
        // Silence is the slowest trickle.
        snprintf(error_text_, sizeof error_text_, "%s", TooSlowMessage((idle_limit_ms_ + 999) / 1000).c_str());
        break;
      }
      wait_ms = static_cast<int>(std::min<long long>(wait_ms, idle_limit_ms_ - idle_ms));
    }
    int events = 0;
    api.multi_poll(multi_, nullptr, 0, wait_ms, &events);
    moved_ += static_cast<unsigned>(events);
  }
}

void CurlTransport::Feed(const char* data, size_t size) {
  feed_ = data;
  feed_left_ = size;
  if (send_paused_) {
    send_paused_ = false;
    Curl().easy_pause(curl_, recv_paused_ ? CURLPAUSE_RECV : CURLPAUSE_CONT);
  }
  // A reply that ends the transfer early takes the rest of the body with it.
  Drive([this] { return feed_left_ == 0; });
  feed_left_ = 0;
}

int CurlTransport::TransferError(struct soap* soap) {
  const CurlApi& api = Curl();
  auto code = static_cast<CURLcode>(result_);
  std::string text = reply_too_large_ ? "reply too large" : *error_text_ ? error_text_ : api.easy_strerror(code);
  EndTransfer();
  ClearReply();
  return soap_set_sender_error(soap, soap_strdup(soap, text.c_str()), nullptr, ErrorStatus(code));
}

void CurlTransport::EndTransfer() {
  if (started_) Curl().multi_remove(multi_, curl_);
  started_ = finished_ = false;
  send_paused_ = recv_paused_ = false;
  feed_left_ = 0;
}

int CurlTransport::Perform(struct soap* soap) {
  if (!setup_error_.empty()) {
    std::string text;
    text.swap(setup_error_);
    request_.clear();
    return soap_set_sender_error(soap, soap_strdup(soap, text.c_str()), nullptr, setup_status_);
  }
  if (!started_) {
    request_.clear();
    return soap_set_sender_error(soap, "incomplete request", nullptr, SOAP_HTTP_ERROR);
  }
  replying_ = true;
  // The head is complete once the body begins (or the transfer is over).
  Drive([this] { return reply_body_.size() > reply_pos_; });
  if (finished_ && result_ != CURLE_OK) return TransferError(soap);
  BuildReplyHead((soap->omode & SOAP_ENC_ZLIB) != 0);
  return SOAP_OK;
}

// Options that only change with the settings are set once per context.
void CurlTransport::Configure() {
  const CurlApi& api = Curl();
  CURL* curl = curl_;
  api.easy_reset(curl);
  call_options_.reset();
  if (headers_) api.slist_free_all(headers_);
  headers_ = nullptr;
  api.easy_setopt(curl, CURLOPT_POST, 1L);
  api.easy_setopt(curl, CURLOPT_READFUNCTION, CurlRead);
  api.easy_setopt(curl, CURLOPT_READDATA, this);
  api.easy_setopt(curl, CURLOPT_SEEKFUNCTION, CurlSeek);
  api.easy_setopt(curl, CURLOPT_SEEKDATA, this);
  api.easy_setopt(curl, CURLOPT_ERRORBUFFER, error_text_);
  api.easy_setopt(curl, CURLOPT_USERAGENT, (settings_.client_name + kClientVersionSuffix).c_str());
  api.easy_setopt(curl, CURLOPT_NOSIGNAL, 1L);
  api.easy_setopt(curl, CURLOPT_WRITEFUNCTION, CurlWrite);
  api.easy_setopt(curl, CURLOPT_WRITEDATA, this);
  api.easy_setopt(curl, CURLOPT_HEADERFUNCTION, CurlHeader);
  api.easy_setopt(curl, CURLOPT_HEADERDATA, this);
  api.easy_setopt(curl, CURLOPT_LOW_SPEED_LIMIT, kLowSpeedLimit);
  bool check_dates = ssl_mode_ == kSslFull || ssl_mode_ == kSslNoHost;
  bool check_host = ssl_mode_ == kSslFull || ssl_mode_ == kSslNoExpire;
  api.easy_setopt(curl, CURLOPT_SSL_VERIFYPEER, 1L);
  api.easy_setopt(curl, CURLOPT_SSL_VERIFYHOST, check_host ? 2L : 0L);
  tls_rules_ = std::make_unique<TlsRules>();
  tls_rules_->ignore_dates = !check_dates;
  std::string host = HostOf(url_);
  if (check_host && IsIpAddress(host)) tls_rules_->ip_host = host;
  if (tls_rules_->ignore_dates || !tls_rules_->ip_host.empty()) {
    api.easy_setopt(curl, CURLOPT_SSL_CTX_FUNCTION, ConfigureTls);
    api.easy_setopt(curl, CURLOPT_SSL_CTX_DATA, tls_rules_.get());
  }
  ca_file_ = CaFileFor(settings_);
  api.easy_setopt(curl, CURLOPT_CAINFO, ca_file_.empty() ? nullptr : ca_file_.c_str());
  api.easy_setopt(curl, CURLOPT_CAPATH, settings_.ssl_ca_dir.empty() ? nullptr : settings_.ssl_ca_dir.c_str());
  if (!settings_.ssl_key_file.empty()) {
    api.easy_setopt(curl, CURLOPT_SSLCERT, settings_.ssl_key_file.c_str());
    api.easy_setopt(curl, CURLOPT_SSLKEY, settings_.ssl_key_file.c_str());
    // Always set, even empty: without one, OpenSSL would ask on the terminal.
    api.easy_setopt(curl, CURLOPT_KEYPASSWD, settings_.ssl_key_password.c_str());
  }
  configured_ = true;
}

// Options that the context may change between calls, set when they do.
void CurlTransport::SetCallOptions(struct soap* soap) {
  CallOptions wanted{url_,
                     soap->connect_timeout,
                     soap->recv_timeout,
                     (soap->omode & SOAP_IO_KEEPALIVE) != 0,
                     (soap->omode & SOAP_ENC_ZLIB) != 0,
                     // An empty proxy also keeps libcurl from taking one from the environment.
                     soap->proxy_host ? "http://" + std::string(soap->proxy_host) + ":" +
                                            std::to_string(soap->proxy_port)
                                      : "",
                     trace_ != nullptr};
  if (call_options_ && *call_options_ == wanted) return;
  const CurlApi& api = Curl();
  CURL* curl = curl_;
  call_options_ = std::move(wanted);
  const CallOptions& set = *call_options_;
  // Given a parsed URL, libcurl copies it for each transfer instead of
  // parsing the text again; one it would not parse is left to it to report.
  CURLU* parsed = api.url_new();
  if (parsed && api.url_set(parsed, CURLUPART_URL, set.url.c_str(), CURLU_GUESS_SCHEME | CURLU_NON_SUPPORT_SCHEME)) {
    api.url_cleanup(parsed);
    parsed = nullptr;
  }
  api.easy_setopt(curl, CURLOPT_URL, set.url.c_str());
  api.easy_setopt(curl, CURLOPT_CURLU, parsed);
  if (url_handle_) api.url_cleanup(url_handle_);
  url_handle_ = parsed;
  api.easy_setopt(curl, CURLOPT_CONNECTTIMEOUT, static_cast<long>(set.connect_timeout));
  // The receive time-out: a reply that trickles in below the low-speed
  // limit for that long ends the call, as one that stops altogether does.
  api.easy_setopt(curl, CURLOPT_LOW_SPEED_TIME, static_cast<long>(set.recv_timeout));
  // The library's convention: a negative time-out counts microseconds.
  idle_limit_ms_ = set.recv_timeout > 0 ? set.recv_timeout * 1000LL
                   : set.recv_timeout < 0 ? std::max(1LL, -set.recv_timeout / 1000LL)
                                          : 0;
  api.easy_setopt(curl, CURLOPT_FORBID_REUSE, set.keep_alive ? 0L : 1L);
  api.easy_setopt(curl, CURLOPT_ACCEPT_ENCODING, set.compress ? "gzip, deflate" : nullptr);
  api.easy_setopt(curl, CURLOPT_PROXY, set.proxy.c_str());
  if (set.trace) {
    api.easy_setopt(curl, CURLOPT_VERBOSE, 1L);
    api.easy_setopt(curl, CURLOPT_DEBUGFUNCTION, CurlTrace);
    api.easy_setopt(curl, CURLOPT_DEBUGDATA, this);
  } else {
    api.easy_setopt(curl, CURLOPT_VERBOSE, 0L);
  }
}

void CurlTransport::ClearReply() {
  reply_headers_.clear();
  reply_seen_ = 0;
  dime_reply_ = false;
  if (reply_body_.capacity() > (1u << 20)) {
    std::string().swap(reply_body_);
  } else {
    reply_body_.clear();
  }
  reply_.clear();
  reply_pos_ = 0;
  head_pos_ = 0;
  reply_too_large_ = false;
}

// Hand gSOAP the reply as it would have read it from a socket, less what
// libcurl already undid (chunking, and compression when it was asked for).
void CurlTransport::BuildReplyHead(bool decoded) {
  std::string_view headers = reply_headers_;
  auto named = [](std::string_view line, const char* name) {
    size_t length = strlen(name);
    return line.size() > length && line[length] == ':' && strncasecmp(line.data(), name, length) == 0;
  };
  reply_.clear();
  std::string_view length;
  bool reshaped = false;  // libcurl's body is not the one the length counts
  size_t pos = 0;
  while (pos < headers.size()) {
    size_t end = std::min(headers.find("\r\n", pos), headers.size());
    std::string_view line = headers.substr(pos, end - pos);
    pos = end + 2;
    if (line.empty()) continue;
    if (reply_.empty()) {
      size_t space = line.find(' ');
      reply_.append("HTTP/1.1").append(space == std::string_view::npos ? " 200 OK" : line.substr(space));
      reply_.append("\r\n");
      continue;
    }
    if (named(line, "Content-Length")) {
      length = line.substr(15);
      continue;
    }
    if (named(line, "Transfer-Encoding") || (decoded && named(line, "Content-Encoding"))) {
      reshaped = true;
      continue;
    }
    reply_.append(line).append("\r\n");
  }
  if (reply_.empty()) reply_ = "HTTP/1.1 200 OK\r\n";
  // A length libcurl holds the body to lets gSOAP size a large value once
  // instead of growing it; one over the reply limit fails the call anyway.
  // Otherwise the body ends where libcurl's ends.
  unsigned long long bytes = strtoull(std::string(length).c_str(), nullptr, 10);
  if (!length.empty() && !reshaped && bytes > 0 && bytes <= MaxReplyBytes()) {
    reply_.append("Content-Length: ").append(std::to_string(bytes)).append("\r\n");
  }
  reply_ += "\r\n";
}

size_t CurlTransport::Receive(struct soap* soap, char* data, size_t size) {
  // The synthesized head first, then the body as libcurl delivers it.
  if (head_pos_ < reply_.size()) {
    size_t n = std::min(size, reply_.size() - head_pos_);
    memcpy(data, reply_.data() + head_pos_, n);
    head_pos_ += n;
    return n;
  }
  if (!started_) return 0;
  Drive([this] { return reply_body_.size() > reply_pos_; });
  size_t n = std::min(size, reply_body_.size() - reply_pos_);
  if (n == 0) {
    if (result_ != CURLE_OK) {
      TransferError(soap);
      soap->errnum = 0;
      // The reply's 200 must not pass for the reason the call failed.
      soap->status = 0;
      return 0;
    }
    EndTransfer();  // the connection goes back to libcurl's pool
    return 0;
  }
  memcpy(data, reply_body_.data() + reply_pos_, n);
  reply_pos_ += n;
  if (recv_paused_ && reply_body_.size() - reply_pos_ < kReplyQueueBytes / 2) {
    recv_paused_ = false;
    Curl().easy_pause(curl_, send_paused_ ? CURLPAUSE_SEND : CURLPAUSE_CONT);
  }
  return n;
}

}  // namespace lexctl
