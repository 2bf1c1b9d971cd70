#include "shell/option_scanner.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace lexctl {
namespace {

const OptionDef kTable[] = {
    {0, "-select", kOptRequired}, {1, "-strict", kOptNoArgument}, {1, "-rmax", kOptRequired},
    {3, "-cache", kOptOptional},  {4, "--script", kOptRequired},  {5, "-?", kOptNoArgument},
    {-1, nullptr, 0},
};

struct Found {
  int error, id;
  std::string text, argument;
  bool operator==(const Found&) const = default;
};

std::vector<Found> Scan(ArgVector args, ArgVector* positional = nullptr) {
  OptionScanner scanner(kTable, args);
  std::vector<Found> found;
  while (scanner.Next()) {
    found.push_back({scanner.error(), scanner.id(), scanner.text(),
                     scanner.argument() ? scanner.argument() : "<none>"});
  }
  if (positional) *positional = scanner.positional();
  return found;
}

TEST(OptionScanner, DashSlashAndEqualsForms) {
  ArgVector rest;
  auto found = Scan({"-STRICT", "/rmax", "500", "-select=a b", "word", "/?", "--script=f.txt"}, &rest);
  EXPECT_EQ(found, (std::vector<Found>{{0, 1, "-STRICT", "<none>"},
                                       {0, 1, "/rmax", "500"},
                                       {0, 0, "-select=a b", "a b"},
                                       {0, 5, "/?", "<none>"},
                                       {0, 4, "--script=f.txt", "f.txt"}}));
  ASSERT_EQ(rest.size(), 1u);
  EXPECT_STREQ(rest[0], "word");
}

TEST(OptionScanner, PositionalWordsKeepTheirOrder) {
  ArgVector rest;
  Scan({"one", "-strict", "two", "-", "/", "three"}, &rest);
  std::vector<std::string> words(rest.begin(), rest.end());
  EXPECT_EQ(words, (std::vector<std::string>{"one", "two", "-", "/", "three"}));
}

TEST(OptionScanner, Errors) {
  EXPECT_EQ(Scan({"-nosuch"}), (std::vector<Found>{{kOptUnknown, -1, "-nosuch", "<none>"}}));
  EXPECT_EQ(Scan({"-rmax"}), (std::vector<Found>{{kOptMissingArgument, 1, "-rmax", "<none>"}}));
  EXPECT_EQ(Scan({"-strict=1"}),
            (std::vector<Found>{{kOptUnexpectedArgument, 1, "-strict=1", "<none>"}}));
  // "//x" and "/-x" are not options written with a slash.
  ArgVector rest;
  EXPECT_TRUE(Scan({"/-strict"}, &rest).empty());
  EXPECT_EQ(rest.size(), 1u);
  EXPECT_EQ(Scan({"--strict"})[0].error, kOptUnknown);
}

TEST(OptionScanner, OptionalArgumentOnlyAfterEquals) {
  ArgVector rest;
  auto found = Scan({"-cache", "next", "-cache=v"}, &rest);
  EXPECT_EQ(found, (std::vector<Found>{{0, 3, "-cache", "<none>"}, {0, 3, "-cache=v", "v"}}));
  ASSERT_EQ(rest.size(), 1u);
  EXPECT_STREQ(rest[0], "next");
}

}  // namespace
}  // namespace lexctl
