#include "commands/translate/printers.h"

#include <cstdio>
#include <cstdlib>
#include <string_view>
#include <vector>

#include "commands/common/wrap.h"
#include "shell/output.h"
#include "soapH.h"

namespace lexctl {
namespace {

constexpr char kNext[] = "     : ";

struct KindName {
  char code;
  const char* name;
};
// Kinds the server uses for parts and sentences.
constexpr KindName kKindNames[] = {
    {'B', "Bracketed"},          {'E', "Memory Exact Match"}, {'F', "Memory Fuzzy Match"},
    {'I', "Not Translated"},     {'M', "Machine Translation"}, {'P', "Phrase"},
    {'S', "White Space"},        {'T', "Tag"},                 {'X', "Excluded"},
};

const std::string& Or(const std::string* text) {
  static const std::string empty;
  return text ? *text : empty;
}

// "a b;c d;" as groups of numbers; a group that is not `want` integers is
// kept empty so that its place still counts.
std::vector<std::vector<long>> Groups(const std::string& text, size_t want) {
  std::vector<std::vector<long>> groups;
  size_t from = 0;
  while (from < text.size()) {
    size_t semi = text.find(';', from);
    std::string group = text.substr(from, semi == std::string::npos ? semi : semi - from);
    from = semi == std::string::npos ? text.size() : semi + 1;
    if (group.find_first_not_of(" \t") == std::string::npos) continue;
    std::vector<long> numbers;
    const char* at = group.c_str();
    char* end;
    for (;;) {
      long n = strtol(at, &end, 10);
      if (end == at) break;
      numbers.push_back(n);
      at = end;
    }
    bool whole = *at == '\0' || std::string_view(at).find_first_not_of(" \t") == std::string::npos;
    groups.push_back(whole && numbers.size() == want ? numbers : std::vector<long>());
  }
  return groups;
}

// "START LENGTH" of a part; -1 -1 when it is missing or malformed.
void Location(const std::string* loc, long& start, long& length) {
  start = length = -1;
  if (!loc) return;
  auto groups = Groups(*loc, 2);
  if (groups.size() == 1 && !groups[0].empty()) {
    start = groups[0][0];
    length = groups[0][1];
  }
}

std::string SpanLine(const char* label, const std::vector<long>& span, std::string_view text) {
  char line[128];
  snprintf(line, sizeof line, "%s start %3ld length %3ld text ]", label, span[0], span[1]);
  return std::string(line) + std::string(CharSpan(text, span[0], span[1])) + "[\n";
}

void PrintAltWords(ExecThread& thread, const nv__StringArray* words, const char* indent) {
  if (!words || words->item.empty()) return;
  ThreadPrint(thread, "%s  Alternate Words:\n", indent);
  const std::string continuation(46, ' ');
  for (const std::string& word : words->item) {
    // Wide enough that no number a server sends overflows the scan.
    long long group, number, did;
    int used = 0;
    if (sscanf(word.c_str(), "%lld %lld %lld %n", &group, &number, &did, &used) != 3 || used == 0) {
      ThreadPrint(thread, "%s    invalid alternate word: %s\n", indent, word.c_str());
      continue;
    }
    char head[128];
    snprintf(head, sizeof head, "%s    group:%3lld word:%3lld did:%6lld text: ", indent, group, number, did);
    PrintWrapped(thread, std::string_view(word).substr(used), head, continuation);
  }
}

void PrintSection(ExecThread& thread, const char* title, const std::vector<const std::string*>& texts) {
  bool any = false;
  for (const std::string* text : texts) any = any || (text && !text->empty());
  if (!any) return;
  ThreadPrint(thread, "%s\n", title);
  for (const std::string* text : texts) {
    if (text && !text->empty()) PrintWrapped(thread, *text, "  ", "  ");
  }
}

struct BlockTexts {
  std::string original;
  std::string translation;
  bool built = false;
};

void PrintPartHead(ExecThread& thread, const nv__TranslationPart& part) {
  long start, length;
  Location(part.loc, start, length);
  ThreadPrint(thread, " %s (%ld, %ld) (%s)\n", PartKindName(part.type), start, length,
              Or(part.lang).c_str());
}

std::string_view PartOriginal(const nv__TranslationPart& part, const std::string& original) {
  long start, length;
  Location(part.loc, start, length);
  return CharSpan(original, start, length);
}

void PrintEnginePart(ExecThread& thread, const nv__TranslationPartEngine& part,
                     const BlockTexts& texts) {
  PrintPartHead(thread, part);
  if (part.error) ThreadPrint(thread, "  err: %s\n", part.error->c_str());
  std::string_view org = PartOriginal(part, texts.original);
  if (part.type && !part.type->empty() && (*part.type)[0] == 'S') {
    ThreadPrint(thread, "  org: ]%.*s[\n", static_cast<int>(org.size()), org.data());
    ThreadPrint(thread, "  txn: ]%s[\n", Or(part.text).c_str());
  } else {
    PrintWrapped(thread, org, "  org: ", kNext);
    PrintWrapped(thread, Or(part.text), "  txn: ", kNext);
  }
  if (part.equiv) PrintEquiv(thread, *part.equiv, texts.original, texts.translation, "  ");
  PrintAltWords(thread, part.altword, "");
}

void PrintMemoryPart(ExecThread& thread, const nv__TranslationPartMemory& part,
                     const BlockTexts& texts) {
  PrintPartHead(thread, part);
  PrintWrapped(thread, PartOriginal(part, texts.original), "  org: ", kNext);
  PrintWrapped(thread, Or(part.text), "  txn: ", kNext);
  if (part.rate) ThreadPrint(thread, "Rate:  %d\n", *part.rate);
  if (part.entry) ThreadPrint(thread, "Entry: %s\n", part.entry->c_str());
  if (part.error) ThreadPrint(thread, "Translation Error: %s\n", part.error->c_str());
  if (part.equiv) PrintEquiv(thread, *part.equiv, texts.original, texts.translation, "");
  PrintSection(thread, "Patterns:", {part.pattern});
  PrintSection(thread, "Keywords:", {part.keyword});
  PrintSection(thread, "Differences:", {part.diff});
}

void PrintPart(ExecThread& thread, const nv__TranslationPart* part, const BlockTexts& texts) {
  if (auto* engine = dynamic_cast<const nv__TranslationPartEngine*>(part)) {
    PrintEnginePart(thread, *engine, texts);
  } else if (auto* memory = dynamic_cast<const nv__TranslationPartMemory*>(part)) {
    PrintMemoryPart(thread, *memory, texts);
  } else {
    ThreadPrint(thread, "   INVALID PART\n");
  }
}

bool SameRun(const nv__TranslationPartMemory& a, const nv__TranslationPartMemory& b) {
  return Or(a.type) == Or(b.type) && Or(a.entry) == Or(b.entry);
}

// Memory parts that share their type and entry are one result.
void PrintMemoryRun(ExecThread& thread, const std::vector<const nv__TranslationPartMemory*>& run,
                    const BlockTexts& texts) {
  ThreadPrint(thread, "Results:\n");
  long first_start, first_length, last_start, last_length;
  Location(run.front()->loc, first_start, first_length);
  Location(run.back()->loc, last_start, last_length);
  std::string_view org;
  if (first_start >= 0 && last_start >= first_start && last_length >= 0) {
    org = CharSpan(texts.original, first_start, last_start + last_length - first_start);
  }
  PrintWrapped(thread, org, "Original: ", "        : ");
  for (const nv__TranslationPartMemory* part : run) {
    PrintPartHead(thread, *part);
    PrintWrapped(thread, Or(part->text), "  txn: ", kNext);
    if (part->error) ThreadPrint(thread, "Translation Error: %s\n", part->error->c_str());
  }
  if (run.front()->rate) ThreadPrint(thread, "Rate:     %d\n", *run.front()->rate);
  if (run.front()->entry) ThreadPrint(thread, "Entry:    %s\n", run.front()->entry->c_str());
  for (const nv__TranslationPartMemory* part : run) {
    if (part->equiv) PrintEquiv(thread, *part->equiv, texts.original, texts.translation, "");
  }
  std::vector<const std::string*> patterns, keywords, diffs;
  for (const nv__TranslationPartMemory* part : run) {
    patterns.push_back(part->pattern);
    keywords.push_back(part->keyword);
    diffs.push_back(part->diff);
  }
  PrintSection(thread, "Patterns:", patterns);
  PrintSection(thread, "Keywords:", keywords);
  PrintSection(thread, "Differences:", diffs);
}

void PrintMemoryLayout(ExecThread& thread, const nv__TranslationBlock& block,
                       const BlockTexts& texts) {
  PrintWrapped(thread, texts.original, "  org: ", kNext);
  ThreadPrint(thread, "\n");
  const auto& parts = block.parts->item;
  for (size_t i = 0; i < parts.size();) {
    auto* memory = dynamic_cast<const nv__TranslationPartMemory*>(parts[i]);
    if (!memory) {
      PrintPart(thread, parts[i++], texts);
      continue;
    }
    std::vector<const nv__TranslationPartMemory*> run{memory};
    for (++i; i < parts.size(); ++i) {
      auto* next = dynamic_cast<const nv__TranslationPartMemory*>(parts[i]);
      if (!next || !SameRun(*memory, *next)) break;
      run.push_back(next);
    }
    PrintMemoryRun(thread, run, texts);
  }
}

void PrintPhraseInfo(ExecThread& thread, const nv__SourceBlock& request,
                     const nv__TranslationBlock& block, const BlockTexts& texts) {
  auto org = Groups(*request.phrase, 3);
  std::vector<std::vector<long>> pat;
  if (request.pattern && request.pattern->phrase) pat = Groups(*request.pattern->phrase, 3);
  // The translation's phrases come in the parts that hold them, in order.
  std::string txn_phrases;
  if (block.parts) {
    for (const nv__TranslationPart* part : block.parts->item) {
      auto* engine = dynamic_cast<const nv__TranslationPartEngine*>(part);
      if (engine && engine->phrase) txn_phrases += *engine->phrase;
    }
  }
  auto txn = Groups(txn_phrases, 3);
  ThreadPrint(thread, " Phrase Info:\n");
  auto line = [&](const char* label, const std::vector<std::vector<long>>& spans, size_t i,
                  const std::string& text) {
    if (i >= spans.size()) {
      ThreadPrint(thread, "  %s: missing\n", label);
    } else if (spans[i].empty()) {
      ThreadPrint(thread, "  %s: invalid phrase format\n", label);
    } else {
      std::string_view part = CharSpan(text, spans[i][1], spans[i][2]);
      ThreadPrint(thread, "  %s: type %ld start %3ld length %3ld text ]%.*s[\n", label, spans[i][0],
                  spans[i][1], spans[i][2], static_cast<int>(part.size()), part.data());
    }
  };
  for (size_t i = 0; i < org.size(); ++i) {
    line("org", org, i, texts.original);
    if (request.pattern) line("pat", pat, i, Or(request.pattern->text));
    line("txn", txn, i, texts.translation);
  }
}

// "%d %d" per span, blank-separated.
std::string SpanList(const std::vector<std::pair<long, long>>& spans) {
  std::string out;
  char item[48];
  for (const auto& [start, length] : spans) {
    snprintf(item, sizeof item, "%s%ld %ld", out.empty() ? "" : ", ", start, length);
    out += item;
  }
  return out;
}

// text with span N (from 1) between "<N>" and "</N>"; spans may not nest.
std::string Marked(const std::string& text, const std::vector<std::pair<long, long>>& spans) {
  size_t chars = CharCount(text);
  std::vector<std::string> before(chars + 1), after(chars + 1);
  for (size_t i = 0; i < spans.size(); ++i) {
    auto [start, length] = spans[i];
    if (start < 0 || length < 0 || static_cast<size_t>(start + length) > chars) continue;
    before[start] += "<" + std::to_string(i + 1) + ">";
    after[start + length] = "</" + std::to_string(i + 1) + ">" + after[start + length];
  }
  std::string out;
  for (size_t i = 0; i <= chars; ++i) {
    out += after[i];
    out += before[i];
    if (i < chars) out += CharSpan(text, static_cast<long>(i), 1);
  }
  return out;
}

std::vector<std::pair<long, long>> Pairs(const std::string* text) {
  std::vector<std::pair<long, long>> spans;
  if (!text) return spans;
  for (const auto& group : Groups(*text, 2)) {
    spans.emplace_back(group.empty() ? -1 : group[0], group.empty() ? -1 : group[1]);
  }
  return spans;
}

void PrintTestBlock(ExecThread& thread, int index, const nv__SourceBlock* request,
                    const nv__TranslationBlock& block, const BlockTexts& texts) {
  std::vector<std::pair<long, long>> org_sent, txn_sent, org_equiv, txn_equiv;
  long txn_at = 0;
  if (block.parts) {
    for (const nv__TranslationPart* part : block.parts->item) {
      if (!part) continue;
      long start, length;
      Location(part->loc, start, length);
      long txn_length = static_cast<long>(CharCount(Or(part->text)));
      if (!part->type || part->type->empty() || (*part->type)[0] != 'S') {
        org_sent.emplace_back(start, length);
        txn_sent.emplace_back(txn_at, txn_length);
      }
      txn_at += txn_length;
      if (part->equiv) {
        auto org = Pairs(part->equiv->org), txn = Pairs(part->equiv->txn);
        org_equiv.insert(org_equiv.end(), org.begin(), org.end());
        txn_equiv.insert(txn_equiv.end(), txn.begin(), txn.end());
      }
    }
  }
  std::string equiv;
  for (size_t i = 0; i < org_equiv.size() && i < txn_equiv.size(); ++i) {
    char item[96];
    snprintf(item, sizeof item, "%s%ld %ld %ld %ld", equiv.empty() ? "" : ", ", org_equiv[i].first,
             org_equiv[i].second, txn_equiv[i].first, txn_equiv[i].second);
    equiv += item;
  }
  auto org_track = Pairs(request ? request->track : nullptr);
  auto txn_track = Pairs(block.track);
  ThreadPrint(thread, "[test_%d]\n", index);
  ThreadPrint(thread, "orgText  = %s\n", Marked(texts.original, org_sent).c_str());
  ThreadPrint(thread, "orgSent  = %s\n", SpanList(org_sent).c_str());
  ThreadPrint(thread, "orgEquiv = %s\n", equiv.c_str());
  ThreadPrint(thread, "orgTrack = %s\n", Marked(texts.original, org_track).c_str());
  ThreadPrint(thread, "txnText  = %s\n", Marked(texts.translation, txn_sent).c_str());
  ThreadPrint(thread, "txnSent  = %s\n", SpanList(txn_sent).c_str());
  ThreadPrint(thread, "txnEquiv = %s\n", Marked(texts.translation, txn_equiv).c_str());
  ThreadPrint(thread, "txnTrack = %s\n", Marked(texts.translation, txn_track).c_str());
}

}  // namespace

const char* PartKindName(const std::string* type) {
  if (!type || type->empty()) return "Unknown";
  for (const KindName& kind : kKindNames) {
    if (kind.code == (*type)[0]) return kind.name;
  }
  return type->c_str();
}

bool BuildTranslation(const nv__TranslationBlock& block, std::string& translation) {
  translation.clear();
  if (!block.parts) return false;
  for (const nv__TranslationPart* part : block.parts->item) {
    if (!part || !part->text) return false;
    translation += *part->text;
  }
  return true;
}

size_t CheckBlockCount(ExecThread& thread, size_t sent, size_t received) {
  if (sent == received) return sent;
  static const char kMismatch[] = "Number of response blocks does not match request blocks!!!!\n";
  Fail(thread, kMismatch);
  ConsoleError(kMismatch);
  return std::min(sent, received);
}

void PrintTrackInfo(ExecThread& thread, const std::string& org_track, const std::string* txn_track,
                    const std::string& original, const std::string& translation) {
  auto org = Groups(org_track, 2);
  auto txn = txn_track ? Groups(*txn_track, 2) : std::vector<std::vector<long>>();
  ThreadPrint(thread, "\nTrack Info:\n");
  for (size_t i = 0; i < org.size(); ++i) {
    ThreadPrint(thread, "  %3d: ", static_cast<int>(i));
    if (org[i].empty()) {
      ThreadPrint(thread, "%s invalid track format\n", "org");
    } else {
      ThreadPrint(thread, "%s", SpanLine("org", org[i], original).c_str());
    }
    ThreadPrint(thread, "       ");
    if (i >= txn.size()) {
      ThreadPrint(thread, "%s missing\n", "txn");
    } else if (txn[i].empty()) {
      ThreadPrint(thread, "%s invalid track format\n", "txn");
    } else {
      ThreadPrint(thread, "%s", SpanLine("txn", txn[i], translation).c_str());
    }
  }
}

void PrintEquiv(ExecThread& thread, const nv__TranslateEquiv& equiv, const std::string& original,
                const std::string& translation, const char* indent) {
  auto org = Groups(Or(equiv.org), 2);
  auto txn = Groups(Or(equiv.txn), 2);
  ThreadPrint(thread, "%sEquiv:\n", indent);
  for (size_t i = 0; i < org.size() || i < txn.size(); ++i) {
    std::string line = indent;
    char number[16];
    snprintf(number, sizeof number, "  %3d: ", static_cast<int>(i));
    line += number;
    if (i >= org.size()) {
      line += "org missing\n";
    } else if (org[i].empty()) {
      line += "org invalid equiv format\n";
    } else {
      line += SpanLine("org", org[i], original);
    }
    line += std::string(indent) + "       ";
    if (i >= txn.size()) {
      line += "txn missing\n";
    } else if (txn[i].empty()) {
      line += "txn invalid equiv format\n";
    } else {
      line += SpanLine("txn", txn[i], translation);
    }
    ThreadPrint(thread, "%s", line.c_str());
  }
}

void PrintBlock(ExecThread& thread, int index, const nv__SourceBlock* request,
                const nv__TranslationBlock& block, const BlockPrintOptions& options) {
  BlockTexts texts;
  if (request) texts.original = Or(request->text);
  texts.built = BuildTranslation(block, texts.translation);
  if (options.test) {
    PrintTestBlock(thread, index, request, block, texts);
    return;
  }
  ThreadPrint(thread, "Block %d\n", index);
  if (block.error) ThreadPrint(thread, "  err: %s\n", block.error->c_str());
  if (!block.parts || block.parts->item.empty()) return;
  if (options.memory && !options.simple) {
    PrintMemoryLayout(thread, block, texts);
    return;
  }
  if (!options.simple) {
    PrintWrapped(thread, texts.original, "  org: ", kNext);
    if (request && request->pattern) {
      PrintWrapped(thread, Or(request->pattern->text), "  pat: ", kNext);
    }
  }
  if (texts.built) PrintWrapped(thread, texts.translation, "  txn: ", kNext);
  if (options.simple) return;
  if (request && request->track) {
    PrintTrackInfo(thread, *request->track, block.track, texts.original, texts.translation);
  }
  if (request && request->phrase) PrintPhraseInfo(thread, *request, block, texts);
  ThreadPrint(thread, "\n");
  for (const nv__TranslationPart* part : block.parts->item) PrintPart(thread, part, texts);
}

void PrintBlocks(ExecThread& thread, const nv__SourceBlockArray* sent,
                 const nv__TranslationBlockArray* received, const BlockPrintOptions& options) {
  size_t sent_count = sent ? sent->item.size() : 0;
  size_t count = CheckBlockCount(thread, sent_count, received ? received->item.size() : 0);
  for (size_t i = 0; i < count; ++i) {
    if (i > 0) ThreadPrint(thread, "\n");
    PrintBlock(thread, static_cast<int>(i + 1), &sent->item[i], received->item[i], options);
  }
}

void PrintUnknownWords(ExecThread& thread, const nv__UnknownWordArray* unknown) {
  if (!unknown || unknown->item.empty()) return;
  ThreadPrint(thread, "\nUnknown Words:\n");
  for (const nv__UnknownWord& word : unknown->item) {
    const std::string& context = Or(word.context);
    std::string_view text = CharSpan(context, word.start, word.length);
    ThreadPrint(thread, "* %.*s\n    %s\n", static_cast<int>(text.size()), text.data(),
                context.c_str());
  }
}

void PrintSentences(ExecThread& thread, const std::string& sent, const std::string& original,
                    const std::string& translation) {
  ThreadPrint(thread, "\nSentence:\n");
  size_t from = 0;
  int number = 0;
  while (from < sent.size()) {
    size_t semi = sent.find(';', from);
    std::string group = sent.substr(from, semi == std::string::npos ? semi : semi - from);
    from = semi == std::string::npos ? sent.size() : semi + 1;
    if (group.find_first_not_of(" \t") == std::string::npos) continue;
    auto numbers = Groups(group, 4);
    if (numbers.size() != 1 || numbers[0].empty()) {
      ThreadPrint(thread, "Invalid sent data: %s\n", group.c_str());
      continue;
    }
    const std::vector<long>& n = numbers[0];
    if (n[0] < 0 || n[1] < 0 || n[2] < 0 || n[3] < 0) {
      ThreadPrint(thread, "!Invalid sent data!\n");
      continue;
    }
    ThreadPrint(thread, "%s (%s)\n", std::to_string(++number).c_str(), group.c_str());
    char head[64];
    snprintf(head, sizeof head, "org: start: %3ld length: %3ld text: ", n[0], n[1]);
    PrintWrapped(thread, CharSpan(original, n[0], n[1]), head, kNext);
    snprintf(head, sizeof head, "txn: start: %3ld length: %3ld text: ", n[2], n[3]);
    PrintWrapped(thread, CharSpan(translation, n[2], n[3]), head, kNext);
  }
}

}  // namespace lexctl
