// Printers of translation results: blocks in the normal and the memory
// layout, the test summary, unknown words, and the sentences of stext.
#pragma once

#include <string>

class nv__SourceBlock;
class nv__SourceBlockArray;
class nv__TranslationBlock;
class nv__TranslationBlockArray;
class nv__UnknownWordArray;
class nv__TranslateEquiv;

namespace lexctl {

class ExecThread;

/// Display name of a part or sentence kind (first character of type).
const char* PartKindName(const std::string* type);

/// The translation of a block: its parts' texts in order. False when a
/// part has no text (or the block has no parts).
bool BuildTranslation(const nv__TranslationBlock& block, std::string& translation);

struct BlockPrintOptions {
  bool simple = false;  ///< -simple: only the translation lines
  bool memory = false;  ///< the translation-memory layout (engine "QZ-TM")
  bool test = false;    ///< -testfmt: the test summary instead of the block
};

/// Prints the number mismatch line (also on standard error) when the counts
/// differ; returns how many blocks are to be printed.
size_t CheckBlockCount(ExecThread& thread, size_t sent, size_t received);

/// Prints block number index (from 1): request is the block that was sent
/// (null when unknown), block what came back.
void PrintBlock(ExecThread& thread, int index, const nv__SourceBlock* request,
                const nv__TranslationBlock& block, const BlockPrintOptions& options);

/// Prints every received block with an empty line between two, after the
/// count check.
void PrintBlocks(ExecThread& thread, const nv__SourceBlockArray* sent,
                 const nv__TranslationBlockArray* received, const BlockPrintOptions& options);

/// "\nUnknown Words:\n" and the words, when there are any.
void PrintUnknownWords(ExecThread& thread, const nv__UnknownWordArray* unknown);

/// The equivalence pairs of org (spans of original) and txn (spans of
/// translation) under the header "Equiv:".
void PrintEquiv(ExecThread& thread, const nv__TranslateEquiv& equiv, const std::string& original,
                const std::string& translation, const char* indent);

/// The sentence spans of stext ("ORGSTART ORGLENGTH TXNSTART TXNLENGTH;").
void PrintSentences(ExecThread& thread, const std::string& sent, const std::string& original,
                    const std::string& translation);

/// Track spans of the original (request) and the translation (response).
void PrintTrackInfo(ExecThread& thread, const std::string& org_track, const std::string* txn_track,
                    const std::string& original, const std::string& translation);

}  // namespace lexctl
