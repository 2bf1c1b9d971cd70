// Flag tables: name lookup, masks to names and back, and the mask printers.
#include "commands/admin/flag_tables.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <set>

#include "capture.h"

namespace lexctl {
namespace {

using Names = std::vector<std::string>;

const FlagTable kAllTables[] = {FlagTable::kType,    FlagTable::kSupport, FlagTable::kRewrite,
                                FlagTable::kTextType, FlagTable::kDicType, FlagTable::kPropType,
                                FlagTable::kApi};

bool IsCharacterTable(FlagTable t) { return t == FlagTable::kTextType || t == FlagTable::kPropType; }

TEST(FlagTables, EveryNameReadsBackInAnyCaseAndShowsInItsOwnMask) {
  for (size_t t = 0; t < 7; ++t) {
    FlagTable table = kAllTables[t];
    const auto& rows = FlagRows(table);
    std::set<std::string> names;
    for (const FlagEntry& row : rows) {
      EXPECT_TRUE(names.insert(row.name).second) << row.name;
      std::string lower = row.name;
      std::transform(lower.begin(), lower.end(), lower.begin(), ::tolower);
      EXPECT_EQ(FlagValue(lower, table), row.value) << row.name;
      EXPECT_STREQ(FlagName(row.value, table), row.name);
      bool special = (table == FlagTable::kSupport && row.value == kSupportAll) ||
                     (table == FlagTable::kApi && (row.value == 0 || row.value == kApiAll));
      Names shown = FlagNames(row.value, table);
      EXPECT_EQ(std::count(shown.begin(), shown.end(), row.name), special ? 0 : 1) << row.name;
      // Plain bit tables: a single flag's mask names just that flag.
      if (!special && !IsCharacterTable(table)) {
        EXPECT_EQ(shown, Names{row.name});
      }
    }
    EXPECT_EQ(FlagValue("NO_SUCH_FLAG", table), -1);
  }
}

TEST(FlagTables, SpecialRowsOfSupportAndApi) {
  Names support = FlagNames(-1, FlagTable::kSupport);
  EXPECT_EQ(support.size(), 28u);
  EXPECT_EQ(FoldFlagNames(support, FlagTable::kSupport).value, kSupportAll);  // 0x80000 stays clear
  EXPECT_EQ(FlagValue("ALL", FlagTable::kSupport), kSupportAll);

  EXPECT_EQ(FlagValue("All", FlagTable::kApi), kApiAll);
  Names api = FlagNames(kApiAll, FlagTable::kApi);
  EXPECT_EQ(api.size(), 31u);
  EXPECT_EQ(api.front(), "TEST_ECHO");
  EXPECT_EQ(api.back(), "TRANSLATE");
  EXPECT_TRUE(FlagNames(0, FlagTable::kApi).empty());
  EXPECT_EQ(FlagNames(0x1400, FlagTable::kApi), (Names{"CREATE_DICTIONARY", "COPY_DICTIONARY"}));
}

TEST(FlagTables, CharacterCodesOrLikeBits) {
  FlagFold fold = FoldFlagNames({"MACHINE", "TM_EXACT"}, FlagTable::kTextType);
  EXPECT_EQ(fold.value, 0x4d);
  // Every code whose bits lie inside 'M' is listed, as for a plain table.
  EXPECT_EQ(FlagNames(0x4d, FlagTable::kTextType),
            (Names{"IGNORE", "MACHINE", "TM_EXACT", "TM_LEARN", "TM_PARTIAL_PATTERN"}));
  EXPECT_STREQ(FlagName('C', FlagTable::kPropType), "CHOICE");
  EXPECT_EQ(FlagName('Z', FlagTable::kPropType), nullptr);
}

TEST(FlagTables, FoldingGoesInOrderAndKeepsUnknownWords) {
  FlagFold fold = FoldFlagNames({"TRANSLATE", "DIC", "-dic", "bogus", "LOOKUP", "-TRANSLATE", "-nope"},
                                FlagTable::kSupport);
  EXPECT_EQ(fold.value, 0x2);
  EXPECT_EQ(fold.unknown, (Names{"bogus", "-nope"}));
  EXPECT_EQ(FoldFlagNames({"-DIC", "DIC"}, FlagTable::kSupport).value, 0x10);
  EXPECT_EQ(FoldFlagNames({"ALL", "-DIC_TECH_UPDATE"}, FlagTable::kSupport).value, 0x1ff7f7ff);

  EXPECT_EQ(FoldFlagList(" DIRECT,HIDDEN;MEMORY|BRIDGE\t-BRIDGE ", FlagTable::kType).value, 0x13);
  EXPECT_EQ(FoldFlagList("user learn_shared", FlagTable::kDicType).value, 0x210);
}

TEST(FlagTables, ArgumentsAreNumbersOrNameLists) {
  int64_t v = 7;
  EXPECT_TRUE(ParseFlagArgument("0X1f", FlagTable::kType, v));
  EXPECT_EQ(v, 0x1f);
  EXPECT_TRUE(ParseFlagArgument("010", FlagTable::kType, v));
  EXPECT_EQ(v, 10);  // decimal, not octal
  EXPECT_TRUE(ParseFlagArgument("0xffffffffffffffff", FlagTable::kApi, v));
  EXPECT_EQ(v, -1);
  EXPECT_TRUE(ParseFlagArgument("direct,hidden", FlagTable::kType, v));
  EXPECT_EQ(v, 0x11);
  v = 7;
  for (const char* bad : {"12abc", "0x", "0xg", "DIRECT,BOGUS", "99999999999999999999"}) {
    EXPECT_FALSE(ParseFlagArgument(bad, FlagTable::kType, v)) << bad;
  }
  EXPECT_EQ(v, 7);
}

TEST(FlagTables, MaskPrinters) {
  ExecThread thread("_main_", true);
  testing::Capture out(thread);
  PrintSupportMask(thread, 0, "  ");
  PrintSupportMask(thread, 0x1ff7f7ff);
  PrintSupportMask(thread, 0xffffffffLL);
  PrintSupportMask(thread, 0x80000);  // the unnamed bit alone is nothing
  EXPECT_EQ(out.Take(),
            "  Support Flag: 0x00000000 (NO ENGINE FEATURES)\n"
            "Support Flag: 0x1ff7f7ff (ALL ENGINE FEATURES)\n"
            "Support Flag: 0x1ff7ffff (ALL ENGINE FEATURES)\n"
            "Support Flag: 0x00000000 (NO ENGINE FEATURES)\n");
  PrintSupportMask(thread, 0x10000013, "> ");
  EXPECT_EQ(out.Take(),
            "> Support Flag: 0x10000013\n"
            ">     TRANSLATE        LOOKUP           DIC              TM_AUTO_PATTERN\n");
  PrintTypeMask(thread, 0x15);
  EXPECT_EQ(out.Take(), "Type Flags:   0x15\n    DIRECT  BRIDGE  HIDDEN\n");
  PrintColumns(thread, {"a", "bb", "c", "d", "e", "f", "g", "h", "i", "j", "k", "l", "m", "n",
                        "o", "p", "q", "r", "s", "t", "u", "v", "w", "x", "y", "z", "0"},
               "Words: ", "       ");
  EXPECT_EQ(out.Take(),
            "Words: a   bb  c   d   e   f   g   h   i   j   k   l   m   n   o   p   q   r\n"
            "       s   t   u   v   w   x   y   z   0\n");
}

TEST(FlagTables, Features) {
  ASSERT_EQ(Features().size(), 43u);
  std::set<std::string> codes;
  for (const Feature& f : Features()) {
    EXPECT_EQ(strlen(f.code), 4u);
    EXPECT_TRUE(codes.insert(f.code).second) << f.code;
  }
  EXPECT_STREQ(FeatureDisplay("tppt"), "Translate(PowerPoint)");
  EXPECT_STREQ(FeatureDisplay("SOAP"), "SOAP API");
  EXPECT_EQ(FeatureDisplay("xyz"), nullptr);
}

}  // namespace
}  // namespace lexctl
