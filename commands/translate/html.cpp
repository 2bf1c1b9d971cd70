#include "commands/translate/html.h"

#include <strings.h>

#include <cstdio>
#include <vector>

#include "client/common_options.h"
#include "client/frame.h"
#include "commands/common/files.h"
#include "commands/common/payload.h"
#include "commands/translate/download.h"
#include "commands/translate/printers.h"
#include "shell/dispatch.h"
#include "shell/output.h"
#include "shell/platform.h"
#include "soapH.h"

namespace lexctl {
namespace {

struct RewriteTag {
  unsigned bit;
  const char* name;
};

constexpr RewriteTag kRewriteTags[] = {
    {0x1, "A_HREF"},
    {0x2, "APPLET_CODEBASE"},
    {0x4, "AREA_HREF"},
    {0x8, "BASE_HREF"},
    {0x10, "BLOCKQUOTE_CITE"},
    {0x20, "DEL_CITE"},
    {0x40, "FORM_ACTION"},
    {0x80, "FRAME_SRC"},
    {0x100, "HEAD_PROFILE"},
    {0x200, "IFRAME_SRC"},
    {0x400, "IMG_SRC"},
    {0x800, "IMG_USEMAP"},
    {0x1000, "INPUT_SRC"},
    {0x2000, "INPUT_USEMAP"},
    {0x4000, "INS_CITE"},
    {0x8000, "LINK_HREF"},
    {0x10000, "OBJECT_CLASSID"},
    {0x20000, "OBJECT_CODEBASE"},
    {0x40000, "OBJECT_DATA"},
    {0x80000, "OBJECT_USEMAP"},
    {0x100000, "Q_CITE"},
    {0x200000, "SCRIPT_SRC"},
    {0x400000, "CSS_URL"},
    {0x800000, "EMBED_SRC"},
    {0x1000000, "APPLET_CODE"},
    {0x2000000, "BODY_BACKGROUND"},
    {0x4000000, "A_HREF_BINARY"},
    {0x8000000, "META_REFRESH"},
};

constexpr char kTagSeparators[] = " ,:";

enum HtmlOption {
  kHtmlStyle = kOptOwn,
  kHtmlFromCode,
  kHtmlTarget,
  kHtmlRewrite,
  kHtmlInstring,
  kHtmlInfile,
  kHtmlOutfile,
  kHtmlDownfile,
  kHtmlDownIfNotExist,
};

constexpr auto kHtmlOptions =
    CommandOptions<kTextCommonOptions | kTxncacheOptions | kEngineOptions>({
        SelectKey("-txnonly"),
        SelectKey("-tag", kOptRequired),
        SelectKey("-nodetect"),
        SelectKey("-nobuttons"),
        SelectKey("-htmlcache", kOptRequired),
        SelectKey("-htmlcachemark"),
        SelectKey("-fragment"),
        SelectKey("-unknown", kOptOptional),
        SelectKey("-parser", kOptRequired),
        {kHtmlStyle, "-style", kOptRequired},
        {kHtmlFromCode, "-fromCode", kOptRequired},
        {kHtmlTarget, "-target", kOptRequired},
        {kHtmlRewrite, "-rewrite", kOptRequired},
        {kHtmlInstring, "-instring", kOptRequired},
        {kHtmlInfile, "-infile", kOptRequired},
        {kHtmlOutfile, "-outfile", kOptRequired},
        {kHtmlDownfile, "-downfile", kOptRequired},
        {kHtmlDownIfNotExist, "-downifnotexist", kOptNoArgument},
    });

// One -rewrite rule as it goes on the wire.
struct Rule {
  unsigned tags;
  std::string url_template;
};

// Reads one -rewrite argument; a bad rule is reported and left out.
void AddRewriteRule(ExecThread& thread, const std::string& rule, std::vector<Rule>& rules) {
  size_t equals = rule.find('=');
  if (equals == std::string::npos) {
    Fail(thread, "Invalid rewrite rule: %s.\n", rule.c_str());
    return;
  }
  unsigned tags = 0;
  std::string bad;
  if (!ParseRewriteTags(std::string_view(rule).substr(0, equals), tags, bad)) {
    // A rule with no tag names at all is shown whole.
    Fail(thread, "Invalid rewrite tags: %s\n", bad.empty() ? rule.c_str() : bad.c_str());
    return;
  }
  rules.push_back({tags, rule.substr(equals + 1)});
}

// What html reads from its command line, and the page it translates.
struct HtmlRequest {
  std::string style, from_code, target_frame, instring, infile, outfile, downfile;
  bool has_style = false, has_from_code = false, has_target = false, has_instring = false;
  bool down_if_not_exist = false;
  std::vector<Rule> rules;
  std::string base_url;
  std::string document, encoding;
  Download download;
  bool downloaded = false;
};

bool ScanHtmlOptions(RequestFrame& frame, ArgVector& args, HtmlRequest& req) {
  ExecThread& thread = frame.thread();
  bool ok = frame.Scan(kHtmlOptions, args, [&](const OptionScanner& option) {
    std::string value = option.argument() ? option.argument() : "";
    switch (option.id()) {
      case kHtmlStyle:
        req.style = value;
        req.has_style = true;
        break;
      case kHtmlFromCode:
        req.from_code = value;
        req.has_from_code = true;
        break;
      case kHtmlTarget:
        req.target_frame = value;
        req.has_target = true;
        break;
      case kHtmlRewrite:
        AddRewriteRule(thread, value, req.rules);
        break;
      case kHtmlInstring:
        req.instring = value;
        req.has_instring = true;
        break;
      case kHtmlInfile:
        req.infile = NativePath(value);
        break;
      case kHtmlOutfile:
        req.outfile = NativePath(value);
        break;
      case kHtmlDownfile:
        req.downfile = NativePath(value);
        break;
      case kHtmlDownIfNotExist:
        req.down_if_not_exist = true;
        break;
    }
    return true;
  });
  if (!ok || !frame.ExpectPositional(0, 1)) return false;
  req.base_url = frame.positional().empty() ? "" : frame.positional()[0];
  return true;
}

// The page: the -instring text, a downloaded page or a file.
bool LoadHtmlDocument(RequestFrame& frame, HtmlRequest& req) {
  ExecThread& thread = frame.thread();
  req.encoding = req.from_code;
  if (req.has_instring) {
    req.document = req.instring;
    req.encoding = "UTF-8";
    frame.AddSelectKey("nodetect fragment tag= txnonly");
    return true;
  }
  if (req.base_url.empty() && req.infile.empty()) {
    Fail(thread, kMsgInvalidArgs);
    return false;
  }
  std::string down_target;
  if (!req.base_url.empty() && req.down_if_not_exist && !req.infile.empty() &&
      !FileExists(req.infile.c_str())) {
    req.downloaded = true;
    down_target = req.infile;
  } else if (!req.base_url.empty() && req.infile.empty()) {
    req.downloaded = true;
    down_target = req.downfile;
  }
  if (req.downloaded) {
    if (!DownloadUrl(thread, req.base_url, down_target, req.download)) return false;
    req.infile = req.download.file;
    if (!req.has_from_code) req.encoding = req.download.charset;
  }
  bool read = ReadFileData(thread, req.infile, req.document);
  // A page fetched only for this command is not kept; its translation is.
  if (req.download.temporary) RemoveFile(req.infile.c_str());
  return read;
}

void PrintHtmlHeader(RequestFrame& frame, const HtmlRequest& req) {
  ExecThread& thread = frame.thread();
  frame.PrintSelectKeys();
  ThreadPrint(thread, "Input:\n");
  if (!req.base_url.empty()) ThreadPrint(thread, "  Base URL:   %s\n", req.base_url.c_str());
  if (req.downloaded) {
    ThreadPrint(thread, "  URL:        %s\n", req.base_url.c_str());
    ThreadPrint(thread, "  Content:    %s\n", req.download.content_type.c_str());
  }
  if (!req.has_instring) {
    ThreadPrint(thread, "  File:       %s (%d bytes)\n", req.infile.c_str(),
                static_cast<int>(req.document.size()));
  } else {
    ThreadPrint(thread, "  Data:       %s\n", req.document.c_str());
  }
  if (req.has_target) ThreadPrint(thread, "  Target:     %s\n", req.target_frame.c_str());
  if (!req.encoding.empty()) ThreadPrint(thread, "  Encoding:   %s\n", req.encoding.c_str());
  ThreadPrint(thread, "\n");
  if (!req.rules.empty()) {
    ThreadPrint(thread, "  Rewrite rules:\n");
    for (const Rule& rule : req.rules) {
      ThreadPrint(thread, "    %s = %s\n", RewriteTagNames(rule.tags).c_str(),
                  rule.url_template.c_str());
    }
  }
}

void TranslatePage(RequestFrame& frame, HtmlRequest& req) {
  ExecThread& thread = frame.thread();
  nv__UrlRewriteArray rewrite;
  for (Rule& rule : req.rules) {
    nv__UrlRewrite item;
    item.tags = rule.tags;
    item.urlTemplate = &rule.url_template;
    rewrite.item.push_back(item);
  }
  xsd__base64Binary binary;
  SetPayload(frame.data(), binary, req.document, "binary");
  auto response = frame.Call(soap_call_nv__TranslateHtml, req.has_style ? &req.style : nullptr,
                             req.base_url.empty() ? nullptr : &req.base_url,
                             req.encoding.empty() ? nullptr : &req.encoding,
                             req.has_target ? &req.target_frame : nullptr,
                             req.rules.empty() ? nullptr : &rewrite, &binary);
  if (!response.document) throw Exception("the reply carries no translated document");
  std::string_view translated = PayloadBytes(response.document);
  const char* used = response.encodingUsed ? response.encodingUsed->c_str() : "";
  if (req.has_instring) {
    ThreadPrint(thread, "Input Encoding Used: %s\n", used);
    ThreadPrint(thread, "Output Data: %.*s\n", static_cast<int>(translated.size()),
                translated.data());
  } else {
    std::string out_name = req.outfile.empty() ? HtmlOutputName(req.infile) : req.outfile;
    if (!SaveBinaryFile(thread, out_name, translated)) return;
    ThreadPrint(thread, "Input Encoding Used: %s\n", used);
    ThreadPrint(thread, "Output File: %s (%d bytes)\n", out_name.c_str(),
                static_cast<int>(translated.size()));
  }
  PrintUnknownWords(thread, response.unknown);
}

void CmdHtml(ExecThread& thread, ArgVector& args) {
  if (CheckHelpRequest(thread, CmdHtml, args, true)) return;
  RunGuarded(thread, [&] {
    RequestFrame frame(thread, Local(thread).cachemark ? " txncachemark htmlcachemark" : "");
    HtmlRequest req;
    if (!ScanHtmlOptions(frame, args, req) || !LoadHtmlDocument(frame, req)) return;
    PrintHtmlHeader(frame, req);
    TranslatePage(frame, req);
  });
}

}  // namespace

bool ParseRewriteTags(std::string_view list, unsigned& tags, std::string& bad) {
  tags = 0;
  bad.clear();
  if (list.size() == 3 && strncasecmp(list.data(), "all", 3) == 0) {
    tags = kAllRewriteTags;
    return true;
  }
  size_t at = list.find_first_not_of(kTagSeparators);
  if (at == std::string_view::npos) return false;
  while (at != std::string_view::npos) {
    size_t end = list.find_first_of(kTagSeparators, at);
    std::string_view name = list.substr(at, end == std::string_view::npos ? end : end - at);
    const RewriteTag* found = nullptr;
    for (const RewriteTag& tag : kRewriteTags) {
      if (name.size() == strlen(tag.name) && strncasecmp(name.data(), tag.name, name.size()) == 0) {
        found = &tag;
      }
    }
    if (!found) {
      bad.assign(list.substr(at));
      return false;
    }
    tags |= found->bit;
    at = list.find_first_not_of(kTagSeparators, end);
  }
  return true;
}

std::string RewriteTagNames(unsigned tags) {
  if ((tags & kAllRewriteTags) == kAllRewriteTags) return "ALL";
  std::string names;
  for (const RewriteTag& tag : kRewriteTags) {
    if (!(tags & tag.bit)) continue;
    if (!names.empty()) names += ", ";
    names += tag.name;
  }
  return names;
}

std::string HtmlOutputName(const std::string& input) {
  size_t name_start = FileNameStart(input);
  for (const char* suffix : {".in.html", ".html"}) {
    size_t at = input.rfind(suffix);
    if (at != std::string::npos && at >= name_start) {
      return input.substr(0, at) + ".out.html" + input.substr(at + strlen(suffix));
    }
  }
  return input + ".out.html";
}

const CommandRecord kHtmlCommandRows[] = {
    {"html", CmdHtml, 0, "Translate an HTML page.",
     "Usage: html [BASEURL]\n\n" LEXCTL_COMMON_OPTION_HELP
     "    -bmax       Select key bmax=VALUE.\n"
     "    -smax       Select key smax=VALUE.\n"
     "    -txnonly    Request that only the translation text is output.\n"
     "    -tag        The tag name to use for every tag that the translation\n"
     "                inserts (for example span).\n"
     "    -nodetect   Disable character encoding detection\n"
     "    -nobuttons  Do not translate <input> tags with type button or submit.\n"
     "    -txncache   Select key txncache=VALUE.\n"
     "    -txncachemark  Mark text that has been retrieved from the cache.\n"
     "    -htmlcache  Select key htmlcache=VALUE.\n"
     "    -htmlcachemark  Mark HTML that has been retrieved from the cache.\n"
     "    -fragment   Translate as a fragment, adding no html, head or body tags.\n"
     "    -unknown    Return a summary of all unknown words in the page.\n"
     "    -parser=PARSER  The HTML parser to use: old or new (the server may\n"
     "                override it).\n"
     "    -eid        The engine to use (default: the current engine).\n"
     "    -prop       KEY=VALUE, an engine property; may be repeated.\n"
     "    -style      full, sentence, block, simple or text (the server's\n"
     "                default is simple; with text no HTML is produced).\n"
     "    -fromCode   The character encoding of the page.\n"
     "    -target     The target frame for all links.\n"
     "    -rewrite    TAGS=URL, a URL rewrite rule; may be repeated. TAGS is ALL\n"
     "                or tag names separated by blanks, commas or colons.\n"
     "    -instring   Translate DATA, an HTML fragment, and print the result.\n"
     "    -infile     Translate the page in INFILE.\n"
     "    -outfile    Write the translated page to OUTFILE (default: the input\n"
     "                name with .in.html or .html replaced by .out.html).\n"
     "    -downfile   Keep the page downloaded from BASEURL in DOWNFILE.\n"
     "    -downifnotexist  Download BASEURL into INFILE when INFILE does not\n"
     "                exist.\n"
     "\nValid URL rewrite tags:\n"
     "    A_HREF           APPLET_CODEBASE  AREA_HREF        BASE_HREF\n"
     "    BLOCKQUOTE_CITE  DEL_CITE         FORM_ACTION      FRAME_SRC\n"
     "    HEAD_PROFILE     IFRAME_SRC       IMG_SRC          IMG_USEMAP\n"
     "    INPUT_SRC        INPUT_USEMAP     INS_CITE         LINK_HREF\n"
     "    OBJECT_CLASSID   OBJECT_CODEBASE  OBJECT_DATA      OBJECT_USEMAP\n"
     "    Q_CITE           SCRIPT_SRC       CSS_URL          EMBED_SRC\n"
     "    APPLET_CODE      BODY_BACKGROUND  A_HREF_BINARY    META_REFRESH\n"
     "\n"},
    {nullptr, nullptr, 0, nullptr, nullptr},
};

const CommandOptionTable kHtmlOptionTables[] = {
    {"html", kHtmlOptions},
    {nullptr, nullptr},
};

}  // namespace lexctl
