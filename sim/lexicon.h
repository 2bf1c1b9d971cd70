#pragma once
/// lexsim's built-in system dictionary: a few dozen concepts in English, Japanese, German,
/// French and Korean with parts of speech, base forms of common inflections, a small system
/// translation memory and the function words language detection counts.

#include <string>
#include <string_view>
#include <vector>

namespace lexsim::lex {

/// Dictionary IDs the built-in dictionaries report (dicinfo, parse, altword).
inline constexpr long kSystemDid = 1;
inline constexpr long kSystemMemoryDid = 99;
inline constexpr const char* kSystemSubject = "GENERAL";

/// One translation of a word. An empty target means the word is dropped (articles into
/// Japanese, Japanese particles out of it).
struct Sense {
  std::string target;
  std::string pos;  ///< QZ_POS code: NOUN, VERB, ADJ, ADV, PRON, DET, PREP, CONJ, PART, INTJ
};

/// Languages the lexicon has words for.
const std::vector<std::string>& Languages();
bool Knows(std::string_view lang);

/// Senses of word (any case; one or more words joined by single blanks) from one language
/// into another, best first. Empty when the lexicon has no entry.
std::vector<Sense> Lookup(std::string_view from, std::string_view to, std::string_view word);

/// The dictionary form of an inflected word ("went" -> "go", "cats" -> "cat"), lower-cased;
/// the lower-cased word itself when no rule gives a known word.
std::string BaseForm(std::string_view lang, std::string_view word);

/// POS of a word in its own language (lexicon or rules), "UNKN" when unknown.
std::string PosOf(std::string_view lang, std::string_view word);

/// The raw engine code of a QZ_POS code ("NOUN" -> "n").
std::string RawPos(std::string_view pos);

/// For languages written without blanks: the length of the longest lexicon word that
/// starts at text[pos], 0 when none does.
size_t LongestWordAt(std::string_view lang, std::u32string_view text, size_t pos);

/// True for languages written without blanks between words.
bool Unspaced(std::string_view lang);

/// One sentence pair of the system translation memory.
struct MemoryPair {
  int id;
  std::string en;
  std::string ja;
};
const std::vector<MemoryPair>& SystemMemory();
/// The side of a pair in a language, empty when it has none.
const std::string& MemorySide(const MemoryPair& p, std::string_view lang);

/// Common function words of a language, for language detection.
const std::vector<std::string>& FunctionWords(std::string_view lang);

}  // namespace lexsim::lex
