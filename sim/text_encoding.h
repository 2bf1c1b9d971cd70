#pragma once
/// Character encodings (through iconv), encoding detection and language detection.

#include <cstddef>
#include <string>
#include <vector>

namespace lexsim::text {

/// True when iconv can convert from and to the named encoding.
bool KnownEncoding(const std::string& name);

struct Converted {
  bool ok = true;        ///< false: the input is not valid text in the source encoding
  size_t bad_at = 0;     ///< byte offset of the first invalid input sequence
  size_t replaced = 0;   ///< characters the target cannot hold, written as '?'
  std::string out;
};
/// Converts bytes between two encodings iconv knows.
Converted Convert(const std::string& in, const std::string& from, const std::string& to);

/// The encoding a byte-order mark at the start of bytes names ("" when none) and its length.
std::string BomEncoding(const std::string& bytes, size_t* length);
/// The byte-order mark of a Unicode encoding, empty for others.
std::string BomFor(const std::string& encoding);

/// Guesses the encoding of bytes: a byte-order mark, UTF-8, then Shift_JIS or EUC-JP
/// (whichever decodes to more Japanese text), else windows-1252 / ISO-8859-1.
std::string DetectEncoding(const std::string& bytes);

struct LanguageGuess {
  std::string lang;  ///< ISO 639-1 code; empty for text without letters
  double confidence = 0;
  bool reliable = false;
  bool decided = false;  ///< false when the text gave nothing to judge by
};
/// Guesses the language of UTF-8 text by script and by common words. hint is used when
/// the text cannot tell; allowed (when not empty) limits the candidates.
LanguageGuess DetectLanguage(const std::string& utf8, const std::string& hint,
                             const std::vector<std::string>& allowed);

}  // namespace lexsim::text
