#pragma once
/// Pieces the engine, dictionary and user operations share: state records turned into
/// wire objects (allocated in the request's gSOAP context), and checks they have in common.
/// The state lock must be held around every call that takes a State.

#include <optional>
#include <string>

#include "frame.h"
#include "state.h"

namespace lexsim::admin {

/// How one user sees one engine: the engine's own values narrowed by the user's settings.
struct EngineView {
  const EngineDef* def = nullptr;
  const UserEngine* user = nullptr;  ///< nullptr: the engine as it stands
  int type = 0;
  int support = 0;
  std::string valid_from, valid_to;
  int64_t max_tech = 0, max_user = 0, max_total = 0;
};
EngineView ViewOf(const EngineDef& def, const UserEngine* user);

/// Whether the engine passes the filter. Hidden engines pass only a type filter that asks
/// for HIDDEN, unless show_hidden is set.
bool FilterMatches(const nv__EngineFilter* filter, const EngineView& v, bool show_hidden);

struct EngineDetail {
  bool dics = false;        ///< fill dictionaryInfo
  bool selected = false;    ///< list the user's selected dictionaries, not the available ones
  bool profiles = false;    ///< fill profiles
  bool merge = true;        ///< merge the user's profile overrides into the profiles
  std::string dic_filter;   ///< "userdic", "techdic", "ownerdic" or empty for all
};
nv__Engine MakeEngine(const Call& call, const State& state, const EngineView& v,
                      const std::string& userid, const std::string& lang, const EngineDetail& d);

nv__PropertyList* MakePropertyDefs(const Call& call);

/// A dictionary's list row and full detail.
nv__Dictionary MakeDictionaryRow(const Call& call, const Dictionary& d, const std::string& lang);
nv__DictionaryDetail* MakeDictionaryDetail(const Call& call, const Dictionary& d);

/// A date-time bound as the wire keeps it ("YYYY-MM-DDThh:mm:ssZ"), from "YYYY-MM-DD",
/// "YYYY-MM-DD hh:mm:ss" (local to zone) or either with "Z" (UTC), or the wire form.
/// "" and "unlimited" give "". A date alone means its first second for a start and its
/// last for an end. Returns nullopt for text of no such form or an unknown zone.
std::optional<std::string> NormalizeTime(const std::string& text, bool end,
                                         const std::string& zone);

/// Checks a property value against its definition; returns an error text or "".
std::string CheckPropertyValue(const PropertyDefRec& def, const std::string& val);

}  // namespace lexsim::admin
