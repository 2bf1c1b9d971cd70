#pragma once
/// Dictionary source formats of lexsim: reading and writing dictionary entries as text.
///
/// Both formats are UTF-8 text made of lines (LF or CRLF). A line whose first non-blank
/// character is "#" is a comment; blank lines are skipped. In values, "\\" stands for a
/// backslash, "\n" for a line feed, "\t" for a tab, "\=" for "=" and "\[" for "[".
///
/// Format "native" (normal dictionaries), one entry per line:
///
///     HEADWORD = TRANSLATION [POS]
///
///   HEADWORD and TRANSLATION are trimmed and must not be empty; the first unescaped "="
///   separates them. The optional part of speech is a word in brackets at the end of the
///   line, one of: noun verb adj adv pron prep conj interj num det phrase.
///   Example:   red apple = 赤いりんご [noun]
///
/// Format "tmtext" (translation-memory dictionaries), one block per entry:
///
///     [entry]
///     en = Good morning.
///     ja = #おはようございます。
///     weight = 5
///
///   "[entry]" opens an entry; the "KEY = VALUE" lines up to the next "[entry]" belong to
///   it. KEY is a language code (two or three letters, optionally "-" and a region: en,
///   ja, en-US) for a sentence, whose text is a search key unless it starts with "#" (the
///   "#" is dropped); or one of the fields weight (integer), info (0 machine, 1 human),
///   pattern (true or false), author, title, comment, date. An entry needs a sentence.
///
/// Malformed lines produce source errors carrying the line number (1-based) of the fault
/// (errline) and of the start of its entry (srcline), a code and a category:
///   1 SYNTAX "=" missing            2 SYNTAX empty headword      3 SYNTAX empty translation
///   4 POS unknown part of speech    5 SYNTAX unclosed "["        6 DUPLICATE duplicate entry
///   7 ENCODING invalid UTF-8        10 SYNTAX line outside an entry
///   12 FIELD unknown field          13 VALUE bad field value     14 SYNTAX entry without sentence

#include <algorithm>
#include <cctype>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "state.h"

namespace lexsim::dictfmt {

inline constexpr const char* kNative = "native";
inline constexpr const char* kTmText = "tmtext";

struct SourceErr {
  int64_t code = 0;
  std::string cat;
  std::string msg;
  int64_t errline = 0;
  int64_t srcline = 0;
  std::string source;   ///< the offending line
  std::string keyword;  ///< the word at fault, if any
};

struct Parsed {
  DictEntry entry;
  int64_t line = 0;  ///< where the entry starts
};

struct ParseResult {
  std::vector<Parsed> entries;
  std::vector<SourceErr> errors;
};

namespace detail {

inline const std::vector<std::string>& PosNames() {
  static const std::vector<std::string> names = {"noun", "verb", "adj",    "adv", "pron", "prep",
                                                 "conj", "interj", "num", "det", "phrase"};
  return names;
}

inline std::string Trim(std::string_view s) {
  size_t b = s.find_first_not_of(" \t\r");
  if (b == std::string_view::npos) return "";
  size_t e = s.find_last_not_of(" \t\r");
  return std::string(s.substr(b, e - b + 1));
}

/// Trims outer blanks but keeps a blank that a backslash escapes.
inline std::string TrimValue(std::string_view s) {
  std::string t = Trim(s);
  size_t end = s.find_last_not_of(" \t\r");
  if (t.empty() || t.back() != '\\' || end + 1 >= s.size()) return t;
  size_t n = 0;
  while (n < t.size() && t[t.size() - 1 - n] == '\\') ++n;
  if (n % 2 == 1) t += s[end + 1];
  return t;
}

inline std::string Unescape(std::string_view s) {
  std::string out;
  for (size_t i = 0; i < s.size(); ++i) {
    if (s[i] != '\\' || i + 1 == s.size()) {
      out += s[i];
      continue;
    }
    char c = s[++i];
    out += c == 'n' ? '\n' : c == 't' ? '\t' : c;
  }
  return out;
}

inline std::string Escape(std::string_view s, bool head) {
  std::string out;
  for (char c : s) {
    switch (c) {
      case '\\': out += "\\\\"; break;
      case '\n': out += "\\n"; break;
      case '\t': out += "\\t"; break;
      case '=':
        out += head ? "\\=" : "=";
        break;
      case '[': out += "\\["; break;
      default: out += c;
    }
  }
  // Outer blanks would be trimmed away on reading.
  if (!out.empty() && out.front() == ' ') out.insert(0, "\\");
  if (!out.empty() && out.back() == ' ') out.insert(out.size() - 1, "\\");
  return out;
}

/// Position of the first unescaped c in s, or npos.
inline size_t FindUnescaped(std::string_view s, char c) {
  for (size_t i = 0; i < s.size(); ++i) {
    if (s[i] == '\\') {
      ++i;
      continue;
    }
    if (s[i] == c) return i;
  }
  return std::string_view::npos;
}

inline bool ValidUtf8(std::string_view s) {
  size_t i = 0;
  while (i < s.size()) {
    unsigned char c = static_cast<unsigned char>(s[i]);
    size_t n = c < 0x80 ? 0 : (c >> 5) == 6 ? 1 : (c >> 4) == 14 ? 2 : (c >> 3) == 30 ? 3 : 4;
    if (n == 4 || i + n >= s.size() + (n == 0 ? 1 : 0)) return false;
    for (size_t k = 1; k <= n; ++k)
      if ((static_cast<unsigned char>(s[i + k]) >> 6) != 2) return false;
    i += n + 1;
  }
  return true;
}

/// Splits text into lines, dropping a UTF-8 byte order mark.
inline std::vector<std::string_view> Lines(std::string_view text) {
  if (text.substr(0, 3) == "\xEF\xBB\xBF") text.remove_prefix(3);
  std::vector<std::string_view> out;
  while (!text.empty()) {
    size_t nl = text.find('\n');
    out.push_back(text.substr(0, nl));
    if (nl == std::string_view::npos) break;
    text.remove_prefix(nl + 1);
  }
  return out;
}

inline bool Skip(std::string_view line) {
  std::string t = Trim(line);
  return t.empty() || t[0] == '#';
}

inline SourceErr Err(int64_t code, const char* cat, std::string msg, int64_t line,
                     int64_t srcline, std::string_view source, std::string keyword = "") {
  return {code, cat, std::move(msg), line, srcline, Trim(source), std::move(keyword)};
}

inline bool LangCode(const std::string& k) {
  size_t n = 0;
  while (n < k.size() && k[n] >= 'a' && k[n] <= 'z') ++n;
  if (n < 2 || n > 3) return false;
  if (n == k.size()) return true;
  if (k[n] != '-' || k.size() - n - 1 < 2 || k.size() - n - 1 > 4) return false;
  for (size_t i = n + 1; i < k.size(); ++i)
    if (!std::isalnum(static_cast<unsigned char>(k[i]))) return false;
  return true;
}

inline bool ToInt(const std::string& s, int* v) {
  if (s.empty()) return false;
  size_t i = s[0] == '-' ? 1 : 0;
  if (i == s.size() || s.size() > 10) return false;
  for (size_t k = i; k < s.size(); ++k)
    if (!std::isdigit(static_cast<unsigned char>(s[k]))) return false;
  *v = std::stoi(s);
  return true;
}

}  // namespace detail

/// Reads one native line; returns false and fills err when it is malformed.
inline bool ParseNativeLine(std::string_view line, int64_t lineno, DictEntry* e, SourceErr* err) {
  using namespace detail;
  if (!ValidUtf8(line)) {
    *err = Err(7, "ENCODING", "Invalid UTF-8", lineno, lineno, line);
    return false;
  }
  size_t eq = FindUnescaped(line, '=');
  if (eq == std::string_view::npos) {
    *err = Err(1, "SYNTAX", "Missing '=' between headword and translation", lineno, lineno, line);
    return false;
  }
  std::string head = TrimValue(line.substr(0, eq));
  std::string_view rest = line.substr(eq + 1);
  std::string pos;
  size_t br = FindUnescaped(rest, '[');
  if (br != std::string_view::npos) {
    std::string tail = Trim(rest.substr(br + 1));
    if (tail.empty() || tail.back() != ']') {
      *err = Err(5, "SYNTAX", "Unclosed '[' of the part of speech", lineno, lineno, line);
      return false;
    }
    pos = Trim(tail.substr(0, tail.size() - 1));
    const auto& names = PosNames();
    if (std::find(names.begin(), names.end(), pos) == names.end()) {
      *err = Err(4, "POS", "Unknown part of speech", lineno, lineno, line, pos);
      return false;
    }
    rest = rest.substr(0, br);
  }
  // Trim before unescaping so that escaped outer blanks survive.
  head = Unescape(head);
  std::string target = Unescape(TrimValue(rest));
  if (head.empty()) {
    *err = Err(2, "SYNTAX", "Empty headword", lineno, lineno, line);
    return false;
  }
  if (target.empty()) {
    *err = Err(3, "SYNTAX", "Empty translation", lineno, lineno, line, head);
    return false;
  }
  e->headword = std::move(head);
  e->target = std::move(target);
  e->pos = std::move(pos);
  return true;
}

inline ParseResult ParseNative(std::string_view text) {
  ParseResult r;
  auto lines = detail::Lines(text);
  for (size_t i = 0; i < lines.size(); ++i) {
    if (detail::Skip(lines[i])) continue;
    Parsed p;
    p.line = static_cast<int64_t>(i + 1);
    SourceErr err;
    if (ParseNativeLine(lines[i], p.line, &p.entry, &err))
      r.entries.push_back(std::move(p));
    else
      r.errors.push_back(std::move(err));
  }
  return r;
}

inline ParseResult ParseTm(std::string_view text) {
  using namespace detail;
  ParseResult r;
  auto lines = Lines(text);
  bool open = false, bad = false;
  Parsed cur;
  auto close = [&]() {
    if (!open) return;
    if (cur.entry.sentences.empty()) {
      r.errors.push_back(Err(14, "SYNTAX", "Entry without a sentence", cur.line, cur.line,
                             "[entry]"));
    } else if (!bad) {
      r.entries.push_back(std::move(cur));
    }
    cur = Parsed();
    open = bad = false;
  };
  for (size_t i = 0; i < lines.size(); ++i) {
    int64_t no = static_cast<int64_t>(i + 1);
    std::string_view line = lines[i];
    if (Skip(line)) continue;
    if (!ValidUtf8(line)) {
      r.errors.push_back(Err(7, "ENCODING", "Invalid UTF-8", no, open ? cur.line : no, line));
      bad = true;
      continue;
    }
    std::string t = Trim(line);
    if (t == "[entry]") {
      close();
      open = true;
      cur.line = no;
      continue;
    }
    if (!open) {
      r.errors.push_back(Err(10, "SYNTAX", "Line outside an entry; '[entry]' expected", no, no, line));
      continue;
    }
    size_t eq = FindUnescaped(t, '=');
    if (eq == std::string::npos) {
      r.errors.push_back(Err(1, "SYNTAX", "Missing '='", no, cur.line, line));
      bad = true;
      continue;
    }
    std::string key = Trim(std::string_view(t).substr(0, eq));
    std::string raw = Trim(std::string_view(t).substr(eq + 1));
    DictEntry& e = cur.entry;
    int n = 0;
    if (key == "weight" || key == "info") {
      if (!ToInt(raw, &n) || (key == "info" && n != 0 && n != 1)) {
        r.errors.push_back(Err(13, "VALUE", "Bad value of " + key, no, cur.line, line, raw));
        bad = true;
      } else {
        (key == "weight" ? e.weight : e.info) = n;
      }
    } else if (key == "pattern") {
      if (raw != "true" && raw != "false") {
        r.errors.push_back(Err(13, "VALUE", "Bad value of pattern", no, cur.line, line, raw));
        bad = true;
      }
      e.pattern = raw == "true";
    } else if (key == "author" || key == "title" || key == "comment" || key == "date") {
      std::string v = Unescape(raw);
      (key == "author" ? e.author : key == "title" ? e.title : key == "comment" ? e.comment : e.date) = v;
    } else if (LangCode(key)) {
      TmSentence s;
      s.lang = key;
      s.key = raw.empty() || raw[0] != '#';
      s.text = Unescape(s.key ? raw : Trim(std::string_view(raw).substr(1)));
      if (s.text.empty()) {
        r.errors.push_back(Err(13, "VALUE", "Empty sentence", no, cur.line, line, key));
        bad = true;
      } else {
        e.sentences.push_back(std::move(s));
      }
    } else {
      r.errors.push_back(Err(12, "FIELD", "Unknown field", no, cur.line, line, key));
      bad = true;
    }
  }
  close();
  return r;
}

inline std::string FormatNative(const DictEntry& e) {
  std::string s = detail::Escape(e.headword, true) + " = " + detail::Escape(e.target, false);
  if (!e.pos.empty()) s += " [" + e.pos + "]";
  return s;
}

inline std::string FormatTm(const DictEntry& e) {
  using detail::Escape;
  std::string s = "[entry]\n";
  for (const TmSentence& x : e.sentences)
    s += x.lang + " = " + (x.key ? "" : "#") + Escape(x.text, false) + "\n";
  if (e.weight) s += "weight = " + std::to_string(e.weight) + "\n";
  if (e.info) s += "info = " + std::to_string(e.info) + "\n";
  if (e.pattern) s += "pattern = true\n";
  if (!e.author.empty()) s += "author = " + Escape(e.author, false) + "\n";
  if (!e.title.empty()) s += "title = " + Escape(e.title, false) + "\n";
  if (!e.comment.empty()) s += "comment = " + Escape(e.comment, false) + "\n";
  if (!e.date.empty()) s += "date = " + Escape(e.date, false) + "\n";
  return s;
}

/// The whole dictionary as source text of its own format.
inline std::string Write(const Dictionary& d) {
  std::string out = "# lexsim dictionary " + std::to_string(d.did) + " (" + d.eid + ", " +
                    (d.memory ? kTmText : kNative) + ")\n";
  for (const DictEntry& e : d.entries) out += d.memory ? FormatTm(e) : FormatNative(e) + "\n";
  return out;
}

}  // namespace lexsim::dictfmt
