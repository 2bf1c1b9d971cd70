// The request frame that every service command follows: scan the options,
// build the common request fields, call, raise, print the warnings.
//
// A command handler is then just:
//   if (CheckHelpRequest(thread, CmdX, args, true)) return;
//   RunGuarded(thread, [&] {
//     RequestFrame frame(thread, "");
//     if (!frame.Scan(kOptions, args, [&](const OptionScanner& o) { ...own ids... })) return;
//     if (!frame.ExpectPositional(0, 1)) return;
//     frame.PrintSelectKeys();
//     nv__XResponse r;
//     frame.Check(soap_call_nv__X(frame.soap(), frame.endpoint(), "", frame.licence(),
//                                 frame.clientid(), frame.reqgroup(), frame.select(), ..., r));
//     frame.Token(r.token);
//     frame.Warnings(r.error);
//     ...print r...
//   });
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <string>

#include "client/errors.h"
#include "client/local_data.h"
#include "shell/option_scanner.h"

class nv__EngineSelect;
class nv__KeyValArray;

namespace lexctl {

/// Ids of the options every service command shares.
enum CommonOptionId : int {
  kOptSelectKeys = 0,  // -select KEYS: added as written
  kOptSelectKey = 1,   // -strict, -rmax N, ...: become "name" or "name=value"
  kOptReqgroup = 2,    // -reqgroup ID: this request's group
  kOptOwn = 3,         // the command's own options start here
  // Handled by the frame too, for the commands whose tables list them; far
  // above any command's own ids.
  kOptEngineId = 1000,    // -eid ENGINE
  kOptEngineProp = 1001,  // -prop KEY=VALUE, repeatable; "" empties the list
  kOptEndOfOptions = 1002,  // --: every later word is positional
};

/// Runs a command body, printing a SoapException or Exception it throws;
/// the script goes on either way.
void RunGuarded(ExecThread& thread, const std::function<void()>& body);

class RequestFrame {
 public:
  /// prefix_keys: select keys the command always sends first (" neweid",
  /// the cache marks), each with a leading blank.
  RequestFrame(ExecThread& thread, const std::string& prefix_keys);
  ~RequestFrame();

  /// Scans args with the table; common ids are handled here, the others are
  /// handed to own(). Prints "Invalid argument: ..." and returns false on a
  /// bad option, or when own() returns false.
  bool Scan(const OptionDef* table, const ArgVector& args,
            const std::function<bool(const OptionScanner&)>& own = nullptr);
  /// The words that were not options.
  const ArgVector& positional() const { return positional_; }
  /// Prints "Invalid arguments. See help." unless min <= count <= max.
  bool ExpectPositional(size_t min, size_t max);
  /// Appends one select key (with its value, if any) in command-line order.
  void AddSelectKey(const std::string& key);
  /// Whether a key (a whole word, as "dic") is among the select keys so far.
  bool HasSelectKey(const std::string& key) const;
  /// Whether the select text so far contains text anywhere ("uilang=").
  bool SelectContains(const std::string& text) const { return keys_.find(text) != std::string::npos; }

  /// Prints "SelectKeys:   ..." when there are select keys.
  void PrintSelectKeys();
  /// Sends the select keys without printing them (the calls a command makes
  /// besides the one it echoes).
  void UseSelectKeys();
  /// The same with a command's own layout of the line (one %s).
  void PrintSelectKeys(const char* format);

  /// The engine this request selects: the thread's engine, changed by -eid
  /// and -prop.
  const std::string& eid() const { return eid_; }
  /// True when -eid was given.
  bool eid_given() const { return eid_given_; }
  /// Prints "Engine EID:   ...".
  void PrintEngine();
  /// The engine element of the request; valid until the frame ends.
  nv__EngineSelect* engine();

  struct soap* soap() { return data_.context(); }
  const char* endpoint() const { return data_.settings.endpoint.c_str(); }
  std::string* licence() { return Optional(licence_); }
  std::string* clientid() { return Optional(clientid_); }
  std::string* reqgroup() { return Optional(reqgroup_); }
  std::string* select() { return Optional(select_); }

  /// Raises on a failed call (see RaiseOnError); always ends the call.
  void Check(int status);
  /// Keeps a session token that the response carries.
  void Token(const std::string* token);
  void Warnings(const nv__ErrorArray* errors);

  LocalData& data() { return data_; }
  ExecThread& thread() { return thread_; }

 private:
  static std::string* Optional(std::string& text) { return text.empty() ? nullptr : &text; }

  ExecThread& thread_;
  LocalData& data_;
  std::string licence_;
  std::string clientid_;
  std::string reqgroup_;
  std::string keys_;  // with a leading blank per key
  std::string select_;
  ArgVector positional_;
  std::string eid_;
  bool eid_given_ = false;
  std::map<std::string, std::string> properties_;
  bool properties_chosen_ = false;  // -prop "": send the (empty) list even so
  std::unique_ptr<nv__EngineSelect> engine_;
  std::unique_ptr<nv__KeyValArray> engine_properties_;
};

}  // namespace lexctl
