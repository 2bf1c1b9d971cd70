#include "commands/translate/download.h"

#include <strings.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <vector>

#include "client/local_data.h"
#include "commands/common/files.h"
#include "shell/output.h"
#include "shell/platform.h"

namespace lexctl {
namespace {

std::atomic<unsigned> downloads{0};

bool StartsWithNoCase(std::string_view text, std::string_view prefix) {
  return text.size() >= prefix.size() &&
         strncasecmp(text.data(), prefix.data(), prefix.size()) == 0;
}

// Finds a header of one saved block (names in any case).
bool FindHeader(std::string_view block, std::string_view name, std::string& value) {
  size_t at = 0;
  while (at < block.size()) {
    size_t end = block.find("\r\n", at);
    if (end == std::string_view::npos) end = block.size();
    std::string_view line = block.substr(at, end - at);
    if (StartsWithNoCase(line, name) && line.size() > name.size() && line[name.size()] == ':') {
      line.remove_prefix(name.size() + 1);
      while (!line.empty() && (line.front() == ' ' || line.front() == '\t')) line.remove_prefix(1);
      while (!line.empty() && (line.back() == ' ' || line.back() == '\t')) line.remove_suffix(1);
      value.assign(line);
      return true;
    }
    at = end + 2;
  }
  return false;
}

// Deletes a file that is in the way; absence is fine. A directory is never
// removed in its place.
bool ClearPath(ExecThread& thread, const std::string& path) {
  if (IsDirectory(path.c_str()) || (RemoveFile(path.c_str()) != 0 && errno != ENOENT)) {
    Fail(thread, "Failed to overwrite temporary file: %s\n", path.c_str());
    return false;
  }
  return true;
}

}  // namespace

bool IsDownloadUrl(std::string_view text) {
  return StartsWithNoCase(text, "http://") || StartsWithNoCase(text, "https://");
}

std::string WgetCommandLine(const std::string& wget, bool proxy, const std::string& work_file,
                            const std::string& url) {
  return wget + " --no-verbose --save-headers " + (proxy ? "--proxy" : "--no-proxy") +
         " --output-document=\"" + work_file + "\" --user-agent=\"" + kWgetUserAgent + "\" \"" +
         url + "\"";
}

bool SplitSavedResponse(std::string_view saved, std::string& content_type, size_t& body_start) {
  content_type.clear();
  size_t at = 0;
  bool seen = false;
  for (;;) {
    size_t end = saved.find("\r\n\r\n", at);
    if (end == std::string_view::npos) break;
    std::string_view block = saved.substr(at, end - at);
    seen = true;
    std::string location;
    if (!FindHeader(block, "Content-Type", content_type)) content_type.clear();
    at = end + 4;
    // A redirect's block is followed by the next response's; anything else
    // after a block is the body, even when it looks like headers.
    if (!FindHeader(block, "Location", location) || saved.substr(at, 5) != "HTTP/") break;
  }
  body_start = at;
  return seen;
}

bool DownloadUrl(ExecThread& thread, const std::string& url, const std::string& target,
                 Download& result) {
  const TransportSettings& settings = Local(thread).settings;
  char name[64];
  snprintf(name, sizeof name, "/wget-%lx-%u", ProcessId(), ++downloads);
  std::string work = TempDirectory() + name;
  if (!ClearPath(thread, work)) return false;

  bool proxy = !settings.proxy.empty();
  ThreadPrint(thread, "%s\n\n", WgetCommandLine(settings.wget, proxy, work, url).c_str());
  // wget is started directly, without a command processor in between, so
  // that nothing in the URL or the path is taken as shell syntax.
  int status =
      RunProgram({settings.wget, "--no-verbose", "--save-headers", proxy ? "--proxy" : "--no-proxy",
                  "--output-document=" + work, std::string("--user-agent=") + kWgetUserAgent, url});
  if (status != 0) {
    RemoveFile(work.c_str());
    Fail(thread, "Failed to download using wget.\n");
    return false;
  }

  result = Download();
  result.temporary = target.empty();
  result.file = target.empty() ? work + ".tmp" : target;
  std::string saved;
  size_t body = 0;
  bool ok = ClearPath(thread, result.file) && ReadFileData(thread, work, saved);
  if (ok && !SplitSavedResponse(saved, result.content_type, body)) {
    Fail(thread, "Failed to process the file.\n");
    ok = false;
  }
  RemoveFile(work.c_str());
  if (!ok) return false;
  std::string_view content(saved);
  if (!WriteFileData(thread, result.file, content.substr(body))) return false;
  std::string extension;
  CharsetFromContentType(result.content_type, result.charset, extension);
  return true;
}

}  // namespace lexctl
