#pragma once
/// lexsim's in-memory server state: accounts, sessions, request groups, engine profiles and
/// dictionaries. The engines themselves are fixed at build time (EngineTable).
///
/// Locking: one mutex guards the whole store. Take it with State::Lock() and hold it for
/// as long as you touch anything reached through the State; every member function below
/// except Lock() expects the caller to hold it. Never hold it while sleeping or doing I/O.

#include <atomic>
#include <cstdint>
#include <ctime>
#include <map>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace lexsim {

/// API function bits of an account's apiAllowed mask.
namespace api {
inline constexpr uint64_t kTestEcho = 0x1;
inline constexpr uint64_t kRecode = 0x2;
inline constexpr uint64_t kGetEngineInfo = 0x4;
inline constexpr uint64_t kUpdateEngineProfile = 0x8;
inline constexpr uint64_t kSplitSentences = 0x10;
inline constexpr uint64_t kTranslateText = 0x20;
inline constexpr uint64_t kTranslateTextUpdate = 0x40;
inline constexpr uint64_t kTranslateHtml = 0x80;
inline constexpr uint64_t kTranslateXml = 0x100;
inline constexpr uint64_t kLookupFormatted = 0x200;
inline constexpr uint64_t kCreateDictionary = 0x400;
inline constexpr uint64_t kUpdateDictionaryInfo = 0x800;
inline constexpr uint64_t kCopyDictionary = 0x1000;
inline constexpr uint64_t kDeleteDictionary = 0x2000;
inline constexpr uint64_t kDictionaryImport = 0x4000;
inline constexpr uint64_t kDictionaryExport = 0x8000;
inline constexpr uint64_t kAddDictionaryEntry = 0x10000;
inline constexpr uint64_t kGetDictionaryEntry = 0x20000;
inline constexpr uint64_t kDeleteDictionaryEntry = 0x40000;
inline constexpr uint64_t kChangePassword = 0x80000;
inline constexpr uint64_t kCreateUser = 0x100000;
inline constexpr uint64_t kGetUser = 0x200000;
inline constexpr uint64_t kUpdateUser = 0x400000;
inline constexpr uint64_t kDeleteUser = 0x800000;
inline constexpr uint64_t kGetUserList = 0x1000000;
inline constexpr uint64_t kChangeDictionaryOwner = 0x2000000;
inline constexpr uint64_t kRunas = 0x4000000;
inline constexpr uint64_t kCreateSession = 0x8000000;
inline constexpr uint64_t kEndSession = 0x10000000;
inline constexpr uint64_t kTranslateTextSimple = 0x20000000;
inline constexpr uint64_t kTranslate = 0x40000000;
inline constexpr uint64_t kAll = 0x7fffffff;
}  // namespace api

/// Engine type bits.
namespace etype {
inline constexpr int kDirect = 0x1;
inline constexpr int kMemory = 0x2;
inline constexpr int kBridge = 0x4;
inline constexpr int kHidden = 0x10;
}  // namespace etype

/// Engine support bits (the ones lexsim looks at; the rest are passed through).
namespace esupport {
inline constexpr int kTranslate = 0x1;
inline constexpr int kLookup = 0x2;
inline constexpr int kProperties = 0x4;
inline constexpr int kPropertiesModify = 0x8;
inline constexpr int kDic = 0x10;
inline constexpr int kDicSelect = 0x20;
inline constexpr int kDicAdmin = 0x40;
inline constexpr int kParse = 0x80;
inline constexpr int kDicTech = 0x100;
inline constexpr int kDicUser = 0x200;
inline constexpr int kAll = 0x1ff7ffff;
}  // namespace esupport

/// Dictionary type values.
namespace dtype {
inline constexpr int64_t kSystem = 0x1;
inline constexpr int64_t kTechnical = 0x2;
inline constexpr int64_t kUser = 0x10;
inline constexpr int64_t kLearn = 0x20;
inline constexpr int64_t kUserShared = 0x100;
inline constexpr int64_t kLearnShared = 0x200;
}  // namespace dtype

/// User dictionaries get DIDs from here up; system and technical ones lie below.
inline constexpr int64_t kFirstUserDid = 10001;
/// Owner id of the system and technical dictionaries.
inline constexpr const char* kSystemOwner = "system";

/// One translation engine. Engines are fixed; their profiles live in the State.
struct EngineDef {
  std::string eid;
  std::map<std::string, std::string> display;  ///< language -> display name
  std::string from, to;
  std::string inter;               ///< intermediate language of a bridge, else empty
  std::string eid_left, eid_right;  ///< the engines a bridge joins
  std::string reverse;             ///< engine of the other direction, if any
  int type = etype::kDirect;
  int support = 0;
  std::string valid_from, valid_to;  ///< "YYYY-MM-DDThh:mm:ssZ"; empty: unlimited
  int64_t max_total = 0, max_tech = 0, max_user = 0;  ///< selectable dictionaries
  std::vector<std::pair<uint64_t, std::string>> formats;  ///< API mask, source format

  bool memory() const { return (type & etype::kMemory) != 0; }
  bool bridge() const { return (type & etype::kBridge) != 0; }
  bool hidden() const { return (type & etype::kHidden) != 0; }
  /// Display name in lang, falling back to English.
  std::string Display(const std::string& lang) const;
};

/// All engines, in listing order. Safe to use without the state lock.
const std::vector<EngineDef>& EngineTable();
/// The engine of that EID (exact match), or nullptr. Safe without the state lock.
const EngineDef* FindEngine(const std::string& eid);

/// Definition of a property that profiles and users may set.
struct PropertyDefRec {
  std::string key;
  std::string display;
  char type = 'S';  ///< B, S, R, C or N
  std::vector<std::pair<std::string, std::string>> values;  ///< value, display (C and R)
};
const std::vector<PropertyDefRec>& PropertyDefs();
const PropertyDefRec* FindPropertyDef(const std::string& key);

struct PropertyRec {
  std::string val;
  bool readonly = false;
};

struct ProfileRec {
  std::map<std::string, std::string> display;  ///< language -> display name
  std::map<std::string, PropertyRec> props;
};

/// A user's own settings for one engine.
struct UserEngine {
  int type = 0;     ///< 0 or etype::kHidden
  int support = 0;  ///< ANDed with the engine's own support
  std::string valid_from, valid_to;
  int64_t max_tech = 999, max_user = 999;
  std::vector<int64_t> dics;  ///< selected dictionaries, in priority order
};

struct Account {
  std::string userid;
  std::string username;
  std::string pwhash;  ///< 40 lower-case hex digits; empty: the user id alone logs in
  bool super = false;
  uint64_t api_allowed = api::kAll;
  std::string timezone = "UTC";
  std::string features;
  std::string valid_from, valid_to;
  std::map<std::string, int64_t> limits;  ///< limit name -> maximum
  std::vector<std::string> iprestrict;    ///< CIDR texts; empty: anywhere
  std::map<std::string, PropertyRec> props;
  std::map<std::string, UserEngine> engines;  ///< by EID
  /// Per-user changes to engine profiles: EID -> profile -> key -> value.
  std::map<std::string, std::map<std::string, std::map<std::string, PropertyRec>>> overrides;
};

/// One translation-memory sentence.
struct TmSentence {
  std::string lang;
  std::string text;
  bool key = true;
};

struct DictEntry {
  int64_t id = 0;
  // Normal dictionaries.
  std::string headword;
  std::string target;
  std::string pos;
  // Translation-memory dictionaries.
  std::vector<TmSentence> sentences;
  bool pattern = false;
  int weight = 0;
  int info = 0;
  std::string author, title, comment, date;
  std::string userdata;
};

struct Dictionary {
  int64_t did = 0;
  std::string eid;
  int64_t type = dtype::kUser;
  bool memory = false;  ///< a translation-memory dictionary (its engine is one)
  std::string subject;
  std::string owner;
  std::string languages;
  std::map<std::string, std::string> display;  ///< language -> display name
  std::set<std::string> shares;
  std::string comment, vender, userdata;  ///< translation-memory details
  std::vector<DictEntry> entries;         ///< in priority order
  int64_t next_entry = 1;

  bool shared_type() const { return type == dtype::kUserShared || type == dtype::kLearnShared; }
  /// Distinct headwords (normal) or entries (memory).
  int64_t HeadCount() const;
  /// Entries (normal) or sentences (memory).
  int64_t TotalCount() const;
};

/// One dictionary hit for a source word (lookup done by translation).
struct DictHit {
  std::string target;
  int64_t did = 0;
  int64_t entry_id = 0;
  std::string pos;
  bool tm = false;
  int rate = 100;
};

struct SessionRec {
  std::string key;
  std::string userid;
  std::string type;   ///< "login" or "full"
  std::string token;  ///< the token the next request must be signed with
  std::string ipaddress;
  std::time_t created = 0;
  std::time_t lastused = 0;
  std::map<std::string, std::string> props;  ///< properties set for this session only
};

/// Idle time after which a session expires, and its longest life.
inline constexpr long kSessionExpireSecs = 1800;
inline constexpr long kSessionLifetimeHours = 12;

class State {
 public:
  /// A store holding the seeded super-user only.
  State();

  std::unique_lock<std::mutex> Lock() { return std::unique_lock<std::mutex>(mu_); }

  Account* FindUser(const std::string& userid);
  const Account* FindUser(const std::string& userid) const;
  /// Adds or replaces the account of a.userid.
  Account& PutUser(Account a);
  bool RemoveUser(const std::string& userid);
  const std::map<std::string, Account>& users() const { return users_; }

  SessionRec& NewSession(const std::string& userid, const std::string& type, const std::string& ip,
                         std::time_t now);
  /// The live session of that key, or nullptr. Expired sessions are dropped here.
  SessionRec* FindSession(const std::string& key, std::time_t now);
  void EndSession(const std::string& key);
  void EndSessionsOf(const std::string& userid);
  std::vector<const SessionRec*> SessionsOf(const std::string& userid) const;

  const SessionRec* PeekSession(const std::string& key) const;

  bool KnownRequestGroup(const std::string& id) const;
  /// Starts a request group and returns its id.
  std::string NewRequestGroup();

  /// What --state keeps, as text: accounts, engine profiles, dictionaries with their
  /// entries and shares. Sessions and request groups are not kept.
  std::string Serialize() const;
  /// Replaces what Serialize keeps with the text's; returns false with *error naming the
  /// offending line, leaving the store unchanged, when the text is malformed.
  bool Deserialize(const std::string& text, std::string* error);

  /// Counts changes for the saver; callable without the lock.
  void MarkChanged() { changes_.fetch_add(1, std::memory_order_relaxed); }
  uint64_t changes() const { return changes_.load(std::memory_order_relaxed); }

  /// Requests of a user running now: Begin returns the count including the new one.
  int64_t BeginRequest(const std::string& userid) { return ++running_[userid]; }
  void EndRequest(const std::string& userid) {
    if (--running_[userid] <= 0) running_.erase(userid);
  }

  // Dictionaries.
  Dictionary* FindDictionary(int64_t did);
  const Dictionary* FindDictionary(int64_t did) const;
  /// Stores d under a fresh user DID and returns it.
  Dictionary& AddDictionary(Dictionary d);
  /// Removes the dictionary and every user's selection of it.
  bool RemoveDictionary(int64_t did);
  const std::map<int64_t, Dictionary>& dictionaries() const { return dics_; }
  /// Whether userid may read (use, export, look up) or change the dictionary.
  bool CanRead(const Dictionary& d, const std::string& userid) const;
  bool CanWrite(const Dictionary& d, const std::string& userid) const;
  /// Drops selections of dictionaries that no longer exist; one that a user
  /// may not read (yet) stays, unused and unlisted.
  void PruneSelections();

  // Engine profiles: EID -> profile name -> profile.
  std::map<std::string, ProfileRec>& Profiles(const std::string& eid) { return profiles_[eid]; }
  const std::map<std::string, std::map<std::string, ProfileRec>>& profiles() const {
    return profiles_;
  }

  /// The engine settings new users get without a template.
  static std::map<std::string, UserEngine> DefaultEngines(bool super);

 private:
  std::mutex mu_;
  std::map<std::string, Account> users_;
  std::map<std::string, SessionRec> sessions_;
  std::map<std::string, bool> reqgroups_;
  long next_reqgroup_ = 1;
  std::map<int64_t, Dictionary> dics_;
  int64_t next_did_ = kFirstUserDid;
  std::map<std::string, std::map<std::string, ProfileRec>> profiles_;
  std::map<std::string, int64_t> running_;
  std::atomic<uint64_t> changes_{0};
};

/// Source word or phrase looked up, case-insensitively, in the dictionaries userid has
/// selected for the engine eid (the user's engine dictionary list, or a "dictionaries"
/// property in props, DIDs separated by blanks), in priority order; translation-memory
/// dictionaries give whole-sentence hits with match rates (best first within one
/// dictionary). Only dictionaries of that engine which the user may read count.
/// The caller holds the state lock. Returns an empty vector when nothing matches.
std::vector<DictHit> LookupUserDictionaries(const State& state, const std::string& userid,
                                            const std::string& eid,
                                            const std::map<std::string, std::string>& props,
                                            const std::string& source);

/// The same lookup in the engine's built-in system dictionary (DIDs below 100).
/// The caller holds the state lock.
std::vector<DictHit> LookupSystemDictionary(const State& state, const std::string& eid,
                                            const std::string& source);

/// Match rate (0-100) of a translation-memory key sentence against a source sentence:
/// 100 for equal text ignoring case and outer blanks, else the share of common words.
int MatchRate(const std::string& key, const std::string& source);

/// The super-user every fresh lexsim has; its password is "admin".
inline constexpr const char* kSeedUserId = "admin";
inline constexpr const char* kSeedPassword = "admin";

}  // namespace lexsim
