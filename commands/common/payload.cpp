#include "commands/common/payload.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <string>

#include "client/local_data.h"
#include "shell/output.h"
#include "shell/platform.h"
#include "soapH.h"

namespace lexctl {

struct DimeStreams::Source {
  FILE* file = nullptr;
};

struct DimeStreams::Spool {
  std::string path;      // where the bytes are now; empty when they are lost
  FILE* file = nullptr;  // open while the attachment arrives
  size_t size = 0;
  bool failed = false;
  bool moved = false;  // path is a name a command saved it under
};

namespace {

// The reply's attachments are many files only when a server means harm.
constexpr size_t kMaxSpools = 10000;

thread_local DimeStreams* t_streams = nullptr;

// Created exclusively, so that a name planted in a shared output folder
// (a link elsewhere) is never written through.
FILE* OpenSpool(const std::string& folder, std::string& path) {
  static std::atomic<unsigned long> counter{0};
  for (int tries = 0; tries < 100; ++tries) {
    path = folder + "/.lexctl3-" + std::to_string(ProcessId()) + "-" + std::to_string(++counter) + ".part";
#ifdef _WIN32
    if (FileExists(path.c_str())) continue;
    return OpenFile(path.c_str(), "wb");
#else
    FILE* file = OpenFile(path.c_str(), "wbx");
    if (file || errno != EEXIST) return file;
#endif
  }
  return nullptr;
}

bool CopyFile(const std::string& from, const std::string& to, WriteResult& result) {
  FILE* in = OpenFile(from.c_str(), "rb");
  if (!in) return false;
  FILE* out = OpenFile(to.c_str(), "wb");
  if (!out) {
    fclose(in);
    result = WriteResult::kOpenFailed;
    return true;
  }
  char buffer[1 << 16];
  size_t got;
  bool ok = true;
  while (ok && (got = fread(buffer, 1, sizeof buffer, in)) > 0) ok = fwrite(buffer, 1, got, out) == got;
  ok = !ferror(in) && ok;
  fclose(in);
  ok = fclose(out) == 0 && ok;
  if (!ok) RemoveFile(to.c_str());
  result = ok ? WriteResult::kOk : WriteResult::kWriteFailed;
  return true;
}

}  // namespace

// The library's streaming callbacks, for the thread's DimeStreams.
struct DimeHooks {
  static void* ReadOpen(struct soap*, void* handle, const char*, const char*, const char*) {
    DimeStreams* streams = t_streams;
    // Bytes in memory (inline documents) go out as they are.
    for (const auto& source : streams->sources_) {
      if (source.get() == handle) {
        // A request sent again after a lost connection starts over.
        rewind(source->file);
        return handle;
      }
    }
    return nullptr;
  }
  static size_t Read(struct soap*, void* handle, char* buffer, size_t size) {
    return fread(buffer, 1, size, static_cast<DimeStreams::Source*>(handle)->file);
  }
  static void ReadClose(struct soap*, void*) {}

  static void* WriteOpen(struct soap* soap, const char*, const char*, const char*) {
    DimeStreams* streams = t_streams;
    if (streams->spools_.size() >= kMaxSpools) {
      soap->error = SOAP_DIME_ERROR;
      return nullptr;
    }
    // The XML is in; its limit is no limit for attachments that go to disk.
    soap->recv_maxlength = 0;
    auto spool = std::make_unique<DimeStreams::Spool>();
    spool->file = OpenSpool(streams->spool_folder_, spool->path);
    if (!spool->file) {
      spool->path.clear();
      spool->failed = true;
    }
    streams->spools_.push_back(std::move(spool));
    return streams->spools_.back().get();
  }
  static int Write(struct soap*, void* handle, const char* data, size_t size) {
    auto* spool = static_cast<DimeStreams::Spool*>(handle);
    spool->size += size;
    // A file that cannot be written fails its save, not the whole reply.
    if (spool->file && fwrite(data, 1, size, spool->file) != size) spool->failed = true;
    return SOAP_OK;
  }
  static void WriteClose(struct soap*, void* handle) {
    auto* spool = static_cast<DimeStreams::Spool*>(handle);
    if (spool->file && fclose(spool->file) != 0) spool->failed = true;
    spool->file = nullptr;
  }
};

DimeStreams::DimeStreams(LocalData& data, const std::string& spool_folder)
    : data_(data), streaming_(data.settings.dime), spool_folder_(spool_folder),
      saved_limit_(static_cast<size_t>(data.context()->recv_maxlength)) {
  if (!streaming_) return;
  struct soap* soap = data.context();
  t_streams = this;
  // Measured first, then written as it goes: not built whole in memory.
  saved_io_ = soap->omode & SOAP_IO;
  if (!(soap->omode & SOAP_ENC_ZLIB)) soap->omode = (soap->omode & ~SOAP_IO) | SOAP_IO_BUFFER;
  soap->fdimereadopen = DimeHooks::ReadOpen;
  soap->fdimeread = DimeHooks::Read;
  soap->fdimereadclose = DimeHooks::ReadClose;
  if (spool_folder_.empty()) return;
  soap->fdimewriteopen = DimeHooks::WriteOpen;
  soap->fdimewrite = DimeHooks::Write;
  soap->fdimewriteclose = DimeHooks::WriteClose;
}

DimeStreams::~DimeStreams() {
  if (!streaming_) return;
  // After a transport error this is a fresh context, which has none of it.
  struct soap* soap = data_.context();
  soap->fdimereadopen = nullptr;
  soap->fdimeread = nullptr;
  soap->fdimereadclose = nullptr;
  soap->fdimewriteopen = nullptr;
  soap->fdimewrite = nullptr;
  soap->fdimewriteclose = nullptr;
  soap->recv_maxlength = saved_limit_;
  soap->omode = (soap->omode & ~SOAP_IO) | saved_io_;
  t_streams = nullptr;
  for (const auto& source : sources_) fclose(source->file);
  for (const auto& spool : spools_) {
    if (spool->file) fclose(spool->file);
    if (!spool->moved && !spool->path.empty()) RemoveFile(spool->path.c_str());
  }
}

long long DimeStreams::SetFile(ExecThread& thread, xsd__base64Binary& binary, const std::string& path,
                               const char* name) {
  FILE* file = streaming_ ? OpenFile(path.c_str(), "rb") : nullptr;
  long long size = file ? OpenFileSize(file) : 0;
  // Empty files, pipes and the like are read whole, as without dime.
  if (size <= 0) {
    if (file) fclose(file);
    held_.emplace_back();
    if (!ReadFileData(thread, path, held_.back())) return -1;
    size = static_cast<long long>(held_.back().size());
  }
  if (size > INT_MAX) {
    if (file) fclose(file);
    Fail(thread, "File too large to send: %s\n", path.c_str());
    return -1;
  }
  if (!file || size == 0) {
    SetPayload(data_, binary, held_.back(), name);
    return size;
  }
  sources_.push_back(std::make_unique<Source>());
  sources_.back()->file = file;
  SetPayload(data_, binary, {}, name);
  // The library hands this back to the read callbacks in place of bytes.
  binary.__ptr = reinterpret_cast<unsigned char*>(sources_.back().get());
  binary.__size = static_cast<int>(size);
  return size;
}

void DimeStreams::Release() { std::vector<std::string>().swap(held_); }

const DimeStreams::Spool* DimeStreams::Spooled(const xsd__base64Binary* binary) const {
  if (!binary || !binary->__ptr) return nullptr;
  for (const auto& spool : spools_) {
    if (reinterpret_cast<const unsigned char*>(spool.get()) == binary->__ptr) return spool.get();
  }
  return nullptr;
}

size_t DimeStreams::Size(const xsd__base64Binary* binary) const {
  const Spool* spool = Spooled(binary);
  return spool ? spool->size : PayloadBytes(binary).size();
}

WriteResult DimeStreams::Save(const xsd__base64Binary* binary, const std::string& path) {
  auto* spool = const_cast<Spool*>(Spooled(binary));
  if (!spool) return WriteWholeFile(path, {}, PayloadBytes(binary));
  if (spool->failed) return WriteResult::kWriteFailed;
  if (!spool->moved && RenameFile(spool->path.c_str(), path.c_str()) == 0) {
    spool->path = path;
    spool->moved = true;
    return WriteResult::kOk;
  }
  // Saved once already, or not a rename away: copied.
  WriteResult result = WriteResult::kWriteFailed;
  if (!CopyFile(spool->path, path, result)) return WriteResult::kWriteFailed;
  return result;
}

std::string FolderOf(const std::string& path) {
  size_t name_start = FileNameStart(path);
  if (name_start == 0) return ".";
  return path.substr(0, name_start == 1 ? 1 : name_start - 1);
}

void SetPayload(LocalData& data, xsd__base64Binary& binary, std::string_view bytes,
                const char* name) {
  binary.__ptr = reinterpret_cast<unsigned char*>(const_cast<char*>(bytes.data()));
  binary.__size = static_cast<int>(bytes.size());
  binary.id = nullptr;
  binary.type = nullptr;
  binary.options = nullptr;
  if (!data.settings.dime) data.ExpectRequestPayload(bytes.size());
  if (data.settings.dime) {
    binary.type = const_cast<char*>("application/octet-stream");
    binary.options = soap_dime_option(data.context(), 0, name);
  }
}

xsd__base64Binary* Payload(LocalData& data, const std::string& bytes, const std::string& name) {
  xsd__base64Binary* binary = soap_new_xsd__base64Binary(data.context());
  SetPayload(data, *binary, bytes, name.c_str());
  return binary;
}

std::string_view PayloadBytes(const xsd__base64Binary* binary) {
  if (!binary || !binary->__ptr || binary->__size <= 0) return {};
  return {reinterpret_cast<const char*>(binary->__ptr), static_cast<size_t>(binary->__size)};
}

}  // namespace lexctl
