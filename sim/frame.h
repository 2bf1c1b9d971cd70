#pragma once
/// The request frame every lexsim operation runs in.
///
/// An operation file implements the generated nv__OP function as a one-liner:
///
///   int nv__Foo(soap* s, std::string* licence, std::string* clientid, std::string* reqgroup,
///               std::string* select, ..., nv__FooResponse& r) {
///     return lexsim::Serve(s, kFoo, {licence, clientid, reqgroup, select}, r,
///                          [&](lexsim::Call& call) { ... fill r ... });
///   }
///
/// Serve checks the credential and the API mask, applies the generic select keys, runs the
/// body, and fills r.error (warnings) and r.token (a rotated session token). Inside the
/// body: Raise(err, msg) ends the request with a SOAP fault carrying NvsoapException
/// {err, msg, warnings so far, token}; call.Warn(key, text) adds a warning (a fault under
/// `strict`); call.state() with call.state().Lock() reaches the store; soap_new_nv__X(call.soap())
/// and call.Str() allocate response values that the gSOAP context frees after sending.

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "options.h"
#include "soapH.h"
#include "state.h"

namespace lexsim {

class Logger;

/// Fault codes ("err" of NvsoapException).
namespace err {
inline constexpr const char* kAuth = "AUTH_FAILED";
inline constexpr const char* kDenied = "ACCESS_DENIED";
inline constexpr const char* kSession = "SESSION_INVALID";
inline constexpr const char* kArgument = "INVALID_ARGUMENT";
inline constexpr const char* kNotFound = "NOT_FOUND";
inline constexpr const char* kNotImplemented = "NOT_IMPLEMENTED";
inline constexpr const char* kStrict = "STRICT";
inline constexpr const char* kTimeout = "TIMEOUT";
inline constexpr const char* kInternal = "INTERNAL";
}  // namespace err

/// Thrown to end a request with a SOAP fault (or, with http set, a bare HTTP status).
struct Fault {
  std::string err;
  std::string msg;
  int http = 0;
  bool bare = false;  // a plain SOAP fault: msg as the fault string, err as the detail text
};

[[noreturn]] void Raise(std::string err, std::string msg);

/// Process-wide things every request may use.
struct Env {
  State& state;
  const Options& opts;
  Logger& log;
};

/// Per-connection data the HTTP hooks gather; reset for every request on the connection.
struct Conn {
  const Env* env = nullptr;
  std::string peer;  ///< client address as text
  bool loopback = false;
  std::optional<std::string> trusted_user;                   ///< value of the --trust-header header
  std::optional<std::pair<std::string, std::string>> basic;  ///< Basic auth user, password
  int (*next_parsehdr)(struct soap*, const char*, const char*) = nullptr;
  int (*next_posthdr)(struct soap*, const char*, const char*) = nullptr;
  int (*next_parse)(struct soap*) = nullptr;
  size_t (*next_recv)(struct soap*, char*, size_t) = nullptr;
  int (*next_response)(struct soap*, int, ULONG64) = nullptr;
  int (*next_close)(struct soap*) = nullptr;
  long long body_left = -1;   ///< body bytes still to read; -1 while unknown
  bool request_read = false;  ///< the current request's HTTP header has been read
  bool responded = false;     ///< an HTTP response to it has been started
};

/// The Conn attached to a worker's context.
Conn& ConnOf(struct soap* soap);

/// Select keys of one request, in the order sent: "key" or "key=value" words.
class SelectKeys {
 public:
  SelectKeys() = default;
  explicit SelectKeys(const std::string* text);
  bool Has(const std::string& key) const;
  /// The value of the first "key=value" word with that key, if any.
  std::optional<std::string> Value(const std::string& key) const;
  const std::vector<std::pair<std::string, std::string>>& items() const { return items_; }

 private:
  std::vector<std::pair<std::string, std::string>> items_;
};

/// The four common request fields.
struct Common {
  std::string* licence;
  std::string* clientid;
  std::string* reqgroup;
  std::string* select;
};

/// Who may call an operation.
enum class Access {
  kCredential,  ///< a valid licence is required
  kAnonymous,   ///< no licence is fine; a licence that is sent is still checked
  kHttpAuth,    ///< CreateSession: HTTP Basic auth or the trusted header, no licence
};

struct OpInfo {
  const char* name;
  uint64_t api;  ///< the API bit the caller's apiAllowed must hold; 0 for none
  Access access = Access::kCredential;
};

/// The authenticated caller of a request.
struct Caller {
  std::string userid;
  bool super = false;
  uint64_t api_allowed = 0;
  std::string session_key;  ///< empty outside a session
  std::string features;     ///< the account's feature codes; empty: no restriction
};

/// Checks a licence against the store; the state lock must be held. On success returns
/// the caller and, for a full session, rotates the session token into *new_token. On
/// failure raises; when a session was identified *new_token holds the token to hand back.
Caller CheckLicence(State& state, const std::string& licence, const Conn& conn, std::time_t now,
                    std::string* new_token);

/// Checks CreateSession's HTTP credentials (Basic auth or trusted header); lock held.
Caller CheckHttpAuth(State& state, const Conn& conn);

class Call {
 public:
  Call(struct soap* soap, const OpInfo& op, const Common& common);
  ~Call();
  Call(const Call&) = delete;
  Call& operator=(const Call&) = delete;

  struct soap* soap() const {
    return soap_;
  }
  State& state() const { return env_.state; }
  const Env& env() const { return env_; }
  const Conn& conn() const { return conn_; }
  const OpInfo& op() const { return op_; }
  const SelectKeys& keys() const { return keys_; }
  bool strict() const { return keys_.Has("strict"); }
  /// The caller; absent only for anonymous requests.
  const std::optional<Caller>& caller() const { return caller_; }
  /// The user the request acts for: the `runas` key's user when the caller may use it,
  /// else the caller. Raises for anonymous requests or a runas that is not allowed.
  /// Expects the state lock held.
  std::string Target();

  /// Adds a warning; in strict mode raises it as a fault instead.
  void Warn(const std::string& key, const std::string& text);
  /// Adds an item that is information, never an error (request groups).
  void Notice(const std::string& key, const std::string& text);
  const std::vector<std::pair<std::string, std::string>>& warnings() const { return warnings_; }

  /// Token to return; set by the credential check for full sessions, or by an operation.
  void SetToken(std::string token) { token_ = std::move(token); }
  const std::string& token() const { return token_; }

  /// Response values must live in the gSOAP context: use soap_new_nv__X(call.soap())
  /// for objects and these for scalars.
  std::string* Str(const std::string& s) const;
  LONG64* Long(LONG64 v) const;
  nv__ErrorArray* WarningsArray() const;

  /// Runs the checks that precede the operation's body.
  void Begin();
  /// Turns a Fault into the SOAP fault (or HTTP status) to send; returns the gSOAP status.
  int SendFault(const Fault& f);

 private:
  struct soap* soap_;
  const Env& env_;
  const Conn& conn_;
  OpInfo op_;
  Common common_;
  SelectKeys keys_;
  std::optional<Caller> caller_;
  std::vector<std::pair<std::string, std::string>> warnings_;
  std::string token_;
  bool counted_ = false;  // the caller's running requests include this one
};

void LogRequest(const Call& call, const char* outcome);

/// Operations that may change what --state keeps.
inline constexpr uint64_t kChangingApis =
    api::kUpdateEngineProfile | api::kCreateDictionary | api::kUpdateDictionaryInfo |
    api::kCopyDictionary | api::kDeleteDictionary | api::kDictionaryImport |
    api::kAddDictionaryEntry | api::kDeleteDictionaryEntry | api::kChangePassword |
    api::kCreateUser | api::kUpdateUser | api::kDeleteUser | api::kChangeDictionaryOwner |
    api::kTranslateTextUpdate;

/// Runs one operation: the frame checks, then body(call), then fills r.error and r.token.
template <class Resp, class Body>
int Serve(struct soap* soap, const OpInfo& op, const Common& common, Resp& r, Body&& body) {
  Call call(soap, op, common);
  if (op.api & kChangingApis) call.state().MarkChanged();
  try {
    call.Begin();
    body(call);
    if (!call.warnings().empty()) r.error = call.WarningsArray();
    if constexpr (requires { r.token; }) {
      if (!call.token().empty() && !r.token) r.token = call.Str(call.token());
    }
    LogRequest(call, "ok");
    return SOAP_OK;
  } catch (const Fault& f) {
    LogRequest(call, f.err.c_str());
    return call.SendFault(f);
  } catch (const std::exception& e) {
    LogRequest(call, err::kInternal);
    return call.SendFault(Fault{err::kInternal, e.what()});
  }
}

/// Body of operations this build does not provide yet.
void NotImplemented(Call& call);

}  // namespace lexsim
