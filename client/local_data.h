// The client's state of one interpreter thread: settings, credentials,
// session, and the SOAP context built from them.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <string>

#include "shell/command.h"
#include "shell/version.h"

struct soap;

namespace lexctl {

class ExecThread;
class Transport;

enum SslAuthMode : int {
  kSslFull = 0,
  kSslNoExpire = 1,
  kSslNoHost = 2,
  kSslMinimum = 3,
  kSslNone = 4,
};

inline constexpr char kClientName[] = "lexctl3";
inline constexpr char kClientVersionSuffix[] = " " LEXCTL_VERSION " R" LEXCTL_BUILD;
inline constexpr char kDefaultServer[] = "http://localhost:12000";
inline constexpr char kServicePath[] = "/nvsoap/nvsoap.cgi";

/// The largest reply the client takes in: 1 GiB, or LEXCTL3_MAX_REPLY_MB
/// megabytes when that is set. A longer reply ends the command instead of
/// filling memory.
size_t MaxReplyBytes();

/// Sees each HTTP header of a reply on this thread while set ("versions").
using HeaderObserver = std::function<void(const char* key, const char* value)>;
HeaderObserver& CurrentHeaderObserver();

/// The CA file used when none is set: looked for in the current folder, and
/// when it is not there the system's trusted certificates are used instead.
inline constexpr char kDefaultCaFile[] = "cacert.pem";

/// Settings from which a SOAP context is built; copied into a started thread.
struct TransportSettings {
  std::string wget = "wget";
  bool dime = false;
  bool platform_http_layer = true;  // "windows": libcurl; false: gSOAP's sockets ("gsoap")
  bool compress = false;
  bool keepalive = true;
  int ssl_auth = kSslFull;
  std::string ssl_key_file;
  std::string ssl_key_password;
  std::string ssl_ca_file = kDefaultCaFile;
  std::string ssl_ca_dir;
  std::string client_name = kClientName;
  std::string soap_debug;  // log file prefix; empty: off
  std::string curl_log;    // libcurl trace file; empty: off
  std::string server = kDefaultServer;
  std::string path = kServicePath;
  std::string endpoint = std::string(kDefaultServer) + kServicePath;
  std::string proxy;
  int connect_timeout = 5;
  int io_timeout = 3600;
};

/// The service proxy: owns one SOAP context and the settings behind it.
class SoapClient : public ThreadData {
 public:
  SoapClient();
  ~SoapClient() override;
  SoapClient(const SoapClient&) = delete;
  SoapClient& operator=(const SoapClient&) = delete;

  virtual void SetUserId(const std::string& userid) { userid_ = userid; }
  virtual void SetPassword(const std::string& passwd) { passwd_ = passwd; }
  /// Called for every request header, and once with key null at the end.
  virtual int SendHeader(struct soap* soap, const char* key, const char* value);

  /// The SOAP context, built on first use: a thread that never calls the
  /// server never pays for one.
  struct soap* context() {
    if (!soap_) RebuildContext();
    return soap_;
  }
  /// Replaces the context by a fresh one built from the settings.
  void RebuildContext();
  /// Rebuilds the endpoint from server and path, then the context (now, or
  /// on first use when `build` is false).
  void RebuildEndpoint(bool build = true);
  /// Applies the proxy setting; false when the value is not HOST:PORT.
  bool SetProxy(const std::string& proxy);

  /// Arms HTTP Basic authentication for the next call only.
  void UseBasicAuth(const std::string& user, const std::string& password);
  /// Clears what one call may have set (Basic authentication).
  void EndCall();
  /// The command's request carries a payload this large, inline: on the
  /// HTTP library layer it is measured and streamed, not built whole.
  void ExpectRequestPayload(size_t bytes);
  /// Marks the start of a call's exchange.
  void BeginExchange();
  /// Whether a call that ended with status may go again: its request went
  /// out on a kept-alive connection the peer had already closed.
  bool MayRetry(int status);

  const std::string& userid() const { return userid_; }
  const std::string& passwd() const { return passwd_; }
  int ssl_auth_effective() const;

  TransportSettings settings;

 protected:
  std::string userid_;
  std::string passwd_;

 private:
  void ApplyAfterBuild();

  struct soap* soap_ = nullptr;
  std::unique_ptr<Transport> transport_;
  bool on_platform_http_ = false;  // which layer transport_ is
  bool measure_request_ = false;  // the command's request is streamed (ExpectRequestPayload)
  std::string proxy_host_;  // the context points here, not into per-call memory
  std::string basic_user_;
  std::string basic_password_;
};

/// The client's per-thread state: SoapClient plus the engine, request
/// group, session and the flags that become select keys.
class LocalData : public SoapClient {
 public:
  explicit LocalData(ExecThread* owner);
  /// A started thread's state: the settings and session of its creator.
  LocalData(ExecThread* owner, const LocalData& source);

  void SetUserId(const std::string& userid) override;
  void SetPassword(const std::string& passwd) override;
  int SendHeader(struct soap* soap, const char* key, const char* value) override;

  void SetSessionKey(const std::string& key);
  void SetSessionToken(const std::string& token);
  /// The login credential, built once and kept until a part of it changes.
  const std::string& Licence();

  ExecThread* owner;
  struct Engine {
    std::string eid = "QZ-EJ";
    std::map<std::string, std::string> properties;
  } engine;
  std::string clientid = "lexctl3 " LEXCTL_VERSION;
  std::string reqgroup;
  bool cachemark = false;
  bool neweid = true;
  std::string uilang = "en";
  std::string trustheader;
  std::string forwardedfor;
  std::string sesskey;
  std::string sesstoken;

 private:
  std::string licence_;
  bool licence_valid_ = false;
};

/// The calling thread's client state (created by the client's hook).
LocalData& Local(ExecThread& thread);

/// While alive, the payloads of the request being sent travel as DIME
/// attachments when the dime setting is on: in literal messages the
/// library finds attachments below the top level of a request only in
/// DIME mode. Hold it around the send alone.
class DimeRequest {
 public:
  explicit DimeRequest(LocalData& data);
  ~DimeRequest();
  DimeRequest(const DimeRequest&) = delete;
  DimeRequest& operator=(const DimeRequest&) = delete;

 private:
  struct soap* soap_ = nullptr;
};

}  // namespace lexctl
