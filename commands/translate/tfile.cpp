#include "commands/translate/tfile.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "client/common_options.h"
#include "client/frame.h"
#include "commands/common/files.h"
#include "commands/translate/printers.h"
#include "commands/translate/tfile_batch.h"
#include "shell/dispatch.h"
#include "shell/output.h"
#include "shell/platform.h"
#include "soapH.h"

namespace lexctl {
namespace {

enum TfileOption {
  kTfDicinfo = kOptOwn,
  kTfOrgtext,
  kTfBlocks,
  kTfLines,
  kTfSuffix,
  kTfOutdir,
  kTfUnknown,
  kTfDid,
  kTfErrors,
  kTfTiming,
  kTfFlush,
  kTfSkip,
  kTfEscape,
};

constexpr auto kTfileOptions =
    CommandOptions<kTextCommonOptions | kTxncacheOptions | kEngineOptions>({
        {kTfDicinfo, "-dicinfo", kOptNoArgument},
        SelectKey("-nosplit"),
        {kTfOrgtext, "-orgtext", kOptNoArgument},
        SelectKey("-splitmax", kOptRequired),
        SelectKey("-splitmin", kOptRequired),
        {kTfBlocks, "-blocks", kOptRequired},
        {kTfLines, "-lines", kOptRequired},
        {kTfSuffix, "-suffix", kOptRequired},
        {kTfOutdir, "-outdir", kOptRequired},
        {kTfUnknown, "-unknown", kOptOptional},
        {kTfDid, "-did", kOptRequired},
        {kTfErrors, "-errors", kOptNoArgument},
        {kTfTiming, "-timing", kOptNoArgument},
        {kTfFlush, "-flush", kOptNoArgument},
        {kTfSkip, "-skip", kOptRequired},
        {kTfEscape, "-escape", kOptNoArgument},
    });

/// Everything a run of tfile was asked for.
struct TfileRun {
  tfile::Selection selection;
  std::string suffix;
  std::string outdir;
  bool orgtext = false;
  bool dictionary = false;  // -dicinfo, -unknown or -did
  long keep_did = -1;       // rows of the dictionary file: all, or of one DID
  bool errors = false;
  bool timing = false;
  bool flush = false;
};

bool ReadCount(const char* text, unsigned min, unsigned& out) {
  char* end = nullptr;
  unsigned long value = text && *text ? strtoul(text, &end, 10) : 0;
  if (!text || !*text || *end || *text == '-' || value < min || value > 0xFFFFFFFFul) return false;
  out = static_cast<unsigned>(value);
  return true;
}

// One output file of an input; removed again unless the run completes.
class OutputFile {
 public:
  bool Open(ExecThread& thread, const std::string& path, const char* head) {
    path_ = path;
    file_ = OpenFile(path.c_str(), "wb");
    if (!file_) {
      Fail(thread, "Failed to create output file: %s\n", path.c_str());
      return false;
    }
    Write(head);
    return true;
  }
  ~OutputFile() { Discard(); }
  bool is_open() const { return file_ != nullptr; }
  const std::string& path() const { return path_; }
  void Write(std::string_view text) {
    if (file_ && !PutBytes(file_, text)) failed_ = true;
  }
  void Flush() {
    if (file_ && fflush(file_) != 0) failed_ = true;
  }
  /// Closes the file; false (and no file left) when it could not be written.
  bool Close(ExecThread& thread) {
    if (!file_) return true;
    bool ok = fclose(file_) == 0 && !failed_;
    file_ = nullptr;
    if (!ok) {
      RemoveFile(path_.c_str());
      Fail(thread, "Failed to write output file: %s\n", path_.c_str());
    }
    return ok;
  }
  /// Leaves the file as far as it got.
  void Keep() {
    if (file_) fclose(file_);
    file_ = nullptr;
  }
  void Discard() {
    if (!file_) return;
    fclose(file_);
    file_ = nullptr;
    RemoveFile(path_.c_str());
  }

 private:
  std::string path_;
  FILE* file_ = nullptr;
  bool failed_ = false;
};

double Seconds(std::chrono::steady_clock::time_point since) {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - since).count();
}

// Sends the lines of a batch that have text; the results, one a line sent.
const nv__TranslationBlockArray* SendBatch(RequestFrame& frame, const TfileRun& run,
                                           const std::string& path, tfile::Batch& batch) {
  ExecThread& thread = frame.thread();
  ThreadPrint(thread, "File: %s, sending lines %d - %d\n", path.c_str(), static_cast<int>(batch.first_sent),
              static_cast<int>(batch.last_sent));
  nv__SourceBlockArray blocks;
  blocks.item.resize(batch.sent);
  size_t i = 0;
  for (tfile::Line& line : batch.lines) {
    if (line.send) blocks.item[i++].text = &line.text;
  }
  auto asked = std::chrono::steady_clock::now();
  auto response = frame.Call(soap_call_nv__TranslateText, &blocks);
  if (run.timing) ThreadPrint(thread, "Time: %.3f secs\n", Seconds(asked));
  const nv__TranslationBlockArray* results = response.blocks;
  size_t got = results ? results->item.size() : 0;
  if (got != batch.sent) {
    throw Exception("the server answered " + std::to_string(got) + " blocks for " +
                    std::to_string(batch.sent) + " lines");
  }
  return results;
}

// The translation of one line into text; what went wrong, or "".
std::string LineStatus(const nv__TranslationBlock& block, std::string& text) {
  std::string status;
  if (block.error) {
    status = *block.error;
    // The message stays on its line of the output.
    for (char& c : status) {
      if (c == '\r' || c == '\n' || c == '\t') c = ' ';
    }
  } else if (!BuildTranslation(block, text)) {
    status = "no translation";
  }
  return status;
}

void WriteDictionaryRows(ExecThread& thread, const TfileRun& run, const tfile::Line& line,
                         const nv__TranslationBlock& block, OutputFile& dic, std::string& rows) {
  if (!dic.is_open() || !block.parts) return;
  for (const nv__TranslationPart* part : block.parts->item) {
    auto* engine_part = dynamic_cast<const nv__TranslationPartEngine*>(part);
    if (!engine_part || !engine_part->dicinfo) continue;
    rows.clear();
    if (!tfile::AppendDictionaryRows(rows, line.number, line.text, *engine_part->dicinfo,
                                     run.keep_did, run.selection.escape)) {
      ThreadPrint(thread, "Invalid dictionary info on line %u: %s\n", line.number,
                  engine_part->dicinfo->c_str());
    }
    dic.Write(rows);
  }
}

// Opens the output files of an input and names them.
bool OpenOutputs(ExecThread& thread, const TfileRun& run, const std::string& path, OutputFile& txn,
                 OutputFile& org, OutputFile& dic) {
  if (!txn.Open(thread, tfile::OutputName(path, "txn", run.suffix, run.outdir), kUtf8Signature)) return false;
  if (run.orgtext && !org.Open(thread, tfile::OutputName(path, "org", run.suffix, run.outdir), kUtf8Signature)) return false;
  if (run.dictionary &&
      !dic.Open(thread, tfile::OutputName(path, "dic", run.suffix, run.outdir), tfile::kDictionaryHeader)) {
    return false;
  }
  ThreadPrint(thread, "Input File:   %s\n", path.c_str());
  for (const OutputFile* out : {&txn, &org, &dic}) {
    if (out->is_open()) ThreadPrint(thread, "Output File:  %s\n", out->path().c_str());
  }
  ThreadPrint(thread, "\n");
  return true;
}

// Translates one input file into its output files.
void TranslateFile(RequestFrame& frame, const TfileRun& run,
                   const std::string& path) {
  ExecThread& thread = frame.thread();
  std::ifstream in;
  if (!IsDirectory(path.c_str())) in.open(path, std::ios::binary);
  if (!in.is_open()) {
    Fail(thread, "Failed to open file: %s\n", path.c_str());
    return;
  }
  OutputFile txn, org, dic;
  if (!OpenOutputs(thread, run, path, txn, org, dic)) return;

  auto started = std::chrono::steady_clock::now();
  unsigned sent = 0, requests = 0, failed = 0;
  tfile::Batcher batcher(in, run.selection);
  tfile::Batch batch;
  std::string text, rows;
  try {
    while (batcher.Next(batch)) {
      const nv__TranslationBlockArray* results = nullptr;
      if (batch.sent) {
        results = SendBatch(frame, run, path, batch);
        ++requests;
        sent += batch.sent;
      }
      size_t i = 0;
      for (const tfile::Line& line : batch.lines) {
        std::string status;
        text.clear();
        if (line.send) {
          const nv__TranslationBlock& block = results->item[i++];
          status = LineStatus(block, text);
          if (!status.empty()) {
            ++failed;
            text.clear();
          }
          WriteDictionaryRows(thread, run, line, block, dic, rows);
        }
        // An empty line was not sent: it has no status and stays empty.
        if (run.errors && line.send) txn.Write(status.empty() ? "OK\t" : "ERROR: " + status + "\t");
        txn.Write(run.selection.escape ? tfile::EncodeEscapes(text) : text);
        txn.Write(line.end);
        if (org.is_open()) {
          org.Write(run.selection.escape ? tfile::EncodeEscapes(line.text) : line.text);
          org.Write(line.end);
        }
      }
      if (run.flush) {
        for (OutputFile* out : {&txn, &org, &dic}) out->Flush();
      }
      // The response is freed batch by batch, not at the end of the command.
      soap_destroy(frame.soap());
      soap_dealloc(frame.soap(), nullptr);
    }
  } catch (...) {
    for (OutputFile* out : {&txn, &org, &dic}) {
      if (!out->is_open()) continue;
      if (run.flush) {
        out->Keep();
        ThreadPrint(thread, "Incomplete output file kept: %s\n", out->path().c_str());
      } else {
        out->Discard();
      }
    }
    throw;
  }
  for (OutputFile* out : {&txn, &org, &dic}) out->Close(thread);
  if (failed) ThreadPrint(thread, "File: %s, %u of %u lines failed\n", path.c_str(), failed, sent);
  if (run.timing) {
    ThreadPrint(thread, "File: %s, %u lines in %u requests, %.3f secs\n", path.c_str(), sent, requests,
                Seconds(started));
  }
}

void CmdTfile(ExecThread& thread, ArgVector& args) {
  if (CheckHelpRequest(thread, CmdTfile, args, true)) return;
  RunGuarded(thread, [&] {
    LocalData& data = Local(thread);
    RequestFrame frame(thread, data.cachemark ? " txncachemark" : "");
    TfileRun run;
    bool dicinfo_key = false;
    auto ask_dicinfo = [&] {
      run.dictionary = true;
      if (!dicinfo_key) frame.AddSelectKey("dicinfo");
      dicinfo_key = true;
    };
    bool ok = frame.Scan(kTfileOptions, args, [&](const OptionScanner& option) {
      const char* value = option.argument();
      switch (option.id()) {
        case kTfDicinfo: ask_dicinfo(); break;
        case kTfOrgtext:
          run.orgtext = true;
          frame.AddSelectKey("orgtext");
          break;
        case kTfBlocks:
          if (!ReadCount(value, 1, run.selection.blocks)) {
            Fail(thread, "Invalid block count: %s\n", value);
            return false;
          }
          break;
        case kTfLines:
          if (!tfile::ParseLineRange(value, run.selection.first, run.selection.last)) {
            Fail(thread, "Invalid line range: %s\n", value);
            return false;
          }
          break;
        case kTfSuffix: run.suffix = value; break;
        case kTfOutdir: run.outdir = value; break;
        case kTfUnknown:
          ask_dicinfo();
          run.keep_did = 0;
          break;
        case kTfDid: {
          unsigned did = 0;
          if (!ReadCount(value, 0, did)) {
            Fail(thread, "Invalid dictionary ID: %s\n", value);
            return false;
          }
          ask_dicinfo();
          run.keep_did = did;
          break;
        }
        case kTfErrors: run.errors = true; break;
        case kTfTiming: run.timing = true; break;
        case kTfFlush: run.flush = true; break;
        case kTfSkip:
          if (!ReadCount(value, 0, run.selection.skip)) {
            Fail(thread, "Invalid skip count: %s\n", value);
            return false;
          }
          break;
        case kTfEscape: run.selection.escape = true; break;
      }
      return true;
    });
    if (!ok || !frame.ExpectPositional(1, 1)) return;

    std::vector<std::string> files = MatchPaths(frame.positional()[0], false);
    if (files.empty()) {
      Fail(thread, "Invalid arguments. No matching files found.\n");
      return;
    }
    if (!run.outdir.empty()) MakeDirectory(run.outdir.c_str());

    frame.PrintSelectKeys();
    frame.PrintEngine();
    for (const std::string& file : files) TranslateFile(frame, run, file);
  });
}

}  // namespace

const CommandRecord kTfileCommandRows[] = {
    {"tfile", CmdTfile, 0, "Translate a text file line by line.",
     "Usage: tfile INFILE\n"
     "              [-select KEYS]              [-strict]\n"
     "              [-reqgroup ID]              [-runas USERID]\n"
     "              [-uilang LANG]              [-rmax MILLISEC]\n"
     "              [-bmax BYTES]               [-smax SENTENCES]\n"
     "              [-dicinfo]                  [-resetsessions]\n"
     "              [-dbcache VALUE]            [-neweid]\n"
     "              [-nosplit]                  [-orgtext]\n"
     "              [-txncache VALUE]           [-txncachemark]\n"
     "              [-splitmax VALUE]           [-splitmin VALUE]\n"
     "              [-eid ENGINE]               [-prop KEY=VALUE]*\n"
     "              [-blocks N]                 [-lines N-N]\n"
     "              [-suffix SUFFIX]            [-outdir DIR]\n"
     "              [-unknown[=VALUE]]          [-did DID]\n"
     "              [-errors]                   [-timing]\n"
     "              [-flush]                    [-skip LINES]\n"
     "              [-escape]\n"
     "\n" LEXCTL_COMMON_OPTION_HELP
     "    -eid        Engine to use for the translation.\n"
     "    -prop       Engine property KEY=VALUE. May be repeated.\n"
     "    -blocks     Most lines (blocks) sent in one request; 100 by default.\n"
     "    -lines      Send only the lines START-STOP (counted from 1).\n"
     "    -skip       Skip LINES source lines after each line read.\n"
     "    -escape     Decode \\r, \\n and \\\\ in the input; encode them in the output.\n"
     "    -suffix     Output names get .SUFFIX before their extension.\n"
     "    -outdir     Write the output files to DIR instead of beside INFILE.\n"
     "    -orgtext    Also write the lines sent to NAME.org.txt.\n"
     "    -dicinfo    Write the dictionary used for each word to NAME.dic.txt.\n"
     "    -unknown    As -dicinfo, listing only unknown words (dictionary 0).\n"
     "    -did        As -dicinfo, listing only words from dictionary DID.\n"
     "    -errors     Start each line of NAME.txn.txt with the block's status,\n"
     "                OK or ERROR: and the server's message, and a tab.\n"
     "    -timing     Show the time of each request and of each file.\n"
     "    -flush      Flush the output files after each request, and keep them\n"
     "                when a request fails.\n\n"
     "INFILE may be a pattern (* and ?) naming several files. Each line is one\n"
     "block; empty lines are not sent and stay empty in the output. The\n"
     "translation of NAME.EXT goes to NAME.txn.txt.\n"},
    {nullptr, nullptr, 0, nullptr, nullptr},
};

const CommandOptionTable kTfileOptionTables[] = {
    {"tfile", kTfileOptions},
    {nullptr, nullptr},
};

}  // namespace lexctl
