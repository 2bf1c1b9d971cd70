// Operating-system services behind one seam, so that a port to another
// platform touches only platform_*.cpp.
#pragma once

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <initializer_list>
#include <string>
#include <string_view>
#include <vector>

#include "shell/version.h"

namespace lexctl {

// Kept for a platform with a crash-dump registration; unused on POSIX.
inline constexpr wchar_t kCrashDumpProduct[] = L"Lexary Server " LEXCTL_VERSION;
inline constexpr wchar_t kCrashDumpRegistryKey[] = L"SOFTWARE\\Norvane\\LexaryServer\\" LEXCTL_VERSION;
inline constexpr wchar_t kCrashDumpApplication[] = L"lexctl3-" LEXCTL_VERSION "." LEXCTL_BUILD;

/// Process set-up: terminate handler, signal handling (CTRL-C ignored with
/// a message), locale from the environment.
void PlatformInit();

/// Writes UTF-8 text to standard output and flushes it; a console gets it
/// as UTF-16 where the platform has such a console.
void WriteConsoleText(std::string_view text);

/// Asks for large pages behind a buffer that is about to be filled, where the
/// platform has them on request and the buffer is large enough (4 MB) to
/// gain; a hint, nothing more.
void PreferLargePages(void* data, size_t size);

/// Opens a file by its UTF-8 path.
FILE* OpenFile(const char* path, const char* mode);
/// Opens a script for reading. Loops seek back in it on every turn; where
/// the platform allows, those seeks cost no system call.
FILE* OpenScriptFile(const char* path);
/// remove() and rename() by UTF-8 paths; rename replaces an existing file.
int RemoveFile(const char* path);
int RenameFile(const char* from, const char* to);
/// Creates or replaces a file readable and writable by its owner only.
FILE* CreatePrivateFile(const char* path);
/// Makes sure a file exists and is readable and writable by its owner only:
/// creates it empty, or takes the group's and others' rights from an
/// existing one, keeping its content. False when it cannot.
bool PreparePrivateFile(const char* path);
bool IsDirectory(const char* path);
bool FileExists(const char* path);
/// Creates a folder; true when path is a folder afterwards.
bool MakeDirectory(const char* path);
/// Size of an open regular file, 0 for other kinds, -1 for a folder or on error.
long long OpenFileSize(FILE* file);
/// 0 when path is a file that can be opened for reading, else an errno value.
int FileReadError(const char* path);
/// 0 when path is a folder whose entries can be listed, else an errno value.
int FolderReadError(const char* path);
/// The separator of the system's own file names, for the names lexctl3 makes.
#ifdef _WIN32
inline constexpr char kPathSeparator = '\\';
#else
inline constexpr char kPathSeparator = '/';
#endif
/// A file option's path in the system's form: on Windows every "/" becomes "\\".
std::string NativePath(std::string path);
/// Where the last component of a path starts: after its last separator ("/",
/// and "\\" on Windows), 0 when it has none.
size_t FileNameStart(std::string_view path);
/// Paths a pattern (*, ?, [...]) matches, in the system's order; mark_folders adds "/" to folders.
std::vector<std::string> MatchPaths(const char* pattern, bool mark_folders);

/// Current directory as UTF-8; false when it cannot be read.
bool GetCurrentDir(std::string& dir);
enum class ChdirResult { kOk, kNoSuchDir, kFailed };
ChdirResult ChangeDir(const char* path);

/// Runs a command line through the system's command processor and waits.
void RunShellCommand(const std::string& command_line);
/// The interactive command processor started by a bare "shell".
std::string DefaultShell();
/// Runs a program (found on PATH when argv[0] has no "/") with exactly these
/// arguments, no command processor in between, and waits for it. Its exit
/// status; -1 when it could not be started or did not exit normally.
int RunProgram(const std::vector<std::string>& argv);
/// The folder for temporary files: TMPDIR, else "/tmp".
std::string TempDirectory();

/// Kernel and user processor time of the process, in microseconds.
bool ProcessTimes(long long& kernel_us, long long& user_us);

/// Converts a line from the native multibyte encoding to UTF-8 in place.
bool NativeToUtf8(std::string& line);

/// Reads one line with its line end (any bytes); false at end of file or on error.
bool GetLine(FILE* file, std::string& line);
/// True when standard input and output are both terminals.
bool ConsoleIsInteractive();
/// Writes message to stderr without allocating, then ends the process with status 1.
[[noreturn]] void ExitNow(const char* message);

/// Process ID, for the name of the temporary command file.
unsigned long ProcessId();
/// Sets an environment variable for this process and the programs it starts.
void SetEnvironment(const char* name, const char* value);
/// A null-device descriptor kept for the process's life, for a library that wants one.
int NullDescriptor();
/// Makes a connected socket blocking, with the library's time-outs (positive:
/// seconds, negative: microseconds, 0: none) on the socket itself.
bool MakeSocketBlocking(std::uintptr_t socket, int recv_timeout, int send_timeout);
/// One send on a blocking socket, retried when interrupted: bytes sent, or
/// 0 with error set (0 for a time-out, which the library reports as one).
long long SocketSend(std::uintptr_t socket, const char* data, size_t size, int& error);
/// One receive likewise: bytes received; 0 at the end of the stream (error
/// untouched) or on failure (error set as for SocketSend).
long long SocketReceive(std::uintptr_t socket, char* data, size_t size, int& error);
/// True for a numeric IPv4 or IPv6 address.
bool IsIpAddress(const std::string& host);

/// Loads a shared library on first need, by the first of its names that
/// loads; null when none does.
void* OpenLibrary(std::initializer_list<const char*> names);
void* LibrarySymbol(void* library, const char* name);

/// Points `target` (a function or variable pointer) at the library's symbol;
/// false when the symbol is missing.
template <typename T>
bool BindSymbol(void* library, T& target, const char* name) {
  void* symbol = LibrarySymbol(library, name);
  target = reinterpret_cast<T>(symbol);
  return symbol != nullptr;
}

}  // namespace lexctl
