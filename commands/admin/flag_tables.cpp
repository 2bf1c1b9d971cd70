#include "commands/admin/flag_tables.h"

#include <strings.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdlib>

#include "shell/output.h"

namespace lexctl {
namespace {

const std::vector<FlagEntry> kTypeRows = {
    {0x1, "DIRECT"}, {0x2, "MEMORY"}, {0x4, "BRIDGE"}, {0x10, "HIDDEN"}};

const std::vector<FlagEntry> kSupportRows = {
    {0x1, "TRANSLATE"},
    {0x2, "LOOKUP"},
    {0x4, "PROPERTIES"},
    {0x8, "PROPERTIES_MODIFY"},
    {0x10, "DIC"},
    {0x20, "DIC_SELECT"},
    {0x40, "DIC_ADMIN"},
    {0x80, "PARSE"},
    {0x100, "DIC_TECH"},
    {0x200, "DIC_USER"},
    {0x400, "DIC_LEARN"},
    {0x800, "DIC_TECH_UPDATE"},
    {0x1000, "TRANSLATE_PHRASE"},
    {0x2000, "TRANSLATE_EQUIV"},
    {0x4000, "TRANSLATE_TRACK"},
    {0x8000, "TRANSLATE_DICINFO"},
    {0x10000, "TRANSLATE_ALTSENT"},
    {0x20000, "TRANSLATE_ALTWORD"},
    {0x40000, "TRANSLATE_POS"},
    // 0x80000 is left without a name; ALL keeps it clear.
    {0x100000, "TM_EXACT"},
    {0x200000, "TM_LEARN"},
    {0x400000, "TM_PATTERN"},
    {0x800000, "TM_FUZZY"},
    {0x1000000, "TM_KEYWORD"},
    {0x2000000, "TM_WILDCARD"},
    {0x4000000, "TM_PARTIAL_EXACT"},
    {0x8000000, "TM_PARTIAL_PATTERN"},
    {0x10000000, "TM_AUTO_PATTERN"},
    {kSupportAll, "ALL"},
};

const std::vector<FlagEntry> kApiRows = {
    {0x0, "NONE"},
    {0x1, "TEST_ECHO"},
    {0x2, "RECODE"},
    {0x4, "GET_ENGINE_INFO"},
    {0x8, "UPDATE_ENGINE_PROFILE"},
    {0x10, "SPLIT_SENTENCES"},
    {0x20, "TRANSLATE_TEXT"},
    {0x40, "TRANSLATE_TEXT_UPDATE"},
    {0x80, "TRANSLATE_HTML"},
    {0x100, "TRANSLATE_XML"},
    {0x200, "LOOKUP_FORMATTED"},
    {0x400, "CREATE_DICTIONARY"},
    {0x800, "UPDATE_DICTIONARY_INFO"},
    {0x1000, "COPY_DICTIONARY"},
    {0x2000, "DELETE_DICTIONARY"},
    {0x4000, "DICTIONARY_IMPORT"},
    {0x8000, "DICTIONARY_EXPORT"},
    {0x10000, "ADD_DICTIONARY_ENTRY"},
    {0x20000, "GET_DICTIONARY_ENTRY"},
    {0x40000, "DELETE_DICTIONARY_ENTRY"},
    {0x80000, "CHANGE_PASSWORD"},
    {0x100000, "CREATE_USER"},
    {0x200000, "GET_USER"},
    {0x400000, "UPDATE_USER"},
    {0x800000, "DELETE_USER"},
    {0x1000000, "GET_USER_LIST"},
    {0x2000000, "CHANGE_DICTIONARY_OWNER"},
    {0x4000000, "RUNAS"},
    {0x8000000, "CREATE_SESSION"},
    {0x10000000, "END_SESSION"},
    {0x20000000, "TRANSLATE_TEXT_SIMPLE"},
    {0x40000000, "TRANSLATE"},
    {kApiAll, "ALL"},
};

const std::vector<FlagEntry> kRewriteRows = {
    {0x1, "A_HREF"},           {0x2, "APPLET_CODEBASE"},    {0x4, "AREA_HREF"},
    {0x8, "BASE_HREF"},        {0x10, "BLOCKQUOTE_CITE"},   {0x20, "DEL_CITE"},
    {0x40, "FORM_ACTION"},     {0x80, "FRAME_SRC"},         {0x100, "HEAD_PROFILE"},
    {0x200, "IFRAME_SRC"},     {0x400, "IMG_SRC"},          {0x800, "IMG_USEMAP"},
    {0x1000, "INPUT_SRC"},     {0x2000, "INPUT_USEMAP"},    {0x4000, "INS_CITE"},
    {0x8000, "LINK_HREF"},     {0x10000, "OBJECT_CLASSID"}, {0x20000, "OBJECT_CODEBASE"},
    {0x40000, "OBJECT_DATA"},  {0x80000, "OBJECT_USEMAP"},  {0x100000, "Q_CITE"},
    {0x200000, "SCRIPT_SRC"},  {0x400000, "CSS_URL"},       {0x800000, "EMBED_SRC"},
    {0x1000000, "APPLET_CODE"}, {0x2000000, "BODY_BACKGROUND"}, {0x4000000, "A_HREF_BINARY"},
    {0x8000000, "META_REFRESH"},
};

// Character codes, not bits; kept as a table all the same.
const std::vector<FlagEntry> kTextTypeRows = {
    {'X', "FAILED"},           {'I', "IGNORE"},         {'S', "WHITESPACE"},
    {'B', "BULLET"},           {'M', "MACHINE"},        {'E', "TM_EXACT"},
    {'L', "TM_LEARN"},         {'P', "TM_PATTERN"},     {'F', "TM_FUZZY"},
    {'K', "TM_KEYWORD"},       {'W', "TM_WILDCARD"},    {'C', "TM_PARTIAL_EXACT"},
    {'A', "TM_PARTIAL_PATTERN"}, {'U', "TM_AUTO_PATTERN"},
};

const std::vector<FlagEntry> kDicTypeRows = {
    {0x1, "SYSTEM"}, {0x2, "TECHNICAL"},      {0x10, "USER"},
    {0x20, "LEARN"}, {0x100, "USER_SHARED"}, {0x200, "LEARN_SHARED"},
};

const std::vector<FlagEntry> kPropTypeRows = {
    {'B', "BOOLEAN"}, {'S', "STRING"}, {'R', "RANGE"}, {'C', "CHOICE"}, {'N', "NUMBER"},
};

const std::vector<Feature> kFeatures = {
    {"ECHO", "TestEcho"},
    {"GENG", "GetEngineInfo"},
    {"RECD", "Recode"},
    {"SPLT", "SplitSentences"},
    {"PROF", "UpdateEngineProfile"},
    {"TEXT", "TranslateText"},
    {"TUPD", "TranslateTextUpdate"},
    {"TXTS", "TranslateTextSimple"},
    {"HTML", "TranslateHtml"},
    {"TXML", "TranslateXml"},
    {"TRAN", "Translate"},
    {"LUPF", "LookupFormatted"},
    {"DCRE", "CreateDictionary"},
    {"DUPD", "UpdateDictionaryInfo"},
    {"DCPY", "CopyDictionary"},
    {"DDEL", "DeleteDictionary"},
    {"DIMP", "DictionaryImport"},
    {"DCHO", "ChangeDictionaryOwner"},
    {"DEXP", "DictionaryExport"},
    {"DEAD", "AddDictionaryEntry"},
    {"DEGT", "GetDictionaryEntry"},
    {"DEDE", "DeleteDictionaryEntry"},
    {"UPWD", "ChangePassword"},
    {"UCRE", "CreateUser"},
    {"UGTO", "GetUserOther"},
    {"UGTS", "GetUserSelf"},
    {"UUPO", "UpdateUserOther"},
    {"UUPS", "UpdateUserSelf"},
    {"UDEL", "DeleteUser"},
    {"ULST", "GetUserList"},
    {"CSES", "CreateSession"},
    {"ESES", "EndSession"},
    {"TMUL", "TranslateMulti"},
    {"URUN", "RunasOther"},
    {"SOAP", "SOAP API"},
    {"REST", "REST API"},
    {"GAPI", "GAPI API"},
    {"HEAL", "Health Check"},
    {"DLNG", "DetectLanguage"},
    {"TDOC", "Translate(Word)"},
    {"TXLS", "Translate(Excel)"},
    {"TPPT", "Translate(PowerPoint)"},
    {"TPDF", "Translate(PDF)"},
};

bool AllSet(int64_t mask, int64_t bits) { return (mask & bits) == bits; }

}  // namespace

const std::vector<FlagEntry>& FlagRows(FlagTable table) {
  switch (table) {
    case FlagTable::kType: return kTypeRows;
    case FlagTable::kSupport: return kSupportRows;
    case FlagTable::kRewrite: return kRewriteRows;
    case FlagTable::kTextType: return kTextTypeRows;
    case FlagTable::kDicType: return kDicTypeRows;
    case FlagTable::kPropType: return kPropTypeRows;
    case FlagTable::kApi: return kApiRows;
  }
  return kSupportRows;
}

int64_t FlagValue(const std::string& name, FlagTable table) {
  if (table == FlagTable::kApi && strcasecmp(name.c_str(), "all") == 0) return kApiAll;
  for (const FlagEntry& row : FlagRows(table)) {
    if (strcasecmp(row.name, name.c_str()) == 0) return row.value;
  }
  return -1;
}

const char* FlagName(int64_t value, FlagTable table) {
  for (const FlagEntry& row : FlagRows(table)) {
    if (row.value == value) return row.name;
  }
  return nullptr;
}

std::vector<std::string> FlagNames(int64_t mask, FlagTable table) {
  std::vector<std::string> names;
  for (const FlagEntry& row : FlagRows(table)) {
    if (table == FlagTable::kSupport && row.value == kSupportAll) continue;
    if (table == FlagTable::kApi && (row.value == 0 || row.value == kApiAll)) continue;
    if (AllSet(mask, row.value)) names.emplace_back(row.name);
  }
  return names;
}

FlagFold FoldFlagNames(const std::vector<std::string>& names, FlagTable table) {
  FlagFold fold;
  for (const std::string& word : names) {
    if (word.empty()) continue;
    bool clear = word[0] == '-' && word.size() > 1;
    int64_t value = FlagValue(clear ? word.substr(1) : word, table);
    if (value == -1) {
      fold.unknown.push_back(word);
    } else if (clear) {
      fold.value &= ~value;
    } else {
      fold.value |= value;
    }
  }
  return fold;
}

FlagFold FoldFlagList(const std::string& list, FlagTable table) {
  std::vector<std::string> words;
  size_t start = 0;
  while (start < list.size()) {
    size_t end = list.find_first_of(" \t,;|", start);
    if (end == std::string::npos) end = list.size();
    if (end > start) words.push_back(list.substr(start, end - start));
    start = end + 1;
  }
  return FoldFlagNames(words, table);
}

bool ParseFlagNumber(const std::string& text, int64_t& value) {
  if (text.empty() || !isdigit(static_cast<unsigned char>(text[0]))) return false;
  bool hex = text.size() > 1 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X');
  const char* digits = text.c_str() + (hex ? 2 : 0);
  if (!isxdigit(static_cast<unsigned char>(*digits))) return false;
  char* end = nullptr;
  errno = 0;
  // Hexadecimal covers all 64 bits; the sign bit is just another flag.
  int64_t parsed = hex ? static_cast<int64_t>(strtoull(digits, &end, 16)) : strtoll(digits, &end, 10);
  if (errno == ERANGE || *end != '\0') return false;
  value = parsed;
  return true;
}

bool ParseFlagArgument(const std::string& text, FlagTable table, int64_t& value) {
  if (!text.empty() && isdigit(static_cast<unsigned char>(text[0]))) {
    return ParseFlagNumber(text, value);
  }
  FlagFold fold = FoldFlagList(text, table);
  if (!fold.unknown.empty()) return false;
  value = fold.value;
  return true;
}

void PrintColumns(ExecThread& thread, const std::vector<std::string>& items,
                  const std::string& first_prefix, const std::string& next_prefix) {
  if (items.empty()) return;
  size_t widest = 0;
  for (const std::string& item : items) widest = std::max(widest, item.size());
  const size_t column = widest + 2;
  // The last column needs no gap after it.
  const size_t room = 78 > next_prefix.size() + widest ? 78 - next_prefix.size() - widest : 0;
  const size_t per_line = room / column + 1;
  std::string line = first_prefix;
  for (size_t i = 0; i < items.size(); ++i) {
    bool last_in_line = (i + 1) % per_line == 0 || i + 1 == items.size();
    line += items[i];
    if (!last_in_line) {
      line.append(column - items[i].size(), ' ');
      continue;
    }
    ThreadPrint(thread, "%s\n", line.c_str());
    line = next_prefix;
  }
}

void PrintTypeMask(ExecThread& thread, int64_t mask, const std::string& prefix) {
  ThreadPrint(thread, "%sType Flags:   0x%llx\n", prefix.c_str(), static_cast<unsigned long long>(mask));
  PrintColumns(thread, FlagNames(mask, FlagTable::kType), prefix + "    ", prefix + "    ");
}

void PrintSupportMask(ExecThread& thread, int64_t mask, const std::string& prefix) {
  const uint32_t v = static_cast<uint32_t>(mask & kSupportAll);
  if (v == 0) {
    ThreadPrint(thread, "%sSupport Flag: 0x%08x (NO ENGINE FEATURES)\n", prefix.c_str(), v);
  } else if (v >= kSupportAll || v == 0x1ff7f7ff) {
    // Lacking only DIC_TECH_UPDATE still counts as everything.
    ThreadPrint(thread, "%sSupport Flag: 0x%08x (ALL ENGINE FEATURES)\n", prefix.c_str(), v);
  } else {
    ThreadPrint(thread, "%sSupport Flag: 0x%08x\n", prefix.c_str(), v);
    PrintColumns(thread, FlagNames(v, FlagTable::kSupport), prefix + "    ", prefix + "    ");
  }
}

const std::vector<Feature>& Features() { return kFeatures; }

const char* FeatureDisplay(const std::string& code) {
  for (const Feature& row : kFeatures) {
    if (strcasecmp(row.code, code.c_str()) == 0) return row.display;
  }
  return nullptr;
}

}  // namespace lexctl
