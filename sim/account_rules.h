#pragma once
/// What an account's settings allow at login: the addresses it may connect from, its
/// validity period, its feature codes and the limits lexsim can count. The frame applies
/// these to every request after the credential check.

#include <ctime>
#include <string>

#include "state.h"

namespace lexsim {

/// Fault code of a request refused because an account limit is reached.
inline constexpr const char* kLimitFault = "LIMIT_EXCEEDED";

/// Whether text is an address entry of the forms accounts accept: "a.b.c.d", with "/N" or
/// "/m.m.m.m", "[v6]" with or without "/N", "allv4", "allv6".
bool ValidCidr(const std::string& text);

/// Whether the peer address (as the server reports it: "a.b.c.d", "::1", "::ffff:a.b.c.d")
/// lies in the entry. A malformed entry matches nothing.
bool CidrMatches(const std::string& cidr, const std::string& peer);

/// Feature code that an operation needs, or nullptr when none does (or when it depends on
/// whom the operation acts for, as for GetUser and UpdateUser).
const char* FeatureOf(const std::string& op_name);

/// Whether a blank-separated feature list grants the code. An empty list grants everything:
/// such an account is governed by its API mask alone.
bool HasFeature(const std::string& features, const std::string& code);

/// "YYYY-MM-DDThh:mm:ssZ" of t, the form validity bounds are kept in.
std::string WireTime(std::time_t t);

/// Refuses a login the account's settings do not allow (raises the fault). super-users
/// skip the feature check, as they skip the API mask; address and validity apply to all.
void CheckAccountRules(const Account& a, const std::string& op_name, const std::string& peer,
                       std::time_t now);

/// Refuses an operation once a counted limit of the account would be passed: open sessions
/// before a new one, owned dictionaries before a new one. Lock held.
void CheckSessionLimit(const State& state, const Account& a);
void CheckDictionaryLimit(const State& state, const Account& a);

}  // namespace lexsim
