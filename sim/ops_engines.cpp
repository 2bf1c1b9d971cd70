// Engines and their property profiles.
#include "frame.h"

using lexsim::OpInfo;
namespace api = lexsim::api;

namespace {
constexpr OpInfo kGetEngineInfo{"GetEngineInfo", api::kGetEngineInfo};
constexpr OpInfo kUpdateEngineProfile{"UpdateEngineProfile", api::kUpdateEngineProfile};
}  // namespace

int nv__GetEngineInfo(struct soap* soap, std::string* licence, std::string* clientid,
                      std::string* reqgroup, std::string* select, std::string* /*displayLang*/,
                      nv__EngineFilter* /*filter*/, struct nv__GetEngineInfoResponse& r) {
  return lexsim::Serve(soap, kGetEngineInfo, {licence, clientid, reqgroup, select}, r,
                       lexsim::NotImplemented);
}

int nv__UpdateEngineProfile(struct soap* soap, std::string* licence, std::string* clientid,
                            std::string* reqgroup, std::string* select, std::string* /*eid*/,
                            std::string* /*profile*/, nv__DisplayTextArray* /*alldisplay*/,
                            nv__KeyValArray* /*addProp*/, nv__StringArray* /*delProp*/,
                            struct nv__UpdateEngineProfileResponse& r) {
  return lexsim::Serve(soap, kUpdateEngineProfile, {licence, clientid, reqgroup, select}, r,
                       lexsim::NotImplemented);
}
