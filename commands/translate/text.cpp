#include "commands/translate/text.h"

#include "client/common_options.h"
#include "client/frame.h"
#include "commands/common/wrap.h"
#include "commands/translate/input.h"
#include "commands/translate/printers.h"
#include "shell/dispatch.h"
#include "shell/output.h"
#include "soapH.h"

namespace lexctl {
namespace {

enum TextOption { kTextSimple = kOptOwn, kTextTestFormat };

// The options of text that utext shares.
constexpr OptionDef kTextOwnOptions[] = {SelectKey("-fault"),
                                         SelectKey("-equiv"),
                                         SelectKey("-pos"),
                                         SelectKey("-dicinfo"),
                                         SelectKey("-nosplit"),
                                         SelectKey("-altword"),
                                         SelectKey("-altsent", kOptOptional),
                                         SelectKey("-inter"),
                                         SelectKey("-orgtext"),
                                         SelectKey("-unknown", kOptOptional),
                                         SelectKey("-hint", kOptRequired),
                                         kPatternOption,
                                         kSetwordOption,
                                         kFileOption,
                                         {kTextSimple, "-simple", kOptNoArgument},
                                         {kTextTestFormat, "-testfmt", kOptNoArgument},
                                         kIndataOption,
                                         kOutdataOption};
constexpr uint32_t kTextShared =
    kTextCommonOptions | kTxncacheOptions | kEngineOptions | kTakeEndOfOptions;

constexpr auto kTextOptions = CommandOptions<kTextShared>(kTextOwnOptions);
constexpr auto kUtextOptions =
    CommandOptions<kTextShared>(kTextOwnOptions, {SelectKey("-retranslate", kOptRequired)});

constexpr auto kStextOptions = CommandOptions<kCommonOptions | kTxncacheOptions | kEngineOptions>(
    {SelectKey("-fault"), SelectKey("-equiv"), SelectKey("-sent"), SelectKey("-nosplit"),
     SelectKey("-hint", kOptRequired)});

// The engine whose results are shown in the memory layout (exact, case and all).
constexpr char kMemoryEngine[] = "QZ-TM";

const char* CacheMark(ExecThread& thread) { return Local(thread).cachemark ? " txncachemark" : ""; }

// text and utext differ only in the operation they call.
template <class Operation>
void RunText(ExecThread& thread, ArgVector& args, const OptionDef* table, Operation operation) {
  RunGuarded(thread, [&] {
    RequestFrame frame(thread, CacheMark(thread));
    TextInput input;
    BlockPrintOptions print;
    bool ok = frame.Scan(table, args, [&](const OptionScanner& option) {
      if (input.TakeOption(option)) return true;
      if (option.id() == kTextSimple) print.simple = true;
      if (option.id() == kTextTestFormat) {
        print.test = true;
        frame.AddSelectKey("equiv");
      }
      return true;
    });
    if (!ok) return;
    nv__SourceBlockArray* blocks =
        input.Assemble(frame, "File translation cannot have other blocks specified.\n");
    if (!blocks) return;
    input.PrintHeader(frame, true);
    if (!input.OpenOutput(thread)) return;
    print.memory = frame.eid() == kMemoryEngine;

    auto response = frame.Call(operation, blocks);
    const nv__TranslationBlockArray* received = response.blocks;
    if (input.has_output()) {
      size_t count = CheckBlockCount(thread, blocks->item.size(), received ? received->item.size() : 0);
      std::string translation;
      bool built = count > 0 && BuildTranslation(received->item[0], translation);
      if (!input.WriteOutput(thread, built ? &translation : nullptr)) return;
    } else {
      PrintBlocks(thread, blocks, received, print);
    }
    PrintUnknownWords(thread, response.unknown);
  });
}

void CmdText(ExecThread& thread, ArgVector& args) {
  if (CheckHelpRequest(thread, CmdText, args, true)) return;
  RunText(thread, args, kTextOptions, soap_call_nv__TranslateText);
}

void CmdUtext(ExecThread& thread, ArgVector& args) {
  if (CheckHelpRequest(thread, CmdUtext, args, true)) return;
  RunText(thread, args, kUtextOptions, soap_call_nv__TranslateTextUpdate);
}

void CmdStext(ExecThread& thread, ArgVector& args) {
  if (CheckHelpRequest(thread, CmdStext, args, true)) return;
  RunGuarded(thread, [&] {
    RequestFrame frame(thread, CacheMark(thread));
    if (!frame.Scan(kStextOptions, args)) return;
    if (frame.positional().empty()) {
      Fail(thread, "Invalid arguments: no text supplied. See help.\n");
      return;
    }
    if (!frame.ExpectPositional(1, 1)) return;
    // Parsed like any text argument; only text and track travel, the
    // operation has no place for a language or phrases.
    ParsedBlock block;
    ParseSourceBlock(&thread, frame.positional()[0], block);
    frame.PrintSelectKeys();
    frame.PrintEngine();
    ThreadPrint(thread, "\n");

    auto response = frame.Call(soap_call_nv__TranslateTextSimple, &block.text,
                               block.track.empty() ? nullptr : &block.track);
    std::string translation = response.text ? *response.text : "";
    PrintWrapped(thread, block.text, "  org: ", "     : ");
    PrintWrapped(thread, translation, "  txn: ", "     : ");
    if (response.equiv) {
      ThreadPrint(thread, "\n");
      PrintEquiv(thread, *response.equiv, block.text, translation, "");
    }
    if (response.sent) PrintSentences(thread, *response.sent, block.text, translation);
  });
}

#define TEXT_USAGE_OPTIONS                                                                     \
  "              [-select KEYS]              [-strict]\n"                                      \
  "              [-reqgroup ID]              [-runas USERID]\n"                                \
  "              [-uilang LANG]              [-rmax MILLISEC]\n"                               \
  "              [-bmax BYTES]               [-smax SENTENCES]\n"                              \
  "              [-resetsessions]            [-dbcache VALUE]\n"                               \
  "              [-neweid]                   [-fault]\n"                                       \
  "              [-equiv]                    [-pos]\n"                                         \
  "              [-dicinfo]                  [-nosplit]\n"                                     \
  "              [-altword]                  [-altsent[=MAX]]\n"                               \
  "              [-inter]                    [-orgtext]\n"                                     \
  "              [-txncache VALUE]           [-txncachemark]\n"                                \
  "              [-unknown[=VALUE]]          [-hint=HINT]\n"                                   \
  "              [-eid ENGINE]               [-prop KEY=VALUE]*\n"                             \
  "              [-pattern PATTERN]*         [-setword SETWORD]*\n"                            \
  "              [-simple]                   [-testfmt]\n"                                     \
  "              [-outdata OUTFILE]\n"

#define TEXT_OPTION_HELP                                                                       \
  LEXCTL_COMMON_OPTION_HELP                                                                    \
  "    -fault      Return a fault if the translation fails.\n"                                 \
  "    -equiv      Get equiv info for the translation.\n"                                      \
  "    -pos        Get part of speech info for the translation.\n"                             \
  "    -dicinfo    Get dictionary info for the translation.\n"                                 \
  "    -nosplit    Do not sentence split the text; translate as one sentence.\n"               \
  "    -altword    Get alternative words for the translation.\n"                               \
  "    -altsent    Get at most MAX alternative sentences (needs -nosplit).\n"                  \
  "    -inter      Get the intermediate results of bridge engines.\n"                          \
  "    -orgtext    Return the processed original text.\n"                                      \
  "    -unknown    Return a summary of all unknown words in the org text.\n"                   \
  "    -hint       Hint of the type of text.\n"                                                \
  "    -eid        Engine to use instead of the current engine.\n"                             \
  "    -prop       Engine property for this request; repeatable. An empty value\n"             \
  "                sends no properties at all.\n"                                              \
  "    -pattern    Phrase pattern for the next text block.\n"                                  \
  "    -setword    Change-translation instruction for the next text block;\n"                  \
  "                several are separated by ';'.\n"                                            \
  "    -file       Translate a file as one block; output goes to FILE.out.\n"                  \
  "    -simple     Show only the translation of each block.\n"                                 \
  "    -testfmt    Summary output for unit tests (asks for equiv info).\n"                     \
  "    -indata     Translate a file as one block.\n"                                           \
  "    -outdata    Write the translation to OUTFILE.\n"                                        \
  "    --          End of options: every later word is a text block.\n"                        \
  "\nA text block may start with LANG= to give its source language. Markers\n"                 \
  "@@N ... @@N (track) and ##N ... ##N or ##N/TYPE/ ... ##N (phrase), N a digit,\n"           \
  "mark spans.\n"

}  // namespace

const CommandRecord kTextCommandRows[] = {
    {"t", CmdText, 0, nullptr, nullptr},
    {"text", CmdText, 0, "Translate text.",
     "Usage: text <[--] TEXT+ | -file FILE | -indata INFILE>\n" TEXT_USAGE_OPTIONS
     "\n" TEXT_OPTION_HELP},
    {"tu", CmdUtext, 0, nullptr, nullptr},
    {"utext", CmdUtext, 0, "Translate text and update the learn dictionary.",
     "Usage: utext <[--] TEXT+ | -file FILE | -indata INFILE>\n"
     "              ** all text options are also available **\n"
     "              <-setword SETWORD>          [-retranslate]\n\n"
     "    -setword    Change-translation instruction for the next text block;\n"
     "                several are separated by ';'.\n"
     "    -retranslate  Translate again with the changed translation.\n"},
    {"ts", CmdStext, 0, nullptr, nullptr},
    {"stext", CmdStext, 0, "Translate text with the simple interface.",
     "Usage: stext TEXT\n"
     "              [-select KEYS]              [-strict]\n"
     "              [-reqgroup ID]              [-runas USERID]\n"
     "              [-rmax MILLISEC]            [-fault]\n"
     "              [-equiv]                    [-sent]\n"
     "              [-nosplit]                  [-txncache VALUE]\n"
     "              [-txncachemark]             [-hint=HINT]\n"
     "              [-eid ENGINE]               [-prop KEY=VALUE]*\n\n"
     LEXCTL_COMMON_OPTION_HELP
     "    -fault      Return a fault if the translation fails.\n"
     "    -equiv      Get equiv info for the translation.\n"
     "    -sent       Get the sentence spans of the translation.\n"
     "    -nosplit    Do not sentence split the text; translate as one sentence.\n"
     "    -eid        Engine to use instead of the current engine.\n"
     "    -prop       Engine property for this request; repeatable.\n"},
    {nullptr, nullptr, 0, nullptr, nullptr},
};

const CommandOptionTable kTextOptionTables[] = {
    {"text", kTextOptions},
    {"utext", kUtextOptions},
    {"stext", kStextOptions},
    {nullptr, nullptr},
};

}  // namespace lexctl
