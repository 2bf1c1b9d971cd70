// DID resolution, the size formatter, export file names and daddtm's entry
// building.
#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

#include "client/did_list.h"
#include "commands/admin/entries.h"
#include "commands/admin/flag_tables.h"
#include "commands/admin/import_export.h"
#include "shell/variables.h"

namespace lexctl {
namespace {

TEST(Dictionaries, DidResolutionFollowsTheCreatedList) {
  // The list is process-wide: these checks work relative to what is there.
  size_t before = CreatedDids().size();
  EXPECT_EQ(ResolveDid("LAST-0"), 0);
  EXPECT_EQ(ResolveDid("LAST-"), 0);
  EXPECT_EQ(ResolveDid("user"), 0);
  EXPECT_EQ(ResolveDid("0"), 0);
  EXPECT_EQ(ResolveDid("10042"), 10042);
  AddCreatedDid({"QZ-EJ", kApiCreateDictionary, 0x10, 501});
  AddCreatedDid({"QZ-JE", kApiCopyDictionary, 0x100, 502});
  EXPECT_EQ(SnapshotVariables()["LAST"], "502");
  EXPECT_EQ(ResolveDid("LAST"), 502);
  EXPECT_EQ(ResolveDid("last"), 502);
  EXPECT_EQ(ResolveDid("LASTING"), 502);
  EXPECT_EQ(ResolveDid("LAST-1"), 501);
  std::string beyond = "LAST-" + std::to_string(before + 2);
  EXPECT_EQ(ResolveDid(beyond.c_str()), 0);
  CreatedDid found;
  ASSERT_TRUE(FindCreatedDid(502, found));
  EXPECT_EQ(found.eid, "QZ-JE");
  EXPECT_EQ(found.type, 0x100);
  EXPECT_FALSE(FindCreatedDid(999999, found));
}

TEST(Dictionaries, ThreadsAddingAtOnceLoseNoRecord) {
  size_t before = CreatedDids().size();
  std::vector<std::thread> threads;
  for (int t = 0; t < 8; ++t) {
    threads.emplace_back([t] {
      for (int i = 0; i < 50; ++i) AddCreatedDid({"QZ-EJ", kApiCreateDictionary, 0x10, 20000 + t * 100 + i});
    });
  }
  for (std::thread& t : threads) t.join();
  std::vector<CreatedDid> list = CreatedDids();
  ASSERT_EQ(list.size(), before + 400);
  EXPECT_EQ(SnapshotVariables()["LAST"], std::to_string(list.back().did));
}

TEST(Dictionaries, SizesInBytesThenUnits) {
  EXPECT_EQ(FormatSize(0), "0 bytes");
  EXPECT_EQ(FormatSize(1000), "1000 bytes");
  EXPECT_EQ(FormatSize(1023), "1023 bytes");
  EXPECT_EQ(FormatSize(1024), "1.00 KB");
  EXPECT_EQ(FormatSize(1536), "1.50 KB");
  EXPECT_EQ(FormatSize(1024 * 1024), "1024.00 KB");  // divided again only when above 1024
  EXPECT_EQ(FormatSize(50LL << 20 | 1), "50.00 MB");
  EXPECT_EQ(FormatSize(3LL << 40), "3072.00 GB");  // no unit beyond GB
}

TEST(Dictionaries, ExportNamesTakeTheServersExtension) {
  EXPECT_EQ(ExportFileName("10001", "10001.native"), "10001.native");
  EXPECT_EQ(ExportFileName("out", "x.tmtext"), "out.tmtext");
  EXPECT_EQ(ExportFileName("out.NATIVE", "x.native"), "out.NATIVE");
  EXPECT_EQ(ExportFileName("out.txt", "x.native"), "out.txt.native");
  EXPECT_EQ(ExportFileName("out", "noextension"), "out");
  EXPECT_EQ(ExportFileName("out", "../../etc/x.y/passwd"), "out");  // only the leaf counts
  EXPECT_EQ(ExportFileName("out", ""), "out");
}

TEST(Dictionaries, MemoryEntriesAreBuiltInCommandLineOrder) {
  TmEntryBuilder builder;
  builder.NewEntry();  // before any sentence: ignored
  ASSERT_TRUE(builder.AddSentence("en=Hello"));
  ASSERT_TRUE(builder.AddSentence("ja=#a=b"));
  builder.current().weight = 5;
  builder.NewEntry();
  ASSERT_TRUE(builder.AddSentence("de="));
  EXPECT_FALSE(builder.AddSentence("no language"));
  std::vector<TmEntry> entries;
  ASSERT_TRUE(builder.Finish(entries));
  ASSERT_EQ(entries.size(), 2u);
  ASSERT_EQ(entries[0].sentences.size(), 2u);
  EXPECT_EQ(entries[0].sentences[0].lang, "en");
  EXPECT_TRUE(entries[0].sentences[0].key);
  EXPECT_EQ(entries[0].sentences[1].text, "a=b");  // split at the first "="
  EXPECT_FALSE(entries[0].sentences[1].key);
  EXPECT_EQ(entries[0].weight, 5);
  EXPECT_FALSE(entries[1].weight);
  EXPECT_EQ(entries[1].sentences[0].text, "");

  TmEntryBuilder trailing;
  ASSERT_TRUE(trailing.AddSentence("en=x"));
  trailing.NewEntry();
  trailing.current().author = "me";
  EXPECT_FALSE(trailing.Finish(entries));  // the second entry has no sentence
  EXPECT_FALSE(TmEntryBuilder().Finish(entries));
}

}  // namespace
}  // namespace lexctl
