#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

#include "commands/common/files.h"
#include "commands/translate/document_names.h"
#include "shell/platform.h"

namespace lexctl {
namespace {

TEST(DocumentNames, XmlOutputKeepsWhatPrecedesTheFirstXml) {
  EXPECT_EQ(XmlOutputName("a.xml"), "a.out.xml");
  EXPECT_EQ(XmlOutputName("a.xml.bak"), "a.out.xml");
  EXPECT_EQ(XmlOutputName("dir.xml/b.xml"), "dir.out.xml");
  EXPECT_EQ(XmlOutputName("a.dat"), "a.dat.out");
  EXPECT_EQ(XmlOutputName("A.XML"), "A.XML.out");
}

TEST(DocumentNames, OutputsAttachmentsAndInputTypes) {
  EXPECT_EQ(MultiOutputName("out/t.html", 2), "out/t.html.2");
  EXPECT_EQ(AttachmentFolder("t.html.2"), "t.html.2_files");
  // The server's name never leads out of the folder.
  EXPECT_EQ(AttachmentFileName("report.txt"), "report.txt");
  EXPECT_EQ(AttachmentFileName("../../etc/passwd"), "passwd");
  EXPECT_EQ(AttachmentFileName("c:\\temp\\x.png"), "x.png");
  for (const char* bad : {"", ".", "..", "a/..", "dir/"}) EXPECT_EQ(AttachmentFileName(bad), "") << bad;
  EXPECT_EQ(InputTypeOf("docs.v2/page.HTML"), "HTML");
  EXPECT_EQ(InputTypeOf("docs.v2/README"), "");
  EXPECT_EQ(InputTypeOf(".profile"), "");
}

// An empty payload (<data></data>) is a view without a pointer; the one
// writer of binary output writes an empty file from it and never hands the
// null pointer to fwrite (which the sanitizer build stops on).
TEST(BinaryOutput, EmptyPayloadWritesAnEmptyFile) {
  char folder[] = "/tmp/lexctl3-files-XXXXXX";
  ASSERT_NE(mkdtemp(folder), nullptr);
  std::string path = std::string(folder) + "/empty.bin";
  EXPECT_EQ(WriteWholeFile(path, {}, std::string_view()), WriteResult::kOk);
  struct stat info;
  ASSERT_EQ(stat(path.c_str(), &info), 0);
  EXPECT_EQ(info.st_size, 0);
  FILE* file = fopen(path.c_str(), "ab");
  ASSERT_NE(file, nullptr);
  EXPECT_TRUE(PutBytes(file, std::string_view()));
  EXPECT_TRUE(PutBytes(file, "ab"));
  fclose(file);
  ASSERT_EQ(stat(path.c_str(), &info), 0);
  EXPECT_EQ(info.st_size, 2);
  EXPECT_EQ(WriteWholeFile(std::string(folder) + "/no/such/x", {}, "x"), WriteResult::kOpenFailed);
  // An attachment folder that is there already will do; a file in its place will not.
  EXPECT_TRUE(MakeDirectory(folder));
  EXPECT_FALSE(MakeDirectory(path.c_str()));
  remove(path.c_str());
  rmdir(folder);
}

}  // namespace
}  // namespace lexctl
