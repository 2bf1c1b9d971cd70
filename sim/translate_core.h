#pragma once
/// lexsim's deterministic translation engine: sentences are split, words translated through
/// the user's dictionaries, then the system dictionary, then the built-in lexicon; unknown
/// words are kept. Works on plain values; the operations turn them into wire types.
///
/// Spans ("START LENGTH") count code points; part, track, equiv, pos and dicinfo spans of
/// the original are offsets into the block text, those of the translation offsets into the
/// block's whole translation (the concatenated part texts).

#include <string>
#include <utility>
#include <vector>

#include "translate_state.h"

namespace lexsim::tr {

/// The select keys that shape a translation.
struct Flags {
  bool nosplit = false;
  bool equiv = false;
  bool pos = false;
  bool rawpos = false;
  bool dicinfo = false;
  bool altword = false;
  bool orgtext = false;
  bool inter = false;
  bool sent = false;
};

struct PhraseSpan {
  int type = 0;  ///< 1 keeps the span untranslated; any other type translates it as one unit
  size_t start = 0, length = 0;
};

struct BlockIn {
  std::string text;
  std::string lang;  ///< empty: the engine's source language
  std::vector<std::pair<size_t, size_t>> track;
  std::vector<PhraseSpan> phrase;
  /// Forced translations ("word=translation") of this block.
  std::vector<std::pair<std::string, std::string>> setword;
};

struct PartOut {
  char kind = 'M';  ///< M machine, S white space, I nothing to translate, E/F memory
  size_t start = 0, length = 0;
  std::string lang;
  std::string text;
  std::string equiv_org, equiv_txn;  ///< "START LENGTH;" per word pair, same order
  // Engine parts.
  std::string phrase;   ///< "TYPE START LENGTH;" per phrase of the request in this part
  std::string pos;      ///< "START LENGTH POS;" per source word
  std::string dicinfo;  ///< "START LENGTH DID;" per source word, DID 0 for unknown
  std::vector<std::string> altword;  ///< "GROUP WORD DID TEXT"
  std::string orgtext;               ///< processed original, with the orgtext key
  std::string inter;                 ///< intermediate translation of a bridge, with inter
  // Memory parts.
  bool memory = false;
  int rate = 0;
  std::string entry, diff;
  std::string pattern;  ///< the memory sentence that matched
  std::string keyword;  ///< words the source and that sentence share
};

struct UnknownOut {
  std::string context;  ///< the sentence
  size_t start = 0, length = 0;
};

struct BlockOut {
  std::vector<PartOut> parts;
  std::string translation;
  std::string track;  ///< "START LENGTH;" per request track span, over the translation
  std::string sent;   ///< "ORGSTART ORGLENGTH TXNSTART TXNLENGTH;" per sentence
  std::string equiv_org, equiv_txn;
  std::vector<UnknownOut> unknown;
  std::vector<std::string> warnings;
};

class Translator {
 public:
  Translator(EngineDesc engine, const Dictionaries& dicts, Flags flags)
      : engine_(std::move(engine)), dicts_(dicts), flags_(flags) {}
  /// Words to keep or force for every block (document rules).
  void AddRule(std::string word, std::string target) {
    rules_.emplace_back(std::move(word), std::move(target));
  }
  BlockOut Translate(const BlockIn& in) const;
  /// Translation of a text (markup text nodes); unknown words are appended to *unknown.
  std::string TranslateText(const std::string& text, std::vector<UnknownOut>* unknown) const;
  const EngineDesc& engine() const { return engine_; }

 private:
  EngineDesc engine_;
  const Dictionaries& dicts_;
  Flags flags_;
  std::vector<std::pair<std::string, std::string>> rules_;
};

/// Parse of one block: sentences and their words.
struct WordOut {
  std::string word, base, pos;
  size_t start = 0, length = 0;
  int64_t did = 0;
};
struct SentenceOut {
  char kind = 'M';
  size_t start = 0, length = 0;
  std::string org;  ///< processed original
  std::vector<WordOut> words;
};
std::vector<SentenceOut> Parse(const EngineDesc& engine, const Dictionaries& dicts,
                               const std::string& text, const std::string& lang, bool nosplit);

}  // namespace lexsim::tr
