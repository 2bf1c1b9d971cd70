// Page download through the external wget, for html, dlang and recode.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace lexctl {

class ExecThread;

/// The user agent wget announces: a common browser's, so that sites serve
/// the page a browser gets.
inline constexpr char kWgetUserAgent[] =
    "Mozilla/5.0 (Windows; U; Windows NT 5.1; en-US; rv:1.9.1.3) Gecko/20090824 Firefox/3.5.3";

/// What one download produced.
struct Download {
  std::string file;          ///< holds the body
  std::string content_type;  ///< of the last response, after any redirects
  std::string charset;       ///< what content_type names after "charset=", or empty
  bool temporary = false;    ///< file was made in the temporary folder for this download
};

/// Fetches url with the thread's wget into target (empty: a fresh file in
/// the temporary folder). Prints the wget command line, then, on failure,
/// one line saying why; returns false then and leaves no file behind.
bool DownloadUrl(ExecThread& thread, const std::string& url, const std::string& target,
                 Download& result);

/// True when text is an http:// or https:// URL (any case).
bool IsDownloadUrl(std::string_view text);

/// The command line printed for a download.
std::string WgetCommandLine(const std::string& wget, bool proxy, const std::string& work_file,
                            const std::string& url);

/// Splits what wget saves with --save-headers: one header block per
/// response, redirects first, then the body. Gives the Content-Type of the
/// last block and where the body starts; false when no block ends.
bool SplitSavedResponse(std::string_view saved, std::string& content_type, size_t& body_start);

}  // namespace lexctl
