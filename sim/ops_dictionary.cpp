// Dictionaries, their source import and export, their entries, and lookups.
#include "frame.h"

using lexsim::OpInfo;
namespace api = lexsim::api;

namespace {
constexpr OpInfo kCreateDictionary{"CreateDictionary", api::kCreateDictionary};
constexpr OpInfo kUpdateDictionaryInfo{"UpdateDictionaryInfo", api::kUpdateDictionaryInfo};
constexpr OpInfo kCopyDictionary{"CopyDictionary", api::kCopyDictionary};
constexpr OpInfo kDeleteDictionary{"DeleteDictionary", api::kDeleteDictionary};
constexpr OpInfo kChangeDictionaryOwner{"ChangeDictionaryOwner", api::kChangeDictionaryOwner};
constexpr OpInfo kDictionaryImport{"DictionaryImport", api::kDictionaryImport};
constexpr OpInfo kDictionaryExport{"DictionaryExport", api::kDictionaryExport};
constexpr OpInfo kAddDictionaryEntry{"AddDictionaryEntry", api::kAddDictionaryEntry};
constexpr OpInfo kGetDictionaryEntry{"GetDictionaryEntry", api::kGetDictionaryEntry};
constexpr OpInfo kDeleteDictionaryEntry{"DeleteDictionaryEntry", api::kDeleteDictionaryEntry};
constexpr OpInfo kLookupEntry{"LookupEntry", api::kLookupFormatted};
constexpr OpInfo kLookupFormatted{"LookupFormatted", api::kLookupFormatted};
}  // namespace

int nv__CreateDictionary(struct soap* soap, std::string* licence, std::string* clientid,
                         std::string* reqgroup, std::string* select, std::string* /*eid*/,
                         LONG64* /*type*/, std::string* /*languages*/, std::string* /*subject*/,
                         nv__DisplayTextArray* /*alldisplay*/, nv__DicDetailsMemory* /*details*/,
                         struct nv__CreateDictionaryResponse& r) {
  return lexsim::Serve(soap, kCreateDictionary, {licence, clientid, reqgroup, select}, r,
                       lexsim::NotImplemented);
}

int nv__UpdateDictionaryInfo(struct soap* soap, std::string* licence, std::string* clientid,
                             std::string* reqgroup, std::string* select, LONG64 /*did*/,
                             std::string* /*subject*/, nv__DisplayTextArray* /*alldisplay*/,
                             nv__StringArray* /*addShare*/, nv__StringArray* /*delShare*/,
                             nv__DicDetailsMemory* /*details*/,
                             struct nv__UpdateDictionaryInfoResponse& r) {
  return lexsim::Serve(soap, kUpdateDictionaryInfo, {licence, clientid, reqgroup, select}, r,
                       lexsim::NotImplemented);
}

int nv__CopyDictionary(struct soap* soap, std::string* licence, std::string* clientid,
                       std::string* reqgroup, std::string* select, LONG64 /*sourceDid*/,
                       LONG64* /*targetDid*/, LONG64* /*targetType*/,
                       struct nv__CopyDictionaryResponse& r) {
  return lexsim::Serve(soap, kCopyDictionary, {licence, clientid, reqgroup, select}, r,
                       lexsim::NotImplemented);
}

int nv__DeleteDictionary(struct soap* soap, std::string* licence, std::string* clientid,
                         std::string* reqgroup, std::string* select, LONG64 /*did*/,
                         struct nv__DeleteDictionaryResponse& r) {
  return lexsim::Serve(soap, kDeleteDictionary, {licence, clientid, reqgroup, select}, r,
                       lexsim::NotImplemented);
}

int nv__ChangeDictionaryOwner(struct soap* soap, std::string* licence, std::string* clientid,
                              std::string* reqgroup, std::string* select, LONG64 /*did*/,
                              std::string* /*targetUser*/,
                              struct nv__ChangeDictionaryOwnerResponse& r) {
  return lexsim::Serve(soap, kChangeDictionaryOwner, {licence, clientid, reqgroup, select}, r,
                       lexsim::NotImplemented);
}

int nv__DictionaryImport(struct soap* soap, std::string* licence, std::string* clientid,
                         std::string* reqgroup, std::string* select, LONG64 /*did*/,
                         std::string* /*format*/, std::string* /*encoding*/,
                         nv__DictionaryDataArray* /*data*/,
                         struct nv__DictionaryImportResponse& r) {
  return lexsim::Serve(soap, kDictionaryImport, {licence, clientid, reqgroup, select}, r,
                       lexsim::NotImplemented);
}

int nv__DictionaryExport(struct soap* soap, std::string* licence, std::string* clientid,
                         std::string* reqgroup, std::string* select, LONG64 /*did*/,
                         std::string* /*format*/, std::string* /*encoding*/,
                         struct nv__DictionaryExportResponse& r) {
  return lexsim::Serve(soap, kDictionaryExport, {licence, clientid, reqgroup, select}, r,
                       lexsim::NotImplemented);
}

int nv__AddDictionaryEntry(struct soap* soap, std::string* licence, std::string* clientid,
                           std::string* reqgroup, std::string* select, LONG64 /*did*/,
                           std::string* /*format*/, nv__DicEntryArray* /*entries*/,
                           struct nv__AddDictionaryEntryResponse& r) {
  return lexsim::Serve(soap, kAddDictionaryEntry, {licence, clientid, reqgroup, select}, r,
                       lexsim::NotImplemented);
}

int nv__GetDictionaryEntry(struct soap* soap, std::string* licence, std::string* clientid,
                           std::string* reqgroup, std::string* select, LONG64 /*did*/,
                           std::string* /*format*/, LONG64* /*rangeStart*/, LONG64* /*rangeCount*/,
                           nv__DicEntryIdArray* /*entryid*/,
                           struct nv__GetDictionaryEntryResponse& r) {
  return lexsim::Serve(soap, kGetDictionaryEntry, {licence, clientid, reqgroup, select}, r,
                       lexsim::NotImplemented);
}

int nv__DeleteDictionaryEntry(struct soap* soap, std::string* licence, std::string* clientid,
                              std::string* reqgroup, std::string* select, LONG64 /*did*/,
                              nv__DicEntryIdArray* /*entries*/,
                              struct nv__DeleteDictionaryEntryResponse& r) {
  return lexsim::Serve(soap, kDeleteDictionaryEntry, {licence, clientid, reqgroup, select}, r,
                       lexsim::NotImplemented);
}

int nv__LookupEntry(struct soap* soap, std::string* licence, std::string* clientid,
                    std::string* reqgroup, std::string* select, nv__EngineSelect* /*engine*/,
                    nv__StringArray* /*words*/, struct nv__LookupEntryResponse& r) {
  return lexsim::Serve(soap, kLookupEntry, {licence, clientid, reqgroup, select}, r,
                       lexsim::NotImplemented);
}

int nv__LookupFormatted(struct soap* soap, std::string* licence, std::string* clientid,
                        std::string* reqgroup, std::string* select, std::string* /*displayLang*/,
                        nv__EngineSelect* /*engine*/, std::string* /*word*/,
                        struct nv__LookupFormattedResponse& r) {
  return lexsim::Serve(soap, kLookupFormatted, {licence, clientid, reqgroup, select}, r,
                       lexsim::NotImplemented);
}
