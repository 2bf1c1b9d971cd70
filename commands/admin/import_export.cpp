#include "commands/admin/import_export.h"

#include <strings.h>

#include <cstdio>
#include <string>
#include <vector>

#include "client/common_options.h"
#include "client/did_list.h"
#include "client/frame.h"
#include "commands/admin/dict_printers.h"
#include "commands/common/files.h"
#include "commands/common/payload.h"
#include "shell/dispatch.h"
#include "shell/output.h"
#include "shell/platform.h"
#include "soapH.h"

namespace lexctl {
namespace {

enum TransferOption { kOptFormat = kOptOwn, kOptEncoding };

constexpr OptionDef kFormatOptions[] = {{kOptFormat, "-format", kOptRequired},
                                        {kOptEncoding, "-encoding", kOptRequired}};

constexpr auto kImportOptions = CommandOptions<kCommonOptions>(
    {SelectKey("-replace"), SelectKey("-nodetect"), SelectKey("-asfirst"),
     SelectKey("-onerror", kOptRequired), SelectKey("-ondup", kOptRequired),
     SelectKey("-errlimit", kOptRequired), SelectKey("-dupcheck", kOptRequired)},
    kFormatOptions);

constexpr auto kExportOptions = CommandOptions<kCommonOptions>(kFormatOptions);

// The files a pattern names, in the order the system gives them. Folders match
// patterns too but hold no dictionary source.
void AppendMatches(const char* pattern, std::vector<std::string>& files) {
  // "*" and "?" are the only wildcards: brackets and backslashes are plain.
  std::string plain;
  for (const char* c = pattern; *c; ++c) {
#ifndef _WIN32  // Windows' find functions have no brackets, and "\\" separates folders.
    if (*c == '[' || *c == ']' || *c == '\\') plain += '\\';
#endif
    plain += *c;
  }
  for (std::string& path : MatchPaths(plain.c_str(), true)) {
    if (!path.empty() && path.back() != '/') files.push_back(std::move(path));
  }
}


struct Transfer {
  std::string format;
  std::string encoding;
  bool has_format = false;
  bool has_encoding = false;

  bool Take(const OptionScanner& option) {
    if (option.id() == kOptFormat) {
      format = option.argument();
      has_format = true;
    } else {
      encoding = option.argument();
      has_encoding = true;
    }
    return true;
  }
  void Echo(ExecThread& thread) const {
    if (has_format) ThreadPrint(thread, "Format:       %s\n", format.c_str());
    if (has_encoding) ThreadPrint(thread, "Encoding:     %s\n", encoding.c_str());
  }
};

}  // namespace

std::string FormatSize(int64_t bytes) {
  char text[64];
  if (bytes < 1024) {
    snprintf(text, sizeof text, "%d bytes", static_cast<int>(bytes));
    return text;
  }
  static const char* const kUnits[] = {"KB", "MB", "GB"};
  double value = static_cast<double>(bytes) / 1024;
  size_t unit = 0;
  while (value > 1024 && unit + 1 < sizeof kUnits / sizeof kUnits[0]) {
    value /= 1024;
    ++unit;
  }
  snprintf(text, sizeof text, "%0.2f %s", value, kUnits[unit]);
  return text;
}

std::string ExportFileName(const std::string& base, const std::string& server_name) {
  size_t slash = server_name.find_last_of("/\\");
  std::string leaf = slash == std::string::npos ? server_name : server_name.substr(slash + 1);
  size_t dot = leaf.rfind('.');
  if (dot == std::string::npos || dot + 1 == leaf.size()) return base;
  std::string extension = leaf.substr(dot);
  if (base.size() >= extension.size() &&
      strcasecmp(base.c_str() + base.size() - extension.size(), extension.c_str()) == 0) {
    return base;
  }
  return base + extension;
}

void CmdDimport(ExecThread& thread, ArgVector& args) {
  if (CheckHelpRequest(thread, CmdDimport, args, true)) return;
  RunGuarded(thread, [&] {
    RequestFrame frame(thread, "");
    Transfer transfer;
    if (!frame.Scan(kImportOptions, args, [&](const OptionScanner& o) { return transfer.Take(o); }))
      return;
    const ArgVector& words = frame.positional();
    int64_t did = words.empty() ? 0 : ResolveDid(words[0]);
    if (words.size() < 2 || did == 0) {
      Fail(thread, kMsgInvalidArgs);
      return;
    }
    std::vector<std::string> files;
    for (size_t i = 1; i < words.size(); ++i) AppendMatches(words[i], files);
    if (files.empty()) {
      Fail(thread, "Invalid arguments. No matching files found.\n");
      return;
    }
    DimeStreams streams(frame.data(), "");
    std::vector<xsd__base64Binary> contents(files.size());
    std::vector<long long> sizes(files.size());
    for (size_t i = 0; i < files.size(); ++i) {
      sizes[i] = streams.SetFile(thread, contents[i], files[i], files[i].c_str());
      if (sizes[i] < 0) return;
    }
    if (!frame.SelectContains("uilang=")) frame.AddSelectKey("uilang=" + frame.data().uilang);

    frame.PrintSelectKeys();
    ThreadPrint(thread, "Dic DID:      %lld\n", static_cast<long long>(did));
    transfer.Echo(thread);
    for (size_t i = 0; i < files.size(); ++i) {
      ThreadPrint(thread, "Dic Data:     %s (%s)\n", files[i].c_str(),
                  FormatSize(static_cast<int64_t>(sizes[i])).c_str());
    }
    ThreadPrint(thread, "\n");

    nv__DictionaryDataArray data;
    data.item.resize(files.size());
    for (size_t i = 0; i < files.size(); ++i) {
      data.item[i].filename = &files[i];
      data.item[i].filedata = &contents[i];
    }
    int sent;
    {
      DimeRequest dime(frame.data());
      sent = frame.Send(soap_send_nv__DictionaryImport, did, transfer.has_format ? &transfer.format : nullptr,
                        transfer.has_encoding ? &transfer.encoding : nullptr, &data);
    }
    streams.Release();
    auto response = frame.Receive(soap_recv_nv__DictionaryImport, sent);
    ThreadPrint(thread, "Done.\n");
    if (response.formatUsed)
      ThreadPrint(thread, "Input Format Used:   %s\n", response.formatUsed->c_str());
    if (response.encodingUsed)
      ThreadPrint(thread, "Input Encoding Used: %s\n", response.encodingUsed->c_str());
    ThreadPrint(thread, "Dictionary Updated:  %s\n",
                response.updated && *response.updated ? "true" : "false");
    if (response.sourceError && !response.sourceError->item.empty()) {
      ThreadPrint(thread, "Source Errors:\n");
      PrintSourceErrors(thread, response.sourceError);
    }
  });
}

void CmdDexport(ExecThread& thread, ArgVector& args) {
  if (CheckHelpRequest(thread, CmdDexport, args, true)) return;
  RunGuarded(thread, [&] {
    RequestFrame frame(thread, "");
    Transfer transfer;
    if (!frame.Scan(kExportOptions, args, [&](const OptionScanner& o) { return transfer.Take(o); }))
      return;
    const ArgVector& words = frame.positional();
    int64_t did = words.empty() ? 0 : ResolveDid(words[0]);
    if (words.empty() || words.size() > 2 || did == 0) {
      Fail(thread, kMsgInvalidArgs);
      return;
    }
    std::string base = words.size() == 2 ? words[1] : std::to_string(did);
    if (frame.data().settings.dime) frame.AddSelectKey("dime");
    // Exported files stream to disk beside the first name they may take.
    DimeStreams streams(frame.data(), FolderOf(base));

    frame.PrintSelectKeys();
    ThreadPrint(thread, "Dic DID:      %lld\n", static_cast<long long>(did));
    transfer.Echo(thread);
    ThreadPrint(thread, "\n");

    auto response = frame.Call(soap_call_nv__DictionaryExport, did,
                               transfer.has_format ? &transfer.format : nullptr,
                               transfer.has_encoding ? &transfer.encoding : nullptr);
    if (!response.data) return;
    for (const nv__DictionaryData& item : response.data->item) {
      std::string name = ExportFileName(base, item.filename ? *item.filename : "");
      if (streams.Save(item.filedata, name) != WriteResult::kOk) {
        Fail(thread, "Unable to save data to file: %s\n", name.c_str());
        return;
      }
      int64_t size = static_cast<int64_t>(streams.Size(item.filedata));
      ThreadPrint(thread, "Written data to %s (%s)\n", name.c_str(), FormatSize(size).c_str());
    }
  });
}

const CommandRecord kImportExportRows[] = {
    {"daddsrc", CmdDimport, CMDF_HIDDEN, nullptr, nullptr},
    {"dimport", CmdDimport, 0, "Import to a dictionary.",
     "Usage: dimport DID DATAFILE [DATAFILE ...]\n"
     "              [-select KEYS]              [-strict]\n"
     "              [-reqgroup ID]              [-runas USERID]\n"
     "              [-rmax MILLISEC]\n"
     "              [-format FORMAT]            [-encoding ENCODING]\n"
     "              [-replace]                  [-nodetect]\n"
     "              [-asfirst]                  [-onerror ACTION]\n"
     "              [-ondup ACTION]             [-errlimit N]\n"
     "              [-dupcheck VALUE]\n\n"
     LEXCTL_COMMON_OPTION_HELP
     "    -format     The format of the dictionary source data.\n"
     "    -encoding   The character encoding of the dictionary source data.\n"
     "    -replace    Replace all existing source of the dictionary (default:\n"
     "                false).\n"
     "    -nodetect   Do not detect the character encoding of the data.\n"
     "    -asfirst    The new entries take priority over existing ones and are\n"
     "                added before them.\n"
     "    -onerror    \"cancel\" (the default) processes entries until the error\n"
     "                limit is reached but does not update the dictionary;\n"
     "                \"continue\" updates the dictionary with all entries that\n"
     "                caused no error.\n"
     "    -ondup      \"error\" (the default) reports a duplicate and counts it\n"
     "                towards the error limit; \"warn\" reports it without\n"
     "                counting; \"ignore\" neither reports nor counts.\n"
     "    -errlimit   The number of errors after which the import is aborted\n"
     "                (used only with -onerror cancel).\n"
     "    -dupcheck   How the server checks for duplicate entries.\n\n"
     "Each DATAFILE may be a file name pattern with the wildcards * and ?; all\n"
     "matching files are sent. For example:\n\n"
     "    dimport 10000 foo.jdc foo.idx\n"
     "    dimport 10000 foo.j?? foo.idx\n"
     "    dimport 10000 foo.*\n"},
    {"dgetsrc", CmdDexport, CMDF_HIDDEN, nullptr, nullptr},
    {"dexport", CmdDexport, 0, "Export a dictionary.",
     "Usage: dexport DID [DATAFILE]\n"
     "              [-select KEYS]              [-strict]\n"
     "              [-reqgroup ID]              [-runas USERID]\n"
     "              [-rmax MILLISEC]\n"
     "              [-format FORMAT]            [-encoding ENCODING]\n\n"
     LEXCTL_COMMON_OPTION_HELP
     "    -format     The format of the exported dictionary source data.\n"
     "    -encoding   The character encoding of the exported data.\n\n"
     "Each exported file is written to DATAFILE, or to a file named after the DID\n"
     "when DATAFILE is not given, ending with the extension of the file the server\n"
     "returns.\n"},
    {nullptr, nullptr, 0, nullptr, nullptr},
};

const CommandOptionTable kImportExportOptionTables[] = {
    {"dimport", kImportOptions},
    {"dexport", kExportOptions},
    {nullptr, nullptr},
};

}  // namespace lexctl
