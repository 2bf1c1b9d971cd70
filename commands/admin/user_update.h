// What ucreate and uupdate share: the user and engine options turned into one
// user update, the user-id resolver, and the address-list edits.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "client/frame.h"

struct soap;
class nv__UserUpdate;

namespace lexctl {

/// Ids of the options of ucreate and uupdate beyond the common block.
enum UserOptionId : int {
  kUoptTemplate = kOptOwn,
  kUoptAll,
  kUoptList,
  kUoptName,
  kUoptPass,
  kUoptApi,
  kUoptFeatures,
  kUoptZone,
  kUoptFrom,
  kUoptTo,
  kUoptLimit,
  kUoptIp,
  kUoptIpAdd,
  kUoptIpDel,
  kUoptPropAdd,
  kUoptPropSet,
  kUoptPropDel,
  kUoptEngAdd,
  kUoptEngSet,
  kUoptEngDel,
  kUoptEngType,
  kUoptEngSupport,
  kUoptEngFrom,
  kUoptEngTo,
  kUoptEngMaxTech,
  kUoptEngMaxUser,
  kUoptEngDicAdd,
  kUoptEngDicDel,
};

/// The option table of ucreate and uupdate (uupdate refuses -template itself).
extern const OptionDef* const kUserUpdateOptions;

/// The select keys -all stands for.
inline constexpr char kAllSelectKeys[] = " user engines dic engineprop profiles propdef limits userprop";

/// One engine definition opened by -engAdd, -engSet or -engDel.
struct EngineEdit {
  std::string action;  // "add", "set" or "del"
  std::string eid;
  std::optional<int> type, support;
  std::optional<std::string> from, to;
  std::optional<int64_t> max_tech, max_user;
  std::optional<std::string> dic_add, dic_del;  // DID lists with LAST resolved
};

struct PropertyEdit {
  std::string action;  // "add", "set" or "del"
  std::string key, val;
  bool readonly = false;
  bool session = false;
};

/// Everything the user and engine options asked for.
struct UserEdits {
  std::optional<std::string> name, password, zone, features, from, to;
  std::optional<int64_t> api;
  std::vector<std::pair<std::string, int64_t>> limits;
  bool ip_replace = false;  // -userIp given: ips replaces the list
  std::vector<std::string> ips;
  std::vector<std::pair<bool, std::string>> ip_edits;  // in order; true: add
  std::vector<PropertyEdit> props;
  std::vector<EngineEdit> engines;
  std::string template_user;
  bool list_mode = false;  // -list: the list display
};

/// Reads the update options one by one, in command-line order.
class UserUpdateParser {
 public:
  explicit UserUpdateParser(ExecThread& thread) : thread_(thread) {}

  /// Takes one scanned option with an id of UserOptionId. On bad input prints
  /// the message and returns false: the command stops.
  bool Take(int id, const char* argument);

  UserEdits& edits() { return edits_; }

 private:
  bool CurrentEngine(EngineEdit** engine);
  bool TakeApi(const std::string& arg);
  bool TakeLimit(const std::string& arg);
  bool TakeProperty(int id, const std::string& arg);
  /// The options that fill the engine definition opened last.
  bool TakeEngineOption(int id, const std::string& arg);

  ExecThread& thread_;
  UserEdits edits_;
};

/// The UserUpdate for one target user, allocated in the context. The password,
/// if any, is hashed with that user id; ips, when given, is the whole address
/// list to send (after -userIpAdd/-userIpDel were applied to the user's own).
nv__UserUpdate* BuildUserUpdate(struct soap* soap, const UserEdits& edits,
                                const std::string& userid,
                                const std::vector<std::string>* ips = nullptr);

/// The address list after the additions and exact-match deletions, in order.
std::vector<std::string> ApplyIpEdits(std::vector<std::string> current,
                                      const std::vector<std::pair<bool, std::string>>& edits);

/// Prints the engine definitions as the update echo shows them.
void PrintEngineEdits(ExecThread& thread, const std::vector<EngineEdit>& engines);

/// Lists the user ids that match a pattern (GetUserList).
using UserLister = std::function<std::vector<std::string>(const std::string& pattern)>;

/// The lister that asks the server.
UserLister ServerUserLister(ExecThread& thread);

/// Expands user-id arguments: a pattern with "*" becomes the ids the lister
/// returns ("Getting all users for '%s'"), when wildcards are allowed; the
/// caller's own id is dropped ("Ignoring self: %s") when self is not allowed.
/// Returns false, after printing why, when the command must stop.
bool ResolveUserIds(ExecThread& thread, const std::vector<std::string>& patterns,
                    bool wildcards, bool self, const UserLister& lister,
                    std::vector<std::string>* ids);

/// The target users of a command: the positional arguments resolved, or the
/// current user when there are none ("No userid supplied." when there is no
/// current user either). False when the command must stop.
bool TargetUsers(ExecThread& thread, const ArgVector& positional, bool wildcards, bool self,
                 std::vector<std::string>* ids);

}  // namespace lexctl
