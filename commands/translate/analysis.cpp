#include "commands/translate/analysis.h"

#include <cstdarg>
#include <cstdio>
#include <string>

#include "client/common_options.h"
#include "client/frame.h"
#include "commands/common/files.h"
#include "commands/common/payload.h"
#include "commands/common/wrap.h"
#include "commands/translate/download.h"
#include "commands/translate/input.h"
#include "commands/translate/printers.h"
#include "shell/dispatch.h"
#include "shell/output.h"
#include "shell/platform.h"
#include "soapH.h"

namespace lexctl {
namespace {

constexpr auto kParseOptions =
    CommandOptions<kTextCommonOptions | kEngineOptions | kTakeEndOfOptions>(
        {SelectKey("-fault"), SelectKey("-nosplit"), SelectKey("-orgtext"), SelectKey("-rawpos"),
         SelectKey("-subject"), SelectKey("-hint", kOptRequired), kPatternOption, kFileOption,
         kIndataOption, kOutdataOption});

// split has no engine to send; -eid only shows in its header.
constexpr auto kSplitOptions = CommandOptions<kTextCommonOptions | kTakeEid>({kFileOption});

enum DlangOption {
  kDlangLanguageHint = kOptOwn,
  kDlangEncodingHint,
  kDlangDomain,
  kDlangFromCode,
  kDlangFile
};
constexpr auto kDlangOptions =
    CommandOptions<kTextCommonOptions>({SelectKey("-nodetect"),
                                        {kDlangLanguageHint, "-languageHint", kOptRequired},
                                        {kDlangEncodingHint, "-encodingHint", kOptRequired},
                                        {kDlangDomain, "-domain", kOptRequired},
                                        {kDlangFromCode, "-fromCode", kOptRequired},
                                        {kDlangFile, "-file", kOptRequired}});

enum RecodeOption { kRecodeFromLang = kOptOwn, kRecodeFromCode, kRecodeOutfile };
constexpr auto kRecodeOptions =
    CommandOptions<kTextCommonOptions>({SelectKey("-nodetect"),
                                        SelectKey("-usesig"),
                                        {kRecodeFromLang, "-fromLang", kOptRequired},
                                        {kRecodeFromCode, "-fromCode", kOptRequired},
                                        {kRecodeOutfile, "-outfile", kOptRequired}});

// An optional string field: absent when the option was not given.
struct Field {
  std::string text;
  bool given = false;
  std::string* wire() { return given ? &text : nullptr; }
  void Set(const char* value) {
    text = value ? value : "";
    given = true;
  }
};

// Reads a -file or INFILE that may be a URL; a URL is downloaded first. A
// page fetched only for this command is not kept.
bool ReadInput(ExecThread& thread, const std::string& name, std::string& bytes,
               Download& download) {
  download = Download();
  if (!IsDownloadUrl(name)) return ReadFileData(thread, name, bytes);
  if (!DownloadUrl(thread, name, "", download)) return false;
  bool read = ReadFileData(thread, download.file, bytes);
  if (download.temporary) RemoveFile(download.file.c_str());
  return read;
}

constexpr char kNext[] = "     : ";

// printf into a string: the parse is printed or written to a file whole.
void Appendf(std::string& out, const char* format, ...) __attribute__((format(printf, 2, 3)));
void Appendf(std::string& out, const char* format, ...) {
  va_list args;
  va_start(args, format);
  char small[256];
  int n = vsnprintf(small, sizeof small, format, args);
  va_end(args);
  if (n < 0) return;
  if (static_cast<size_t>(n) < sizeof small) {
    out.append(small, n);
    return;
  }
  std::string big(static_cast<size_t>(n) + 1, '\0');
  va_start(args, format);
  vsnprintf(big.data(), big.size(), format, args);
  va_end(args);
  out.append(big.data(), n);
}

// "START LENGTH"; -1 -1 when it is missing or not two numbers.
void SpanOf(const std::string* loc, int& start, int& length) {
  int used = 0;
  if (!loc || sscanf(loc->c_str(), "%d %d %n", &start, &length, &used) != 2 ||
      used != static_cast<int>(loc->size())) {
    start = length = -1;
  }
}

// "  org: ]TEXT[" on one line, or wrapped after "  org: [" when too long.
std::string Bracketed(const char* label, std::string_view text) {
  std::string prefix = std::string("  ") + label + ": ";
  std::string line = WrapText(std::string(text) + "[", prefix + "]", kNext);
  if (line.find('\n') == line.size() - 1) return line;
  return WrapText(text, prefix + "[", kNext);
}

const std::string& Or(const std::string* text) {
  static const std::string empty;
  return text ? *text : empty;
}

void AppendSentence(std::string& out, const nv__Sentence& sentence, const std::string& block_text) {
  int start, length;
  SpanOf(sentence.loc, start, length);
  Appendf(out, " %s (%d, %d)\n", PartKindName(sentence.type), start, length);
  if (sentence.error) Appendf(out, "  err: %s\n", sentence.error->c_str());
  out += Bracketed("org", CharSpan(block_text, start, length));
  if (sentence.org) out += Bracketed("ORG", *sentence.org);
  out += "  Words:\n";
  if (!sentence.words) return;
  int number = 0;
  for (const nv__Word& word : sentence.words->item) {
    Appendf(out, "%3d loc: %-6s pos: %-6s did: %-8s", ++number, Or(word.loc).c_str(),
            Or(word.pos).c_str(), Or(word.did).c_str());
    Appendf(out, " word: [%s]", Or(word.word).c_str());
    Appendf(out, " base: [%s]\n", Or(word.base).c_str());
  }
}

void CmdParse(ExecThread& thread, ArgVector& args) {
  if (CheckHelpRequest(thread, CmdParse, args, true)) return;
  RunGuarded(thread, [&] {
    RequestFrame frame(thread, "");
    TextInput input;
    if (!frame.Scan(kParseOptions, args,
                    [&](const OptionScanner& o) { return input.TakeOption(o); })) {
      return;
    }
    nv__SourceBlockArray* blocks =
        input.Assemble(frame, "File parse cannot have other blocks specified.\n");
    if (!blocks) return;
    input.PrintHeader(frame, true);
    if (!input.OpenOutput(thread)) return;

    auto response = frame.Call(soap_call_nv__ParseText, blocks);
    std::string listing = ParseListing(thread, *blocks, response.blocks);
    if (input.has_output()) {
      input.WriteOutput(thread, &listing);
    } else {
      ThreadPrint(thread, "%s", listing.c_str());
    }
  });
}

void CmdSplit(ExecThread& thread, ArgVector& args) {
  if (CheckHelpRequest(thread, CmdSplit, args, true)) return;
  RunGuarded(thread, [&] {
    RequestFrame frame(thread, "");
    TextInput input;
    if (!frame.Scan(kSplitOptions, args,
                    [&](const OptionScanner& o) { return input.TakeOption(o); })) {
      return;
    }
    nv__SourceBlockArray* blocks =
        input.Assemble(frame, "File translation cannot have other blocks specified.\n");
    if (!blocks) return;
    input.PrintHeader(frame, frame.eid_given());

    auto response = frame.Call(soap_call_nv__SplitSentences, blocks);
    if (!input.has_output()) {
      PrintBlocks(thread, blocks, response.blocks, BlockPrintOptions());
      return;
    }
    const nv__TranslationBlockArray* received = response.blocks;
    size_t count =
        CheckBlockCount(thread, blocks->item.size(), received ? received->item.size() : 0);
    std::string spans;
    for (size_t i = 0; i < count; ++i) {
      const nv__TranslationPartArray* parts = received->item[i].parts;
      if (!parts) continue;
      for (const nv__TranslationPart* part : parts->item) {
        int start, length;
        SpanOf(part->loc, start, length);
        if (start < 0) {
          ThreadPrint(thread, "Invalid sentence location: %s\n", Or(part->loc).c_str());
          continue;
        }
        Appendf(spans, "%d %d\n", start, length);
      }
    }
    if (WriteFileData(thread, input.output_file(), spans)) ThreadPrint(thread, "Done.\n");
  });
}

// dlang's options, as given.
struct DlangFields {
  Field language_hint, encoding_hint, domain, from_code, file;
};

bool ScanDlangOptions(RequestFrame& frame, ArgVector& args, DlangFields& fields) {
  return frame.Scan(kDlangOptions, args, [&](const OptionScanner& option) {
    switch (option.id()) {
      case kDlangLanguageHint:
        fields.language_hint.Set(option.argument());
        break;
      case kDlangEncodingHint:
        fields.encoding_hint.Set(option.argument());
        break;
      case kDlangDomain:
        fields.domain.Set(option.argument());
        break;
      case kDlangFromCode:
        fields.from_code.Set(option.argument());
        break;
      case kDlangFile:
        fields.file.Set(option.argument());
        break;
    }
    return true;
  });
}

void PrintDetection(ExecThread& thread, const nv__DetectLanguageResponse& response) {
  ThreadPrint(thread, "Output:\n");
  ThreadPrint(thread, "Input Encoding Used:  %s\n",
              response.encodingUsed ? response.encodingUsed->c_str() : "");
  ThreadPrint(thread, "Language:             %s\n",
              response.language ? response.language->c_str() : "");
  ThreadPrint(thread, "Reliable:             %s\n",
              !response.isReliable   ? "null"
              : *response.isReliable ? "true"
                                     : "false");
  if (response.confidence) {
    ThreadPrint(thread, "Confidence:           %f\n", *response.confidence);
  } else {
    ThreadPrint(thread, "Confidence:           null\n");
  }
}

void CmdDlang(ExecThread& thread, ArgVector& args) {
  if (CheckHelpRequest(thread, CmdDlang, args, true)) return;
  RunGuarded(thread, [&] {
    RequestFrame frame(thread, "");
    DlangFields fields;
    if (!ScanDlangOptions(frame, args, fields)) return;
    auto& [language_hint, encoding_hint, domain, from_code, file] = fields;
    if (file.given && !frame.positional().empty()) {
      Fail(thread, "File language detection cannot have other texts specified.\n");
      return;
    }
    if (!file.given && !frame.ExpectPositional(1, 1)) return;

    std::string bytes;
    Download download;
    if (file.given) {
      if (!ReadInput(thread, file.text, bytes, download)) return;
      if (!download.file.empty() && !from_code.given && !download.charset.empty()) {
        from_code.Set(download.charset.c_str());
      }
    } else {
      bytes = frame.positional()[0];
    }

    frame.PrintSelectKeys("SelectKeys:             %s\n");
    ThreadPrint(thread, "Input:\n");
    if (!download.file.empty()) {
      ThreadPrint(thread, "URL:                  %s\n", file.text.c_str());
      ThreadPrint(thread, "Content:              %s\n", download.content_type.c_str());
    }
    if (file.given) {
      const std::string& shown = download.file.empty() ? file.text : download.file;
      ThreadPrint(thread, "File:                 %s (%d bytes)\n", shown.c_str(),
                  static_cast<int>(bytes.size()));
    } else {
      ThreadPrint(thread, "Source:               %s\n", bytes.c_str());
    }
    if (language_hint.given)
      ThreadPrint(thread, "Language Hint:        %s\n", language_hint.text.c_str());
    if (encoding_hint.given)
      ThreadPrint(thread, "Encoding Hint:        %s\n", encoding_hint.text.c_str());
    if (domain.given) ThreadPrint(thread, "Domain Hint:          %s\n", domain.text.c_str());
    if (from_code.given) ThreadPrint(thread, "From Encoding:        %s\n", from_code.text.c_str());

    xsd__base64Binary text;
    SetPayload(frame.data(), text, bytes, "binary");
    auto response = frame.Call(soap_call_nv__DetectLanguage, domain.wire(), encoding_hint.wire(),
                               language_hint.wire(), from_code.wire(), &text);
    PrintDetection(thread, response);
  });
}

// Where recode writes: OUTFILE, else the input's name with ".in." made
// ".out.", else the input's name followed by ".out".
std::string RecodeOutputName(const std::string& input, const std::string& outfile) {
  if (!outfile.empty() && outfile != input) return outfile;
  size_t name_start = FileNameStart(input);
  size_t in = input.rfind(".in.");
  if (in != std::string::npos && in >= name_start) {
    return input.substr(0, in) + ".out." + input.substr(in + 4);
  }
  return input + ".out";
}

void CmdRecode(ExecThread& thread, ArgVector& args) {
  if (CheckHelpRequest(thread, CmdRecode, args, true)) return;
  RunGuarded(thread, [&] {
    RequestFrame frame(thread, "");
    Field from_lang, from_code;
    std::string outfile;
    bool ok = frame.Scan(kRecodeOptions, args, [&](const OptionScanner& option) {
      switch (option.id()) {
        case kRecodeFromLang:
          from_lang.Set(option.argument());
          break;
        case kRecodeFromCode:
          from_code.Set(option.argument());
          break;
        case kRecodeOutfile:
          outfile = NativePath(option.argument() ? option.argument() : "");
          break;
      }
      return true;
    });
    if (!ok || !frame.ExpectPositional(2, 2)) return;
    std::string infile = frame.positional()[0];
    if (!IsDownloadUrl(infile)) infile = NativePath(infile);
    std::string to_encoding = frame.positional()[1];

    std::string bytes;
    Download download;
    if (!ReadInput(thread, infile, bytes, download)) return;
    bool downloaded = !download.file.empty();
    if (downloaded && !from_code.given && !download.charset.empty()) {
      from_code.Set(download.charset.c_str());
    }
    // A local file's output goes beside it; a downloaded page's beside the
    // downloaded copy, with ".in." made ".out.".
    std::string output = downloaded
                             ? RecodeOutputName(download.file, outfile)
                             : (outfile.empty() || outfile == infile ? infile + ".out" : outfile);

    frame.PrintSelectKeys();
    ThreadPrint(thread, "Input:\n");
    if (downloaded) {
      ThreadPrint(thread, "URL:        %s\n", infile.c_str());
      ThreadPrint(thread, "Content:    %s\n", download.content_type.c_str());
    }
    ThreadPrint(thread, "File:       %s (%d bytes)\n",
                downloaded ? download.file.c_str() : infile.c_str(),
                static_cast<int>(bytes.size()));
    if (from_lang.given) ThreadPrint(thread, "Language:   %s\n", from_lang.text.c_str());
    if (from_code.given) ThreadPrint(thread, "Encoding:   %s\n", from_code.text.c_str());

    xsd__base64Binary text;
    SetPayload(frame.data(), text, bytes, "binary");
    auto response = frame.Call(soap_call_nv__Recode, from_lang.wire(), from_code.wire(),
                               &to_encoding, &text);
    if (!response.text) throw Exception("the reply carries no recoded text");
    std::string_view recoded = PayloadBytes(response.text);
    if (!SaveBinaryFile(thread, output, recoded)) return;
    ThreadPrint(thread, "Input Encoding Used:  %s\n",
                response.encodingUsed ? response.encodingUsed->c_str() : "");
    ThreadPrint(thread, "Output Encoding:      %s\n", to_encoding.c_str());
    ThreadPrint(thread, "Output File: %s (%d bytes)\n", output.c_str(),
                static_cast<int>(recoded.size()));
  });
}

}  // namespace

std::string ParseListing(ExecThread& thread, const nv__SourceBlockArray& sent,
                         const nv__TextBlockArray* received) {
  size_t count = CheckBlockCount(thread, sent.item.size(), received ? received->item.size() : 0);
  std::string out;
  for (size_t i = 0; i < count; ++i) {
    const nv__SourceBlock& request = sent.item[i];
    const nv__TextBlock& block = received->item[i];
    if (i > 0) out += "\n";
    Appendf(out, "Block %d\n", static_cast<int>(i + 1));
    if (block.error) Appendf(out, "  err: %s\n", block.error->c_str());
    out += WrapText(Or(request.text), "  org: ", kNext);
    if (request.pattern) out += WrapText(Or(request.pattern->text), "  pat: ", kNext);
    if (!block.parts) continue;
    for (const nv__Sentence& sentence : block.parts->item) {
      AppendSentence(out, sentence, Or(request.text));
    }
  }
  return out;
}

const CommandRecord kAnalysisCommandRows[] = {
    {"p", CmdParse, 0, nullptr, nullptr},
    {"parse", CmdParse, 0, "Parse text into sentences and words.",
     "Usage: parse <[--] TEXT+ | -file FILE | -indata INFILE>\n\n" LEXCTL_COMMON_OPTION_HELP
     "    -fault      Return a fault if the parse fails.\n"
     "    -nosplit    Do not sentence split the text; parse it as one sentence.\n"
     "    -orgtext    Return the processed original text.\n"
     "    -rawpos     Return the raw engine POS code instead of the QZ_POS code.\n"
     "    -subject    Return the dictionary subject instead of the DID.\n"
     "    -hint       HINT, the type of text.\n"
     "    -eid        The engine to use (default: the current engine).\n"
     "    -prop       KEY=VALUE, an engine property; may be repeated.\n"
     "    -pattern    A phrase pattern for the next block; may be repeated.\n"
     "    -file       Parse FILE as one block; the parse is written to FILE.out.\n"
     "    -indata     Parse INFILE as one block.\n"
     "    -outdata    Write the parse to OUTFILE.\n"
     "    --          Every later argument is text, even when it begins with -.\n"},
    {"split", CmdSplit, 0, "Split text into sentences.",
     "Usage: split [LANG=]TEXT+ | -file FILE>\n\n" LEXCTL_COMMON_OPTION_HELP
     "    -eid        Shown as the engine; the split needs none.\n"
     "    -file       Split FILE as one block and write the sentence spans\n"
     "                (START LENGTH, one per line) to FILE.out.\n"
     "\nNote: if the language is not specifed then the source language for the current engine will "
     "be used.\n"},
    {"dlang", CmdDlang, 0, "Detect the language of a text.",
     "Usage: dlang <TEXT+ | -file FILE>\n\n" LEXCTL_COMMON_OPTION_HELP
     "    -nodetect   Disable character encoding detection\n"
     "    -languageHint LANG\n"
     "                The language the text is most likely in.\n"
     "    -encodingHint ENCODING\n"
     "                The character encoding the text is most likely in.\n"
     "    -domain     LANG[,LANG...], the languages the text may be in.\n"
     "    -fromCode   The character encoding of the text.\n"
     "    -file       Detect the language of FILE, a file name or an http:// URL.\n"},
    {"recode", CmdRecode, 0, "Convert a file to another character encoding.",
     "Usage: recode INFILE ENCODING\n\n" LEXCTL_COMMON_OPTION_HELP
     "    -nodetect   Disable character encoding detection\n"
     "    -usesig     Add a Unicode signature (BOM) to Unicode output\n"
     "    -fromLang   The language of the text.\n"
     "    -fromCode   The character encoding of INFILE.\n"
     "    -outfile    Write the result to OUTFILE (default: INFILE followed by\n"
     "                .out).\n"
     "\nINFILE may be an http:// URL; the page is downloaded first.\n"},
    {nullptr, nullptr, 0, nullptr, nullptr},
};

const CommandOptionTable kAnalysisOptionTables[] = {
    {"parse", kParseOptions},   {"split", kSplitOptions}, {"dlang", kDlangOptions},
    {"recode", kRecodeOptions}, {nullptr, nullptr},
};

}  // namespace lexctl
