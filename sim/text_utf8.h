#pragma once
/// Code-point text for lexsim's translation engine. Positions on the wire (loc, track,
/// phrase, unknown words) count code points, so the engine works on std::u32string.

#include <string>
#include <string_view>

namespace lexsim::text {

/// Decodes UTF-8; a malformed byte becomes U+FFFD so positions stay defined.
std::u32string Decode(std::string_view s);
std::string Encode(std::u32string_view s);
std::string Encode(char32_t c);
/// True when s is well-formed UTF-8.
bool ValidUtf8(std::string_view s);

bool IsSpace(char32_t c);
bool IsDigit(char32_t c);
bool IsLatinLetter(char32_t c);  ///< ASCII and Latin-1/Extended letters
bool IsHiragana(char32_t c);
bool IsKatakana(char32_t c);  ///< katakana and the prolonged sound mark
bool IsHan(char32_t c);
bool IsHangul(char32_t c);
bool IsCyrillic(char32_t c);
bool IsGreek(char32_t c);
bool IsArabic(char32_t c);
/// A character of a script written without blanks between words.
inline bool IsCjk(char32_t c) { return IsHiragana(c) || IsKatakana(c) || IsHan(c); }
/// Any letter lexsim knows a script for.
bool IsLetter(char32_t c);

/// Lower-cases ASCII and Latin-1 letters; other characters stay.
char32_t Lower(char32_t c);
char32_t Upper(char32_t c);
std::u32string Lower(std::u32string_view s);

/// "START LENGTH" as the wire writes spans.
std::string Span(size_t start, size_t length);

}  // namespace lexsim::text
