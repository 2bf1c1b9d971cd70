// Flag tables (lookup, folding, arguments, masks without names), DID
// resolution, sizes and export file names.
#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <string>
#include <thread>
#include <vector>

#include "capture.h"
#include "client/did_list.h"
#include "commands/admin/flag_tables.h"
#include "commands/admin/import_export.h"
#include "shell/variables.h"

namespace lexctl {
namespace {

using Names = std::vector<std::string>;

TEST(FlagTables, EveryNameReadsBackInAnyCaseAndShowsInItsOwnMask) {
  for (FlagTable table : {FlagTable::kType, FlagTable::kSupport, FlagTable::kRewrite, FlagTable::kTextType,
                          FlagTable::kDicType, FlagTable::kPropType, FlagTable::kApi}) {
    bool characters = table == FlagTable::kTextType || table == FlagTable::kPropType;
    for (const FlagEntry& row : FlagRows(table)) {
      std::string lower = row.name;
      std::transform(lower.begin(), lower.end(), lower.begin(), ::tolower);
      EXPECT_EQ(FlagValue(lower, table), row.value) << row.name;
      EXPECT_STREQ(FlagName(row.value, table), row.name);
      bool special = (table == FlagTable::kSupport && row.value == kSupportAll) ||
                     (table == FlagTable::kApi && (row.value == 0 || row.value == kApiAll));
      Names shown = FlagNames(row.value, table);
      EXPECT_EQ(std::count(shown.begin(), shown.end(), row.name), special ? 0 : 1) << row.name;
      // Plain bit tables: a single flag's mask names just that flag.
      if (!special && !characters) {
        EXPECT_EQ(shown, Names{row.name});
      }
    }
    EXPECT_EQ(FlagValue("NO_SUCH_FLAG", table), -1);
  }
  EXPECT_EQ(FlagName('Z', FlagTable::kPropType), nullptr);
}

TEST(FlagTables, FoldingGoesInOrderAndKeepsUnknownWords) {
  // Every named support flag together is "ALL": the unnamed 0x80000 stays clear.
  EXPECT_EQ(FoldFlagNames(FlagNames(-1, FlagTable::kSupport), FlagTable::kSupport).value, kSupportAll);
  FlagFold fold = FoldFlagNames({"TRANSLATE", "DIC", "-dic", "bogus", "LOOKUP", "-TRANSLATE", "-nope"},
                                FlagTable::kSupport);
  EXPECT_EQ(fold.value, 0x2);
  EXPECT_EQ(fold.unknown, (Names{"bogus", "-nope"}));
  EXPECT_EQ(FoldFlagNames({"-DIC", "DIC"}, FlagTable::kSupport).value, 0x10);
  EXPECT_EQ(FoldFlagNames({"ALL", "-DIC_TECH_UPDATE"}, FlagTable::kSupport).value, 0x1ff7f7ff);
  EXPECT_EQ(FoldFlagList(" DIRECT,HIDDEN;MEMORY|BRIDGE\t-BRIDGE ", FlagTable::kType).value, 0x13);
  EXPECT_EQ(FoldFlagList("user learn_shared", FlagTable::kDicType).value, 0x210);

  int64_t v = 7;
  const std::pair<const char*, int64_t> good[] = {
      {"0X1f", 0x1f}, {"010", 10} /* decimal, not octal */, {"0xffffffffffffffff", -1}, {"direct,hidden", 0x11}};
  for (const auto& [text, value] : good) {
    EXPECT_TRUE(ParseFlagArgument(text, FlagTable::kType, v)) << text;
    EXPECT_EQ(v, value) << text;
  }
  for (const char* bad : {"12abc", "0x", "0xg", "DIRECT,BOGUS", "99999999999999999999"}) {
    EXPECT_FALSE(ParseFlagArgument(bad, FlagTable::kType, v)) << bad;
  }
  EXPECT_EQ(v, 0x11);
}

TEST(FlagTables, SupportMaskWithoutNamedFlags) {
  ExecThread thread("_main_", true);
  testing::Capture out(thread);
  PrintSupportMask(thread, 0, "  ");
  PrintSupportMask(thread, 0x80000);  // the unnamed bit alone is nothing
  PrintSupportMask(thread, 0xffffffffLL);
  EXPECT_EQ(out.Take(),
            "  Support Flag: 0x00000000 (NO ENGINE FEATURES)\n"
            "Support Flag: 0x00000000 (NO ENGINE FEATURES)\n"
            "Support Flag: 0x1ff7ffff (ALL ENGINE FEATURES)\n");
}

TEST(Dictionaries, DidResolutionFollowsTheCreatedListFromManyThreads) {
  // The list is process-wide: these checks work relative to what is there.
  size_t before = CreatedDids().size();
  for (const char* none : {"LAST-0", "LAST-", "user", "0"}) EXPECT_EQ(ResolveDid(none), 0) << none;
  EXPECT_EQ(ResolveDid("10042"), 10042);
  AddCreatedDid({"QZ-EJ", kApiCreateDictionary, 0x10, 501});
  AddCreatedDid({"QZ-JE", kApiCopyDictionary, 0x100, 502});
  EXPECT_EQ(SnapshotVariables()["LAST"], "502");
  for (const char* last : {"LAST", "last", "LASTING"}) EXPECT_EQ(ResolveDid(last), 502) << last;
  EXPECT_EQ(ResolveDid("LAST-1"), 501);
  EXPECT_EQ(ResolveDid(("LAST-" + std::to_string(before + 2)).c_str()), 0);
  CreatedDid found;
  ASSERT_TRUE(FindCreatedDid(502, found));
  EXPECT_EQ(found.eid + " " + std::to_string(found.type), "QZ-JE 256");
  EXPECT_FALSE(FindCreatedDid(999999, found));

  std::vector<std::thread> threads;
  for (int t = 0; t < 8; ++t) {
    threads.emplace_back([t] {
      for (int i = 0; i < 50; ++i) AddCreatedDid({"QZ-EJ", kApiCreateDictionary, 0x10, 20000 + t * 100 + i});
    });
  }
  for (std::thread& t : threads) t.join();
  std::vector<CreatedDid> list = CreatedDids();
  ASSERT_EQ(list.size(), before + 402);
  EXPECT_EQ(SnapshotVariables()["LAST"], std::to_string(list.back().did));
}

TEST(Dictionaries, SizesAndExportNames) {
  const std::pair<long long, const char*> sizes[] = {
      {0, "0 bytes"},           {1023, "1023 bytes"}, {1024, "1.00 KB"}, {1536, "1.50 KB"},
      {1 << 20, "1024.00 KB"} /* divided again only above 1024 */, {50LL << 20 | 1, "50.00 MB"},
      {3LL << 40, "3072.00 GB"} /* no unit beyond GB */};
  for (const auto& [bytes, text] : sizes) EXPECT_EQ(FormatSize(bytes), text) << bytes;
  EXPECT_EQ(ExportFileName("10001", "10001.native"), "10001.native");
  EXPECT_EQ(ExportFileName("out", "x.tmtext"), "out.tmtext");
  EXPECT_EQ(ExportFileName("out.NATIVE", "x.native"), "out.NATIVE");
  EXPECT_EQ(ExportFileName("out.txt", "x.native"), "out.txt.native");
  EXPECT_EQ(ExportFileName("out", "noextension"), "out");
  EXPECT_EQ(ExportFileName("out", "../../etc/x.y/passwd"), "out");  // only the leaf counts
  EXPECT_EQ(ExportFileName("out", ""), "out");
}

}  // namespace
}  // namespace lexctl
