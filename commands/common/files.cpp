#include "commands/common/files.h"

#include <cstdio>
#include <memory>

#include "shell/output.h"
#include "shell/platform.h"

namespace lexctl {
namespace {

struct FileCloser {
  void operator()(FILE* file) const { fclose(file); }
};
using File = std::unique_ptr<FILE, FileCloser>;

}  // namespace

bool PutBytes(FILE* file, std::string_view bytes) {
  return bytes.empty() || fwrite(bytes.data(), 1, bytes.size(), file) == bytes.size();
}

WriteResult WriteWholeFile(const std::string& path, std::string_view head, std::string_view body) {
  File file(OpenFile(path.c_str(), "wb"));
  if (!file) return WriteResult::kOpenFailed;
  bool ok = PutBytes(file.get(), head) && PutBytes(file.get(), body);
  ok = fclose(file.release()) == 0 && ok;
  if (ok) return WriteResult::kOk;
  RemoveFile(path.c_str());
  return WriteResult::kWriteFailed;
}

bool ReadFileData(ExecThread& thread, const std::string& path, std::string& data) {
  data.clear();
  File file(OpenFile(path.c_str(), "rb"));
  // A directory opens here but not on every platform, and its "size" is no
  // size to reserve: it counts as a file that cannot be opened.
  long long size = file ? OpenFileSize(file.get()) : -1;
  if (size < 0) {
    Fail(thread, "Unable to open file: %s\n", path.c_str());
    return false;
  }
  // Size the buffer from a regular file; read until the end either way.
  if (size > 0) {
    data.reserve(static_cast<size_t>(size));
    PreferLargePages(data.data(), data.capacity());
  }
  char buffer[1 << 16];
  size_t got;
  while ((got = fread(buffer, 1, sizeof buffer, file.get())) > 0) data.append(buffer, got);
  if (ferror(file.get())) {
    data.clear();
    Fail(thread, "Failed to read file data\n");
    return false;
  }
  return true;
}

std::string_view SkipUtf8Signature(std::string_view data) {
  if (data.substr(0, 3) == kUtf8Signature) data.remove_prefix(3);
  return data;
}

namespace {

bool WriteParts(ExecThread& thread, const std::string& path, std::string_view head, std::string_view body) {
  switch (WriteWholeFile(path, head, body)) {
    case WriteResult::kOk: return true;
    case WriteResult::kOpenFailed: Fail(thread, "Unable to open file: %s\n", path.c_str()); break;
    case WriteResult::kWriteFailed: Fail(thread, "Failed to write file data: %s\n", path.c_str()); break;
  }
  return false;
}

}  // namespace

bool WriteSignedFile(ExecThread& thread, const std::string& path, std::string_view body) {
  return WriteParts(thread, path, kUtf8Signature, body);
}

bool WriteFileData(ExecThread& thread, const std::string& path, std::string_view body) {
  return WriteParts(thread, path, {}, body);
}

bool SaveBinaryFile(ExecThread& thread, const std::string& path, std::string_view body) {
  if (WriteWholeFile(path, {}, body) == WriteResult::kOk) return true;
  Fail(thread, "Unable to save binary data to file: %s\n", path.c_str());
  return false;
}

void CharsetFromContentType(const std::string& content_type, std::string& charset,
                            std::string& extension) {
  size_t at = content_type.find("charset=");
  charset = at == std::string::npos ? "" : content_type.substr(at + 8);
  std::string media = content_type.substr(0, content_type.find(';'));
  if (media.find("html") != std::string::npos) {
    extension = ".html";
  } else if (media.find("xml") != std::string::npos) {
    extension = ".xml";
  } else if (media.find("zip") != std::string::npos) {
    extension = ".zip";
  } else if (media.find("text") != std::string::npos) {
    extension = ".txt";
  } else {
    extension = ".tmp";
  }
}

}  // namespace lexctl
