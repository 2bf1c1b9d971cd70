#include "client/options.h"

#include <strings.h>

#include <cstdlib>
#include <cstring>
#include <string>

#include "client/credentials.h"
#include "client/did_list.h"
#include "client/local_data.h"
#include "shell/dispatch.h"
#include "shell/output.h"
#include "shell/variables.h"

namespace lexctl {
namespace {

enum Option {
  kUilang, kCommslayer, kCompress, kDime, kKeepalive, kTimeout, kServer, kProxy, kUserid,
  kPasswd, kEid, kProp, kReqgroup, kSesskey, kSesstoken, kSslauth, kSslcadir, kSslcafile,
  kSslkeyfile, kSslkeypass, kCachemark, kNeweid, kTrustheader, kForwardedfor, kSoapdebug,
  kWininetlog, kWget, kOptionCount
};

const char* const kSslWords[] = {"full", "noexpire", "nohost", "minimum", "none"};

// "https:" anywhere in the server's address, in any case.
bool MentionsHttps(const std::string& server) {
  for (size_t at = 0; at + 6 <= server.size(); ++at) {
    if (strncasecmp(server.c_str() + at, "https:", 6) == 0) return true;
  }
  return false;
}

void Show(ExecThread& thread, const char* name, const std::string& value) {
  PrintSetting(thread, "setopt", name, value);
}

const char* Bool(bool value) { return value ? "true" : "false"; }

void SetProp(ExecThread& thread, LocalData& data, const std::string& value) {
  auto& properties = data.engine.properties;
  if (value.empty()) return;
  if (value[0] == '-') {
    if (value == "-removeall") {
      properties.clear();
    } else if (!properties.erase(value.substr(1))) {
      Fail(thread, "Unknown property: %s\n", value.c_str() + 1);
    }
    return;
  }
  size_t equals = value.find('=');
  if (equals == std::string::npos) {
    if (value != "<none>") Fail(thread, kMsgInvalidArgs);
    return;
  }
  std::string key = value.substr(0, equals);
  std::string val = value.substr(equals + 1);
  if (key == "dictionaries") val = ResolveDidList(val);
  properties[key] = val;
}

// An https server switches to the windows layer, which carries https.
// build: make the new context now (setopt) or on first use (start-up).
void SetServer(LocalData& data, const std::string& server, bool build) {
  if (strncasecmp(server.c_str(), "https:", 6) == 0) data.settings.platform_http_layer = true;
  data.settings.server = server;
  data.RebuildEndpoint(build);
}

void Set(ExecThread& thread, LocalData& data, int option, const char* value_text) {
  std::string value = value_text;
  TransportSettings& s = data.settings;
  switch (option) {
    case kUilang: data.uilang = value; break;
    case kCommslayer:
      if (PrefixOf(value_text, "windows") || strcasecmp(value_text, "curl") == 0) {
        s.platform_http_layer = true;
      } else if (PrefixOf(value_text, "gsoap")) {
        s.platform_http_layer = false;
      } else {
        Fail(thread, "Invalid option. Use either 'windows' or 'gsoap'.\n");
        return;
      }
      data.RebuildEndpoint();
      break;
    case kCompress:
      s.compress = PrefixOf(value_text, "true");
      data.RebuildContext();
      break;
    case kDime:
      s.dime = MentionsHttps(s.server) ? false : PrefixOf(value_text, "true");
      break;
    case kKeepalive:
      s.keepalive = PrefixOf(value_text, "true");
      data.RebuildContext();
      break;
    case kTimeout:
      s.io_timeout = atoi(value_text);
      data.RebuildContext();
      break;
    case kServer: SetServer(data, value, true); break;
    case kProxy:
      if (!data.SetProxy(value)) Fail(thread, kMsgInvalidArgs);
      break;
    case kUserid: data.SetUserId(value); break;
    case kPasswd: data.SetPassword(value); break;
    case kEid: data.engine.eid = value; break;
    case kProp: SetProp(thread, data, value); break;
    case kReqgroup: data.reqgroup = value; break;
    case kSesskey: data.SetSessionKey(value); break;
    case kSesstoken: data.SetSessionToken(value); break;
    case kSslauth:
      for (int mode = kSslFull; mode <= kSslNone; ++mode) {
        if (PrefixOf(value_text, kSslWords[mode])) {
          s.ssl_auth = mode == kSslNone && s.platform_http_layer ? kSslMinimum : mode;
          data.RebuildContext();
          break;
        }
      }
      break;
    case kSslcadir: s.ssl_ca_dir = value; data.RebuildContext(); break;
    case kSslcafile: s.ssl_ca_file = value; data.RebuildContext(); break;
    case kSslkeyfile: s.ssl_key_file = value; data.RebuildContext(); break;
    case kSslkeypass: s.ssl_key_password = value; data.RebuildContext(); break;
    case kCachemark: data.cachemark = PrefixOf(value_text, "true"); break;
    case kNeweid: data.neweid = PrefixOf(value_text, "true"); break;
    case kTrustheader: data.trustheader = value; break;
    case kForwardedfor: data.forwardedfor = value; break;
    case kSoapdebug:
      s.soap_debug = strcasecmp(value_text, "off") == 0 ? "" : value;
      data.RebuildContext();
      break;
    case kWininetlog: {
      static const char* const kOff[] = {"off", "none", "n", "false", "f"};
      bool off = value.empty();
      for (const char* word : kOff) off = off || strcasecmp(value_text, word) == 0;
      s.curl_log = off ? "" : value;
      data.RebuildContext();
      break;
    }
    case kWget:
      for (char& c : value) {
        if (c == '\\') c = '/';
      }
      s.wget = value;
      break;
  }
}

void Report(ExecThread& thread, LocalData& data, int option, const char* name) {
  const TransportSettings& s = data.settings;
  switch (option) {
    case kUilang: Show(thread, name, data.uilang); break;
    case kCommslayer: Show(thread, name, s.platform_http_layer ? "windows" : "gsoap"); break;
    case kCompress: Show(thread, name, Bool(s.compress)); break;
    case kDime: Show(thread, name, Bool(s.dime)); break;
    case kKeepalive: Show(thread, name, Bool(s.keepalive)); break;
    case kTimeout: Show(thread, name, std::to_string(s.io_timeout)); break;
    case kServer:
      Show(thread, name, s.server);
      // An https server switches to the windows layer when it is set, so a
      // saved gsoap set-up names its layer again after the server.
      if (thread.saving_options && !s.platform_http_layer && strncasecmp(s.server.c_str(), "https:", 6) == 0) {
        Show(thread, "commslayer", "gsoap");
      }
      break;
    case kProxy: Show(thread, name, s.proxy); break;
    case kUserid: Show(thread, name, data.userid()); break;
    case kPasswd:
      // The options file gets the hash, which logs in the same way.
      if (thread.saving_options && !data.passwd().empty() && !IsPasswordHash(data.passwd())) {
        Show(thread, name, PasswordHash(data.userid(), data.passwd()));
      } else {
        Show(thread, name, data.passwd());
      }
      break;
    case kEid: Show(thread, name, data.engine.eid); break;
    case kProp:
      if (data.engine.properties.empty()) Show(thread, name, "<none>");
      for (const auto& [key, val] : data.engine.properties) Show(thread, name, key + "=" + val);
      break;
    case kReqgroup: Show(thread, name, data.reqgroup); break;
    case kSesskey: Show(thread, name, data.sesskey); break;
    case kSesstoken: Show(thread, name, data.sesstoken); break;
    case kSslauth:
      Show(thread, name, s.ssl_auth >= kSslFull && s.ssl_auth <= kSslNone ? kSslWords[s.ssl_auth] : "UNKNOWN");
      break;
    case kSslcadir: Show(thread, name, s.ssl_ca_dir); break;
    case kSslcafile: Show(thread, name, s.ssl_ca_file); break;
    case kSslkeyfile: Show(thread, name, s.ssl_key_file); break;
    case kSslkeypass: Show(thread, name, s.ssl_key_password); break;
    case kCachemark: Show(thread, name, Bool(data.cachemark)); break;
    case kNeweid: Show(thread, name, Bool(data.neweid)); break;
    case kTrustheader: Show(thread, name, data.trustheader); break;
    case kForwardedfor: Show(thread, name, data.forwardedfor); break;
    case kSoapdebug: Show(thread, name, s.soap_debug.empty() ? "off" : s.soap_debug); break;
    case kWininetlog: Show(thread, name, s.curl_log.empty() ? "off" : s.curl_log); break;
    case kWget: Show(thread, name, s.wget); break;
  }
}

template <int N>
void OptionHandler(ExecThread& thread, ArgVector& args);

// One dispatcher for all options; each row has its own entry point so that
// help finds the row by its handler.
void Dispatch(int option, CommandHandler self, ExecThread& thread, ArgVector& args) {
  if (CheckHelpRequest(thread, self, args, true)) return;
  if (args.size() < 2 || !thread.data) return;
  LocalData& data = Local(thread);
  const char* name = kClientOptionRows[option].name + kOptionPrefixLen;
  char action = static_cast<char>(tolower(static_cast<unsigned char>(args[0][0])));
  if (action == 's') {
    Set(thread, data, option, args.size() > 2 ? args[2] : "");
  } else if (action == 'g') {
    Report(thread, data, option, name);
  }
}

template <int N>
void OptionHandler(ExecThread& thread, ArgVector& args) {
  Dispatch(N, OptionHandler<N>, thread, args);
}

}  // namespace

void ApplyEnvironmentSettings(LocalData& data) {
  auto variable = [](const char* name) -> const char* {
    const char* value = getenv(name);
    return value && *value ? value : nullptr;
  };
  if (const char* server = variable("LEXCTL3_SERVER")) SetServer(data, server, false);
  if (const char* userid = variable("LEXCTL3_USERID")) data.SetUserId(userid);
  if (const char* passwd = variable("LEXCTL3_PASSWD")) data.SetPassword(passwd);
}

bool PrefixOf(const char* value, const char* word) {
  size_t length = strlen(value);
  return length <= strlen(word) && strncasecmp(value, word, length) == 0;
}

const CommandRecord kClientOptionRows[] = {
    {"_setopt_uilang", OptionHandler<kUilang>, 0, "Display language", nullptr},
    {"_setopt_commslayer", OptionHandler<kCommslayer>, 0, "Specify either 'windows' or 'gsoap' comms layer", nullptr},
    {"_setopt_compress", OptionHandler<kCompress>, 0, "Enable HTTP compression for requests", nullptr},
    {"_setopt_dime", OptionHandler<kDime>, 0, "Use DIME to send binary data", nullptr},
    {"_setopt_keepalive", OptionHandler<kKeepalive>, 0, "Enable keep-alive requests", nullptr},
    {"_setopt_timeout", OptionHandler<kTimeout>, 0, "Timeout", nullptr},
    {"_setopt_server", OptionHandler<kServer>, 0, "Soap server",
     "Usage:\n  setopt server HOST:PORT             Use HTTP for the connection\n  setopt server "
     "http://HOST:PORT      Use HTTP for the connection\n  setopt server https://HOST:PORT     Use "
     "HTTPS for the connection\n"},
    {"_setopt_proxy", OptionHandler<kProxy>, 0, "Proxy server", nullptr},
    {"_setopt_userid", OptionHandler<kUserid>, 0, "User ID", nullptr},
    {"_setopt_passwd", OptionHandler<kPasswd>, CMDF_SECRET, "User Password", nullptr},
    {"_setopt_eid", OptionHandler<kEid>, 0, "Engine EID", nullptr},
    {"_setopt_prop", OptionHandler<kProp>, 0, "Engine properties",
     "Usage:\n  setopt prop KEY=VAL     Set or change the value of KEY\n  setopt prop -KEY        "
     "Remove the property KEY\n  setopt prop -removeall  Remove all properties\n"},
    {"_setopt_reqgroup", OptionHandler<kReqgroup>, 0, "Set the request group to use", nullptr},
    {"_setopt_sesskey", OptionHandler<kSesskey>, 0, "Set the session key", nullptr},
    {"_setopt_sesstoken", OptionHandler<kSesstoken>, 0, "Set the session token", nullptr},
    {"_setopt_sslauth", OptionHandler<kSslauth>, 0, "SSL authentication options",
     "Usage:\n  setopt sslauth full         Normal authentication\n  setopt sslauth noexpire     "
     "Disable expiry checking for certificates\n  setopt sslauth nohost       Disable invalid host "
     "tests\n  setopt sslauth minimum      Disable both expiry and invalid host checks\n  setopt "
     "sslauth none         Disable all authentication (test use only)\n"},
    {"_setopt_sslcadir", OptionHandler<kSslcadir>, 0, "Trusted CA certificates read from a directory (PEM format)",
     nullptr},
    {"_setopt_sslcafile", OptionHandler<kSslcafile>, 0, "Trusted CA certificates in a single file (PEM format)",
     nullptr},
    {"_setopt_sslkeyfile", OptionHandler<kSslkeyfile>, 0, "SSL keyfile for client authentication", nullptr},
    {"_setopt_sslkeypass", OptionHandler<kSslkeypass>, CMDF_SECRET, "Optional password for the SSL keyfile", nullptr},
    {"_setopt_cachemark", OptionHandler<kCachemark>, 0, "Mark text and HTML responses that have been retrieved from cache", nullptr},
    {"_setopt_neweid", OptionHandler<kNeweid>, 0, "All responses from the server should use the shorter EID codes", nullptr},
    {"_setopt_trustheader", OptionHandler<kTrustheader>, 0, "Specify the trust header for the userid",
     "Note that this header and client IP address be in the trust settings at the server to work."},
    {"_setopt_forwardedfor", OptionHandler<kForwardedfor>, 0, "Specify the string to send in the X-Forwarded-For header",
     "Note that this header must be enabled in the trust settings at the server to work."},
    {"_setopt_soapdebug", OptionHandler<kSoapdebug>, 0, "Enable debug logs for the SOAP layer",
     "Usage:\n  setopt soapdebug off        Turn off debug logging\n  setopt soapdebug PREFIX     Log "
     "to a files all sent and received soap\n                              messages, and gsoap debug "
     "details. Multiple log\n                              files will be created with the supplied "
     "prefix.\n"},
    {"_setopt_wininetlog", OptionHandler<kWininetlog>, 0, "Enable debug logging for the Windows commslayer", nullptr},
    {"_setopt_wget", OptionHandler<kWget>, 0, "Path to wget", nullptr},
    {nullptr, nullptr, 0, nullptr, nullptr},
};
const size_t kClientOptionCount = kOptionCount;

}  // namespace lexctl
