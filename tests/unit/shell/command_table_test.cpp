// The merged command table with a client table of the test's own: shadowing,
// hidden rows, option rows, dispatch, completion and secret lines.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <string>
#include <vector>

#include "capture.h"
#include "shell/console_policy.h"
#include "shell/dispatch.h"
#include "shell/script.h"
#include "shell/variables.h"

namespace lexctl {
namespace {

using Words = std::vector<std::string>;
Words client_calls;
std::string host_value = "http://localhost:12000";

// Rows that share a handler are aliases: each row here has its own.
void Key(ExecThread&, ArgVector&) {}
void Convert(ExecThread&, ArgVector&) {}
void Login(ExecThread&, ArgVector&) {}
void AddUser(ExecThread&, ArgVector&) {}
void ClientEcho(ExecThread&, ArgVector&) { client_calls.push_back("client echo"); }

void ClientPing(ExecThread&, ArgVector& args) {
  std::string call = "ping";
  for (const char* arg : args) call += std::string("|") + arg;
  client_calls.push_back(call);
}

void OptHost(ExecThread& thread, ArgVector& args) {
  if (CheckHelpRequest(thread, OptHost, args, true)) return;
  if (args[0][0] == 's') {
    host_value = args[2];
  } else {
    PrintSetting(thread, "setopt", "host", host_value);
  }
}

const CommandRecord kClientRows[] = {
    {"_setopt_host", OptHost, 0, "Soap server", "Usage:\n  setopt host HOST:PORT\n"},
    {"_setopt_key", Key, CMDF_SECRET, "Key", nullptr},
    {GroupMarker, nullptr, 0, "TEST CLIENT", nullptr},
    {"Echo", ClientEcho, 0, "Shadowed by the interpreter.", nullptr},
    {"oldping", ClientPing, CMDF_HIDDEN, nullptr, nullptr},
    {"p", ClientPing, CMDF_ESCAPES, nullptr, nullptr},
    {"ping", ClientPing, CMDF_ESCAPES, "Ping the test client.", "Usage: ping [<text>]"},
    {"cv", Convert, 0, nullptr, nullptr},
    {"convert", Convert, 0, "Convert a file.",
     "Usage: convert INFILE [-to ENCODING] [-outfile OUTFILE]\n\n    -to       The encoding.\n"
     "    -outfile  Write to OUTFILE (see -to).\n    -KEY      Not an option but a placeholder.\n"},
    {"login", Login, CMDF_SECRET, "Log in.", "Usage: login [-quiet] PASSWORD"},
    {"adduser", AddUser, 0, "Add a user.", "Usage: adduser USERID [-secret PASS] [-name TEXT]"},
    {nullptr, nullptr, 0, nullptr, nullptr},
};
const char* const kFileWords[] = {"convert", "-outfile", nullptr};
const char* const kSecretOptions[] = {"-secret", nullptr};

void TestPrompt(ExecThread&, std::string& prompt) { prompt = "test> "; }

class CommandTable : public ::testing::Test {
 protected:
  void SetUp() override {
    ClientBinding binding;
    binding.commands = kClientRows;
    binding.make_prompt = TestPrompt;
    binding.file_words = kFileWords;
    binding.secret_options = kSecretOptions;
    RegisterClient(binding);
    ::testing::internal::CaptureStderr();
    BuildCommandTable();
    shadow_report_ = ::testing::internal::GetCapturedStderr();
    client_calls.clear();
  }
  void TearDown() override {
    FreeCommandTable();
    RegisterClient(ClientBinding{});
  }
  std::string Run(const std::string& line) {
    std::string text = line;
    std::string prompt;
    MakePrompt(thread_, prompt);
    ProcessLine(thread_, text, false, prompt);
    return capture_.Take();
  }

  ExecThread thread_{"_main_", true};
  testing::Capture capture_{thread_};
  std::string shadow_report_;
};

TEST_F(CommandTable, ShadowingFlagsAndAliases) {
  EXPECT_EQ(shadow_report_, "Command 'echo' is shadowed by internal command of the same name\n");
  EXPECT_EQ(Run("@ECHO x"), "x \n");
  Run("@ping a\\tb");
  Run("@oldping c");
  Run("@-p a\\tb");
  Run("@+oldping a\\tb");
  EXPECT_EQ(client_calls, (Words{"ping|a\tb", "ping|c", "ping|a\\tb", "ping|a\tb"}));
  EXPECT_EQ(Run("_setopt_host x"), "test> _setopt_host x\nUnrecognized command: _setopt_host\n");
}

TEST_F(CommandTable, ClientOptionsJoinSetoptAndSaveWritesThemPrivately) {
  EXPECT_EQ(Run("@setopt host h:1"), "");
  EXPECT_EQ(Run("@setopt HOST"), "setopt host         h:1\n");
  EXPECT_EQ(Run("@setopt host -?"),
            "Commands:  setopt host\nSummary:   Soap server\n\nUsage:\n  setopt host HOST:PORT\n");

  // The saved file holds the password: private, even one that was there already.
  testing::TempDir dir;
  dir.Write("saved.cfg", "old");
  chmod("saved.cfg", 0644);
  Run("@setopt -save saved.cfg");
  EXPECT_NE(testing::ReadFile("saved.cfg").find("setopt host         h:1\n"), std::string::npos);
  struct stat st;
  ASSERT_EQ(stat("saved.cfg", &st), 0);
#ifndef _WIN32  // Windows files have no group or other rights to take away.
  EXPECT_EQ(st.st_mode & 0777, 0600u);
#endif
}

TEST_F(CommandTable, Completion) {
  EXPECT_EQ(UsageOptions(kClientRows[8].usage), (Words{"-to", "-outfile"}));
  EXPECT_EQ(UsageOptions("a|-b {-c|-d} (-e) user-defined -1 --"), (Words{"-b", "-c", "-d", "-e"}));
  const struct {
    const char* before;
    const char* word;
    Completion::Kind kind;
    Words words;
  } cases[] = {
      {"", "conv", Completion::kWords, {"convert"}},
      {"@$ ", "LOG", Completion::kWords, {"login"}},
      {"? ", "adduse", Completion::kWords, {"adduser"}},
      {"help convert ", "", Completion::kNothing, {}},
      {"cv x.txt ", "-", Completion::kWords, {"-to", "-outfile"}},  // an alias
      {"ADDUSER bob ", "-N", Completion::kWords, {"-name"}},
      {"adduser ", "", Completion::kWords, {"-secret", "-name"}},
      {"adduser ", "bo", Completion::kNothing, {}},
      {"nosuch ", "-", Completion::kNothing, {}},
      {"convert ", "da", Completion::kFileNames, {}},
      {"adduser bob /OUTFILE ", "", Completion::kFileNames, {}},
      {"adduser bob -outfile=", "x", Completion::kFileNames, {}},
      {"adduser bob -name=", "x", Completion::kNothing, {}},
      {"r ", "sc", Completion::kFileNames, {}},
      {"!ls ", "sc", Completion::kFileNames, {}},
      {"shell cat ", "", Completion::kFileNames, {}},
      {"setopt ", "h", Completion::kWords, {"host"}},
      {"setopt ", "-s", Completion::kWords, {"-save"}},
      {"setopt -load ", "", Completion::kFileNames, {}},
      {"setopt host ", "", Completion::kNothing, {}},
  };
  for (const auto& c : cases) {
    Completion got = CompleteWord(c.before, c.word);
    EXPECT_EQ(got.kind, c.kind) << c.before << c.word;
    if (c.kind == Completion::kWords) {
      EXPECT_EQ(got.words, c.words) << c.before << c.word;
    }
  }
}

TEST_F(CommandTable, LinesThatCarryASecret) {
  for (const char* line : {"login pw", "  @$ LOGIN -quiet pw", "setopt key s3cret", "-SetOpt KEY \"s3 cret\"",
                           "setopt -escaped \\x6bey s3cret", "adduser bob -secret pw", "adduser bob \"/SECRET=pw\"",
                           "nosuch --secret pw"}) {
    EXPECT_TRUE(CarriesSecret(line)) << line;
  }
  for (const char* line : {"login", "setopt key", "setopt host example.com", "adduser bob -name secret",
                           "echo login pw", ""}) {
    EXPECT_FALSE(CarriesSecret(line)) << line;
  }
}

}  // namespace
}  // namespace lexctl
