#include "client/local_data.h"

#include <strings.h>

#include <cstdlib>
#include <cstring>

#include "client/credentials.h"
#include "client/transport.h"
#include "client/wire_log.h"
#include "shell/exec_thread.h"
#include "shell/output.h"
#include "shell/platform.h"
#include "soapH.h"

namespace lexctl {
namespace {

// The header hooks of a context, kept per context so that they chain to
// the library's own functions.
struct Hooks {
  SoapClient* client;
  int (*posthdr)(struct soap*, const char*, const char*);
  int (*parsehdr)(struct soap*, const char*, const char*);
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

void FreeContext(struct soap* soap) {
  if (!soap) return;
  delete HooksOf(soap);
  soap->user = nullptr;
  soap_destroy(soap);
  soap_end(soap);
  soap_free(soap);
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

SoapClient::~SoapClient() { FreeContext(soap_); }

int SoapClient::ssl_auth_effective() const {
  // libcurl has no "no checks at all" mode beyond skipping both checks.
  if (settings.platform_http_layer && settings.ssl_auth == kSslNone) return kSslMinimum;
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
  fresh->user = new Hooks{this, fresh->fposthdr, fresh->fparsehdr};
  fresh->fposthdr = PostHeader;
  fresh->fparsehdr = ParseHeader;
  soap_set_namespaces(fresh, namespaces);
  // A layer left behind lives until the old context that uses it is gone.
  std::unique_ptr<Transport> previous;
  if (!transport_ || on_platform_http_ != settings.platform_http_layer) {
    previous = std::move(transport_);
    transport_ = settings.platform_http_layer ? MakePlatformHttpTransport() : MakeGsoapTransport();
    on_platform_http_ = settings.platform_http_layer;
  }
  transport_->Attach(fresh, settings, ssl_auth_effective());

  soap_ = fresh;
  FreeContext(old);
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
  // on. Built whole, a request is made once and goes out in one piece, the
  // fastest way for the small requests that are most of the traffic;
  // measuring it first would build it twice (ExpectRequestPayload).
  soap_->omode = (soap_->omode & ~SOAP_IO) | SOAP_IO_STORE;
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
  transport_->SetTrace(settings.curl_log);
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
  SetEnvironment("http_proxy", proxy.c_str());
  return true;
}

void SoapClient::UseBasicAuth(const std::string& user, const std::string& password) {
  basic_user_ = user;
  basic_password_ = password;
  context()->userid = basic_user_.c_str();
  context()->passwd = basic_password_.c_str();
}

void SoapClient::BeginExchange() {
  // The library drops a stored request's mode once it is sent, and would
  // build every later request twice, once only to measure it. A mode that a
  // command set for itself stays.
  if (soap_ && (soap_->omode & SOAP_IO) == SOAP_IO_FLUSH) soap_->omode |= SOAP_IO_STORE;
  // A large document goes out as it is written: measured first, it is held
  // once, by the command, rather than a second time in the request. A
  // compressed request can only be measured by building it.
  if (soap_ && measure_request_ && (soap_->omode & SOAP_IO) == SOAP_IO_STORE && !settings.compress) {
    soap_->omode = (soap_->omode & ~SOAP_IO) | SOAP_IO_BUFFER;
  }
  if (soap_ && transport_) transport_->BeginCall(soap_);
}

bool SoapClient::MayRetry(int status) {
  return status == SOAP_EOF && soap_ && transport_ && transport_->LostKeptConnection(soap_);
}

void SoapClient::ExpectRequestPayload(size_t bytes) {
  // Below this, building the request twice would cost more than holding it.
  if (bytes >= (size_t{1} << 20)) measure_request_ = true;
}

void SoapClient::EndCall() {
  if (measure_request_ && soap_ && (soap_->omode & SOAP_IO) == SOAP_IO_BUFFER) {
    soap_->omode = (soap_->omode & ~SOAP_IO) | SOAP_IO_STORE;
  }
  measure_request_ = false;
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

DimeRequest::DimeRequest(LocalData& data) {
  if (!data.settings.dime) return;
  soap_ = data.context();
  soap_set_omode(soap_, SOAP_ENC_DIME);
}

DimeRequest::~DimeRequest() {
  if (soap_) soap_clr_omode(soap_, SOAP_ENC_DIME);
}

}  // namespace lexctl
