// Text analysis: recoding, parsing, sentence splitting, language detection.
#include "frame.h"

using lexsim::OpInfo;
namespace api = lexsim::api;

namespace {
constexpr OpInfo kRecode{"Recode", api::kRecode};
constexpr OpInfo kParseText{"ParseText", 0};
constexpr OpInfo kSplitSentences{"SplitSentences", api::kSplitSentences};
constexpr OpInfo kDetectLanguage{"DetectLanguage", 0};
}  // namespace

int nv__Recode(struct soap* soap, std::string* licence, std::string* clientid,
               std::string* reqgroup, std::string* select, std::string* /*fromLang*/,
               std::string* /*fromEncoding*/, std::string* /*toEncoding*/,
               xsd__base64Binary* /*text*/, struct nv__RecodeResponse& r) {
  return lexsim::Serve(soap, kRecode, {licence, clientid, reqgroup, select}, r,
                       lexsim::NotImplemented);
}

int nv__ParseText(struct soap* soap, std::string* licence, std::string* clientid,
                  std::string* reqgroup, std::string* select, nv__EngineSelect* /*engine*/,
                  nv__SourceBlockArray* /*blocks*/, struct nv__ParseTextResponse& r) {
  return lexsim::Serve(soap, kParseText, {licence, clientid, reqgroup, select}, r,
                       lexsim::NotImplemented);
}

int nv__SplitSentences(struct soap* soap, std::string* licence, std::string* clientid,
                       std::string* reqgroup, std::string* select, nv__SourceBlockArray* /*blocks*/,
                       struct nv__SplitSentencesResponse& r) {
  return lexsim::Serve(soap, kSplitSentences, {licence, clientid, reqgroup, select}, r,
                       lexsim::NotImplemented);
}

int nv__DetectLanguage(struct soap* soap, std::string* licence, std::string* clientid,
                       std::string* reqgroup, std::string* select, std::string* /*domain*/,
                       std::string* /*encodingHint*/, std::string* /*languageHint*/,
                       std::string* /*fromEncoding*/, xsd__base64Binary* /*text*/,
                       struct nv__DetectLanguageResponse& r) {
  return lexsim::Serve(soap, kDetectLanguage, {licence, clientid, reqgroup, select}, r,
                       lexsim::NotImplemented);
}
