// Binary payloads of requests and replies: inline base64, or DIME
// attachments when the thread's dime setting is on.
#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "commands/common/files.h"

class xsd__base64Binary;
struct soap;

namespace lexctl {

class LocalData;

/// Points binary at bytes without copying them (bytes must outlive the
/// call); with dime on, the value travels as a DIME attachment whose
/// option names it.
void SetPayload(LocalData& data, xsd__base64Binary& binary, std::string_view bytes,
                const char* name);

/// The same for an optional member: a new element in the thread's SOAP
/// context, which lives until the call's data are released.
xsd__base64Binary* Payload(LocalData& data, const std::string& bytes, const std::string& name);

/// While alive, DIME attachments travel between files and the socket in
/// chunks rather than whole in memory: files given to SetFile stream out,
/// and with a spool folder every attachment of the reply streams into a
/// hidden file there until Save moves it to its name. With dime off, files
/// are read whole and replies stay in memory, as for inline data.
class DimeStreams {
 public:
  /// spool_folder: where reply attachments wait ("" keeps them in memory);
  /// beside their final names, so that saving them is a rename.
  DimeStreams(LocalData& data, const std::string& spool_folder);
  ~DimeStreams();
  DimeStreams(const DimeStreams&) = delete;
  DimeStreams& operator=(const DimeStreams&) = delete;

  /// Points binary at the content of the file at path, valid until the
  /// call ends. Prints ReadFileData's messages and returns -1 when it
  /// cannot; otherwise the file's size.
  long long SetFile(ExecThread& thread, xsd__base64Binary& binary, const std::string& path,
                    const char* name);
  /// Frees the files read into memory once the request is sent.
  void Release();
  /// The size of a received value.
  size_t Size(const xsd__base64Binary* binary) const;
  /// Writes a received value to path, with WriteWholeFile's results.
  WriteResult Save(const xsd__base64Binary* binary, const std::string& path);

  struct Source;
  struct Spool;

 private:
  const Spool* Spooled(const xsd__base64Binary* binary) const;

  LocalData& data_;
  bool streaming_;
  std::string spool_folder_;
  std::vector<std::unique_ptr<Source>> sources_;
  std::vector<std::unique_ptr<Spool>> spools_;
  std::vector<std::string> held_;  // files read whole (dime off)
  size_t saved_limit_;
  int saved_io_ = 0;

  friend struct DimeHooks;
};

/// The folder a file of path is in, for DimeStreams ("." for a bare name).
std::string FolderOf(const std::string& path);

/// The bytes of a received value; empty when it is absent.
std::string_view PayloadBytes(const xsd__base64Binary* binary);

}  // namespace lexctl
