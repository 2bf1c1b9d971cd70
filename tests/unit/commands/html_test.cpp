// URL rewrite rules and the naming of translated pages.
#include "commands/translate/html.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

namespace lexctl {
namespace {

TEST(RewriteTags, ListsOfNames) {
  unsigned tags = 0;
  std::string bad;
  for (const char* all : {"ALL", "all", "aLl"}) {
    ASSERT_TRUE(ParseRewriteTags(all, tags, bad)) << all;
    EXPECT_EQ(tags, 0x0FFFFFFFu);
  }
  ASSERT_TRUE(ParseRewriteTags("IMG_SRC,A_HREF", tags, bad));
  EXPECT_EQ(tags, 0x401u);
  ASSERT_TRUE(ParseRewriteTags(" meta_refresh: A_HREF_BINARY ,,A_HREF", tags, bad));
  EXPECT_EQ(tags, 0xC000001u);
  EXPECT_EQ(RewriteTagNames(tags), "A_HREF, A_HREF_BINARY, META_REFRESH");
  EXPECT_EQ(RewriteTagNames(kAllRewriteTags), "ALL");
}

TEST(RewriteTags, WhatCannotBeRead) {
  unsigned tags = 0;
  std::string bad;
  EXPECT_FALSE(ParseRewriteTags("IMG_SRC,IMG,A_HREF", tags, bad));
  EXPECT_EQ(bad, "IMG,A_HREF");
  EXPECT_FALSE(ParseRewriteTags("ALL,IMG_SRC", tags, bad));  // ALL stands alone
  EXPECT_EQ(bad, "ALL,IMG_SRC");
  EXPECT_FALSE(ParseRewriteTags(" , ", tags, bad));
  EXPECT_FALSE(ParseRewriteTags("", tags, bad));
}

TEST(RewriteTags, HelpListsEveryTag) {
  const char* usage = kHtmlCommandRows[0].usage;
  const char* list = strstr(usage, "Valid URL rewrite tags:\n");
  ASSERT_NE(list, nullptr);
  std::string names(list + strlen("Valid URL rewrite tags:\n"));
  ASSERT_EQ(names.substr(names.size() - 2), "\n\n");  // ends with an empty line
  for (char& c : names) {
    if (c == '\n') c = ' ';
  }
  unsigned tags = 0;
  std::string bad;
  ASSERT_TRUE(ParseRewriteTags(names, tags, bad)) << bad;
  EXPECT_EQ(tags, kAllRewriteTags);
}

TEST(HtmlOutput, NamedFromTheInput) {
  EXPECT_EQ(HtmlOutputName("page.in.html"), "page.out.html");
  EXPECT_EQ(HtmlOutputName("page.html"), "page.out.html");
  EXPECT_EQ(HtmlOutputName("page.htm"), "page.htm.out.html");
  EXPECT_EQ(HtmlOutputName("/tmp/wget-1.tmp"), "/tmp/wget-1.tmp.out.html");
  // Only the file's own name is renamed, never a folder on its path.
  EXPECT_EQ(HtmlOutputName("site.html/index.htm"), "site.html/index.htm.out.html");
  EXPECT_EQ(HtmlOutputName("a.in.html/b.in.html"), "a.in.html/b.out.html");
}

}  // namespace
}  // namespace lexctl
