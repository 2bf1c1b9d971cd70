// Text, HTML, XML and document translation.
#include "frame.h"

using lexsim::OpInfo;
namespace api = lexsim::api;

namespace {
constexpr OpInfo kTranslateTextSimple{"TranslateTextSimple", api::kTranslateTextSimple};
constexpr OpInfo kTranslateText{"TranslateText", api::kTranslateText};
constexpr OpInfo kTranslateTextUpdate{"TranslateTextUpdate", api::kTranslateTextUpdate};
constexpr OpInfo kTranslateXml{"TranslateXml", api::kTranslateXml};
constexpr OpInfo kTranslateHtml{"TranslateHtml", api::kTranslateHtml};
constexpr OpInfo kTranslate{"Translate", api::kTranslate};
constexpr OpInfo kTranslateMulti{"TranslateMulti", api::kTranslate};
}  // namespace

int nv__TranslateTextSimple(struct soap* soap, std::string* licence, std::string* clientid,
                            std::string* reqgroup, std::string* select,
                            nv__EngineSelect* /*engine*/, std::string* /*text*/,
                            std::string* /*track*/, struct nv__TranslateTextSimpleResponse& r) {
  return lexsim::Serve(soap, kTranslateTextSimple, {licence, clientid, reqgroup, select}, r,
                       lexsim::NotImplemented);
}

int nv__TranslateText(struct soap* soap, std::string* licence, std::string* clientid,
                      std::string* reqgroup, std::string* select, nv__EngineSelect* /*engine*/,
                      nv__SourceBlockArray* /*blocks*/, struct nv__TranslateTextResponse& r) {
  return lexsim::Serve(soap, kTranslateText, {licence, clientid, reqgroup, select}, r,
                       lexsim::NotImplemented);
}

int nv__TranslateTextUpdate(struct soap* soap, std::string* licence, std::string* clientid,
                            std::string* reqgroup, std::string* select,
                            nv__EngineSelect* /*engine*/, nv__SourceBlockArray* /*blocks*/,
                            struct nv__TranslateTextUpdateResponse& r) {
  return lexsim::Serve(soap, kTranslateTextUpdate, {licence, clientid, reqgroup, select}, r,
                       lexsim::NotImplemented);
}

int nv__TranslateXml(struct soap* soap, std::string* licence, std::string* clientid,
                     std::string* reqgroup, std::string* select, nv__EngineSelect* /*engine*/,
                     xsd__base64Binary* /*orgXml*/, xsd__base64Binary* /*orgXslt*/,
                     struct nv__TranslateXmlResponse& r) {
  return lexsim::Serve(soap, kTranslateXml, {licence, clientid, reqgroup, select}, r,
                       lexsim::NotImplemented);
}

int nv__TranslateHtml(struct soap* soap, std::string* licence, std::string* clientid,
                      std::string* reqgroup, std::string* select, nv__EngineSelect* /*engine*/,
                      std::string* /*style*/, std::string* /*pageBaseUrl*/,
                      std::string* /*encoding*/, std::string* /*targetName*/,
                      nv__UrlRewriteArray* /*rewriteUrls*/, xsd__base64Binary* /*document*/,
                      struct nv__TranslateHtmlResponse& r) {
  return lexsim::Serve(soap, kTranslateHtml, {licence, clientid, reqgroup, select}, r,
                       lexsim::NotImplemented);
}

int nv__Translate(struct soap* soap, std::string* licence, std::string* clientid,
                  std::string* reqgroup, std::string* select, nv__EngineSelect* /*engine*/,
                  std::string* /*rules*/, nv__InputData* /*indata*/,
                  struct nv__TranslateResponse& r) {
  return lexsim::Serve(soap, kTranslate, {licence, clientid, reqgroup, select}, r,
                       lexsim::NotImplemented);
}

int nv__TranslateMulti(struct soap* soap, std::string* licence, std::string* clientid,
                       std::string* reqgroup, std::string* select, nv__EngineSelect* /*engine*/,
                       std::string* /*rules*/, nv__InputDataArray* /*indata*/,
                       struct nv__TranslateMultiResponse& r) {
  return lexsim::Serve(soap, kTranslateMulti, {licence, clientid, reqgroup, select}, r,
                       lexsim::NotImplemented);
}
