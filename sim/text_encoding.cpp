#include "text_encoding.h"

#include <errno.h>

#include <algorithm>
#include <map>

#include "lexicon.h"
#include "sys.h"
#include "text_segment.h"
#include "text_utf8.h"

namespace lexsim::text {

namespace {

class Iconv {
 public:
  Iconv(const std::string& to, const std::string& from) : cd_(iconv_open(to.c_str(), from.c_str())) {}
  ~Iconv() {
    if (ok()) iconv_close(cd_);
  }
  Iconv(const Iconv&) = delete;
  Iconv& operator=(const Iconv&) = delete;
  bool ok() const { return cd_ != reinterpret_cast<iconv_t>(-1); }
  iconv_t get() const { return cd_; }

 private:
  iconv_t cd_;
};

// Runs one conversion; on an unconvertible sequence either stops (returns the error and
// its offset) or, with skip_bad set, writes '?' in its place and skips one UTF-8 character.
int Run(const Iconv& cd, const std::string& in, std::string* out, size_t* at, bool skip_bad,
        size_t* replaced) {
  char* src = const_cast<char*>(in.data());
  size_t left = in.size();
  char buf[4096];
  while (true) {
    char* dst = buf;
    size_t room = sizeof buf;
    size_t r = left == 0 ? iconv(cd.get(), nullptr, nullptr, &dst, &room)
                         : iconv(cd.get(), &src, &left, &dst, &room);
    out->append(buf, static_cast<size_t>(dst - buf));
    if (r != static_cast<size_t>(-1)) {
      if (left == 0) {
        // Flush shift states of stateful encodings.
        dst = buf;
        room = sizeof buf;
        iconv(cd.get(), nullptr, nullptr, &dst, &room);
        out->append(buf, static_cast<size_t>(dst - buf));
        return 0;
      }
      continue;
    }
    if (errno == E2BIG) continue;
    *at = in.size() - left;
    if (errno == EILSEQ && skip_bad) {
      // The source is UTF-8 here: step over one whole character.
      size_t n = 1;
      while (n < left && (static_cast<unsigned char>(src[n]) & 0xC0) == 0x80) ++n;
      src += n;
      left -= n;
      ++*replaced;
      // '?' is the same byte in every ASCII-compatible target.
      out->push_back('?');
      continue;
    }
    return errno;
  }
}

}  // namespace

bool KnownEncoding(const std::string& name) {
  if (name.empty()) return false;
  Iconv a("UTF-8", name), b(name, "UTF-8");
  return a.ok() && b.ok();
}

Converted Convert(const std::string& in, const std::string& from, const std::string& to) {
  Converted c;
  std::string utf8;
  {
    Iconv cd("UTF-8", from);
    size_t unused = 0;
    if (!cd.ok() || Run(cd, in, &utf8, &c.bad_at, false, &unused) != 0) {
      c.ok = false;
      return c;
    }
  }
  Iconv cd(to, "UTF-8");
  size_t at = 0;
  if (!cd.ok() || Run(cd, utf8, &c.out, &at, true, &c.replaced) != 0) c.ok = false;
  return c;
}

std::string BomEncoding(const std::string& b, size_t* length) {
  auto starts = [&](const char* sig, size_t n) { return b.size() >= n && b.compare(0, n, sig, n) == 0; };
  if (starts("\xEF\xBB\xBF", 3)) return *length = 3, "UTF-8";
  if (starts("\xFF\xFE\x00\x00", 4)) return *length = 4, "UTF-32LE";
  if (starts("\x00\x00\xFE\xFF", 4)) return *length = 4, "UTF-32BE";
  if (starts("\xFF\xFE", 2)) return *length = 2, "UTF-16LE";
  if (starts("\xFE\xFF", 2)) return *length = 2, "UTF-16BE";
  *length = 0;
  return "";
}

std::string BomFor(const std::string& encoding) {
  std::string e;
  for (char ch : encoding)
    if (ch != '-' && ch != '_') e.push_back(static_cast<char>(toupper(static_cast<unsigned char>(ch))));
  if (e == "UTF8") return "\xEF\xBB\xBF";
  if (e == "UTF16LE") return std::string("\xFF\xFE", 2);
  if (e == "UTF16BE") return std::string("\xFE\xFF", 2);
  if (e == "UTF32LE") return std::string("\xFF\xFE\x00\x00", 4);
  if (e == "UTF32BE") return std::string("\x00\x00\xFE\xFF", 4);
  return "";
}

std::string DetectEncoding(const std::string& bytes) {
  size_t bom = 0;
  std::string e = BomEncoding(bytes, &bom);
  if (!e.empty()) return e;
  if (ValidUtf8(bytes)) return "UTF-8";
  // Japanese legacy encodings: the one whose text holds most kana and kanji.
  std::string best;
  double best_share = 0.5;
  for (const char* cand : {"Shift_JIS", "EUC-JP"}) {
    Converted c = Convert(bytes, cand, "UTF-8");
    if (!c.ok) continue;
    std::u32string t = Decode(c.out);
    size_t high = 0, jp = 0;
    for (char32_t ch : t) {
      if (ch < 0x80) continue;
      ++high;
      if (IsCjk(ch) || ch == 0x3001 || ch == 0x3002) ++jp;
    }
    double share = high ? static_cast<double>(jp) / high : 0;
    if (share > best_share) {
      best_share = share;
      best = cand;
    }
  }
  if (!best.empty()) return best;
  return Convert(bytes, "windows-1252", "UTF-8").ok ? "windows-1252" : "ISO-8859-1";
}

LanguageGuess DetectLanguage(const std::string& utf8, const std::string& hint,
                             const std::vector<std::string>& allowed) {
  auto permitted = [&](const std::string& l) {
    return allowed.empty() || std::find(allowed.begin(), allowed.end(), l) != allowed.end();
  };
  std::u32string t = Decode(utf8);
  std::map<std::string, size_t> script;
  size_t letters = 0, kana = 0;
  for (char32_t c : t) {
    if (!IsLetter(c)) continue;
    ++letters;
    if (IsHiragana(c) || IsKatakana(c)) ++kana, ++script["ja"];
    else if (IsHan(c)) ++script["han"];
    else if (IsHangul(c)) ++script["ko"];
    else if (IsCyrillic(c)) ++script["ru"];
    else if (IsGreek(c)) ++script["el"];
    else if (IsArabic(c)) ++script["ar"];
    else ++script["latin"];
  }
  LanguageGuess g;
  if (letters == 0) {
    g.lang = hint;
    return g;
  }
  g.decided = true;
  // Chinese characters belong to Japanese when kana are around or the hint says so.
  if (script.count("han")) {
    std::string owner = kana > 0 || hint == "ja" ? "ja" : "zh";
    script[owner] += script["han"];
    script.erase("han");
  }
  std::string top;
  size_t top_n = 0;
  for (const auto& [s, n] : script)
    if (n > top_n && (s == "latin" || permitted(s))) top = s, top_n = n;
  if (top != "latin" && !top.empty()) {
    g.lang = top;
    g.confidence = static_cast<double>(top_n) / letters;
    g.reliable = g.confidence >= 0.5 && top_n >= 2;
    return g;
  }
  // Latin script: count common words and lexicon words of each language.
  std::map<std::string, int> score;
  int words = 0;
  for (const Token& tok : Tokenize(t)) {
    if (tok.kind != Token::kWord) continue;
    ++words;
    std::string w = Encode(Lower(t.substr(tok.start, tok.length)));
    for (const char* l : {"en", "de", "fr", "es", "it", "nl"}) {
      const auto& fw = lex::FunctionWords(l);
      bool hit = std::find(fw.begin(), fw.end(), w) != fw.end();
      if (!hit && lex::Knows(l)) hit = lex::PosOf(l, w) != "UNKN";
      if (hit) ++score[l];
    }
  }
  std::string best;
  int best_n = 0, second = 0;
  for (const auto& [l, n] : score) {
    if (!permitted(l)) continue;
    if (n > best_n) second = best_n, best_n = n, best = l;
    else if (n > second) second = n;
  }
  if (best.empty()) {
    g.lang = !hint.empty() ? hint : "en";
    g.confidence = 0.1;
    return g;
  }
  // A tie with the hint goes to the hint.
  if (best_n == second && !hint.empty() && score[hint] == best_n) best = hint;
  g.lang = best;
  g.confidence = std::min(1.0, static_cast<double>(best_n) / std::max(words, 1));
  if (best_n == second) g.confidence /= 2;
  g.reliable = best_n > second && words >= 3 && g.confidence >= 0.3;
  return g;
}

}  // namespace lexsim::text
