// Files that commands read and write: whole input files, translated output
// files with the UTF-8 signature, and what a content type says of a file.
#pragma once

#include <cstdio>
#include <string>
#include <string_view>

namespace lexctl {

class ExecThread;

/// The UTF-8 signature that every translated output file begins with.
inline constexpr char kUtf8Signature[] = "\xEF\xBB\xBF";

/// The one place where bytes go to a file: writes all of bytes to file and
/// says whether it did. An empty view, which may carry no pointer at all
/// (an empty <data></data> of a reply), writes nothing and succeeds, so
/// fwrite never sees a null pointer.
bool PutBytes(FILE* file, std::string_view bytes);

/// The outcome of WriteWholeFile.
enum class WriteResult { kOk, kOpenFailed, kWriteFailed };

/// Creates (or truncates) path and writes head, then body, through
/// PutBytes; a file that cannot be written completely is removed again, a
/// file that could not be opened is left alone. Prints nothing: every
/// writer of whole files below, and those with messages of their own,
/// build on it.
WriteResult WriteWholeFile(const std::string& path, std::string_view head, std::string_view body);

/// Reads a whole file in binary into data. On failure prints
/// "Unable to open file: %s\n" or "Failed to read file data\n" and returns
/// false; data is then empty.
bool ReadFileData(ExecThread& thread, const std::string& path, std::string& data);

/// data without a leading UTF-8 signature.
std::string_view SkipUtf8Signature(std::string_view data);

/// Writes the UTF-8 signature, then body. Prints "Unable to open file: %s\n"
/// when the file cannot be opened; a file that cannot be written completely
/// is removed again, so no partial file is left behind. False on failure.
bool WriteSignedFile(ExecThread& thread, const std::string& path, std::string_view body);

/// Writes body as it is (attachments, exported data); same failure rules
/// as WriteSignedFile.
bool WriteFileData(ExecThread& thread, const std::string& path, std::string_view body);

/// Writes body as it is; on any failure prints only
/// "Unable to save binary data to file: %s\n" and leaves no file behind.
bool SaveBinaryFile(ExecThread& thread, const std::string& path, std::string_view body);

/// The character set ("charset=" to the end) and the file extension
/// (".html", ".xml", ".zip", ".txt" or ".tmp") a content type names.
void CharsetFromContentType(const std::string& content_type, std::string& charset,
                            std::string& extension);

}  // namespace lexctl
