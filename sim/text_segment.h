#pragma once
/// Sentence splitting and word tokenising of code-point text. Spans are code-point
/// offsets into the text given.

#include <string>
#include <string_view>
#include <vector>

namespace lexsim::text {

struct Segment {
  enum Kind { kSentence, kSpace };
  Kind kind;
  size_t start;
  size_t length;
};

/// Splits text into sentences and the white space between them; together the segments
/// cover the text exactly, in order. With nosplit the text between leading and trailing
/// white space is one sentence.
std::vector<Segment> SplitSentences(std::u32string_view text, bool nosplit);

struct Token {
  enum Kind { kWord, kNumber, kPunct, kSpace };
  Kind kind;
  size_t start;
  size_t length;
};

/// Splits text into words, numbers, punctuation and white space, covering it exactly.
/// Runs of Japanese script are cut at the longest words the lexicon knows.
std::vector<Token> Tokenize(std::u32string_view text);

/// The engine's processed form of a sentence: white space runs made one blank and
/// trimmed, full-width ASCII made half-width, typographic quotes made plain.
std::u32string Normalize(std::u32string_view text);

}  // namespace lexsim::text
