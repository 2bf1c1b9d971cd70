#include "state.h"

#include <sstream>

#include "crypto.h"

namespace lexsim {

State::State() {
  Account admin;
  admin.userid = kSeedUserId;
  admin.username = "Administrator";
  admin.pwhash = PasswordHash(kSeedUserId, kSeedPassword);
  admin.super = true;
  PutUser(std::move(admin));
}

Account* State::FindUser(const std::string& userid) {
  auto it = users_.find(userid);
  return it == users_.end() ? nullptr : &it->second;
}

Account& State::PutUser(Account a) {
  std::string id = a.userid;
  return users_[id] = std::move(a);
}

bool State::RemoveUser(const std::string& userid) {
  EndSessionsOf(userid);
  return users_.erase(userid) > 0;
}

SessionRec& State::NewSession(const std::string& userid, const std::string& type,
                              const std::string& ip, std::time_t now) {
  SessionRec s;
  s.key = RandomHex(16);
  s.userid = userid;
  s.type = type;
  s.token = RandomHex(16);
  s.ipaddress = ip;
  s.created = s.lastused = now;
  std::string key = s.key;
  return sessions_[key] = std::move(s);
}

SessionRec* State::FindSession(const std::string& key, std::time_t now) {
  auto it = sessions_.find(key);
  if (it == sessions_.end()) return nullptr;
  const SessionRec& s = it->second;
  if (now - s.lastused > kSessionExpireSecs || now - s.created > kSessionLifetimeHours * 3600) {
    sessions_.erase(it);
    return nullptr;
  }
  return &it->second;
}

void State::EndSession(const std::string& key) { sessions_.erase(key); }

void State::EndSessionsOf(const std::string& userid) {
  for (auto it = sessions_.begin(); it != sessions_.end();)
    it = it->second.userid == userid ? sessions_.erase(it) : std::next(it);
}

std::vector<const SessionRec*> State::SessionsOf(const std::string& userid) const {
  std::vector<const SessionRec*> out;
  for (const auto& [key, s] : sessions_)
    if (s.userid == userid) out.push_back(&s);
  return out;
}

bool State::KnownRequestGroup(const std::string& id) const { return reqgroups_.count(id) > 0; }

std::string State::NewRequestGroup() {
  std::string id = std::to_string(next_reqgroup_++);
  reqgroups_[id] = true;
  return id;
}

// Format: "user" TAB userid TAB pwhash TAB super(0/1) TAB api-mask TAB timezone TAB
// username TAB features. Tabs and newlines cannot occur in these fields on the wire path
// that fills them, so no escaping is needed.
std::string State::SaveAccounts() const {
  std::ostringstream out;
  for (const auto& [id, a] : users_)
    out << "user\t" << a.userid << '\t' << a.pwhash << '\t' << (a.super ? 1 : 0) << '\t'
        << a.api_allowed << '\t' << a.timezone << '\t' << a.username << '\t' << a.features << '\n';
  return out.str();
}

bool State::LoadAccounts(const std::string& text) {
  std::map<std::string, Account> loaded;
  std::istringstream in(text);
  std::string line;
  while (std::getline(in, line)) {
    if (line.empty() || line[0] == '#') continue;
    std::vector<std::string> f;
    size_t pos = 0;
    for (;;) {
      size_t tab = line.find('\t', pos);
      f.push_back(line.substr(pos, tab == std::string::npos ? std::string::npos : tab - pos));
      if (tab == std::string::npos) break;
      pos = tab + 1;
    }
    if (f.size() != 8 || f[0] != "user" || f[1].empty()) return false;
    if (!f[2].empty() && !IsPasswordHash(f[2])) return false;
    Account a;
    a.userid = f[1];
    a.pwhash = ToLower(f[2]);
    a.super = f[3] == "1";
    try {
      a.api_allowed = std::stoull(f[4]);
    } catch (...) {
      return false;
    }
    a.timezone = f[5];
    a.username = f[6];
    a.features = f[7];
    loaded[a.userid] = std::move(a);
  }
  if (loaded.empty()) return false;
  users_ = std::move(loaded);
  sessions_.clear();
  return true;
}

}  // namespace lexsim
