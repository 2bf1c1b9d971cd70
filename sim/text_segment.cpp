#include "text_segment.h"

#include "lexicon.h"
#include "text_utf8.h"

namespace lexsim::text {

namespace {

bool IsClosing(char32_t c) {
  return c == '"' || c == '\'' || c == ')' || c == ']' || c == 0x2019 || c == 0x201D ||
         c == 0x300D || c == 0x300F || c == 0xFF09;
}

// A full stop after these words (or after a single capital, an initial) does not end a
// sentence.
bool IsAbbreviation(std::u32string_view text, size_t dot) {
  size_t b = dot;
  while (b > 0 && (IsLatinLetter(text[b - 1]) || text[b - 1] == '.')) --b;
  std::u32string word = Lower(text.substr(b, dot - b));
  if (word.size() == 1 && IsLatinLetter(word[0]) && Upper(text[b]) == text[b]) return true;
  static const char32_t* const kAbbrev[] = {U"mr", U"mrs", U"ms", U"dr", U"st", U"vs",
                                            U"etc", U"e.g", U"i.e", U"no", U"prof", U"jr"};
  for (const char32_t* a : kAbbrev)
    if (word == a) return true;
  return false;
}

// Where the sentence that starts at pos ends (exclusive, before any white space after it).
size_t SentenceEnd(std::u32string_view t, size_t pos) {
  size_t i = pos;
  while (i < t.size()) {
    char32_t c = t[i];
    if (c == '\n' || c == '\r') return i;
    if (c == 0x3002 || c == 0xFF01 || c == 0xFF1F || c == 0xFF0E) {  // 。！？．
      ++i;
      while (i < t.size() && IsClosing(t[i])) ++i;
      return i;
    }
    if (c == '.' || c == '!' || c == '?' || c == 0x2026) {
      size_t j = i + 1;
      while (j < t.size() && (t[j] == '.' || t[j] == '!' || t[j] == '?')) ++j;
      while (j < t.size() && IsClosing(t[j])) ++j;
      bool boundary = j == t.size() || IsSpace(t[j]);
      if (boundary && !(c == '.' && j == i + 1 && IsAbbreviation(t, i))) return j;
      i = j;
      continue;
    }
    ++i;
  }
  return i;
}

enum class Script { kOther, kHan, kHiragana, kKatakana };
Script ScriptOf(char32_t c) {
  if (IsHan(c)) return Script::kHan;
  if (IsHiragana(c)) return Script::kHiragana;
  if (IsKatakana(c)) return Script::kKatakana;
  return Script::kOther;
}

bool WordChar(char32_t c) { return IsLetter(c) && !IsCjk(c); }

}  // namespace

std::vector<Segment> SplitSentences(std::u32string_view t, bool nosplit) {
  std::vector<Segment> out;
  size_t i = 0;
  while (i < t.size()) {
    size_t s = i;
    while (i < t.size() && IsSpace(t[i])) ++i;
    if (i > s) out.push_back({Segment::kSpace, s, i - s});
    if (i == t.size()) break;
    size_t end;
    if (nosplit) {
      end = t.size();
      while (end > i && IsSpace(t[end - 1])) --end;
    } else {
      end = SentenceEnd(t, i);
      while (end > i && IsSpace(t[end - 1])) --end;
    }
    out.push_back({Segment::kSentence, i, end - i});
    i = end;
  }
  return out;
}

std::vector<Token> Tokenize(std::u32string_view t) {
  std::vector<Token> out;
  size_t i = 0;
  while (i < t.size()) {
    size_t s = i;
    char32_t c = t[i];
    if (IsSpace(c)) {
      while (i < t.size() && IsSpace(t[i])) ++i;
      out.push_back({Token::kSpace, s, i - s});
    } else if (IsDigit(c)) {
      while (i < t.size() && (IsDigit(t[i]) || ((t[i] == '.' || t[i] == ',') && i + 1 < t.size() &&
                                                IsDigit(t[i + 1]))))
        ++i;
      out.push_back({Token::kNumber, s, i - s});
    } else if (WordChar(c)) {
      while (i < t.size()) {
        if (WordChar(t[i]) || IsDigit(t[i])) {
          ++i;
        } else if ((t[i] == '\'' || t[i] == 0x2019 || t[i] == '-') && i + 1 < t.size() &&
                   WordChar(t[i + 1])) {
          i += 2;
        } else {
          break;
        }
      }
      out.push_back({Token::kWord, s, i - s});
    } else if (IsCjk(c)) {
      size_t n = lex::LongestWordAt("ja", t, i);
      if (n > 0) {
        i += n;
      } else {
        // An unknown run of one script; hiragana and kanji stop where a known word starts.
        Script sc = ScriptOf(c);
        ++i;
        while (i < t.size() && ScriptOf(t[i]) == sc &&
               (sc == Script::kKatakana || lex::LongestWordAt("ja", t, i) == 0))
          ++i;
      }
      out.push_back({Token::kWord, s, i - s});
    } else {
      ++i;
      out.push_back({Token::kPunct, s, 1});
    }
  }
  return out;
}

std::u32string Normalize(std::u32string_view t) {
  std::u32string out;
  bool space = false;
  for (char32_t c : t) {
    if (IsSpace(c)) {
      space = !out.empty();
      continue;
    }
    if (space) out.push_back(' ');
    space = false;
    if (c >= 0xFF01 && c <= 0xFF5E) c = c - 0xFF01 + 0x21;
    if (c == 0x2018 || c == 0x2019) c = '\'';
    if (c == 0x201C || c == 0x201D) c = '"';
    out.push_back(c);
  }
  return out;
}

}  // namespace lexsim::text
