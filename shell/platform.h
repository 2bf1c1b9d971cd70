// Operating-system services behind one seam, so that a port to another
// platform touches only platform_*.cpp.
#pragma once

#include <cstdio>
#include <cstdlib>
#include <initializer_list>
#include <string>
#include <vector>

namespace lexctl {

// Kept for a platform with a crash-dump registration; unused on POSIX.
inline constexpr wchar_t kCrashDumpProduct[] = L"Lexary Server 4.7.2";
inline constexpr wchar_t kCrashDumpRegistryKey[] = L"SOFTWARE\\Norvane\\LexaryServer\\4.7.2";
inline constexpr wchar_t kCrashDumpApplication[] = L"lexctl3-4.7.2.52475";

/// Process set-up: terminate handler, signal handling (CTRL-C ignored with
/// a message), locale from the environment.
void PlatformInit();

/// Opens a file by its UTF-8 path.
FILE* OpenFile(const char* path, const char* mode);
/// Creates or replaces a file readable and writable by its owner only.
FILE* CreatePrivateFile(const char* path);
/// Makes sure a file exists and is readable and writable by its owner only:
/// creates it empty, or takes the group's and others' rights from an
/// existing one, keeping its content. False when it cannot.
bool PreparePrivateFile(const char* path);
bool IsDirectory(const char* path);
bool FileExists(const char* path);

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

/// A buffer for getline(3), freed with its owner (one per thread).
struct GetlineBuffer {
  char* data = nullptr;
  size_t capacity = 0;
  GetlineBuffer() = default;
  GetlineBuffer(const GetlineBuffer&) = delete;
  GetlineBuffer& operator=(const GetlineBuffer&) = delete;
  ~GetlineBuffer() { free(data); }
};

/// Process ID, for the name of the temporary command file.
unsigned long ProcessId();

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
