// HTML translation and page download: html.
#pragma once

#include <string>
#include <string_view>

#include "shell/command.h"
#include "shell/option_scanner.h"

namespace lexctl {

extern const CommandRecord kHtmlCommandRows[];  ///< html
extern const CommandOptionTable kHtmlOptionTables[];  ///< their option tables

/// Every URL rewrite tag at once ("ALL").
inline constexpr unsigned kAllRewriteTags = 0x0FFFFFFF;

/// Reads the tag list of a rewrite rule: "all" (any case), or tag names
/// (any case) separated by blanks, commas or colons. On an unknown name
/// returns false with the list from that name on in `bad`.
bool ParseRewriteTags(std::string_view list, unsigned& tags, std::string& bad);

/// The names of the tags joined by ", ", or "ALL" for every tag.
std::string RewriteTagNames(unsigned tags);

/// Where the translation of an input page goes: ".in.html" becomes
/// ".out.html", else ".html" becomes ".out.html", else ".out.html" is
/// appended; only the file's own name is looked at, not its folder.
std::string HtmlOutputName(const std::string& input);

}  // namespace lexctl
