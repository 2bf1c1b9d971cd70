// The flag-name tables (engine types and support, API functions, HTML
// rewrite tags, text types, dictionary and property types), the feature
// codes, and the readers and printers of masks that several commands share.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "shell/exec_thread.h"

namespace lexctl {

/// The seven flag tables.
enum class FlagTable { kType, kSupport, kRewrite, kTextType, kDicType, kPropType, kApi };

/// One row of a flag table.
struct FlagEntry {
  int64_t value;
  const char* name;
};

/// Every support flag, and the mask the engine printer calls "all".
inline constexpr int64_t kSupportAll = 0x1ff7ffff;
/// Every API function.
inline constexpr int64_t kApiAll = 0x7fffffff;
/// API flags the created-DID list records.
inline constexpr int64_t kApiCreateDictionary = 0x400;
inline constexpr int64_t kApiCopyDictionary = 0x1000;

/// The rows of a table in their order, the special ALL rows included.
const std::vector<FlagEntry>& FlagRows(FlagTable table);

/// Value of a name (any case) in the table, or -1 (all ones) when unknown.
/// "all" (any case) is 0x7fffffff in the API table.
int64_t FlagValue(const std::string& name, FlagTable table);

/// Name of the row with exactly this value, or nullptr (for printing a type
/// or character code: dictionary types, property types, text types).
const char* FlagName(int64_t value, FlagTable table);

/// Names of the rows whose bits are all set in mask, in table order. The
/// support table never lists ALL; the API table lists neither NONE nor ALL.
std::vector<std::string> FlagNames(int64_t mask, FlagTable table);

/// A list of names folded into one value.
struct FlagFold {
  int64_t value = 0;
  std::vector<std::string> unknown;  ///< the words not recognised, as written
};

/// Folds names in order from 0: NAME ORs its value in, -NAME clears its bits.
FlagFold FoldFlagNames(const std::vector<std::string>& names, FlagTable table);

/// Splits a name list at blanks, tabs, ",", ";" and "|" and folds it.
FlagFold FoldFlagList(const std::string& list, FlagTable table);

/// Reads a number ("0x" hexadecimal, else decimal) into value; false when the
/// text does not begin with a digit or has anything after the number.
bool ParseFlagNumber(const std::string& text, int64_t& value);

/// A filter or option argument: a number when it begins with a digit, else a
/// list of names; sets value. False (value untouched) when a name is unknown
/// or the number is malformed.
bool ParseFlagArgument(const std::string& text, FlagTable table, int64_t& value);

/// Prints items in as many columns as fit in 78 characters; the first line
/// starts with first_prefix, the others with next_prefix.
void PrintColumns(ExecThread& thread, const std::vector<std::string>& items,
                  const std::string& first_prefix, const std::string& next_prefix);

/// "Type Flags:   0x.." and the type names in columns, all lines after prefix.
void PrintTypeMask(ExecThread& thread, int64_t mask, const std::string& prefix = "");

/// "Support Flag: 0x........" with (NO/ALL ENGINE FEATURES) or the names.
void PrintSupportMask(ExecThread& thread, int64_t mask, const std::string& prefix = "");

/// One row of the feature table.
struct Feature {
  const char* code;
  const char* display;
};

/// The 43 feature codes with their display names, in search order.
const std::vector<Feature>& Features();

/// The display name of a code (any case), or nullptr.
const char* FeatureDisplay(const std::string& code);

}  // namespace lexctl
