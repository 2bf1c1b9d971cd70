// Connectivity and session control: TestEcho, CreateSession, EndSession, ChangePassword.
#include <ctime>

#include "crypto.h"
#include "frame.h"

using lexsim::Access;
using lexsim::Call;
using lexsim::OpInfo;
using lexsim::Raise;
namespace api = lexsim::api;
namespace err = lexsim::err;

namespace {
constexpr OpInfo kTestEcho{"TestEcho", api::kTestEcho, Access::kAnonymous};
constexpr OpInfo kCreateSession{"CreateSession", api::kCreateSession, Access::kHttpAuth};
constexpr OpInfo kEndSession{"EndSession", api::kEndSession};
constexpr OpInfo kChangePassword{"ChangePassword", api::kChangePassword};
}  // namespace

int nv__TestEcho(struct soap* soap, std::string* licence, std::string* clientid,
                 std::string* reqgroup, std::string* select, std::string* str, LONG64* num,
                 xsd__base64Binary* bin, nv__TestEchoResponse& r) {
  return lexsim::Serve(soap, kTestEcho, {licence, clientid, reqgroup, select}, r, [&](Call&) {
    // The request's values live in the same context as the response: hand them back.
    r.str = str;
    r.num = num;
    r.bin = bin;
  });
}

int nv__CreateSession(struct soap* soap, std::string* clientid, std::string* reqgroup,
                      std::string* select, std::string* type, nv__CreateSessionResponse& r) {
  return lexsim::Serve(
      soap, kCreateSession, {nullptr, clientid, reqgroup, select}, r, [&](Call& call) {
        std::string kind = type && !type->empty() ? lexsim::ToLower(*type) : "login";
        if (kind != "login" && kind != "full")
          Raise(err::kArgument, "Invalid session type: " + *type);
        auto lock = call.state().Lock();
        const lexsim::SessionRec& s = call.state().NewSession(call.caller()->userid, kind,
                                                              call.conn().peer, std::time(nullptr));
        r.session = call.Str(s.key);
        r.token = call.Str(s.token);
        r.expireSecs = call.Long(lexsim::kSessionExpireSecs);
        r.lifetimeHours = call.Long(lexsim::kSessionLifetimeHours);
      });
}

int nv__EndSession(struct soap* soap, std::string* licence, std::string* clientid,
                   std::string* reqgroup, std::string* select, nv__EndSessionResponse& r) {
  return lexsim::Serve(soap, kEndSession, {licence, clientid, reqgroup, select}, r,
                       [&](Call& call) {
                         const std::string& key = call.caller()->session_key;
                         if (key.empty()) Raise(err::kArgument, "Not in a session");
                         auto lock = call.state().Lock();
                         call.state().EndSession(key);
                       });
}

int nv__ChangePassword(struct soap* soap, std::string* licence, std::string* clientid,
                       std::string* reqgroup, std::string* select, std::string* password,
                       nv__ChangePasswordResponse& r) {
  return lexsim::Serve(
      soap, kChangePassword, {licence, clientid, reqgroup, select}, r, [&](Call& call) {
        if (!password || !lexsim::IsPasswordHash(*password))
          Raise(err::kArgument, "The password must be a 40-digit password hash");
        auto lock = call.state().Lock();
        std::string target = call.Target();
        if (target != call.caller()->userid && !call.caller()->super)
          Raise(err::kDenied, "Only the super-user may change another user's password");
        lexsim::Account* a = call.state().FindUser(target);
        if (!a) Raise(err::kNotFound, "Unknown user: " + target);
        a->pwhash = lexsim::ToLower(*password);
      });
}
