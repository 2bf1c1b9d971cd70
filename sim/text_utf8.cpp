#include "text_utf8.h"

#include "shell/utf8.h"

namespace lexsim::text {

namespace {
constexpr char32_t kReplacement = 0xFFFD;

// Length of the sequence starting with lead byte b, or 0 when b cannot start one.
int SeqLen(unsigned char b) {
  if (b < 0x80) return 1;
  if (b >= 0xC2 && b <= 0xDF) return 2;
  if (b >= 0xE0 && b <= 0xEF) return 3;
  if (b >= 0xF0 && b <= 0xF4) return 4;
  return 0;
}

// Decodes one sequence at s[i]; returns the number of bytes taken (0 when malformed).
int DecodeOne(std::string_view s, size_t i, char32_t* out) {
  auto b = static_cast<unsigned char>(s[i]);
  int n = SeqLen(b);
  if (n == 0 || i + n > s.size()) return 0;
  if (n == 1) {
    *out = b;
    return 1;
  }
  char32_t c = b & (0x7F >> n);
  for (int k = 1; k < n; ++k) {
    auto t = static_cast<unsigned char>(s[i + k]);
    if ((t & 0xC0) != 0x80) return 0;
    c = (c << 6) | (t & 0x3F);
  }
  // Overlong forms, surrogates and values past U+10FFFF are not UTF-8.
  if ((n == 3 && c < 0x800) || (n == 4 && (c < 0x10000 || c > 0x10FFFF)) ||
      (c >= 0xD800 && c <= 0xDFFF))
    return 0;
  *out = c;
  return n;
}
}  // namespace

std::u32string Decode(std::string_view s) {
  std::u32string out;
  out.reserve(s.size());
  for (size_t i = 0; i < s.size();) {
    char32_t c;
    int n = DecodeOne(s, i, &c);
    if (n == 0) {
      out.push_back(kReplacement);
      ++i;
    } else {
      out.push_back(c);
      i += n;
    }
  }
  return out;
}

bool ValidUtf8(std::string_view s) {
  for (size_t i = 0; i < s.size();) {
    char32_t c;
    int n = DecodeOne(s, i, &c);
    if (n == 0) return false;
    i += n;
  }
  return true;
}

std::string Encode(char32_t c) {
  std::string out;
  lexctl::AppendUtf8(out, c);
  return out;
}

std::string Encode(std::u32string_view s) {
  std::string out;
  out.reserve(s.size());
  for (char32_t c : s) lexctl::AppendUtf8(out, c);
  return out;
}

bool IsSpace(char32_t c) {
  return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\f' || c == '\v' ||
         c == 0xA0 || c == 0x3000;
}
bool IsDigit(char32_t c) { return (c >= '0' && c <= '9') || (c >= 0xFF10 && c <= 0xFF19); }
bool IsLatinLetter(char32_t c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') ||
         (c >= 0xC0 && c <= 0x24F && c != 0xD7 && c != 0xF7) || (c >= 0xFF21 && c <= 0xFF3A) ||
         (c >= 0xFF41 && c <= 0xFF5A);
}
bool IsHiragana(char32_t c) { return c >= 0x3041 && c <= 0x309F; }
bool IsKatakana(char32_t c) { return (c >= 0x30A0 && c <= 0x30FF) || (c >= 0xFF66 && c <= 0xFF9D); }
bool IsHan(char32_t c) { return (c >= 0x4E00 && c <= 0x9FFF) || (c >= 0x3400 && c <= 0x4DBF) || c == 0x3005; }
bool IsHangul(char32_t c) { return (c >= 0xAC00 && c <= 0xD7A3) || (c >= 0x1100 && c <= 0x11FF); }
bool IsCyrillic(char32_t c) { return c >= 0x400 && c <= 0x4FF; }
bool IsGreek(char32_t c) { return c >= 0x370 && c <= 0x3FF; }
bool IsArabic(char32_t c) { return c >= 0x600 && c <= 0x6FF; }
bool IsLetter(char32_t c) {
  return IsLatinLetter(c) || IsCjk(c) || IsHangul(c) || IsCyrillic(c) || IsGreek(c) ||
         IsArabic(c);
}

char32_t Lower(char32_t c) {
  if (c >= 'A' && c <= 'Z') return c + 32;
  if (c >= 0xC0 && c <= 0xDE && c != 0xD7) return c + 32;
  return c;
}
char32_t Upper(char32_t c) {
  if (c >= 'a' && c <= 'z') return c - 32;
  if (c >= 0xE0 && c <= 0xFE && c != 0xF7) return c - 32;
  return c;
}
std::u32string Lower(std::u32string_view s) {
  std::u32string out(s);
  for (char32_t& c : out) c = Lower(c);
  return out;
}

std::string Span(size_t start, size_t length) {
  return std::to_string(start) + " " + std::to_string(length);
}

}  // namespace lexsim::text
