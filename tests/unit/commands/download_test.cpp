// What a wget download leaves: the saved header blocks, the content type of
// the last response, and the command line printed for it.
#include "commands/translate/download.h"

#include <gtest/gtest.h>

#include <string>

#include "commands/common/files.h"

namespace lexctl {
namespace {

TEST(SavedResponse, RedirectsLeaveOneBlockEachAndTheLastOneCounts) {
  const std::string saved =
      "HTTP/1.1 302 Found\r\nLocation: /next\r\nContent-Type: text/plain\r\n\r\n"
      "HTTP/1.1 301 Moved\r\nlocation: /page\r\n\r\n"
      "HTTP/1.1 200 OK\r\ncontent-type:  text/html; charset=Shift_JIS \r\n\r\n<p>body\r\n\r\n</p>";
  std::string type;
  size_t body = 0;
  ASSERT_TRUE(SplitSavedResponse(saved, type, body));
  EXPECT_EQ(type, "text/html; charset=Shift_JIS");
  EXPECT_EQ(saved.substr(body), "<p>body\r\n\r\n</p>");
}

TEST(SavedResponse, BodiesThatLookLikeHeadersStayBodies) {
  std::string type;
  size_t body = 0;
  // Not a redirect: what follows the block is the body, whatever it holds.
  std::string saved = "HTTP/1.1 200 OK\r\nContent-Type: text/plain\r\n\r\nHTTP/1.1 200 OK\r\n\r\nx";
  ASSERT_TRUE(SplitSavedResponse(saved, type, body));
  EXPECT_EQ(saved.substr(body), "HTTP/1.1 200 OK\r\n\r\nx");
  // A Location header on a final response does not make its body a block.
  saved = "HTTP/1.1 201 Created\r\nLocation: /new\r\n\r\n\r\n\r\n";
  ASSERT_TRUE(SplitSavedResponse(saved, type, body));
  EXPECT_EQ(type, "");
  EXPECT_EQ(saved.substr(body), "\r\n\r\n");
  // An empty body, and no header end at all.
  saved = "HTTP/1.1 200 OK\r\nContent-Type: a/b\r\n\r\n";
  ASSERT_TRUE(SplitSavedResponse(saved, type, body));
  EXPECT_EQ(body, saved.size());
  EXPECT_FALSE(SplitSavedResponse("HTTP/1.1 200 OK\r\nContent-Type: a/b\r\n", type, body));
  EXPECT_FALSE(SplitSavedResponse("", type, body));
}

TEST(SavedResponse, ContentTypeGivesCharsetAndExtension) {
  struct Case {
    const char* type;
    const char* charset;
    const char* extension;
  } cases[] = {
      {"application/xml; charset=Shift_JIS", "Shift_JIS", ".xml"},
      {"text/html", "", ".html"},  // html is tried before text
      {"application/xhtml+xml", "", ".html"},
      {"application/zip", "", ".zip"},
      {"text/plain;charset=UTF-8", "UTF-8", ".txt"},
      {"application/octet-stream; name=page.html", "", ".tmp"},  // only the media type counts
      {"", "", ".tmp"},
  };
  for (const Case& c : cases) {
    std::string charset, extension;
    CharsetFromContentType(c.type, charset, extension);
    EXPECT_EQ(charset, c.charset) << c.type;
    EXPECT_EQ(extension, c.extension) << c.type;
  }
}

TEST(Wget, CommandLineAndUrls) {
  EXPECT_EQ(WgetCommandLine("wget", false, "/tmp/wget-1", "http://h/p?a=1&b=2"),
            "wget --no-verbose --save-headers --no-proxy --output-document=\"/tmp/wget-1\" "
            "--user-agent=\"Mozilla/5.0 (Windows; U; Windows NT 5.1; en-US; rv:1.9.1.3) "
            "Gecko/20090824 Firefox/3.5.3\" \"http://h/p?a=1&b=2\"");
  EXPECT_NE(WgetCommandLine("/opt/wget", true, "w", "u")
                .find("/opt/wget --no-verbose --save-headers --proxy "),
            std::string::npos);
  EXPECT_TRUE(IsDownloadUrl("HTTP://host/"));
  EXPECT_TRUE(IsDownloadUrl("https://host/"));
  EXPECT_FALSE(IsDownloadUrl("http:/host"));
  EXPECT_FALSE(IsDownloadUrl("page.html"));
}

}  // namespace
}  // namespace lexctl
