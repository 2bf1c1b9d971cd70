#include "commands/translate/analysis.h"

#include <cstdio>
#include <string>

#include "client/frame.h"
#include "commands/common/files.h"
#include "commands/common/payload.h"
#include "commands/translate/download.h"
#include "shell/dispatch.h"
#include "shell/output.h"
#include "soapH.h"

namespace lexctl {
namespace {

// The select keys of every analysis command, in the order help lists them.
#define LEXCTL_ANALYSIS_KEYS                                                                   \
  LEXCTL_OPT_SELECT, LEXCTL_OPT_KEY("-strict"), LEXCTL_OPT_KEY_ARG("-runas"),                  \
      LEXCTL_OPT_KEY_ARG("-uilang"), LEXCTL_OPT_KEY_ARG("-rmax"), LEXCTL_OPT_KEY_ARG("-bmax"), \
      LEXCTL_OPT_KEY_ARG("-smax"), LEXCTL_OPT_KEY("-resetsessions"),                           \
      LEXCTL_OPT_KEY_ARG("-dbcache"), LEXCTL_OPT_KEY("-neweid")

enum DlangOption {
  kDlangLanguageHint = kOptOwn,
  kDlangEncodingHint,
  kDlangDomain,
  kDlangFromCode,
  kDlangFile
};
const OptionDef kDlangOptions[] = {LEXCTL_ANALYSIS_KEYS,
                                   LEXCTL_OPT_KEY("-nodetect"),
                                   LEXCTL_OPT_REQGROUP,
                                   {kDlangLanguageHint, "-languageHint", kOptRequired},
                                   {kDlangEncodingHint, "-encodingHint", kOptRequired},
                                   {kDlangDomain, "-domain", kOptRequired},
                                   {kDlangFromCode, "-fromCode", kOptRequired},
                                   {kDlangFile, "-file", kOptRequired},
                                   LEXCTL_OPT_END};

enum RecodeOption { kRecodeFromLang = kOptOwn, kRecodeFromCode, kRecodeOutfile };
const OptionDef kRecodeOptions[] = {LEXCTL_ANALYSIS_KEYS,
                                    LEXCTL_OPT_KEY("-nodetect"),
                                    LEXCTL_OPT_KEY("-usesig"),
                                    LEXCTL_OPT_REQGROUP,
                                    {kRecodeFromLang, "-fromLang", kOptRequired},
                                    {kRecodeFromCode, "-fromCode", kOptRequired},
                                    {kRecodeOutfile, "-outfile", kOptRequired},
                                    LEXCTL_OPT_END};

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
  if (download.temporary) remove(download.file.c_str());
  return read;
}

void CmdDlang(ExecThread& thread, ArgVector& args) {
  if (CheckHelpRequest(thread, CmdDlang, args, true)) return;
  RunGuarded(thread, [&] {
    RequestFrame frame(thread, "");
    Field language_hint, encoding_hint, domain, from_code, file;
    bool ok = frame.Scan(kDlangOptions, args, [&](const OptionScanner& option) {
      switch (option.id()) {
        case kDlangLanguageHint:
          language_hint.Set(option.argument());
          break;
        case kDlangEncodingHint:
          encoding_hint.Set(option.argument());
          break;
        case kDlangDomain:
          domain.Set(option.argument());
          break;
        case kDlangFromCode:
          from_code.Set(option.argument());
          break;
        case kDlangFile:
          file.Set(option.argument());
          break;
      }
      return true;
    });
    if (!ok) return;
    if (file.given && !frame.positional().empty()) {
      ThreadPrint(thread, "File language detection cannot have other texts specified.\n");
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
    SetBinary(frame.data(), bytes, text);
    nv__DetectLanguageResponse response;
    frame.Check(soap_call_nv__DetectLanguage(
        frame.soap(), frame.endpoint(), "", frame.licence(), frame.clientid(), frame.reqgroup(),
        frame.select(), domain.wire(), encoding_hint.wire(), language_hint.wire(), from_code.wire(),
        &text, response));
    frame.Warnings(response.error);
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
  });
}

// Where recode writes: OUTFILE, else the input's name with ".in." made
// ".out.", else the input's name followed by ".out".
std::string RecodeOutputName(const std::string& input, const std::string& outfile) {
  if (!outfile.empty() && outfile != input) return outfile;
  size_t name_start = input.rfind('/');
  name_start = name_start == std::string::npos ? 0 : name_start + 1;
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
          outfile = option.argument() ? option.argument() : "";
          break;
      }
      return true;
    });
    if (!ok || !frame.ExpectPositional(2, 2)) return;
    std::string infile = frame.positional()[0];
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
    SetBinary(frame.data(), bytes, text);
    nv__RecodeResponse response;
    frame.Check(soap_call_nv__Recode(
        frame.soap(), frame.endpoint(), "", frame.licence(), frame.clientid(), frame.reqgroup(),
        frame.select(), from_lang.wire(), from_code.wire(), &to_encoding, &text, response));
    frame.Token(response.token);
    frame.Warnings(response.error);
    if (!response.text) throw Exception("the reply carries no recoded text");
    std::string_view recoded = BinaryBytes(response.text);
    if (!SaveBinaryFile(thread, output, recoded)) return;
    ThreadPrint(thread, "Input Encoding Used:  %s\n",
                response.encodingUsed ? response.encodingUsed->c_str() : "");
    ThreadPrint(thread, "Output Encoding:      %s\n", to_encoding.c_str());
    ThreadPrint(thread, "Output File: %s (%d bytes)\n", output.c_str(),
                static_cast<int>(recoded.size()));
  });
}

}  // namespace

const CommandRecord kAnalysisCommandRows[] = {
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

}  // namespace lexctl
