// Connectivity and session control: TestEcho, CreateSession, EndSession, ChangePassword.
#include <cstring>
#include <ctime>

#include "account_rules.h"
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
  return lexsim::Serve(soap, kTestEcho, {licence, clientid, reqgroup, select}, r, [&](Call& call) {
    // The request's values live in the same context as the response: hand them back.
    r.str = str;
    r.num = num;
    r.bin = bin;
    // For clients' own tests: "sim.echo=str|num|bin|binlen" answers that value changed.
    if (auto what = call.keys().Value("sim.echo")) {
      if (*what == "str" && str) r.str = call.Str(*str + "!");
      if (*what == "num" && num) {
        r.num = static_cast<LONG64*>(soap_malloc(soap, sizeof(LONG64)));
        *r.num = *num + 1;
      }
      if ((*what == "bin" || *what == "binlen") && bin && bin->__size > 0) {
        auto* copy = soap_new_xsd__base64Binary(soap);
        *copy = *bin;
        copy->__size = *what == "binlen" ? bin->__size - 1 : bin->__size;
        copy->__ptr = static_cast<unsigned char*>(soap_malloc(soap, bin->__size));
        memcpy(copy->__ptr, bin->__ptr, bin->__size);
        copy->__ptr[0] ^= 0xFF;
        r.bin = copy;
      }
    }
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
        if (const lexsim::Account* a = call.state().FindUser(call.caller()->userid))
          lexsim::CheckSessionLimit(call.state(), *a);
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
