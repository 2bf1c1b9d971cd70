// Flag-name lists folded into masks (NAME sets, -NAME clears, any of
// blank, tab, ",", ";" and "|" between), numbers, and the printers of the
// masks they give. Byte 0 picks the table.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "commands/admin/flag_tables.h"

namespace {

using namespace lexctl;

const FlagTable kTables[] = {FlagTable::kType,     FlagTable::kSupport,  FlagTable::kRewrite,
                             FlagTable::kTextType, FlagTable::kDicType,  FlagTable::kPropType,
                             FlagTable::kApi};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static ExecThread* thread = [] {
    auto* t = new ExecThread("fuzz", true);
    t->redirect = fopen("/dev/null", "w");
    return t;
  }();
  if (size == 0) return 0;
  FlagTable table = kTables[data[0] % std::size(kTables)];
  std::string list(reinterpret_cast<const char*>(data) + 1, size - 1);

  FlagFold fold = FoldFlagList(list, table);
  std::vector<std::string> names = FlagNames(fold.value, table);
  // A mask is named only by rows whose bits it holds.
  for (const std::string& name : names) {
    int64_t bits = FlagValue(name, table);
    if (bits == -1 || (bits & fold.value) != bits) abort();
  }
  int64_t value = 0;
  ParseFlagArgument(list, table, value);
  FlagName(value, table);
  PrintColumns(*thread, names, "  ", "    ");
  PrintTypeMask(*thread, value);
  PrintSupportMask(*thread, value);
  return 0;
}
