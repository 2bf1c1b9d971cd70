#include "commands/translate/documents.h"

#include <algorithm>
#include <climits>
#include <cstdio>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "client/common_options.h"
#include "client/frame.h"
#include "commands/common/files.h"
#include "commands/common/payload.h"
#include "commands/translate/document_names.h"
#include "commands/translate/printers.h"
#include "shell/dispatch.h"
#include "shell/output.h"
#include "shell/platform.h"
#include "soapH.h"

namespace lexctl {
namespace {

enum DocumentOption {
  kDocRules = kOptOwn,
  kDocIndata,
  kDocOutdata,
  kDocNoengine,
  kDocInput,
  kDocOutput,
  kDocTransform,
};

constexpr uint32_t kDocumentShared = kTextCommonOptions | kTxncacheOptions | kEngineOptions;

// What tran and tmulti share besides the shared rows.
constexpr OptionDef kDocumentOwnOptions[] = {
    SelectKey("-htmlcache", kOptRequired),      SelectKey("-htmlcachemark"),
    SelectKey("-pdfcache", kOptRequired),       SelectKey("-pdfcachemark"),
    SelectKey("-doccache", kOptRequired),       SelectKey("-doccachemark"),
    SelectKey("-xlscache", kOptRequired),       SelectKey("-xlscachemark"),
    SelectKey("-pptcache", kOptRequired),       SelectKey("-pptcachemark"),
    SelectKey("-unknown", kOptOptional),        {kDocRules, "-rules", kOptRequired},
    {kDocIndata, "-indata", kOptRequired},      {kDocOutdata, "-outdata", kOptRequired},
    {kDocNoengine, "-noengine", kOptNoArgument}};

constexpr auto kTranOptions = CommandOptions<kDocumentShared | kTakeEndOfOptions>(
    kDocumentOwnOptions, {SelectKey("-xmlcache", kOptRequired), SelectKey("-xmlcachemark")});
constexpr auto kTmultiOptions =
    CommandOptions<kDocumentShared | kTakeEndOfOptions>(kDocumentOwnOptions);
constexpr auto kXmlOptions =
    CommandOptions<kDocumentShared>({SelectKey("-unknown", kOptOptional),
                                     {kDocInput, "-input", kOptRequired},
                                     {kDocOutput, "-output", kOptRequired},
                                     {kDocTransform, "-transform", kOptRequired}});

constexpr char kDocumentCacheMarks[] = " txncachemark htmlcachemark pdfcachemark";

/// What tran and tmulti read from their command line.
struct DocumentRequest {
  std::string rules_file;
  std::vector<std::string> indata_files;
  std::string outdata;
  bool noengine = false;
  std::string rules;                         // the rules text
  std::vector<std::string_view> inline_docs;  // given on the line
  std::optional<DimeStreams> streams;
  /// What is sent: the files, then the documents on the line.
  std::vector<xsd__base64Binary> payloads;
};

// "type, encoding", or whichever of the two there is.
std::string Details(const std::string* type, const std::string* encoding) {
  std::string t = type ? *type : "", e = encoding ? *encoding : "";
  return t + (!t.empty() && !e.empty() ? ", " : "") + e;
}

bool FitsRequest(ExecThread& thread, const std::string& path, const std::string& data) {
  if (data.size() <= static_cast<size_t>(INT_MAX)) return true;
  Fail(thread, "File too large to send: %s\n", path.c_str());
  return false;
}

// SaveBinaryFile for a value that may have streamed to disk.
bool SaveReceived(ExecThread& thread, DimeStreams& streams, const xsd__base64Binary* data,
                  const std::string& path) {
  if (streams.Save(data, path) == WriteResult::kOk) return true;
  Fail(thread, "Unable to save binary data to file: %s\n", path.c_str());
  return false;
}

// Attachments of one output document: printed, or saved in the folder beside
// its output file. A reply may name the same file many times (or names that
// come down to the same plain name): each file is written once, with the
// last attachment of that name, as if each had replaced the one before, so
// the work is bounded by the bytes of the reply, not by a count of
// rewrites of one file.
void Attachments(ExecThread& thread, DimeStreams& streams, const std::vector<const nv__OutputFileArray*>& lists,
                 const std::string& outfile) {
  std::vector<const nv__OutputFile*> files;
  for (const nv__OutputFileArray* list : lists) {
    if (!list) continue;
    for (const nv__OutputFile& file : list->item) files.push_back(&file);
  }
  if (files.empty()) return;
  if (outfile.empty()) {
    for (const nv__OutputFile* file : files) {
      std::string_view bytes = PayloadBytes(file->data);
      ThreadPrint(thread, "Output Attachment: %s (%d bytes)\n%.*s\n", file->name ? file->name->c_str() : "",
                  static_cast<int>(bytes.size()), static_cast<int>(bytes.size()), bytes.data());
    }
    return;
  }
  // The server names the file; only a plain name inside the folder is taken.
  std::vector<std::string> plain(files.size());
  struct Named {
    size_t last = 0;
    size_t count = 0;
  };
  std::unordered_map<std::string, Named> names;
  for (size_t i = 0; i < files.size(); ++i) {
    plain[i] = AttachmentFileName(files[i]->name ? *files[i]->name : "");
    if (plain[i].empty()) continue;
    Named& named = names[plain[i]];
    named.last = i;
    ++named.count;
  }
  std::string folder = AttachmentFolder(outfile);
  bool made = false;
  for (size_t i = 0; i < files.size(); ++i) {
    const nv__OutputFile& file = *files[i];
    if (plain[i].empty()) {
      ThreadPrint(thread, "Invalid attachment name: %s\n", file.name ? file.name->c_str() : "");
      continue;
    }
    const Named& named = names[plain[i]];
    if (named.last != i) continue;
    if (!made) {
      if (!MakeDirectory(folder.c_str())) {
        Fail(thread, "Unable to create output directory: %s\n", folder.c_str());
        return;
      }
      made = true;
    }
    std::string path = folder + kPathSeparator + plain[i];
    if (named.count > 1) {
      ThreadPrint(thread, "Attachment name given %d times, the last one is saved: %s\n",
                  static_cast<int>(std::min<size_t>(named.count, INT_MAX)), plain[i].c_str());
    }
    if (!SaveReceived(thread, streams, file.data, path)) continue;
    ThreadPrint(thread, "Output Attachment (%s): %s (%d bytes)\n", file.type ? file.type->c_str() : "",
                path.c_str(), static_cast<int>(streams.Size(file.data)));
  }
}

// One translated document: printed, or written to outfile; false when it
// could not be written.
bool OutputDocument(ExecThread& thread, DimeStreams& streams, const xsd__base64Binary* data,
                    const std::string& details, const std::string& outfile) {
  if (outfile.empty()) {
    std::string_view bytes = PayloadBytes(data);
    ThreadPrint(thread, "Output Data (%s): (%d bytes)\n%.*s\n", details.c_str(),
                static_cast<int>(bytes.size()), static_cast<int>(bytes.size()), bytes.data());
    return true;
  }
  if (!SaveReceived(thread, streams, data, outfile)) return false;
  ThreadPrint(thread, "Output File (%s): %s (%d bytes)\n", details.c_str(), outfile.c_str(),
              static_cast<int>(streams.Size(data)));
  return true;
}

// Sends a request whose payloads may travel as DIME attachments.
template <typename Operation, typename... Own>
int SendDocuments(RequestFrame& frame, Operation operation, Own... own) {
  DimeRequest dime(frame.data());
  return frame.Send(operation, own...);
}

// Reads the command line of tran or tmulti and the files it names; false
// (after the message) when it cannot.
bool ReadDocumentRequest(RequestFrame& frame, ArgVector& args, bool multi, DocumentRequest& req) {
  ExecThread& thread = frame.thread();
  bool ok = frame.Scan(multi ? kTmultiOptions.rows : kTranOptions.rows, args, [&](const OptionScanner& option) {
    switch (option.id()) {
      case kDocRules: req.rules_file = NativePath(option.argument()); break;
      case kDocIndata:
        if (!multi) req.indata_files.clear();
        req.indata_files.push_back(NativePath(option.argument()));
        break;
      case kDocOutdata: req.outdata = NativePath(option.argument()); break;
      case kDocNoengine: req.noengine = true; break;
    }
    return true;
  });
  if (!ok) return false;

  const ArgVector& words = frame.positional();
  size_t next = 0;
  if (req.rules_file.empty()) {
    if (words.empty()) {
      Fail(thread, kMsgInvalidArgs);
      return false;
    }
    req.rules = words[next++];
  }
  if (req.indata_files.empty()) {
    size_t last = multi ? words.size() : std::min(words.size(), next + 1);
    for (; next < last; ++next) req.inline_docs.emplace_back(words[next]);
  }
  if (next != words.size()) {
    Fail(thread, kMsgInvalidArgs);
    return false;
  }
  if (!req.rules_file.empty()) {
    std::string text;
    if (!ReadFileData(thread, req.rules_file, text)) return false;
    req.rules = std::string(SkipUtf8Signature(text));
  }
  // Attachments of the reply wait beside the output file.
  req.streams.emplace(frame.data(), req.outdata.empty() ? "" : FolderOf(req.outdata));
  req.payloads.resize(req.indata_files.size() + req.inline_docs.size());
  for (size_t i = 0; i < req.indata_files.size(); ++i) {
    if (req.streams->SetFile(thread, req.payloads[i], req.indata_files[i], "indata") < 0) return false;
  }
  for (size_t i = 0; i < req.inline_docs.size(); ++i) {
    SetPayload(frame.data(), req.payloads[req.indata_files.size() + i], req.inline_docs[i], "indata");
  }
  return true;
}

void PrintDocumentHeader(RequestFrame& frame, const DocumentRequest& req, bool multi) {
  ExecThread& thread = frame.thread();
  std::string type = multi || req.indata_files.empty() ? "" : InputTypeOf(req.indata_files.front());
  frame.PrintSelectKeys();
  // The request has no field for the input type; it travels as a select key,
  // which the header shows as "Input Type:" rather than among the user's keys.
  if (!type.empty()) {
    frame.AddSelectKey("intype=" + type);
    frame.UseSelectKeys();
  }
  if (!req.rules_file.empty()) ThreadPrint(thread, "Rules File:   %s\n", req.rules_file.c_str());
  if (multi) {
    ThreadPrint(thread, "Input Data:   %d blocks\n", static_cast<int>(req.payloads.size()));
  } else if (!req.indata_files.empty()) {
    ThreadPrint(thread, "Input File:   %s\n", req.indata_files.front().c_str());
    if (!type.empty()) ThreadPrint(thread, "Input Type:   %s\n", type.c_str());
  }
  if (!req.outdata.empty()) ThreadPrint(thread, "Output File:  %s\n", req.outdata.c_str());
}

// tran: one document, or none.
void TranslateOne(RequestFrame& frame, DocumentRequest& req) {
  ExecThread& thread = frame.thread();
  nv__InputData input{};
  nv__InputData* indata = nullptr;
  if (!req.payloads.empty()) {
    input.data = &req.payloads.front();
    indata = &input;
  }
  int sent = SendDocuments(frame, soap_send_nv__Translate, &req.rules, indata);
  // A large document is not held twice while its translation comes in.
  req.streams->Release();
  auto r = frame.Receive(soap_recv_nv__Translate, sent);
  ThreadPrint(thread, "Input Encoding Used: %s\n", r.encodingUsed ? r.encodingUsed->c_str() : "");
  if (r.outdata) {
    std::string details = Details(r.outdata->type ? r.outdata->type : r.outtype,
                                  r.outdata->outputEncoding ? r.outdata->outputEncoding : r.outputEncoding);
    // Attachments belong beside a document that was saved.
    if (!OutputDocument(thread, *req.streams, r.outdata->data, details, req.outdata)) return;
  }
  // The document's own attachments and the reply's are one set of files.
  Attachments(thread, *req.streams, {r.outdata ? r.outdata->attachments : nullptr, r.attachments}, req.outdata);
  PrintUnknownWords(thread, r.unknown);
}

// tmulti: any number of documents.
void TranslateMany(RequestFrame& frame, DocumentRequest& req) {
  ExecThread& thread = frame.thread();
  nv__InputDataArray inputs;
  for (xsd__base64Binary& binary : req.payloads) {
    inputs.item.emplace_back();
    inputs.item.back().data = &binary;
  }
  int sent = SendDocuments(frame, soap_send_nv__TranslateMulti, &req.rules, &inputs);
  req.streams->Release();
  auto r = frame.Receive(soap_recv_nv__TranslateMulti, sent);
  if (r.outdata) {
    for (size_t i = 0; i < r.outdata->item.size(); ++i) {
      const nv__OutputData& out = r.outdata->item[i];
      std::string outfile = req.outdata.empty() ? "" : MultiOutputName(req.outdata, i + 1);
      ThreadPrint(thread, "Input Encoding Used: %s\n", out.encodingUsed ? out.encodingUsed->c_str() : "");
      if (OutputDocument(thread, *req.streams, out.data, Details(out.type, out.outputEncoding), outfile)) {
        Attachments(thread, *req.streams, {out.attachments}, outfile);
      }
    }
  }
  PrintUnknownWords(thread, r.unknown);
}

// tran and tmulti share everything up to the call.
void TranslateDocuments(ExecThread& thread, ArgVector& args, bool multi) {
  RequestFrame frame(thread, Local(thread).cachemark ? kDocumentCacheMarks : "");
  DocumentRequest req;
  if (!ReadDocumentRequest(frame, args, multi, req)) return;
  PrintDocumentHeader(frame, req, multi);
  if (req.noengine) frame.OmitEngine();
  if (multi) {
    TranslateMany(frame, req);
  } else {
    TranslateOne(frame, req);
  }
}

void CmdTran(ExecThread& thread, ArgVector& args) {
  if (CheckHelpRequest(thread, CmdTran, args, true)) return;
  RunGuarded(thread, [&] { TranslateDocuments(thread, args, false); });
}

void CmdTmulti(ExecThread& thread, ArgVector& args) {
  if (CheckHelpRequest(thread, CmdTmulti, args, true)) return;
  RunGuarded(thread, [&] { TranslateDocuments(thread, args, true); });
}

void CmdXml(ExecThread& thread, ArgVector& args) {
  if (CheckHelpRequest(thread, CmdXml, args, true)) return;
  RunGuarded(thread, [&] {
    LocalData& data = Local(thread);
    RequestFrame frame(thread, data.cachemark ? " txncachemark" : "");
    std::string input, output, transform;
    bool ok = frame.Scan(kXmlOptions, args, [&](const OptionScanner& option) {
      switch (option.id()) {
        case kDocInput: input = option.argument(); break;
        case kDocOutput: output = option.argument(); break;
        case kDocTransform: transform = option.argument(); break;
      }
      return true;
    });
    if (!ok || !frame.ExpectPositional(0, 0)) return;
    if (input.empty() || transform.empty()) {
      Fail(thread, kMsgInvalidArgs);
      return;
    }
    std::string xslt, xml;
    if (!ReadFileData(thread, transform, xslt) || !FitsRequest(thread, transform, xslt)) return;
    if (!ReadFileData(thread, input, xml) || !FitsRequest(thread, input, xml)) return;
    if (output.empty()) output = XmlOutputName(input);

    frame.PrintSelectKeys();
    ThreadPrint(thread, "XSLT File:    %s (%d bytes)\n", transform.c_str(), static_cast<int>(xslt.size()));
    ThreadPrint(thread, "XML File:     %s (%d bytes)\n", input.c_str(), static_cast<int>(xml.size()));

    xsd__base64Binary xml_data{}, xslt_data{};
    SetPayload(data, xml_data, xml, "orgXml");
    SetPayload(data, xslt_data, xslt, "orgXslt");
    int sent = SendDocuments(frame, soap_send_nv__TranslateXml, &xml_data, &xslt_data);
    std::string().swap(xml);
    std::string().swap(xslt);
    auto r = frame.Receive(soap_recv_nv__TranslateXml, sent);
    if (r.docError && !r.docError->item.empty()) {
      ThreadPrint(thread, "Document errors:\n");
      for (const nv__DocError& e : r.docError->item) {
        ThreadPrint(thread, "  Type: %s  Level: %s  Line: %d Column: %d \n", e.type ? e.type->c_str() : "",
                    e.level ? e.level->c_str() : "", e.line, e.column);
        ThreadPrint(thread, "    %s\n", e.message ? e.message->c_str() : "");
      }
    }
    if (!r.txnDoc) {
      Fail(thread, "No translated document returned.\n");
    } else {
      std::string_view bytes = PayloadBytes(r.txnDoc);
      if (WriteWholeFile(output, {}, bytes) != WriteResult::kOk) {
        Fail(thread, "ERROR: failed to open output file %s\n", output.c_str());
      } else {
        ThreadPrint(thread, "Output File: %s (%d bytes)\n", output.c_str(), static_cast<int>(bytes.size()));
      }
    }
    PrintUnknownWords(thread, r.unknown);
  });
}

}  // namespace

const CommandRecord kDocumentCommandRows[] = {
    {"tran", CmdTran, 0, "Translate a document.",
     "Usage: tran [RULES] [INDATA]\n"
     "              [-select KEYS]              [-strict]\n"
     "              [-reqgroup ID]              [-runas USERID]\n"
     "              [-uilang LANG]              [-rmax MILLISEC]\n"
     "              [-bmax BYTES]               [-smax SENTENCES]\n"
     "              [-resetsessions]            [-dbcache VALUE]\n"
     "              [-neweid]                   [-unknown[=VALUE]]\n"
     "              [-txncache VALUE]           [-txncachemark]\n"
     "              [-htmlcache VALUE]          [-htmlcachemark]\n"
     "              [-xmlcache VALUE]           [-xmlcachemark]\n"
     "              [-pdfcache VALUE]           [-pdfcachemark]\n"
     "              [-doccache VALUE]           [-doccachemark]\n"
     "              [-xlscache VALUE]           [-xlscachemark]\n"
     "              [-pptcache VALUE]           [-pptcachemark]\n"
     "              [-eid ENGINE]               [-prop KEY=VALUE]*\n"
     "              [-rules RULEFILE]           [-indata INFILE]\n"
     "              [-outdata OUTFILE]          [-intype INTYPE]\n"
     "              [-noengine]\n"
     "\n" LEXCTL_COMMON_OPTION_HELP
     "    -eid        Engine to use for the translation.\n"
     "    -prop       Engine property KEY=VALUE. May be repeated.\n"
     "    -rules      File holding the translation rules, instead of RULES.\n"
     "    -indata     File holding the document to translate, instead of INDATA.\n"
     "    -intype     The input data type INTYPE. Otherwise taken from the INDATA\n"
     "                file extension.\n"
     "    -outdata    Write the translated document to OUTFILE. Attachments are\n"
     "                saved in the directory OUTFILE_files, each name once: the\n"
     "                last attachment of a name given more than once.\n"
     "    -noengine   Do not supply a default engine.\n"
     "    -unknown    Return a summary of all unknown words in the org text.\n"},
    {"tmulti", CmdTmulti, 0, "Translate several documents in one request.",
     "Usage: tmulti [RULES] [INDATA]*\n"
     "              [-select KEYS]              [-strict]\n"
     "              [-reqgroup ID]              [-runas USERID]\n"
     "              [-uilang LANG]              [-rmax MILLISEC]\n"
     "              [-bmax BYTES]               [-smax SENTENCES]\n"
     "              [-resetsessions]            [-dbcache VALUE]\n"
     "              [-neweid]                   [-unknown[=VALUE]]\n"
     "              [-txncache VALUE]           [-txncachemark]\n"
     "              [-htmlcache VALUE]          [-htmlcachemark]\n"
     "              [-pdfcache VALUE]           [-pdfcachemark]\n"
     "              [-doccache VALUE]           [-doccachemark]\n"
     "              [-xlscache VALUE]           [-xlscachemark]\n"
     "              [-pptcache VALUE]           [-pptcachemark]\n"
     "              [-eid ENGINE]               [-prop KEY=VALUE]*\n"
     "              [-rules RULEFILE]           [-indata INFILE]*\n"
     "              [-outdata OUTFILE]          [-intype INTYPE]\n"
     "              [-noengine]\n"
     "\n" LEXCTL_COMMON_OPTION_HELP
     "    -eid        Engine to use for the translation.\n"
     "    -prop       Engine property KEY=VALUE. May be repeated.\n"
     "    -rules      File holding the translation rules, instead of RULES.\n"
     "    -indata     File holding a document to translate, instead of INDATA.\n"
     "                May be repeated.\n"
     "    -intype     The input data type INTYPE. Otherwise taken from the INDATA\n"
     "                file extension.\n"
     "    -outdata    Write the n-th translated document to OUTFILE.n. Attachments\n"
     "                are saved in the directory OUTFILE.n_files, each name once:\n"
     "                the last attachment of a name given more than once.\n"
     "    -noengine   Do not supply a default engine.\n"
     "    -unknown    Return a summary of all unknown words in the org text.\n"},
    {"xml", CmdXml, 0, "Translate an XML document.",
     "Usage: xml -input FILE -transform FILE\n"
     "              [-select KEYS]              [-strict]\n"
     "              [-reqgroup ID]              [-runas USERID]\n"
     "              [-uilang LANG]              [-rmax MILLISEC]\n"
     "              [-bmax BYTES]               [-smax SENTENCES]\n"
     "              [-resetsessions]            [-dbcache VALUE]\n"
     "              [-neweid]                   [-unknown[=VALUE]]\n"
     "              [-txncache VALUE]           [-txncachemark]\n"
     "              [-eid ENGINE]               [-prop KEY=VALUE]*\n"
     "              [-output FILE]\n"
     "\n" LEXCTL_COMMON_OPTION_HELP
     "    -eid        Engine to use for the translation.\n"
     "    -prop       Engine property KEY=VALUE. May be repeated.\n"
     "    -input      The XML document to translate.\n"
     "    -transform  The XSLT transform that selects the text to translate.\n"
     "    -output     Write the translated document to FILE. By default the input\n"
     "                name up to its first .xml followed by .out.xml, or the\n"
     "                whole name followed by .out when it holds no .xml.\n"
     "    -unknown    Return a summary of all unknown words in the org text.\n"},
    {nullptr, nullptr, 0, nullptr, nullptr},
};

const CommandOptionTable kDocumentOptionTables[] = {
    {"tran", kTranOptions},
    {"tmulti", kTmultiOptions},
    {"xml", kXmlOptions},
    {nullptr, nullptr},
};

}  // namespace lexctl
