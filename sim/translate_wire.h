#pragma once
/// Between the translation engine and the wire: engine selection, select keys, source
/// blocks in, translation blocks, unknown words and binary data out.

#include <map>
#include <string>
#include <vector>

#include "frame.h"
#include "translate_core.h"

namespace lexsim::tr {

/// Fault code for documents lexsim cannot translate.
inline constexpr const char* kUnsupportedDocument = "UNSUPPORTED_DOCUMENT";
/// The engine translation requests without an engine element use.
inline constexpr const char* kDefaultEid = "QZ-EJ";

/// The engine a request selects (raises NOT_FOUND for an unknown EID) and its properties.
EngineDesc SelectEngine(const nv__EngineSelect* engine);
std::map<std::string, std::string> EngineProps(const nv__EngineSelect* engine);

/// The translation flags the request's select keys set.
Flags FlagsOf(const SelectKeys& keys);

/// Reads a wire source block; malformed track, phrase and setword data give warnings.
BlockIn BlockOf(Call& call, const nv__SourceBlock& b, size_t index);

nv__TranslationBlock ToWire(struct soap* soap, const BlockOut& out);
nv__UnknownWordArray* UnknownToWire(struct soap* soap, const std::vector<UnknownOut>& unknown);

xsd__base64Binary* Binary(struct soap* soap, std::string bytes);
std::string Bytes(const xsd__base64Binary* b);

}  // namespace lexsim::tr
