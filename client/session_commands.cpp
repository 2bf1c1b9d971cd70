#include "client/session_commands.h"

#include <strings.h>

#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "client/common_options.h"
#include "client/credentials.h"
#include "client/frame.h"
#include "shell/dispatch.h"
#include "shell/output.h"
#include "shell/version.h"
#include "soapH.h"

namespace lexctl {
namespace {

// The server's version is shared by all threads, as "versions" left it.
std::mutex server_version_lock;
std::string server_version = "<unknown>";

constexpr auto kVersionsOptions = CommandOptions<kCommonOptions>();

enum TestOption { kTestString = kOptOwn, kTestNumber, kTestBinary };
constexpr auto kTestOptions =
    CommandOptions<kCommonOptions>({SelectKey("-delay", kOptRequired),
                                    {kTestString, "-string", kOptRequired},
                                    {kTestNumber, "-number", kOptRequired},
                                    {kTestBinary, "-binary", kOptRequired}});

constexpr auto kCreatesOptions = CommandOptions<kCommonOptions & ~kTakeResetsessions>();

enum EndsOption { kEndsClear = kOptOwn };
constexpr auto kEndsOptions =
    CommandOptions<kCommonOptions>({{kEndsClear, "-clear", kOptNoArgument}});

// -runas is also the user the new password is hashed with.
enum PasswdOption { kPasswdRunas = kOptOwn, kPasswdLiteral };
constexpr auto kPasswdOptions = CommandOptions<kCommonOptions & ~kTakeRunas>(
    {{kPasswdRunas, "-runas", kOptRequired}, {kPasswdLiteral, "-literal", kOptNoArgument}});

enum PwhashOption { kPwhashLicence = kOptOwn, kPwhashHttp };
constexpr auto kPwhashOptions = CommandOptions({{kPwhashLicence, "-l", kOptNoArgument},
                                                {kPwhashLicence, "-licence", kOptNoArgument},
                                                {kPwhashHttp, "-h", kOptNoArgument},
                                                {kPwhashHttp, "-http", kOptNoArgument}});

// The password hash a user's settings stand for.
std::string HashOf(const std::string& userid, const std::string& passwd) {
  return IsPasswordHash(passwd) ? passwd : PasswordHash(userid, passwd);
}

}  // namespace

void CmdVersions(ExecThread& thread, ArgVector& args) {
  if (CheckHelpRequest(thread, CmdVersions, args, true)) return;
  RunGuarded(thread, [&] {
    RequestFrame frame(thread, "");
    if (!frame.Scan(kVersionsOptions, args) || !frame.ExpectPositional(0, 0)) return;
    frame.PrintSelectKeys();
    ThreadPrint(thread, "Client Version: Lexary Server " LEXCTL_VERSION " R" LEXCTL_BUILD "\n");
    {
      std::lock_guard<std::mutex> hold(server_version_lock);
      server_version = "<unknown>";
    }
    bool seen = false;
    CurrentHeaderObserver() = [&seen](const char* key, const char* value) {
      if (seen || !key || strcmp(key, "Server") != 0) return;
      seen = true;
      std::lock_guard<std::mutex> hold(server_version_lock);
      server_version.assign(value ? value : "", 0, 79);
    };
    nv__TestEchoResponse response;
    int status = frame.Send(soap_call_nv__TestEcho, nullptr, nullptr, nullptr, response);
    CurrentHeaderObserver() = nullptr;
    std::string shown;
    {
      std::lock_guard<std::mutex> hold(server_version_lock);
      shown = server_version;
    }
    ThreadPrint(thread, "Server Version: %s\n", shown.c_str());
    if (status != SOAP_OK) ThreadPrint(thread, "\n");
    frame.Check(status);
    frame.Token(response.token);
  });
}

void CmdTest(ExecThread& thread, ArgVector& args) {
  if (CheckHelpRequest(thread, CmdTest, args, true)) return;
  RunGuarded(thread, [&] {
    RequestFrame frame(thread, "");
    const char* string_value = nullptr;
    const char* number_text = nullptr;
    const char* binary_path = nullptr;
    bool ok = frame.Scan(kTestOptions, args, [&](const OptionScanner& option) {
      switch (option.id()) {
        case kTestString: string_value = option.argument(); break;
        case kTestNumber: number_text = option.argument(); break;
        case kTestBinary: binary_path = option.argument(); break;
      }
      return true;
    });
    if (!ok || !frame.ExpectPositional(0, 0)) return;

    std::string str;
    LONG64 number = 0;
    std::vector<unsigned char> bytes;
    xsd__base64Binary binary{};
    bool dime = false;
    if (string_value) str = string_value;
    if (number_text) number = strtoll(number_text, nullptr, 10);
    if (binary_path) {
      std::ifstream file(binary_path, std::ios::binary);
      if (!file) {
        Fail(thread, "Unable to open file: %s\n", binary_path);
        return;
      }
      bytes.assign(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
      binary.__ptr = bytes.data();
      binary.__size = static_cast<int>(bytes.size());
      if (frame.data().settings.dime) {
        dime = true;
        binary.type = const_cast<char*>("application/octet-stream");
        binary.options = soap_dime_option(frame.soap(), 0, "binary");
      }
    }

    frame.PrintSelectKeys();
    if (string_value) ThreadPrint(thread, "String:       %s\n", str.c_str());
    if (number_text) ThreadPrint(thread, "Number:       %ld\n", static_cast<long>(number));
    if (binary_path) ThreadPrint(thread, "Binary:       %d bytes\n", binary.__size);
    ThreadPrint(thread, "\n");

    std::optional<DimeRequest> as_dime;
    if (dime) as_dime.emplace(frame.data());
    auto response = frame.Call(soap_call_nv__TestEcho, string_value ? &str : nullptr,
                               number_text ? &number : nullptr, binary_path ? &binary : nullptr);
    as_dime.reset();
    if (string_value && (!response.str || *response.str != str)) throw Exception("string was different");
    if (number_text && (!response.num || *response.num != number)) throw Exception("number was different");
    if (binary_path) {
      const xsd__base64Binary* back = response.bin;
      if (dime && back && back->__size == binary.__size && back->__size > 0 &&
          memcmp(back->__ptr, binary.__ptr, back->__size) != 0) {
        throw Exception("binary data was different");
      }
      if (!back || back->__size != binary.__size) throw Exception("binary length was different");
    }
    ThreadPrint(thread, "OK.\n");
  });
}

void CmdCreates(ExecThread& thread, ArgVector& args) {
  if (CheckHelpRequest(thread, CmdCreates, args, true)) return;
  RunGuarded(thread, [&] {
    RequestFrame frame(thread, "");
    if (!frame.Scan(kCreatesOptions, args) || !frame.ExpectPositional(0, 1)) return;
    std::string type = frame.positional().empty() ? "" : frame.positional()[0];
    frame.PrintSelectKeys();
    if (!frame.positional().empty()) ThreadPrint(thread, "Session Type: %s\n", type.c_str());
    ThreadPrint(thread, "\n");

    LocalData& data = frame.data();
    // The request carries no licence: the server learns who asks from the
    // HTTP Basic authentication of this one call.
    if (!data.userid().empty()) {
      data.UseBasicAuth(PercentEncodeUserId(data.userid()), HashOf(data.userid(), data.passwd()));
    }
    auto response =
        frame.Call(soap_call_nv__CreateSession, frame.positional().empty() ? nullptr : &type);
    data.SetSessionKey(response.session ? *response.session : "");
    frame.Token(response.token);
    ThreadPrint(thread, "Session Key:      %s\n", data.sesskey.c_str());
    ThreadPrint(thread, "Session Token:    %s\n", data.sesstoken.c_str());
    ThreadPrint(thread, "Session Expiry:   %d seconds\n",
                response.expireSecs ? static_cast<int>(*response.expireSecs) : 0);
    ThreadPrint(thread, "Session Lifetime: %d hours\n",
                response.lifetimeHours ? static_cast<int>(*response.lifetimeHours) : 0);
  });
}

void CmdEnds(ExecThread& thread, ArgVector& args) {
  if (CheckHelpRequest(thread, CmdEnds, args, true)) return;
  RunGuarded(thread, [&] {
    RequestFrame frame(thread, "");
    bool clear = false;
    bool ok = frame.Scan(kEndsOptions, args, [&](const OptionScanner&) {
      clear = true;
      return true;
    });
    if (!ok) return;
    if (clear) {
      frame.data().SetSessionKey("");
      return;
    }
    if (!frame.ExpectPositional(0, 0)) return;
    frame.PrintSelectKeys();
    ThreadPrint(thread, "\n");
    frame.Call(soap_call_nv__EndSession);
    ThreadPrint(thread, "OK\n");
    frame.data().SetSessionKey("");
  });
}

void CmdPwhash(ExecThread& thread, ArgVector& args) {
  if (CheckHelpRequest(thread, CmdPwhash, args, true)) return;
  OptionScanner scanner(kPwhashOptions, args);
  int form = 0;
  while (scanner.Next()) {
    if (scanner.error() != kOptOk) {
      Fail(thread, kMsgInvalidArg, scanner.text());
      return;
    }
    form = scanner.id();
  }
  const ArgVector& words = scanner.positional();
  std::string userid, passwd, session;
  if (words.empty() && thread.data) {
    userid = Local(thread).userid();
    passwd = Local(thread).passwd();
  } else if (words.size() == 2 || words.size() == 3) {
    userid = words[0];
    passwd = words[1];
    if (words.size() == 3) session = words[2];
  } else {
    Fail(thread, kMsgInvalidArgs);
    return;
  }
  // Always hashed, even when the password already looks like a hash.
  std::string hash = PasswordHash(userid, passwd);
  if (words.size() == 3) hash = HmacSha1Hex(hash, session);
  if (form == kPwhashLicence) {
    if (words.size() == 3) {
      ThreadPrint(thread, "%s %s %s\n", userid.c_str(), hash.c_str(), session.c_str());
    } else {
      ThreadPrint(thread, "%s %s\n", userid.c_str(), hash.c_str());
    }
  } else if (form == kPwhashHttp) {
    ThreadPrint(thread, "%s:%s\n", PercentEncodeUserId(userid).c_str(), hash.c_str());
  } else {
    ThreadPrint(thread, "%s\n", hash.c_str());
  }
}

void CmdPasswd(ExecThread& thread, ArgVector& args) {
  if (CheckHelpRequest(thread, CmdPasswd, args, true)) return;
  RunGuarded(thread, [&] {
    RequestFrame frame(thread, "");
    std::string target = frame.data().userid();
    bool literal = false;
    bool ok = frame.Scan(kPasswdOptions, args, [&](const OptionScanner& option) {
      if (option.id() == kPasswdRunas) {
        target = option.argument();
        frame.AddSelectKey(std::string("runas=") + option.argument());
      } else {
        literal = true;
      }
      return true;
    });
    if (!ok) return;
    if (frame.positional().size() != 1) {
      Fail(thread, "Invalid arguments. New password must be supplied.\n");
      return;
    }
    std::string typed = frame.positional()[0];
    std::string sent = literal ? typed : PasswordHash(target, typed);
    frame.PrintSelectKeys();
    ThreadPrint(thread, "User ID:      %s\n", target.c_str());
    ThreadPrint(thread, "Password:     %s\n", typed.c_str());
    ThreadPrint(thread, "\n");
    frame.Call(soap_call_nv__ChangePassword, &sent);
    ThreadPrint(thread, "OK.\n");
  });
}

const CommandRecord kInformationalRows[] = {
    {"versions", CmdVersions, 0, "Display server and client version information.", nullptr},
    {"test", CmdTest, 0, "Test connectivity to the server.",
     "Usage: test\n              [-select KEYS]              [-strict]\n              [-reqgroup ID]  "
     "            [-runas USERID]\n              [-rmax MILLISEC]\n              [-string STRING]   "
     "         [-number NUMBER]\n              [-binary FILE]\n\n"
     LEXCTL_COMMON_OPTION_HELP
     "    -string     String to send to server\n    -number     Number to send to server\n    -binary  "
     "   Binary data to send to server\n\nNote that only a single data value of each type can be "
     "specified.\n"},
    {nullptr, nullptr, 0, nullptr, nullptr},
};

const CommandRecord kSessionControlRows[] = {
    {"creates", CmdCreates, 0, "Create a new session.",
     "Usage: creates TYPE\n\n"
     LEXCTL_COMMON_OPTION_HELP
     "\nThe type of session authentication to be used must be specified on the command line. "
     "Valid types are:\n      login   New password token only for login.\n      full    New "
     "password token on every request.\n"},
    {"ends", CmdEnds, 0, "End the current session.",
     "Usage: ends\n\n"
     LEXCTL_COMMON_OPTION_HELP
     "    -clear      Clear out the session info. Don't send anything to the server\n"},
    {nullptr, nullptr, 0, nullptr, nullptr},
};

const CommandRecord kPasswordCommandRows[] = {
    {"pwhash", CmdPwhash, CMDF_SECRET, "Calculate a password hash.",
     "Usage: pwhash [-l] [-h] [USERID PASSWD [SESSION]]\n\n    -l         Output a complete licence "
     "string.\n    -h         Output a complete HTTP auth string.\n\nCalculate and display the "
     "password hash. If no arguments are supplied, the userid and password are used. Otherwise use "
     "the supplied userid and password, and optional session key. No data is sent to the server by "
     "this function."},
    {"passwd", CmdPasswd, CMDF_SECRET, "Change password for the current licence.",
     "Usage: passwd NEW_PASSWORD\n\n"
     LEXCTL_COMMON_OPTION_HELP
     "    -literal    NEW_PASSWORD is sent to the server as the literal password.\n\nThe "
     "NEW_PASSWORD string must be a password hash for the server to accept it. By default, the "
     "NEW_PASSWORD string will be hashed with the userid using the required algorithm before it is "
     "sent to the server. This may be disabled using the -literal option so that the actual string "
     "NEW_PASSWORD is sent without modification. This is useful only for testing a password hash "
     "generated elsewhere."},
    {nullptr, nullptr, 0, nullptr, nullptr},
};

const CommandOptionTable kSessionOptionTables[] = {
    {"versions", kVersionsOptions},
    {"test", kTestOptions},
    {"creates", kCreatesOptions},
    {"ends", kEndsOptions},
    {"pwhash", kPwhashOptions},
    {"passwd", kPasswdOptions},
    {nullptr, nullptr},
};

}  // namespace lexctl
