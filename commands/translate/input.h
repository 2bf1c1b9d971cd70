// Translation input: text arguments become source blocks (language prefix,
// track and phrase markers), or a file becomes one block; the header lines
// and the output file of the text commands.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "shell/command.h"
#include "shell/option_scanner.h"

struct soap;
class nv__SourceBlock;
class nv__SourceBlockArray;
class nv__PatternText;

namespace lexctl {

class ExecThread;
class RequestFrame;

/// One argument taken apart: "LANG=" prefix, text without markers, and the
/// spans of the markers ("@@N" track, "##N" or "##N/TYPE/" phrase), counted
/// in characters of the text.
struct ParsedBlock {
  std::optional<std::string> lang;
  std::string text;
  std::string phrase;  ///< "TYPE START LENGTH;" per phrase ID, IDs ascending
  std::string track;   ///< "START LENGTH;" per track ID, IDs ascending
};

/// Parses one text argument. A marker without its digit prints
/// "ERROR: Data marker (%s) is missing ID\n\n" and returns false; the block
/// then keeps the whole text after the prefix, without phrase or track.
/// thread may be null (no message).
bool ParseSourceBlock(ExecThread* thread, std::string_view argument, ParsedBlock& block);

/// The same, straight into wire objects allocated in soap's context. A
/// pattern takes only the text and the phrase.
bool ParseSourceBlock(ExecThread* thread, struct soap* soap, std::string_view argument,
                      nv__SourceBlock& block);
bool ParseSourceBlock(ExecThread* thread, struct soap* soap, std::string_view argument,
                      nv__PatternText& pattern);

/// A -setword value as a list: one trailing ";" dropped, split at every ";".
std::vector<std::string> SplitSetword(std::string_view setword);

/// Ids of the input options, handled by TextInput::TakeOption.
enum InputOptionId : int {
  kOptPattern = 900,
  kOptSetword,
  kOptFile,
  kOptIndata,
  kOptOutdata,
};
inline constexpr OptionDef kPatternOption = {kOptPattern, "-pattern", kOptRequired};
inline constexpr OptionDef kSetwordOption = {kOptSetword, "-setword", kOptRequired};
inline constexpr OptionDef kFileOption = {kOptFile, "-file", kOptRequired};
inline constexpr OptionDef kIndataOption = {kOptIndata, "-indata", kOptRequired};
inline constexpr OptionDef kOutdataOption = {kOptOutdata, "-outdata", kOptRequired};

/// What a text command gathers from its line for its blocks, and the files
/// it reads and writes. Typical use:
///   TextInput input;
///   frame.Scan(table, args, [&](auto& o) { return input.TakeOption(o) || ...; });
///   nv__SourceBlockArray* blocks = input.Assemble(frame, "File translation ...");
///   if (!blocks) return;
///   input.PrintHeader(frame, true);
class TextInput {
 public:
  /// Takes -pattern, -setword, -file, -indata and -outdata; false for any
  /// other option.
  bool TakeOption(const OptionScanner& option);

  /// Builds the blocks from the frame's positional words, or from the input
  /// file, in soap's context. Refuses a line with neither ("No text blocks
  /// supplied. See help.\n") or with both (mixture_message); prints file
  /// errors. Null on failure: nothing is to be sent.
  nv__SourceBlockArray* Assemble(RequestFrame& frame, const char* mixture_message);

  /// The header lines: select keys, "Engine EID:" (when engine_line),
  /// "Input File:", "Output File:", then an empty line.
  void PrintHeader(RequestFrame& frame, bool engine_line) const;

  /// Makes sure the output file can be written before anything is sent
  /// ("Unable to open file: %s\n" otherwise). True when there is none.
  bool OpenOutput(ExecThread& thread);

  /// Writes text to the output file after the UTF-8 signature; null text
  /// leaves the signature alone and prints "Failed to generate text
  /// block.\n". False on failure.
  bool WriteOutput(ExecThread& thread, const std::string* text);

  TextInput() = default;
  TextInput(const TextInput&) = delete;
  TextInput& operator=(const TextInput&) = delete;
  /// A file that OpenOutput created and that was never written (the call
  /// failed) is removed again.
  ~TextInput();

  /// FILE.out for -file, else -outdata; empty: results go to the screen.
  const std::string& output_file() const { return output_file_; }
  bool has_output() const { return !output_file_.empty(); }

 private:
  std::vector<std::string> patterns_;
  std::vector<std::string> setwords_;
  std::string input_file_;
  std::string outdata_;
  std::string output_file_;
  bool named_output_ = false;  // -file: FILE.out whatever -outdata says
  bool created_ = false;       // OpenOutput made the file
  bool written_ = false;
};

}  // namespace lexctl
