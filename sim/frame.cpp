#include "frame.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <chrono>
#include <thread>

#include "account_rules.h"
#include "crypto.h"
#include "log.h"

namespace lexsim {
namespace {

constexpr long kMaxDelayMs = 60000;

std::vector<std::string> SplitBlanks(const std::string& s) {
  std::vector<std::string> parts;
  size_t pos = 0;
  for (;;) {
    size_t sp = s.find(' ', pos);
    parts.push_back(s.substr(pos, sp == std::string::npos ? std::string::npos : sp - pos));
    if (sp == std::string::npos) return parts;
    pos = sp + 1;
  }
}

std::optional<long> ToLong(const std::string& s) {
  long v = 0;
  auto [end, ec] = std::from_chars(s.data(), s.data() + s.size(), v);
  if (ec != std::errc() || end != s.data() + s.size()) return std::nullopt;
  return v;
}

Caller CallerOf(const Account& a, const std::string& session_key) {
  return Caller{a.userid, a.super, a.api_allowed, session_key, a.features};
}

const char* const kBadLogin = "Unknown user or wrong password";

}  // namespace

void Raise(std::string err, std::string msg) { throw Fault{std::move(err), std::move(msg)}; }

Conn& ConnOf(struct soap* soap) { return *static_cast<Conn*>(soap->user); }

SelectKeys::SelectKeys(const std::string* text) {
  if (!text) return;
  size_t pos = 0;
  const std::string& s = *text;
  while (pos < s.size()) {
    size_t start = s.find_first_not_of(" \t", pos);
    if (start == std::string::npos) break;
    size_t end = s.find_first_of(" \t", start);
    std::string word = s.substr(start, end == std::string::npos ? std::string::npos : end - start);
    size_t eq = word.find('=');
    if (eq == std::string::npos)
      items_.emplace_back(word, "");
    else
      items_.emplace_back(word.substr(0, eq), word.substr(eq + 1));
    pos = end == std::string::npos ? s.size() : end;
  }
}

bool SelectKeys::Has(const std::string& key) const {
  for (const auto& [k, v] : items_)
    if (EqualsNoCase(k, key)) return true;
  return false;
}

std::optional<std::string> SelectKeys::Value(const std::string& key) const {
  for (const auto& [k, v] : items_)
    if (EqualsNoCase(k, key)) return v;
  return std::nullopt;
}

Caller CheckLicence(State& state, const std::string& licence, const Conn& conn, std::time_t now,
                    std::string* new_token) {
  std::vector<std::string> parts = SplitBlanks(licence);
  for (const std::string& p : parts)
    if (p.empty()) Raise(err::kAuth, "Malformed licence");
  if (parts.size() > 3) Raise(err::kAuth, "Malformed licence");
  const std::string& userid = parts[0];

  if (parts.size() == 3) {
    SessionRec* s = state.FindSession(parts[2], now);
    if (!s) Raise(err::kSession, "Session not found or expired");
    if (s->userid != userid) Raise(err::kSession, "Session belongs to another user");
    const Account* a = state.FindUser(userid);
    if (!a) Raise(err::kAuth, kBadLogin);
    // A client holding its hash in upper case keys the HMAC with that text.
    std::string lower = HmacSha1Hex(a->pwhash, s->token);
    std::string upper;
    for (char c : a->pwhash)
      upper += static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    bool ok = EqualsNoCase(parts[1], lower) || EqualsNoCase(parts[1], HmacSha1Hex(upper, s->token));
    if (s->type == "full") s->token = RandomHex(16);
    // The fresh token lets a client that lost step with the session recover.
    *new_token = s->token;
    if (!ok) Raise(err::kAuth, "Wrong session credential");
    s->lastused = now;
    if (s->type != "full") new_token->clear();
    return CallerOf(*a, s->key);
  }

  const Account* a = state.FindUser(userid);
  if (!a) Raise(err::kAuth, kBadLogin);
  if (parts.size() == 2) {
    if (a->pwhash.empty() || !EqualsNoCase(parts[1], a->pwhash)) Raise(err::kAuth, kBadLogin);
    return CallerOf(*a, "");
  }
  bool trusted = conn.loopback && conn.trusted_user && *conn.trusted_user == userid;
  if (!a->pwhash.empty() && !trusted) Raise(err::kAuth, "Password required");
  return CallerOf(*a, "");
}

Caller CheckHttpAuth(State& state, const Conn& conn) {
  if (conn.basic) {
    std::string userid = PercentDecode(conn.basic->first);
    const Account* a = state.FindUser(userid);
    if (!a) Raise(err::kAuth, kBadLogin);
    const std::string& pass = conn.basic->second;
    bool ok = a->pwhash.empty() ? pass.empty() : EqualsNoCase(pass, a->pwhash);
    if (!ok) Raise(err::kAuth, kBadLogin);
    return CallerOf(*a, "");
  }
  if (conn.trusted_user && conn.loopback) {
    const Account* a = state.FindUser(*conn.trusted_user);
    if (!a) Raise(err::kAuth, kBadLogin);
    return CallerOf(*a, "");
  }
  Raise(err::kAuth, "HTTP authentication required");
}

Call::Call(struct soap* soap, const OpInfo& op, const Common& common)
    : soap_(soap), env_(*ConnOf(soap).env), conn_(ConnOf(soap)), op_(op), common_(common) {}

Call::~Call() {
  if (!counted_) return;
  auto lock = state().Lock();
  state().EndRequest(caller_->userid);
}

std::string* Call::Str(const std::string& s) const {
  std::string* p = soap_new_std__string(soap_);
  *p = s;
  return p;
}

LONG64* Call::Long(LONG64 v) const {
  LONG64* p = static_cast<LONG64*>(soap_malloc(soap_, sizeof(LONG64)));
  *p = v;
  return p;
}

nv__ErrorArray* Call::WarningsArray() const {
  nv__ErrorArray* a = soap_new_nv__ErrorArray(soap_);
  for (const auto& [key, text] : warnings_) {
    nv__Error e;
    e.key = key;
    e.err = text;
    a->item.push_back(e);
  }
  return a;
}

void Call::Warn(const std::string& key, const std::string& text) {
  if (strict()) Raise(err::kStrict, key + " = " + text);
  warnings_.emplace_back(key, text);
}

void Call::Notice(const std::string& key, const std::string& text) {
  warnings_.emplace_back(key, text);
}

std::string Call::Target() {
  if (!caller_) Raise(err::kAuth, "A licence is required");
  std::optional<std::string> runas = keys_.Value("runas");
  if (!runas || runas->empty() || *runas == caller_->userid) return caller_->userid;
  if (!caller_->super && !(caller_->api_allowed & api::kRunas))
    Raise(err::kDenied, "Not allowed to run as another user");
  if (!caller_->super && !HasFeature(caller_->features, "URUN"))
    Raise(err::kDenied, "Feature URUN (RunasOther) is not enabled for " + caller_->userid);
  if (!state().FindUser(*runas)) Raise(err::kNotFound, "Unknown user: " + *runas);
  return *runas;
}

void Call::Begin() {
  keys_ = SelectKeys(common_.select);

  // Delays come first and without the lock: they stand for a slow server.
  if (auto d = keys_.Value("delay")) {
    std::optional<long> ms = ToLong(*d);
    if (!ms || *ms < 0) {
      Warn("delay", "Invalid value: " + *d);
    } else {
      long wait = std::min(*ms, kMaxDelayMs);
      std::optional<long> rmax;
      if (auto r = keys_.Value("rmax")) rmax = ToLong(*r);
      bool over = rmax && *rmax >= 0 && wait > *rmax;
      std::this_thread::sleep_for(std::chrono::milliseconds(over ? *rmax : wait));
      if (over) Raise(err::kTimeout, "Request exceeded rmax=" + std::to_string(*rmax) + " ms");
    }
  }

  {
    auto lock = state().Lock();
    std::time_t now = std::time(nullptr);
    bool has_licence = common_.licence && !common_.licence->empty();
    if (op_.access == Access::kHttpAuth) {
      caller_ = CheckHttpAuth(state(), conn_);
    } else if (has_licence) {
      caller_ = CheckLicence(state(), *common_.licence, conn_, now, &token_);
    } else if (op_.access == Access::kCredential) {
      Raise(err::kAuth, "A licence is required");
    }
    if (caller_ && op_.api && !caller_->super && !(caller_->api_allowed & op_.api))
      Raise(err::kDenied, std::string("Not allowed: ") + op_.name);
    if (caller_) {
      const Account* a = state().FindUser(caller_->userid);
      if (!a) Raise(err::kAuth, kBadLogin);
      CheckAccountRules(*a, op_.name, conn_.peer, now);
      if (op_.api == api::kCreateDictionary || op_.api == api::kCopyDictionary)
        if (const Account* owner = state().FindUser(Target())) CheckDictionaryLimit(state(), *owner);
      int64_t running = state().BeginRequest(a->userid);
      counted_ = true;
      auto max = a->limits.find("max.parallel.requests");
      if (max != a->limits.end() && max->second >= 0 && running > max->second)
        Raise(kLimitFault, "Limit max.parallel.requests reached for " + a->userid + ": " +
                               std::to_string(max->second));
    }
    if (common_.reqgroup && !common_.reqgroup->empty() &&
        !state().KnownRequestGroup(*common_.reqgroup))
      Notice("reqgroup", state().NewRequestGroup());
  }

  // Select keys that let tests ask for a failure of their choice.
  if (auto code = keys_.Value("sim.http")) {
    std::optional<long> status = ToLong(*code);
    if (status && *status >= 400 && *status <= 599)
      throw Fault{err::kArgument, "HTTP status requested", static_cast<int>(*status)};
    Warn("sim.http", "Invalid value: " + *code);
  }
  if (auto e = keys_.Value("sim.fault"))
    Raise(e->empty() ? "SIM_FAULT" : *e, "Fault requested by select key");
  // A fault as other SOAP servers send it, without the service's own detail.
  if (auto d = keys_.Value("sim.barefault")) throw Fault{*d, "Bare fault requested by select key", 0, true};
  if (auto w = keys_.Value("sim.warn")) Warn("sim.warn", w->empty() ? "warning" : *w);
}

int Call::SendFault(const Fault& f) {
  if (f.http) {
    soap_->keep_alive = 0;
    return soap_->error = f.http;
  }
  if (f.bare) return soap_sender_fault(soap_, f.msg.c_str(), f.err.empty() ? nullptr : f.err.c_str());
  bool server_side = f.err == err::kInternal || f.err == err::kNotImplemented;
  if (server_side)
    soap_receiver_fault(soap_, f.msg.c_str(), nullptr);
  else
    soap_sender_fault(soap_, f.msg.c_str(), nullptr);
  auto* ex = soap_new_nv__NvsoapException(soap_);
  ex->err = f.err;
  ex->msg = f.msg;
  if (!warnings_.empty()) ex->error = WarningsArray();
  if (!token_.empty()) ex->token = Str(token_);
  auto* detail = soap_new_SOAP_ENV__Detail(soap_);
  detail->nv__NvsoapException_ = ex;
  detail->__type = 0;
  detail->fault = nullptr;
  detail->__any = nullptr;
  if (soap_->version == 2)
    soap_->fault->SOAP_ENV__Detail = detail;
  else
    soap_->fault->detail = detail;
  return SOAP_FAULT;
}

void LogRequest(const Call& call, const char* outcome) {
  if (!call.env().log.enabled()) return;
  std::string user = call.caller() ? call.caller()->userid : "-";
  call.env().log.Write(call.conn().peer + " " + call.op().name + " " + user + " " + outcome);
}

void NotImplemented(Call& call) {
  Raise(err::kNotImplemented,
        std::string(call.op().name) + " is not implemented in this build of lexsim");
}

}  // namespace lexsim
