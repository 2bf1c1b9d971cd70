// The text form of what --state keeps.
//
// One record per line, fields separated by tabs; "%", tabs, line ends and other control
// bytes inside a field are written as %XX. A record belongs to the nearest owner above it:
// limit, ip, prop, engine and override lines to the last user; display, share and entry
// lines to the last dictionary; sentence lines to the last entry; pdisplay and pprop lines
// to the last profile.
#include <charconv>
#include <sstream>

#include "crypto.h"
#include "state.h"

namespace lexsim {
namespace {

constexpr const char* kHeader = "lexsim-state 1";

std::string Esc(const std::string& s) {
  static const char kHex[] = "0123456789ABCDEF";
  std::string out;
  out.reserve(s.size());
  for (unsigned char c : s) {
    if (c < 0x20 || c == '%' || c == 0x7f) {
      out += '%';
      out += kHex[c >> 4];
      out += kHex[c & 15];
    } else {
      out += static_cast<char>(c);
    }
  }
  return out;
}

bool Unesc(const std::string& s, std::string* out) {
  out->clear();
  for (size_t i = 0; i < s.size(); ++i) {
    if (s[i] != '%') {
      *out += s[i];
      continue;
    }
    unsigned v = 0;
    if (i + 2 >= s.size()) return false;
    auto [end, ec] = std::from_chars(s.data() + i + 1, s.data() + i + 3, v, 16);
    if (ec != std::errc() || end != s.data() + i + 3) return false;
    *out += static_cast<char>(v);
    i += 2;
  }
  return true;
}

class Writer {
 public:
  Writer& operator<<(const std::string& field) {
    if (!first_) out_ << '\t';
    out_ << Esc(field);
    first_ = false;
    return *this;
  }
  Writer& operator<<(const char* field) { return *this << std::string(field); }
  Writer& operator<<(int64_t v) { return *this << std::to_string(v); }
  Writer& operator<<(uint64_t v) { return *this << std::to_string(v); }
  Writer& operator<<(int v) { return *this << std::to_string(v); }
  Writer& operator<<(bool v) { return *this << std::string(v ? "1" : "0"); }
  void End() {
    out_ << '\n';
    first_ = true;
  }
  std::string str() const { return out_.str(); }

 private:
  std::ostringstream out_;
  bool first_ = true;
};

std::string JoinDids(const std::vector<int64_t>& dids) {
  std::string out;
  for (int64_t d : dids) out += (out.empty() ? "" : " ") + std::to_string(d);
  return out;
}

/// The fields of one line, unescaped.
class Fields {
 public:
  bool Parse(const std::string& line) {
    f_.clear();
    size_t pos = 0;
    for (;;) {
      size_t tab = line.find('\t', pos);
      std::string v;
      if (!Unesc(line.substr(pos, tab == std::string::npos ? std::string::npos : tab - pos), &v))
        return false;
      f_.push_back(std::move(v));
      if (tab == std::string::npos) return true;
      pos = tab + 1;
    }
  }
  size_t size() const { return f_.size(); }
  const std::string& operator[](size_t i) const { return f_[i]; }
  template <class T>
  bool Num(size_t i, T* out) const {
    const std::string& s = f_[i];
    auto [end, ec] = std::from_chars(s.data(), s.data() + s.size(), *out);
    return ec == std::errc() && end == s.data() + s.size() && !s.empty();
  }
  bool Flag(size_t i, bool* out) const {
    if (f_[i] != "0" && f_[i] != "1") return false;
    *out = f_[i] == "1";
    return true;
  }

 private:
  std::vector<std::string> f_;
};

// The first form of the file: accounts only, one per line, "user" TAB userid TAB
// pwhash TAB super TAB api-mask TAB timezone TAB username TAB features. Still read,
// as hand-written seed files use it.
bool LoadAccountLines(const std::string& text, std::map<std::string, Account>* users,
                      std::string* error) {
  std::istringstream in(text);
  std::string line;
  int number = 0;
  while (std::getline(in, line)) {
    ++number;
    if (line.empty() || line[0] == '#') continue;
    std::vector<std::string> f;
    size_t pos = 0;
    for (;;) {
      size_t tab = line.find('\t', pos);
      f.push_back(line.substr(pos, tab == std::string::npos ? std::string::npos : tab - pos));
      if (tab == std::string::npos) break;
      pos = tab + 1;
    }
    Account a;
    auto [end, ec] = std::from_chars(f.size() > 4 ? f[4].data() : nullptr,
                                     f.size() > 4 ? f[4].data() + f[4].size() : nullptr,
                                     a.api_allowed);
    if (f.size() != 8 || f[0] != "user" || f[1].empty() || (!f[2].empty() && !IsPasswordHash(f[2])) ||
        ec != std::errc() || end != f[4].data() + f[4].size()) {
      *error = "line " + std::to_string(number) + ": not a lexsim state file";
      return false;
    }
    a.userid = f[1];
    a.pwhash = ToLower(f[2]);
    a.super = f[3] == "1";
    a.timezone = f[5];
    a.username = f[6];
    a.features = f[7];
    a.engines = State::DefaultEngines(a.super);
    (*users)[a.userid] = std::move(a);
  }
  return true;
}

}  // namespace

std::string State::Serialize() const {
  Writer w;
  w << kHeader;
  w.End();
  w << "next" << next_did_;
  w.End();
  for (const auto& [id, a] : users_) {
    w << "user" << a.userid << a.username << a.pwhash << a.super << a.api_allowed << a.timezone
      << a.features << a.valid_from << a.valid_to;
    w.End();
    for (const auto& [name, max] : a.limits) {
      w << "limit" << name << max;
      w.End();
    }
    for (const std::string& c : a.iprestrict) {
      w << "ip" << c;
      w.End();
    }
    for (const auto& [k, p] : a.props) {
      w << "prop" << k << p.val << p.readonly;
      w.End();
    }
    for (const auto& [eid, e] : a.engines) {
      w << "engine" << eid << e.type << e.support << e.valid_from << e.valid_to << e.max_tech
        << e.max_user << JoinDids(e.dics);
      w.End();
    }
    for (const auto& [eid, profiles] : a.overrides)
      for (const auto& [profile, props] : profiles)
        for (const auto& [k, p] : props) {
          w << "override" << eid << profile << k << p.val << p.readonly;
          w.End();
        }
  }
  for (const auto& [eid, profiles] : profiles_)
    for (const auto& [name, p] : profiles) {
      w << "profile" << eid << name;
      w.End();
      for (const auto& [lang, text] : p.display) {
        w << "pdisplay" << lang << text;
        w.End();
      }
      for (const auto& [k, v] : p.props) {
        w << "pprop" << k << v.val << v.readonly;
        w.End();
      }
    }
  for (const auto& [did, d] : dics_) {
    w << "dic" << d.did << d.eid << d.type << d.memory << d.subject << d.owner << d.languages
      << d.comment << d.vender << d.userdata << d.next_entry;
    w.End();
    for (const auto& [lang, text] : d.display) {
      w << "display" << lang << text;
      w.End();
    }
    for (const std::string& u : d.shares) {
      w << "share" << u;
      w.End();
    }
    for (const DictEntry& e : d.entries) {
      w << "entry" << e.id << e.headword << e.target << e.pos << e.pattern << e.weight << e.info
        << e.author << e.title << e.comment << e.date << e.userdata;
      w.End();
      for (const TmSentence& s : e.sentences) {
        w << "sentence" << s.lang << s.text << s.key;
        w.End();
      }
    }
  }
  return w.str();
}

bool State::Deserialize(const std::string& text, std::string* error) {
  std::map<std::string, Account> users;
  std::map<std::string, std::map<std::string, ProfileRec>> profiles;
  std::map<int64_t, Dictionary> dics;
  int64_t next_did = kFirstUserDid;
  Account* user = nullptr;
  Dictionary* dic = nullptr;
  DictEntry* entry = nullptr;
  ProfileRec* profile = nullptr;

  std::istringstream in(text);
  std::string line;
  int number = 0;
  bool header = false;
  auto bad = [&](const std::string& why) {
    *error = "line " + std::to_string(number) + ": " + why;
    return false;
  };
  Fields f;
  while (std::getline(in, line)) {
    ++number;
    if (!header) {
      if (line != kHeader) {
        // An accounts-only file keeps the rest of the store as it is.
        if (!LoadAccountLines(text, &users, error)) return false;
        if (users.empty()) {
          *error = "no accounts";
          return false;
        }
        users_ = std::move(users);
        sessions_.clear();
        return true;
      }
      header = true;
      continue;
    }
    if (line.empty()) continue;
    if (!f.Parse(line)) return bad("malformed escape");
    const std::string& kind = f[0];
    auto count = [&](size_t n) { return f.size() == n; };
    if (kind == "next") {
      if (!count(2) || !f.Num(1, &next_did) || next_did < kFirstUserDid) return bad("bad next DID");
    } else if (kind == "user") {
      Account a;
      if (!count(10) || f[1].empty()) return bad("bad user");
      a.userid = f[1];
      a.username = f[2];
      if (!f[3].empty() && !IsPasswordHash(f[3])) return bad("bad password hash");
      a.pwhash = ToLower(f[3]);
      if (!f.Flag(4, &a.super) || !f.Num(5, &a.api_allowed)) return bad("bad user flags");
      a.timezone = f[6];
      a.features = f[7];
      a.valid_from = f[8];
      a.valid_to = f[9];
      user = &(users[a.userid] = std::move(a));
    } else if (kind == "limit" || kind == "ip" || kind == "prop" || kind == "engine" ||
               kind == "override") {
      if (!user) return bad(kind + " before any user");
      if (kind == "limit") {
        int64_t max = 0;
        if (!count(3) || !f.Num(2, &max)) return bad("bad limit");
        user->limits[f[1]] = max;
      } else if (kind == "ip") {
        if (!count(2)) return bad("bad ip");
        user->iprestrict.push_back(f[1]);
      } else if (kind == "prop") {
        PropertyRec p;
        if (!count(4) || !f.Flag(3, &p.readonly)) return bad("bad prop");
        p.val = f[2];
        user->props[f[1]] = p;
      } else if (kind == "engine") {
        UserEngine e;
        if (!count(9) || !f.Num(2, &e.type) || !f.Num(3, &e.support) || !f.Num(6, &e.max_tech) ||
            !f.Num(7, &e.max_user))
          return bad("bad engine");
        e.valid_from = f[4];
        e.valid_to = f[5];
        std::istringstream dids(f[8]);
        std::string w;
        while (dids >> w) {
          int64_t did = 0;
          auto [end, ec] = std::from_chars(w.data(), w.data() + w.size(), did);
          if (ec != std::errc() || end != w.data() + w.size()) return bad("bad engine DID");
          e.dics.push_back(did);
        }
        user->engines[f[1]] = std::move(e);
      } else {
        PropertyRec p;
        if (!count(6) || !f.Flag(5, &p.readonly)) return bad("bad override");
        p.val = f[4];
        user->overrides[f[1]][f[2]][f[3]] = p;
      }
    } else if (kind == "profile") {
      if (!count(3)) return bad("bad profile");
      profile = &profiles[f[1]][f[2]];
    } else if (kind == "pdisplay" || kind == "pprop") {
      if (!profile) return bad(kind + " before any profile");
      if (kind == "pdisplay") {
        if (!count(3)) return bad("bad pdisplay");
        profile->display[f[1]] = f[2];
      } else {
        PropertyRec p;
        if (!count(4) || !f.Flag(3, &p.readonly)) return bad("bad pprop");
        p.val = f[2];
        profile->props[f[1]] = p;
      }
    } else if (kind == "dic") {
      Dictionary d;
      if (!count(12) || !f.Num(1, &d.did) || d.did <= 0 || !f.Num(3, &d.type) ||
          !f.Flag(4, &d.memory) || !f.Num(11, &d.next_entry))
        return bad("bad dic");
      d.eid = f[2];
      d.subject = f[5];
      d.owner = f[6];
      d.languages = f[7];
      d.comment = f[8];
      d.vender = f[9];
      d.userdata = f[10];
      int64_t did = d.did;
      if (dics.count(did)) return bad("DID " + std::to_string(did) + " twice");
      dic = &(dics[did] = std::move(d));
      entry = nullptr;
    } else if (kind == "display" || kind == "share" || kind == "entry") {
      if (!dic) return bad(kind + " before any dic");
      if (kind == "display") {
        if (!count(3)) return bad("bad display");
        dic->display[f[1]] = f[2];
      } else if (kind == "share") {
        if (!count(2)) return bad("bad share");
        dic->shares.insert(f[1]);
      } else {
        DictEntry e;
        if (!count(13) || !f.Num(1, &e.id) || !f.Flag(5, &e.pattern) || !f.Num(6, &e.weight) ||
            !f.Num(7, &e.info))
          return bad("bad entry");
        e.headword = f[2];
        e.target = f[3];
        e.pos = f[4];
        e.author = f[8];
        e.title = f[9];
        e.comment = f[10];
        e.date = f[11];
        e.userdata = f[12];
        dic->entries.push_back(std::move(e));
        entry = &dic->entries.back();
      }
    } else if (kind == "sentence") {
      TmSentence s;
      if (!entry) return bad("sentence before any entry");
      if (!count(4) || !f.Flag(3, &s.key)) return bad("bad sentence");
      s.lang = f[1];
      s.text = f[2];
      entry->sentences.push_back(std::move(s));
    } else {
      return bad("unknown record " + kind);
    }
  }
  if (!header) {
    *error = "empty state file";
    return false;
  }
  if (users.empty()) {
    *error = "no accounts";
    return false;
  }
  for (const auto& [did, d] : dics)
    if (did >= next_did) {
      *error = "DID " + std::to_string(did) + " not below the next DID";
      return false;
    }
  users_ = std::move(users);
  profiles_ = std::move(profiles);
  dics_ = std::move(dics);
  next_did_ = next_did;
  sessions_.clear();
  return true;
}

}  // namespace lexsim
