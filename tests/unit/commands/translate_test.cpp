// The pure pieces of the translation commands: output and attachment names,
// binary output, URL rewrite rules, saved wget responses, source blocks and
// tfile's escapes, line ranges, batches and dictionary rows.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdio>
#include <cstring>
#include <sstream>
#include <string>
#include <string_view>

#include "capture.h"
#include "commands/common/files.h"
#include "commands/translate/document_names.h"
#include "commands/translate/download.h"
#include "commands/translate/html.h"
#include "commands/translate/input.h"
#include "commands/translate/tfile_batch.h"
#include "shell/platform.h"

namespace lexctl {
namespace {

using Strings = std::vector<std::string>;

TEST(FileNames, OutputsAttachmentsAndInputTypes) {
  const std::pair<std::string, std::string> names[] = {
      {HtmlOutputName("page.html"), "page.out.html"},
      {HtmlOutputName("page.htm"), "page.htm.out.html"},
      // Only the file's own name is renamed, never a folder on its path.
      {HtmlOutputName("site.html/index.htm"), "site.html/index.htm.out.html"},
      {HtmlOutputName("a.in.html/b.in.html"), "a.in.html/b.out.html"},
      {XmlOutputName("a.xml.bak"), "a.out.xml"},
      {XmlOutputName("dir.xml/b.xml"), "dir.out.xml"},
      {XmlOutputName("A.XML"), "A.XML.out"},
      // The server's name never leads out of the folder.
      {AttachmentFileName("report.txt"), "report.txt"},
      {AttachmentFileName("../../etc/passwd"), "passwd"},
      {AttachmentFileName("c:\\temp\\x.png"), "x.png"},
      {InputTypeOf("docs.v2/page.HTML"), "HTML"},
      {InputTypeOf("docs.v2/README"), ""},
      {InputTypeOf(".profile"), ""},
  };
  for (const auto& [got, expected] : names) EXPECT_EQ(got, expected);
  for (const char* bad : {"", ".", "..", "a/..", "dir/"}) EXPECT_EQ(AttachmentFileName(bad), "") << bad;
}

// An empty payload (<data></data>) is a view without a pointer; the one
// writer of binary output writes an empty file from it and never hands the
// null pointer to fwrite (which the sanitizer build stops on).
TEST(FileNames, EmptyPayloadWritesAnEmptyFile) {
  testing::TempDir dir;
  struct stat info;
  EXPECT_EQ(WriteWholeFile("empty.bin", {}, std::string_view()), WriteResult::kOk);
  FILE* file = fopen("empty.bin", "ab");
  ASSERT_NE(file, nullptr);
  EXPECT_TRUE(PutBytes(file, std::string_view()));
  fclose(file);
  ASSERT_EQ(stat("empty.bin", &info), 0);
  EXPECT_EQ(info.st_size, 0);
  EXPECT_EQ(WriteWholeFile("no/such/x", {}, "x"), WriteResult::kOpenFailed);
  // An attachment folder that is there already will do; a file in its place will not.
  EXPECT_TRUE(MakeDirectory("."));
  EXPECT_FALSE(MakeDirectory("empty.bin"));
}

TEST(RewriteTags, ListsOfNamesAndTheHelpText) {
  unsigned tags = 0;
  std::string bad;
  ASSERT_TRUE(ParseRewriteTags(" meta_refresh: A_HREF_BINARY ,,A_HREF", tags, bad));
  EXPECT_EQ(RewriteTagNames(tags), "A_HREF, A_HREF_BINARY, META_REFRESH");
  EXPECT_EQ(RewriteTagNames(kAllRewriteTags), "ALL");
  EXPECT_FALSE(ParseRewriteTags("ALL,IMG_SRC", tags, bad));  // ALL stands alone
  EXPECT_EQ(bad, "ALL,IMG_SRC");
  EXPECT_FALSE(ParseRewriteTags(" , ", tags, bad));
  // The help lists every tag, and ends with an empty line.
  const char* list = strstr(kHtmlCommandRows[0].usage, "Valid URL rewrite tags:\n");
  ASSERT_NE(list, nullptr);
  std::string names = list + strlen("Valid URL rewrite tags:\n");
  ASSERT_EQ(names.substr(names.size() - 2), "\n\n");
  for (char& c : names) c = c == '\n' ? ' ' : c;
  ASSERT_TRUE(ParseRewriteTags(names, tags, bad)) << bad;
  EXPECT_EQ(tags, kAllRewriteTags);
}

TEST(SavedResponse, RedirectsLeaveOneBlockEachAndTheLastOneCounts) {
  const struct {
    const char* saved;
    const char* type;
    const char* body;  // null: no header end, no body
  } cases[] = {
      {"HTTP/1.1 302 Found\r\nLocation: /next\r\nContent-Type: text/plain\r\n\r\n"
       "HTTP/1.1 301 Moved\r\nlocation: /page\r\n\r\n"
       "HTTP/1.1 200 OK\r\ncontent-type:  text/html; charset=Shift_JIS \r\n\r\n<p>body\r\n\r\n</p>",
       "text/html; charset=Shift_JIS", "<p>body\r\n\r\n</p>"},
      // Not a redirect: what follows the block is the body, whatever it holds.
      {"HTTP/1.1 200 OK\r\nContent-Type: a/b\r\n\r\nHTTP/1.1 200 OK\r\n\r\nx", "a/b", "HTTP/1.1 200 OK\r\n\r\nx"},
      // A Location header on a final response does not make its body a block.
      {"HTTP/1.1 201 Created\r\nLocation: /new\r\n\r\n\r\n\r\n", "", "\r\n\r\n"},
      {"HTTP/1.1 200 OK\r\nContent-Type: a/b\r\n\r\n", "a/b", ""},
      {"HTTP/1.1 200 OK\r\nContent-Type: a/b\r\n", "", nullptr},
      {"", "", nullptr},
  };
  for (const auto& c : cases) {
    std::string type;
    size_t body = 0;
    std::string got = SplitSavedResponse(c.saved, type, body) ? type + "|" + std::string(c.saved).substr(body) : "-";
    EXPECT_EQ(got, c.body ? std::string(c.type) + "|" + c.body : "-") << c.saved;
  }
  const char* types[][3] = {
      {"application/xml; charset=Shift_JIS", "Shift_JIS", ".xml"},
      {"text/html", "", ".html"},  // html is tried before text
      {"application/xhtml+xml", "", ".html"},
      {"application/zip", "", ".zip"},
      {"application/octet-stream; name=page.html", "", ".tmp"},  // only the media type counts
  };
  for (const auto& t : types) {
    std::string charset, extension;
    CharsetFromContentType(t[0], charset, extension);
    EXPECT_EQ(charset + " " + extension, std::string(t[1]) + " " + t[2]) << t[0];
  }
  EXPECT_TRUE(IsDownloadUrl("HTTP://host/") && IsDownloadUrl("https://host/"));
  EXPECT_FALSE(IsDownloadUrl("http:/host") || IsDownloadUrl("page.html"));
}

TEST(SourceBlock, LanguageAndMarkersBecomeSpansInCharacters) {
  const struct {
    const char* argument;
    const char* lang;  // null: no language prefix
    const char* text;
    const char* track;
    const char* phrase;
  } cases[] = {
      {"abcdefg=x", "abcdefg", "x", "", ""},  // at most seven characters
      {"abcdefgh=x", nullptr, "abcdefgh=x", "", ""},
      {"=x=y", "", "x=y", "", ""},
      // IDs ascending whatever their order in the text; "é" is one character.
      {"\xC3\xA9 @@7x@@7 @@2yy@@2 ##3/5/z##3 ##0w##0", nullptr, "\xC3\xA9 x yy z w", "4 2;2 1;", "0 9 1;5 7 1;"},
      // An unclosed span runs to the end; "/x/" is not a type and stays text.
      {"ab##1/x/cd", nullptr, "ab/x/cd", "", "0 2 5;"},
  };
  for (const auto& c : cases) {
    ParsedBlock b;
    ASSERT_TRUE(ParseSourceBlock(nullptr, c.argument, b)) << c.argument;
    EXPECT_EQ(b.lang.value_or("<none>"), c.lang ? c.lang : "<none>") << c.argument;
    EXPECT_EQ(b.text + "|" + b.track + "|" + b.phrase, std::string(c.text) + "|" + c.track + "|" + c.phrase);
  }
  ExecThread thread("t", false);
  testing::Capture out(thread);
  ParsedBlock b;
  EXPECT_FALSE(ParseSourceBlock(&thread, "end@@", b));
  EXPECT_EQ(out.Take(), "ERROR: Data marker (@@) is missing ID\n\n");
  EXPECT_EQ(SplitSetword("a=b;;"), (Strings{"a=b", ""}));  // one trailing semicolon dropped
}

}  // namespace

namespace tfile {
namespace {

TEST(Tfile, EscapesLineRangesAndOutputNames) {
  EXPECT_EQ(DecodeEscapes("a\\nb\\rc\\\\d\\qe\\"), "a\nb\rc\\dqe\\");
  EXPECT_EQ(EncodeEscapes("a\nb\rc\\d"), "a\\nb\\rc\\\\d");
  std::string odd = "x\\\\n\r\n\\";
  EXPECT_EQ(DecodeEscapes(EncodeEscapes(odd)), odd);
  unsigned a = 0, b = 0;
  EXPECT_TRUE(ParseLineRange("3-7", a, b));
  EXPECT_EQ(std::to_string(a) + "-" + std::to_string(b), "3-7");
  EXPECT_TRUE(ParseLineRange("4-4", a, b));
  for (const char* bad : {"7-3", "5", "5-", "x-3", "0-2", ""}) EXPECT_FALSE(ParseLineRange(bad, a, b)) << bad;
  EXPECT_EQ(OutputName("in/a.b.csv", "org", "", ""), "in/a.b.org.txt");
  EXPECT_EQ(OutputName("in.d/README", "dic", "v2", ""), "in.d/README.dic.v2.txt");
  EXPECT_EQ(OutputName("in/.hidden", "txn", "", "out/"), "out/.hidden.txn.txt");
  EXPECT_EQ(OutputName("in/notes.txt", "txn", "FOO", "out"), std::string("out") + kPathSeparator + "notes.txn.FOO.txt");
}

std::string Describe(const Batch& b) {
  std::string s = std::to_string(b.first_sent) + "-" + std::to_string(b.last_sent) + ":";
  for (const Line& l : b.lines) s += " " + std::to_string(l.number) + (l.send ? "" : "e");
  return s;
}

std::vector<std::string> Batches(const std::string& input, const Selection& sel) {
  std::istringstream in(input);
  Batcher batcher(in, sel);
  std::vector<std::string> out;
  Batch b;
  while (batcher.Next(b)) out.push_back(Describe(b));
  return out;
}

TEST(TfileBatcher, BatchesCountOnlySentLinesInTheRange) {
  Selection sel;
  sel.blocks = 2;
  // Empty lines ride along with the batch they fall in; an empty tail is
  // a batch with nothing to send.
  EXPECT_EQ(Batches("a\n\nb\nc\nd\n\n", sel),
            (std::vector<std::string>{"1-3: 1 2e 3", "4-5: 4 5", "0-0: 6e"}));
  EXPECT_EQ(Batches("", sel), std::vector<std::string>{});
  std::string ten;
  for (int i = 1; i <= 10; ++i) ten += "l" + std::to_string(i) + "\n";
  sel.skip = 1;
  sel.blocks = 3;
  EXPECT_EQ(Batches(ten, sel), (std::vector<std::string>{"1-5: 1 3 5", "7-9: 7 9"}));
  sel.first = 4;
  sel.last = 8;
  sel.skip = 2;
  EXPECT_EQ(Batches(ten, sel), (std::vector<std::string>{"4-7: 4 7"}));
  sel.first = 12;
  sel.last = 20;
  EXPECT_EQ(Batches(ten, sel), std::vector<std::string>{});
}

TEST(TfileBatcher, LineEndsSignatureAndEscapes) {
  Selection sel;
  sel.escape = true;
  std::istringstream in("\xEF\xBB\xBFone\\ntwo\r\nlast");
  Batcher batcher(in, sel);
  Batch b;
  ASSERT_TRUE(batcher.Next(b));
  ASSERT_EQ(b.lines.size(), 2u);
  EXPECT_EQ(b.lines[0].text, "one\ntwo");
  EXPECT_EQ(b.lines[0].end, "\r\n");
  EXPECT_EQ(b.lines[1].text, "last");
  EXPECT_EQ(b.lines[1].end, "");
  EXPECT_FALSE(batcher.Next(b));
}

TEST(TfileDictionaryRows, SpansCountCharacters) {
  std::string out;
  // "größe" is five characters of seven bytes.
  EXPECT_TRUE(AppendDictionaryRows(out, 3, "die größe x", "0 3 7; 4 5 0;10 1 7;", -1, false));
  EXPECT_EQ(out, "     3      0      7 die\n     3      4      0 größe\n     3     10      7 x\n");
  out.clear();
  EXPECT_TRUE(AppendDictionaryRows(out, 1, "a\nb", "0 3 0;", 0, true));
  EXPECT_EQ(out, "     1      0      0 a\\nb\n");
  out.clear();
  EXPECT_TRUE(AppendDictionaryRows(out, 1, "ab cd", "0 2 5;3 2 0;", 5, false));
  EXPECT_EQ(out, "     1      0      5 ab\n");
  for (const char* bad : {"0 2;", "0 9 1;", "a b c;", "0 1 2 3;", "-1 1 0;"}) {
    EXPECT_FALSE(AppendDictionaryRows(out, 1, "ab cd", bad, -1, false)) << bad;
  }
}

}  // namespace
}  // namespace tfile
}  // namespace lexctl
