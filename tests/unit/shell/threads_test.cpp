// Interpreter threads: registry states, joins and stops across threads.
#include <gtest/gtest.h>

#include <chrono>
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

class Threads : public ::testing::Test {
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

  std::string Threads_(ArgVector args) {
    CmdThreads(main_, args);
    return capture_.Take();
  }

  // Waits (bounded) until the listing shows what is expected.
  bool WaitForListing(const std::string& expected) {
    for (int i = 0; i < 3000; ++i) {
      if (Threads_({"list"}) == expected) return true;
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return false;
  }

  testing::TempDir dir_;
  ExecThread main_{"_main_", true};
  testing::Capture capture_{main_};
};

TEST_F(Threads, FinishedThreadStaysListedUntilJoined) {
  dir_.Write("job.lex", "setvar threads_test_console {{TNAME}}\n");
  EXPECT_EQ(Threads_({"start", "worker", "job.lex"}), "");
  EXPECT_TRUE(WaitForListing("  1  worker       done\n"));
  EXPECT_EQ(Threads_({"join", "worker"}), "");
  EXPECT_EQ(Threads_({"list"}), "No current threads.\n");
}

TEST_F(Threads, ThreadCannotJoinItself) {
  dir_.Write("self.lex", "tee self.out\nsetopt console\nthreads join self\nthreads joinall\n");
  EXPECT_EQ(Threads_({"start", "self", "self.lex"}), "");
  EXPECT_TRUE(WaitForListing("  1  self         done\n"));
  // A new thread is in console mode none: its tee gets output but no echo.
  EXPECT_EQ(testing::ReadFile("self.out"),
            "setopt console      none\nCannot wait on self.\nCannot wait on self.\n");
}

TEST_F(Threads, GeneratedNamesAvoidTakenOnes) {
  dir_.Write("quick.lex", "\n");
  // Thread ids start at 1 here, so "2" is the name the second thread would get.
  EXPECT_EQ(Threads_({"start", "2", "quick.lex"}), "");
  EXPECT_EQ(Threads_({"start", "", "quick.lex"}), "");
  EXPECT_EQ(Threads_({"start", "", "quick.lex"}), "");
  EXPECT_TRUE(WaitForListing("  1  2            done\n  2  2-1          done\n  3  3            done\n"));
}

TEST_F(Threads, ExitNowStopsEveryThreadAndTheMainThread) {
  dir_.Write("forever.lex", "proc begin spin\nsleep 1\nproc end\nloop spin for 8:00:00\n");
  dir_.Write("quit.lex", "exit now\n");
  EXPECT_EQ(Threads_({"start", "spinner", "forever.lex"}), "");
  EXPECT_EQ(Threads_({"start", "quitter", "quit.lex"}), "");
  JoinAllThreads();  // returns only because the spinner was told to stop
  EXPECT_TRUE(main_.stop);
  EXPECT_EQ(Threads_({"list"}), "No current threads.\n");
}

TEST_F(Threads, DisabledThreads) {
  SetThreadsEnabled(false);
  EXPECT_EQ(Threads_({"start", "x", "job.lex"}), "Threads are disabled.\n");
  EXPECT_EQ(Threads_({}), "Threads are disabled.\n");
  ArgVector args{"getopt", "threads", ""};
  OptThreads(main_, args);
  EXPECT_EQ(capture_.Take(), "setopt threads      false\n");
}

TEST_F(Threads, SharedVariablesFromManyThreads) {
  dir_.Write("count.lex",
             "proc begin bump\nsetvar shared_{{TNAME}}_{{UNIQ}} x\nsetvar shared_last {{TNAME}}\n"
             "proc end\nloop bump count 200\n");
  for (const char* name : {"a", "b", "c", "d"}) Threads_({"start", name, "count.lex"});
  Threads_({"joinall"});
  auto vars = SnapshotVariables();
  int count = 0;
  for (const auto& [name, value] : vars) count += name.rfind("shared_", 0) == 0 && name != "shared_last";
  EXPECT_EQ(count, 800);
}

}  // namespace
}  // namespace lexctl
