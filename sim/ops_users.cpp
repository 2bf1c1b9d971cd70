// User accounts.
#include "frame.h"

using lexsim::OpInfo;
namespace api = lexsim::api;

namespace {
constexpr OpInfo kCreateUser{"CreateUser", api::kCreateUser};
constexpr OpInfo kGetUser{"GetUser", api::kGetUser};
constexpr OpInfo kUpdateUser{"UpdateUser", api::kUpdateUser};
constexpr OpInfo kDeleteUser{"DeleteUser", api::kDeleteUser};
constexpr OpInfo kGetUserList{"GetUserList", api::kGetUserList};
}  // namespace

int nv__CreateUser(struct soap* soap, std::string* licence, std::string* clientid,
                   std::string* reqgroup, std::string* select, std::string* /*displayLang*/,
                   nv__UserUpdate* /*user*/, std::string* /*templateUserId*/,
                   struct nv__CreateUserResponse& r) {
  return lexsim::Serve(soap, kCreateUser, {licence, clientid, reqgroup, select}, r,
                       lexsim::NotImplemented);
}

int nv__GetUser(struct soap* soap, std::string* licence, std::string* clientid,
                std::string* reqgroup, std::string* select, std::string* /*displayLang*/,
                nv__EngineFilter* /*filter*/, nv__StringArray* /*userid*/,
                struct nv__GetUserResponse& r) {
  return lexsim::Serve(soap, kGetUser, {licence, clientid, reqgroup, select}, r,
                       lexsim::NotImplemented);
}

int nv__UpdateUser(struct soap* soap, std::string* licence, std::string* clientid,
                   std::string* reqgroup, std::string* select, std::string* /*displayLang*/,
                   nv__UserUpdate* /*user*/, struct nv__UpdateUserResponse& r) {
  return lexsim::Serve(soap, kUpdateUser, {licence, clientid, reqgroup, select}, r,
                       lexsim::NotImplemented);
}

int nv__DeleteUser(struct soap* soap, std::string* licence, std::string* clientid,
                   std::string* reqgroup, std::string* select, nv__StringArray* /*userid*/,
                   struct nv__DeleteUserResponse& r) {
  return lexsim::Serve(soap, kDeleteUser, {licence, clientid, reqgroup, select}, r,
                       lexsim::NotImplemented);
}

int nv__GetUserList(struct soap* soap, std::string* licence, std::string* clientid,
                    std::string* reqgroup, std::string* select, std::string* /*userid*/,
                    struct nv__GetUserListResponse& r) {
  return lexsim::Serve(soap, kGetUserList, {licence, clientid, reqgroup, select}, r,
                       lexsim::NotImplemented);
}
