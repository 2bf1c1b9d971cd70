// Reading scripts (long lines, encodings, continuation at the end of a file)
// and interpreter threads (registry states, joins, stops).
#include <gtest/gtest.h>

#include <chrono>
#include <ctime>
#include <regex>
#include <string>
#include <thread>

#include "capture.h"
#include "shell/builtins.h"
#include "shell/dispatch.h"
#include "shell/script.h"
#include "shell/threads.h"
#include "shell/variables.h"

namespace lexctl {
namespace {

class Script : public ::testing::Test {
 protected:
  void SetUp() override {
    RegisterClient(ClientBinding{});
    BuildCommandTable();
    SetThreadsEnabled(true);
    SetMainThread(&main_);
  }
  void TearDown() override {
    JoinAllThreads();
    SetMainThread(nullptr);
    FreeCommandTable();
  }

  // Runs a script file on a fresh thread and returns what it printed.
  std::string RunScript(const std::string& content) {
    std::string path = dir_.Write("script.lex", content);
    ExecThread thread("_main_", true);
    testing::Capture capture(thread);
    EXPECT_TRUE(PushInputFile(thread, path.c_str()));
    thread.input_stack.clear();
    RunCommandLoop(thread);
    return capture.Take();
  }

  std::string Threads(ArgVector args) {
    CmdThreads(main_, args);
    return capture_.Take();
  }
  // Waits (bounded) until the listing shows what is expected.
  bool WaitForListing(const std::string& expected) {
    for (int i = 0; i < 3000; ++i) {
      if (Threads({"list"}) == expected) return true;
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return false;
  }

  testing::TempDir dir_;
  ExecThread main_{"_main_", true};
  testing::Capture capture_{main_};
};

TEST_F(Script, LongLinesEncodingsAndLineEnds) {
  std::string word(1 << 20, 'w');
  EXPECT_EQ(RunScript("@echo " + word + "\n@setvar big " + word + "\n@echo {{big}}{{big}}\n"),
            word + " \n" + word + word + " \n");
  // With a signature the file is UTF-8 whatever the locale says.
  EXPECT_EQ(RunScript("\xEF\xBB\xBF@echo caf\xC3\xA9\n"), "caf\xC3\xA9 \n");
  // Without one, bytes that the native encoding cannot read end the file.
  std::string out = RunScript("@echo first\n@echo caf\xE9\n@echo never\n");
#ifdef _WIN32
  // Windows-1252, Wine's code page in an English or C locale, reads every byte.
  EXPECT_EQ(out, "first \ncaf\xC3\xA9 \nnever \n");
#else
  EXPECT_EQ(out.rfind("first \nNative encoding error reading input file: ", 0), 0u) << out;
  EXPECT_EQ(out.find("never"), std::string::npos);
#endif
  // "setopt utf8" applies to the file being read from that point on.
  EXPECT_EQ(RunScript("@setopt utf8 true\n@echo caf\xE9\n"), "caf\xE9 \n");
  EXPECT_EQ(RunScript("@echo a \\\r\nb\r\n@echo c\\"), "a b \nc \n");
  EXPECT_EQ(RunScript("\n\n   \n\t\n"), "");
}

// What timers and stamps print agrees with the clock: the JUnit suite's time
// is the sum of its cases', and a command's stamps carry today's date.
TEST_F(Script, TimerSuiteTimeAndCommandStamps) {
  auto today = [] {
    time_t now = time(nullptr);
    struct tm local;
    localtime_r(&now, &local);
    char date[16];
    strftime(date, sizeof date, "%Y-%m-%d", &local);
    return std::string(date);
  };
  std::string before = today();
  std::string out = RunScript("@timer start a\n@timer lap a\n@timer start b\n@timer stop b\n"
                              "@setopt timestamp true\n@timer tellxml s\n");
  std::string after = today();
  std::smatch m;
  ASSERT_TRUE(std::regex_search(out, m, std::regex("<testsuite time='([0-9.]+)'"))) << out;
  double suite = std::stod(m[1]), cases = 0;
  std::regex main_case("class='main'[^>]* time='([0-9.]+)'");
  for (auto it = std::sregex_iterator(out.begin(), out.end(), main_case); it != std::sregex_iterator(); ++it) {
    cases += std::stod((*it)[1]);
  }
  EXPECT_NEAR(suite, cases, 0.0025) << out;
  ASSERT_TRUE(std::regex_search(out, m, std::regex("End:   (\\d{4}-\\d{2}-\\d{2}) "))) << out;
  EXPECT_TRUE(m[1] == before || m[1] == after) << out;
}

TEST_F(Script, ThreadsShareVariablesAndStayListedUntilJoined) {
  dir_.Write("self.lex", "tee self.out\nsetopt console\nthreads join self\nthreads joinall\n");
  EXPECT_EQ(Threads({"start", "self", "self.lex"}), "");
  EXPECT_TRUE(WaitForListing("  1  self         done\n"));
  // A new thread is in console mode none: its tee gets output but no echo.
  EXPECT_EQ(testing::ReadFile("self.out"),
            "setopt console      none\nCannot wait on self.\nCannot wait on self.\n");
  EXPECT_EQ(Threads({"join", "self"}), "");

  dir_.Write("count.lex",
             "proc begin bump\nsetvar shared_{{TNAME}}_{{UNIQ}} x\nproc end\nloop bump count 200\n");
  // Thread ids go on counting, so "3" is the name the third thread would get.
  for (const char* name : {"3", "", ""}) EXPECT_EQ(Threads({"start", name, "count.lex"}), "");
  EXPECT_TRUE(WaitForListing("  2  3            done\n  3  3-1          done\n  4  4            done\n"));
  EXPECT_EQ(Threads({"join", "3-1"}), "");
  EXPECT_EQ(Threads({"joinall"}), "");
  EXPECT_EQ(Threads({"list"}), "No current threads.\n");
  int count = 0;
  for (const auto& [name, value] : SnapshotVariables()) count += name.rfind("shared_", 0) == 0;
  EXPECT_EQ(count, 600);
}

TEST_F(Script, ExitNowStopsEveryThreadAndTheMainThread) {
  dir_.Write("forever.lex", "proc begin spin\nsleep 1\nproc end\nloop spin for 8:00:00\n");
  dir_.Write("quit.lex", "exit now\n");
  EXPECT_EQ(Threads({"start", "spinner", "forever.lex"}), "");
  EXPECT_EQ(Threads({"start", "quitter", "quit.lex"}), "");
  JoinAllThreads();  // returns only because the spinner was told to stop
  EXPECT_TRUE(main_.stop);
  EXPECT_EQ(Threads({"list"}), "No current threads.\n");
}

TEST_F(Script, DisabledThreads) {
  SetThreadsEnabled(false);
  EXPECT_EQ(Threads({"start", "x", "job.lex"}), "Threads are disabled.\n");
  EXPECT_EQ(Threads({}), "Threads are disabled.\n");
}

}  // namespace
}  // namespace lexctl
