// Reading scripts: long lines, encodings, continuation at the end of a file.
#include <gtest/gtest.h>

#include <string>

#include "capture.h"
#include "shell/dispatch.h"
#include "shell/platform.h"
#include "shell/script.h"
#include "shell/variables.h"

namespace lexctl {
namespace {

class Script : public ::testing::Test {
 protected:
  void SetUp() override {
    RegisterClient(ClientBinding{});
    BuildCommandTable();
  }
  void TearDown() override { FreeCommandTable(); }

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

  testing::TempDir dir_;
};

TEST_F(Script, MegabyteLinesAndValuesGrowTheBuffer) {
  std::string word(1 << 20, 'w');
  std::string out = RunScript("@echo " + word + "\n@setvar big " + word + "\n@echo {{big}}{{big}}\n");
  EXPECT_EQ(out, word + " \n" + word + word + " \n");
}

TEST_F(Script, Utf8SignatureAndNativeEncoding) {
  // With a signature the file is UTF-8 whatever the locale says.
  EXPECT_EQ(RunScript("\xEF\xBB\xBF@echo caf\xC3\xA9\n"), "caf\xC3\xA9 \n");
  // Without one, bytes that the native encoding cannot read end the file.
  std::string out = RunScript("@echo first\n@echo caf\xE9\n@echo never\n");
  EXPECT_EQ(out.rfind("first \nNative encoding error reading input file: ", 0), 0u) << out;
  EXPECT_EQ(out.find("never"), std::string::npos);
  // "setopt utf8" applies to the file being read from that point on.
  EXPECT_EQ(RunScript("@setopt utf8 true\n@echo caf\xE9\n"), "caf\xE9 \n");
}

TEST_F(Script, ContinuationAtEndOfFileAndCarriageReturns) {
  EXPECT_EQ(RunScript("@echo a \\\r\nb\r\n@echo c\\"), "a b \nc \n");
}

TEST_F(Script, EmptyAndBlankFiles) {
  EXPECT_EQ(RunScript(""), "");
  EXPECT_EQ(RunScript("\n\n   \n\t\n"), "");
}

TEST_F(Script, MissingFileIsReportedAndNothingChanges) {
  ExecThread thread("_main_", true);
  ::testing::internal::CaptureStderr();
  EXPECT_FALSE(PushInputFile(thread, "no/such/file.lex"));
  EXPECT_EQ(::testing::internal::GetCapturedStderr(), "Error opening file 'no/such/file.lex'\n");
  EXPECT_TRUE(thread.input.IsConsole());
  EXPECT_TRUE(thread.input_stack.empty());
}

TEST_F(Script, SettingsFileGivesTheConsoleModeBackWhenItEnds) {
  dir_.Write("nested.lex", "@setopt console output\n");
  std::string path = dir_.Write("saved.cfg", "@setopt console none\n@read nested.lex\n@echo shown\n");
  ExecThread thread("_main_", true);
  testing::Capture capture(thread);
  thread.console_mode = kConsolePrompt;
  ASSERT_TRUE(ReadSettingsFile(thread, path.c_str()));
  thread.input_stack.clear();
  std::string after = dir_.Write("after.lex", "@setopt console\n");
  // The settings file runs over the script that follows it, as at start-up.
  thread.input_stack.push_back(InputSource{OpenFile(after.c_str(), "rb"), after});
  RunCommandLoop(thread);
  // The nested file's own change lasts until the settings file ends.
  EXPECT_EQ(capture.Take(), "shown \nsetopt console      prompt\n");
  EXPECT_EQ(thread.console_mode, kConsolePrompt);
}

}  // namespace
}  // namespace lexctl
