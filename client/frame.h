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
//     auto r = frame.Call(soap_call_nv__X, ...own arguments...);
//     ...print r...
//   });
#pragma once

#include <cstddef>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <tuple>
#include <type_traits>
#include <utility>

#include "client/errors.h"
#include "client/local_data.h"
#include "shell/option_scanner.h"

class nv__EngineSelect;
class nv__KeyValArray;
struct nv__CreateSessionResponse;

namespace lexctl {

namespace frame_internal {

// Where T stands among Ts; sizeof...(Ts) when it is not there.
template <typename T, typename... Ts>
constexpr size_t IndexOf() {
  constexpr bool same[] = {std::is_same_v<T, Ts>..., false};
  size_t i = 0;
  while (i < sizeof...(Ts) && !same[i]) ++i;
  return i;
}

}  // namespace frame_internal

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

/// One KEY=VALUE of a property option.
struct Property {
  std::string key;
  std::string value;
};
/// KEY=VALUE of a property option, the key starting at text[key_from] and
/// ending at the first "=". Prints "Invalid property: TEXT" and gives
/// nothing when there is no "=", or no key where one is required.
std::optional<Property> ReadProperty(ExecThread& thread, const std::string& text,
                                     size_t key_from = 0, bool key_required = false);
/// The same for an engine property: LAST words in the value of
/// "dictionaries" become the DIDs they stand for.
std::optional<Property> ReadEngineProperty(ExecThread& thread, const std::string& text);

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

  /// Calls an operation (soap_call_nv__X) with the common request fields,
  /// the engine where the operation takes one, and own: the operation's
  /// other arguments in its order. Raises on failure, keeps the token,
  /// prints the warnings and returns the response.
  template <typename... Params, typename... Own>
  auto Call(int (*op)(struct soap*, const char*, const char*, Params...), Own&&... own) {
    return Invoke(true, op, std::forward<Own>(own)...);
  }
  /// The same, leaving the warnings to the caller.
  template <typename... Params, typename... Own>
  auto CallWithoutWarnings(int (*op)(struct soap*, const char*, const char*, Params...),
                           Own&&... own) {
    return Invoke(false, op, std::forward<Own>(own)...);
  }
  /// Fills in the common fields and the engine as Call does, and returns the
  /// status without raising: for soap_call_nv__X (the response last in own)
  /// or soap_send_nv__X. CreateSession, the one request without a licence,
  /// only as a whole call.
  template <typename... Params, typename... Own>
  int Send(int (*op)(struct soap*, const char*, const char*, Params...), Own&&... own);
  /// Receives the reply to a request Send sent with the given status, then
  /// goes on as Call does.
  template <typename Response>
  Response Receive(int (*receive)(struct soap*, Response&), int sent) {
    Response response;
    Check(sent == 0 ? receive(soap(), response) : sent);  // 0 is SOAP_OK
    Finish(response);
    return response;
  }
  /// -noengine: the engine element is left out of the request.
  void OmitEngine() { engine_omitted_ = true; }

  /// Raises on a failed call (see RaiseOnError); always ends the call.
  void Check(int status);
  /// Keeps a session token that the response carries.
  void Token(const std::string* token);
  void Warnings(const nv__ErrorArray* errors);
  /// Keeps the token of a response and prints its warnings, for the
  /// responses that have them.
  template <typename Response>
  void Finish(const Response& response, bool warnings = true) {
    if constexpr (requires { response.token; }) Token(response.token);
    if constexpr (requires { response.error; }) {
      if (warnings) Warnings(response.error);
    }
  }

  LocalData& data() { return data_; }
  ExecThread& thread() { return thread_; }

 private:
  static std::string* Optional(std::string& text) { return text.empty() ? nullptr : &text; }
  template <typename... Params, typename... Own>
  auto Invoke(bool warnings, int (*op)(struct soap*, const char*, const char*, Params...),
              Own&&... own) {
    std::remove_reference_t<std::tuple_element_t<sizeof...(Params) - 1, std::tuple<Params...>>>
        response;
    Check(Send(op, std::forward<Own>(own)..., response));
    Finish(response, warnings);
    return response;
  }

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
  bool engine_omitted_ = false;
};

template <typename... Params, typename... Own>
int RequestFrame::Send(int (*op)(struct soap*, const char*, const char*, Params...), Own&&... own) {
  // CreateSession's caller is known from the HTTP authentication, so its
  // request has no licence; the response type tells that operation apart.
  constexpr bool kLicence =
      !(std::is_same_v<std::remove_cvref_t<Params>, nv__CreateSessionResponse> || ...);
  constexpr size_t kCommon = kLicence ? 4 : 3;
  constexpr size_t kEngine = frame_internal::IndexOf<nv__EngineSelect*, Params...>();
  constexpr size_t kTakesEngine = kEngine < sizeof...(Params) ? 1 : 0;
  static_assert(kCommon + kTakesEngine + sizeof...(Own) == sizeof...(Params),
                "own: the operation's arguments after the common fields, without the engine");
  auto own_arguments = std::forward_as_tuple(std::forward<Own>(own)...);
  // The operation's argument at place I (counted after the action).
  auto argument = [&](auto place) -> decltype(auto) {
    constexpr size_t I = decltype(place)::value;
    if constexpr (I == kEngine) {
      return engine_omitted_ ? nullptr : engine();
    } else {
      return std::get<I - kCommon - (I > kEngine ? 1 : 0)>(own_arguments);
    }
  };
  auto exchange = [&]<size_t... I>(std::index_sequence<I...>) {
    if constexpr (kLicence) {
      return op(soap(), endpoint(), "", licence(), clientid(), reqgroup(), select(),
                argument(std::integral_constant<size_t, kCommon + I>())...);
    } else {
      return op(soap(), endpoint(), "", clientid(), reqgroup(), select(),
                argument(std::integral_constant<size_t, kCommon + I>())...);
    }
  };
  constexpr auto kPlaces = std::make_index_sequence<sizeof...(Params) - kCommon>();
  data_.BeginExchange();
  int status = exchange(kPlaces);
  if (data_.MayRetry(status)) {
    data_.BeginExchange();
    status = exchange(kPlaces);
  }
  return status;
}

}  // namespace lexctl
