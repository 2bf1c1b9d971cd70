#include <gtest/gtest.h>

#include "commands/translate/document_names.h"

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

}  // namespace
}  // namespace lexctl
