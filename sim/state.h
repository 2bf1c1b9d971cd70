#pragma once
/// lexsim's in-memory server state: accounts, sessions and request groups.
///
/// Locking: one mutex guards the whole store. Take it with State::Lock() and hold it for
/// as long as you touch anything reached through the State; every member function below
/// except Lock() expects the caller to hold it. Never hold it while sleeping or doing I/O.

#include <cstdint>
#include <ctime>
#include <map>
#include <mutex>
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

struct Account {
  std::string userid;
  std::string username;
  std::string pwhash;  ///< 40 lower-case hex digits; empty: the user id alone logs in
  bool super = false;
  uint64_t api_allowed = api::kAll;
  std::string timezone = "UTC";
  std::string features;
};

struct SessionRec {
  std::string key;
  std::string userid;
  std::string type;   ///< "login" or "full"
  std::string token;  ///< the token the next request must be signed with
  std::string ipaddress;
  std::time_t created = 0;
  std::time_t lastused = 0;
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

  bool KnownRequestGroup(const std::string& id) const;
  /// Starts a request group and returns its id.
  std::string NewRequestGroup();

  /// Accounts as text, one per line; Load replaces the accounts with those of the text
  /// and returns false (leaving the store unchanged) when it is malformed.
  std::string SaveAccounts() const;
  bool LoadAccounts(const std::string& text);

 private:
  std::mutex mu_;
  std::map<std::string, Account> users_;
  std::map<std::string, SessionRec> sessions_;
  std::map<std::string, bool> reqgroups_;
  long next_reqgroup_ = 1;
};

/// The super-user every fresh lexsim has; its password is "admin".
inline constexpr const char* kSeedUserId = "admin";
inline constexpr const char* kSeedPassword = "admin";

}  // namespace lexsim
