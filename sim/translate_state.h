#pragma once
/// What the translation engine needs from lexsim's store: engines by EID and dictionary
/// hits for a user. Kept apart so the engine itself does not depend on the store's layout.

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "state.h"

namespace lexsim::tr {

struct EngineDesc {
  std::string eid;
  std::string from, to;
  std::string inter;        ///< bridges only
  std::string left, right;  ///< the engines a bridge joins
  bool memory = false;
  bool bridge() const { return !inter.empty(); }
};

/// The engine of that EID, or nothing.
std::optional<EngineDesc> FindEngineDesc(const std::string& eid);

/// A dictionary hit, normal or translation memory.
using Hit = DictHit;

/// Dictionary lookups for one request's user and engine properties. The state lock must be
/// held for as long as the object is used.
class Dictionaries {
 public:
  Dictionaries(const State& state, std::string userid, std::map<std::string, std::string> props)
      : state_(state), userid_(std::move(userid)), props_(std::move(props)) {}
  /// The user's selected dictionaries of engine eid, in priority order.
  std::vector<Hit> User(const std::string& eid, const std::string& source) const;
  /// The engine's own system dictionary.
  std::vector<Hit> System(const std::string& eid, const std::string& source) const;
  /// DID that words of lexsim's built-in lexicon report for engine eid.
  int64_t LexiconDid(const std::string& eid) const;
  /// Subject of a dictionary, for the `subject` select key.
  std::string Subject(int64_t did) const;
  const std::map<std::string, std::string>& props() const { return props_; }

 private:
  const State& state_;
  std::string userid_;
  std::map<std::string, std::string> props_;
};

/// Match rate 0-100 of a memory sentence against a source sentence: 100 for the same
/// words in the same order (case and punctuation aside), else by word edit distance.
int MatchRate(const std::string& memory, const std::string& source);

}  // namespace lexsim::tr
