// What the console completes and which lines stay out of the history file,
// over a client table of the test's own.
#include "shell/console_policy.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "shell/dispatch.h"

namespace lexctl {
namespace {

void Noop(ExecThread&, ArgVector&) {}
void Login(ExecThread&, ArgVector&) {}
void Convert(ExecThread&, ArgVector&) {}
void OptKey(ExecThread&, ArgVector&) {}
void OptHost(ExecThread&, ArgVector&) {}

const CommandRecord kClientRows[] = {
    {"_setopt_host", OptHost, 0, "Host", nullptr},
    {"_setopt_key", OptKey, CMDF_SECRET, "Key", nullptr},
    {GroupMarker, nullptr, 0, "TEST CLIENT", nullptr},
    {"cv", Convert, 0, nullptr, nullptr},
    {"convert", Convert, 0, "Convert a file.",
     "Usage: convert INFILE [-to ENCODING] [-outfile OUTFILE]\n\n    -to       The encoding.\n"
     "    -outfile  Write to OUTFILE (see -to).\n    -KEY      Not an option but a placeholder.\n"},
    {"login", Login, CMDF_SECRET, "Log in.", "Usage: login [-quiet] PASSWORD"},
    {"adduser", Noop, 0, "Add a user.", "Usage: adduser USERID [-secret PASS] [-name TEXT]"},
    {nullptr, nullptr, 0, nullptr, nullptr},
};
const char* const kFileWords[] = {"convert", "-outfile", nullptr};
const char* const kSecretOptions[] = {"-secret", nullptr};

class ConsolePolicy : public ::testing::Test {
 protected:
  void SetUp() override {
    ClientBinding binding;
    binding.commands = kClientRows;
    binding.file_words = kFileWords;
    binding.secret_options = kSecretOptions;
    RegisterClient(binding);
    BuildCommandTable();
  }
  void TearDown() override {
    FreeCommandTable();
    RegisterClient(ClientBinding{});
  }
};

using Words = std::vector<std::string>;

Completion::Kind KindAt(const std::string& before, const std::string& word) {
  return CompleteWord(before, word).kind;
}

TEST_F(ConsolePolicy, UsageTextNamesTheOptions) {
  EXPECT_EQ(UsageOptions(kClientRows[4].usage), (Words{"-to", "-outfile"}));
  EXPECT_EQ(UsageOptions("Usage: tee [-append] [<path>]"), (Words{"-append"}));
  EXPECT_EQ(UsageOptions("a|-b {-c|-d} (-e) user-defined -1 --"), (Words{"-b", "-c", "-d", "-e"}));
  EXPECT_EQ(UsageOptions(nullptr), Words{});
}

TEST_F(ConsolePolicy, CommandWordsAndHelp) {
  EXPECT_EQ(CompleteWord("", "conv").words, (Words{"convert"}));
  EXPECT_EQ(CompleteWord("@$ ", "LOG").words, (Words{"login"}));
  EXPECT_EQ(CompleteWord("help ", "con").words, (Words{"convert"}));
  EXPECT_EQ(CompleteWord("? ", "adduse").words, (Words{"adduser"}));
  EXPECT_EQ(KindAt("help convert ", ""), Completion::kNothing);
}

TEST_F(ConsolePolicy, OptionsOfTheCommandFromItsUsage) {
  EXPECT_EQ(CompleteWord("convert ", "-o").words, (Words{"-outfile"}));
  EXPECT_EQ(CompleteWord("cv x.txt ", "-").words, (Words{"-to", "-outfile"}));  // alias
  EXPECT_EQ(CompleteWord("adduser ", "").words, (Words{"-secret", "-name"}));
  EXPECT_EQ(CompleteWord("ADDUSER bob ", "-N").words, (Words{"-name"}));
  EXPECT_EQ(KindAt("adduser ", "bo"), Completion::kNothing);
  EXPECT_EQ(KindAt("nosuch ", "-"), Completion::kNothing);
}

TEST_F(ConsolePolicy, FileNamesAfterFileCommandsAndOptions) {
  EXPECT_EQ(KindAt("convert ", "da"), Completion::kFileNames);
  EXPECT_EQ(KindAt("adduser bob -OUTFILE ", ""), Completion::kFileNames);
  EXPECT_EQ(KindAt("adduser bob /outfile ", "x"), Completion::kFileNames);
  EXPECT_EQ(KindAt("adduser bob -outfile=", "x"), Completion::kFileNames);
  EXPECT_EQ(KindAt("adduser bob -name=", "x"), Completion::kNothing);
  EXPECT_EQ(KindAt("read ", ""), Completion::kFileNames);
  EXPECT_EQ(KindAt("r ", "sc"), Completion::kFileNames);
  EXPECT_EQ(KindAt("!ls ", "sc"), Completion::kFileNames);
  EXPECT_EQ(KindAt("shell cat ", ""), Completion::kFileNames);
}

TEST_F(ConsolePolicy, SetoptOptionsAndItsFiles) {
  EXPECT_EQ(CompleteWord("setopt ", "h").words, (Words{"host"}));
  EXPECT_EQ(CompleteWord("setopt ", "-s").words, (Words{"-save"}));
  EXPECT_EQ(KindAt("setopt -load ", ""), Completion::kFileNames);
  EXPECT_EQ(KindAt("setopt host ", ""), Completion::kNothing);
}

TEST_F(ConsolePolicy, LinesThatCarryASecret) {
  EXPECT_TRUE(CarriesSecret("login pw"));
  EXPECT_TRUE(CarriesSecret("  @$ LOGIN -quiet pw"));
  EXPECT_TRUE(CarriesSecret("@ login pw"));
  EXPECT_TRUE(CarriesSecret("setopt key s3cret"));
  EXPECT_TRUE(CarriesSecret("-SetOpt KEY \"s3 cret\""));
  EXPECT_TRUE(CarriesSecret("setopt -escaped \\x6bey s3cret"));
  EXPECT_TRUE(CarriesSecret("adduser bob -secret pw"));
  EXPECT_TRUE(CarriesSecret("adduser bob \"/SECRET=pw\""));
  EXPECT_TRUE(CarriesSecret("nosuch --secret pw"));

  EXPECT_FALSE(CarriesSecret("login"));  // no argument, no secret
  EXPECT_FALSE(CarriesSecret("setopt key"));
  EXPECT_FALSE(CarriesSecret("setopt host example.com"));
  EXPECT_FALSE(CarriesSecret("adduser bob -name secret"));
  EXPECT_FALSE(CarriesSecret("echo login pw"));
  EXPECT_FALSE(CarriesSecret(""));
}

}  // namespace
}  // namespace lexctl
