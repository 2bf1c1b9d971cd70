// The merged command table with a client table of the test's own: shadowing,
// hidden rows, option rows, help and dispatch.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <string>
#include <vector>

#include "capture.h"
#include "shell/dispatch.h"
#include "shell/script.h"
#include "shell/variables.h"

namespace lexctl {
namespace {

std::vector<std::string> client_calls;
std::string server_value = "http://localhost:12000";

void ClientEcho(ExecThread&, ArgVector&) { client_calls.push_back("client echo"); }

void ClientPing(ExecThread& thread, ArgVector& args) {
  if (CheckHelpRequest(thread, ClientPing, args, true)) return;
  std::string call = "ping";
  for (const char* arg : args) call += std::string("|") + arg;
  client_calls.push_back(call);
}

void OptServer(ExecThread& thread, ArgVector& args) {
  if (CheckHelpRequest(thread, OptServer, args, true)) return;
  if (args[0][0] == 's') {
    server_value = args[2];
  } else {
    PrintSetting(thread, "setopt", "server", server_value);
  }
}

const CommandRecord kClientRows[] = {
    {"_setopt_server", OptServer, 0, "Soap server", "Usage:\n  setopt server HOST:PORT\n"},
    {GroupMarker, nullptr, 0, "TEST CLIENT", nullptr},
    {"Echo", ClientEcho, 0, "Shadowed by the interpreter.", nullptr},
    {"oldping", ClientPing, CMDF_HIDDEN, nullptr, nullptr},
    {"p", ClientPing, CMDF_ESCAPES, nullptr, nullptr},
    {"ping", ClientPing, CMDF_ESCAPES, "Ping the test client.", "Usage: ping [<text>]"},
    {nullptr, nullptr, 0, nullptr, nullptr},
};

void TestPrompt(ExecThread&, std::string& prompt) { prompt = "test> "; }

class CommandTable : public ::testing::Test {
 protected:
  void SetUp() override {
    ClientBinding binding;
    binding.commands = kClientRows;
    binding.make_prompt = TestPrompt;
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

TEST_F(CommandTable, ShadowedClientRowIsReportedAndNeverReached) {
  EXPECT_EQ(shadow_report_, "Command 'echo' is shadowed by internal command of the same name\n");
  EXPECT_EQ(Run("@ECHO x"), "x \n");
  EXPECT_TRUE(client_calls.empty());
}

TEST_F(CommandTable, ClientRowsDispatchWithTheirFlagsAndAliases) {
  Run("@ping a\\tb");
  Run("@oldping c");
  Run("@-p a\\tb");
  Run("@+oldping a\\tb");
  EXPECT_EQ(client_calls, (std::vector<std::string>{"ping|a\tb", "ping|c", "ping|a\\tb", "ping|a\tb"}));
  EXPECT_EQ(Run("_setopt_server x"), "test> _setopt_server x\nUnrecognized command: _setopt_server\n");
}

TEST_F(CommandTable, HelpListsClientGroupsButNotHiddenOrOptionRows) {
  std::string summary = Run("@help");
  EXPECT_NE(summary.find("\nTEST CLIENT\nEcho           Shadowed by the interpreter.\n"
                         "p, ping        Ping the test client.\n"),
            std::string::npos)
      << summary;
  EXPECT_EQ(summary.find("oldping"), std::string::npos);
  EXPECT_EQ(summary.find("server"), std::string::npos);
  // The hidden alias still shows the help of its handler, without its name.
  EXPECT_EQ(Run("@oldping -?"),
            "Commands:  p, ping\nSummary:   Ping the test client.\n\nUsage: ping [<text>]\n");
  EXPECT_TRUE(client_calls.empty());
  EXPECT_EQ(Run("@=ping -?"), "");
  EXPECT_EQ(client_calls, (std::vector<std::string>{"ping|-?"}));
}

TEST_F(CommandTable, ClientOptionsJoinSetopt) {
  EXPECT_EQ(Run("@setopt server h:1"), "");
  EXPECT_EQ(server_value, "h:1");
  EXPECT_EQ(Run("@setopt SERVER"), "setopt server       h:1\n");
  std::string all = Run("@setopt");
  EXPECT_NE(all.find("setopt threadname   false\nsetopt server       h:1\n"), std::string::npos) << all;
  EXPECT_EQ(Run("@setopt server -?"),
            "Commands:  setopt server\nSummary:   Soap server\n\nUsage:\n  setopt server HOST:PORT\n");
  std::string help = Run("@setopt -?");
  EXPECT_NE(help.find("  threadname     Display the threadname with every output\n"
                      "  server         Soap server\n"),
            std::string::npos);
}

TEST_F(CommandTable, SaveWritesClientOptionsAndVariablesPrivately) {
  testing::TempDir dir;
  SetVariable("save_test_var", "two words");
  Run("@setopt server \"with blank\"");
  Run("@setopt -save saved.cfg");
  std::string saved = testing::ReadFile("saved.cfg");
  EXPECT_EQ(saved.rfind("@setopt console none\n@setopt utf8 true\n\nsetopt server       \"with blank\"\n", 0), 0u)
      << saved;
  EXPECT_NE(saved.find("setvar save_test_var \"two words\"\n"), std::string::npos);
  EXPECT_EQ(saved.find("\nsetopt console "), std::string::npos);  // interpreter options stay out
  struct stat st;
  ASSERT_EQ(stat("saved.cfg", &st), 0);
  EXPECT_EQ(st.st_mode & 0777, 0600u);

  // An existing, world-readable file is tightened too.
  dir.Write("open.cfg", "old");
  chmod("open.cfg", 0644);
  Run("@setopt -save open.cfg");
  ASSERT_EQ(stat("open.cfg", &st), 0);
  EXPECT_EQ(st.st_mode & 0777, 0600u);
}

}  // namespace
}  // namespace lexctl
