#include <winsock2.h>
#include <ws2tcpip.h>
#include <windows.h>

#include <errno.h>
#include <fcntl.h>
#include <io.h>
#include <sys/stat.h>

#include <clocale>
#include <cstdlib>
#include <cstring>
#include <exception>

#include "shell/platform.h"
#include "shell/utf8.h"

namespace lexctl {
namespace {

// Empty when the text does not convert (flags may ask for strictness).
std::wstring Widen(std::string_view text, UINT code_page = CP_UTF8, DWORD flags = 0) {
  int size = static_cast<int>(text.size());
  int n = MultiByteToWideChar(code_page, flags, text.data(), size, nullptr, 0);
  if (n <= 0) return std::wstring();
  std::wstring wide(n, L'\0');
  MultiByteToWideChar(code_page, flags, text.data(), size, wide.data(), n);
  return wide;
}

std::string Narrow(const wchar_t* text, int length = -1) {
  int n = WideCharToMultiByte(CP_UTF8, 0, text, length, nullptr, 0, nullptr, nullptr);
  if (n <= 0) return std::string();
  std::string narrow(n, '\0');
  WideCharToMultiByte(CP_UTF8, 0, text, length, narrow.data(), n, nullptr, nullptr);
  if (length < 0) narrow.resize(n - 1);
  return narrow;
}

void WriteHandle(DWORD which, const char* text, size_t size) {
  DWORD written;
  WriteFile(GetStdHandle(which), text, static_cast<DWORD>(size), &written, nullptr);
}

BOOL WINAPI OnControl(DWORD event) {
  if (event != CTRL_C_EVENT) return FALSE;
  static const char msg[] = "CTRL-C interrupt ignored.\n";
  WriteHandle(STD_ERROR_HANDLE, msg, sizeof(msg) - 1);
  return TRUE;
}

void OnTerminate() { ExitNow("Unexpected run-time error: the program cannot go on.\n"); }

// The errno value closest to a Win32 error, for the callers' messages.
int ErrnoOf(DWORD error) {
  switch (error) {
    case ERROR_FILE_NOT_FOUND:
    case ERROR_PATH_NOT_FOUND:
    case ERROR_INVALID_NAME:
    case ERROR_BAD_NETPATH:
      return ENOENT;
    case ERROR_DIRECTORY:
      return ENOTDIR;
    case ERROR_ACCESS_DENIED:
    case ERROR_SHARING_VIOLATION:
      return EACCES;
    default:
      return EIO;
  }
}

std::string GetEnvironment(const wchar_t* name) {
  const wchar_t* value = _wgetenv(name);
  return value ? Narrow(value) : std::string();
}

// One argument quoted the way the C run-time's command-line parser splits it.
void AppendQuoted(std::wstring& line, const std::wstring& arg) {
  if (!arg.empty() && arg.find_first_of(L" \t\n\v\"") == std::wstring::npos) {
    line += arg;
    return;
  }
  line.push_back(L'"');
  size_t backslashes = 0;
  for (wchar_t c : arg) {
    if (c == L'\\') {
      ++backslashes;
      continue;
    }
    line.append(c == L'"' ? backslashes * 2 + 1 : backslashes, L'\\');
    backslashes = 0;
    line.push_back(c);
  }
  line.append(backslashes * 2, L'\\');
  line.push_back(L'"');
}

}  // namespace

void PlatformInit() {
  std::set_terminate(OnTerminate);
  SetConsoleCtrlHandler(OnControl, TRUE);
  // The program's own bytes, as on Linux: no "\n" to "\r\n" rewrite.
  _setmode(_fileno(stdin), _O_BINARY);
  _setmode(_fileno(stdout), _O_BINARY);
  _setmode(_fileno(stderr), _O_BINARY);
  setlocale(LC_ALL, "");
}

void WriteConsoleText(std::string_view text) {
  HANDLE out = GetStdHandle(STD_OUTPUT_HANDLE);
  DWORD mode;
  if (text.empty() || !GetConsoleMode(out, &mode)) {
    fwrite(text.data(), 1, text.size(), stdout);
    fflush(stdout);
    return;
  }
  // A console shows UTF-16 whatever its code page; a redirected stdout gets UTF-8.
  fflush(stdout);
  std::wstring wide = Widen(text);
  DWORD written;
  WriteConsoleW(out, wide.data(), static_cast<DWORD>(wide.size()), &written, nullptr);
}

// Large pages need a privilege that ordinary accounts lack.
void PreferLargePages(void*, size_t) {}

FILE* OpenFile(const char* path, const char* mode) { return _wfopen(Widen(path).c_str(), Widen(mode).c_str()); }
FILE* OpenScriptFile(const char* path) { return OpenFile(path, "rb"); }
int RemoveFile(const char* path) { return _wremove(Widen(path).c_str()); }
int RenameFile(const char* from, const char* to) {
  if (MoveFileExW(Widen(from).c_str(), Widen(to).c_str(), MOVEFILE_REPLACE_EXISTING)) return 0;
  errno = EACCES;
  return -1;
}

// Files under the user's profile are the owner's by its inherited access list;
// nothing narrower is set here.
FILE* CreatePrivateFile(const char* path) { return OpenFile(path, "wb"); }

bool PreparePrivateFile(const char* path) {
  FILE* file = OpenFile(path, "ab");
  if (!file) return false;
  fclose(file);
  return true;
}

bool IsDirectory(const char* path) {
  DWORD attributes = GetFileAttributesW(Widen(path).c_str());
  return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY);
}

bool FileExists(const char* path) { return GetFileAttributesW(Widen(path).c_str()) != INVALID_FILE_ATTRIBUTES; }

bool MakeDirectory(const char* path) {
  return CreateDirectoryW(Widen(path).c_str(), nullptr) || IsDirectory(path);
}

long long OpenFileSize(FILE* file) {
  struct _stat64 st;
  if (_fstat64(_fileno(file), &st) != 0 || (st.st_mode & _S_IFMT) == _S_IFDIR) return -1;
  return (st.st_mode & _S_IFMT) == _S_IFREG ? static_cast<long long>(st.st_size) : 0;
}

int FileReadError(const char* path) {
  std::wstring wide = Widen(path);
  DWORD attributes = GetFileAttributesW(wide.c_str());
  if (attributes == INVALID_FILE_ATTRIBUTES) return ErrnoOf(GetLastError());
  if (attributes & FILE_ATTRIBUTE_DIRECTORY) return EISDIR;
  int fd = _wopen(wide.c_str(), _O_RDONLY | _O_BINARY);
  if (fd < 0) return errno;
  _close(fd);
  return 0;
}

int FolderReadError(const char* path) {
  std::wstring pattern = Widen(path) + L"\\*";
  WIN32_FIND_DATAW entry;
  HANDLE find = FindFirstFileW(pattern.c_str(), &entry);
  if (find == INVALID_HANDLE_VALUE) {
    DWORD error = GetLastError();
    return error == ERROR_FILE_NOT_FOUND ? 0 : ErrnoOf(error);
  }
  FindClose(find);
  return 0;
}

std::string NativePath(std::string path) {
  for (char& c : path) {
    if (c == '/') c = '\\';
  }
  return path;
}

size_t FileNameStart(std::string_view path) {
  size_t slash = path.find_last_of("/\\");
  return slash == std::string_view::npos ? 0 : slash + 1;
}

// The find functions match wildcards in the last part of the path only, and
// know * and ? but not [...].
std::vector<std::string> MatchPaths(const char* pattern, bool mark_folders) {
  std::vector<std::string> paths;
  std::string folder(pattern);
  size_t cut = folder.find_last_of("/\\:");
  folder.resize(cut == std::string::npos ? 0 : cut + 1);
  WIN32_FIND_DATAW entry;
  HANDLE find = FindFirstFileW(Widen(pattern).c_str(), &entry);
  if (find == INVALID_HANDLE_VALUE) return paths;
  do {
    if (wcscmp(entry.cFileName, L".") == 0 || wcscmp(entry.cFileName, L"..") == 0) continue;
    std::string path = folder + Narrow(entry.cFileName);
    if (mark_folders && (entry.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY)) path.push_back('/');
    paths.push_back(std::move(path));
  } while (FindNextFileW(find, &entry));
  FindClose(find);
  return paths;
}

bool GetCurrentDir(std::string& dir) {
  DWORD n = GetCurrentDirectoryW(0, nullptr);
  if (n == 0) return false;
  std::wstring wide(n, L'\0');
  n = GetCurrentDirectoryW(n, wide.data());
  if (n == 0) return false;
  dir = Narrow(wide.c_str(), static_cast<int>(n));
  return true;
}

ChdirResult ChangeDir(const char* path) {
  if (SetCurrentDirectoryW(Widen(path).c_str())) return ChdirResult::kOk;
  int error = ErrnoOf(GetLastError());
  return error == ENOENT || error == ENOTDIR ? ChdirResult::kNoSuchDir : ChdirResult::kFailed;
}

// _wsystem runs the line through COMSPEC, else cmd.exe.
void RunShellCommand(const std::string& command_line) {
  int status = _wsystem(Widen(command_line.c_str()).c_str());
  (void)status;
}

std::string DefaultShell() {
  std::string shell = GetEnvironment(L"COMSPEC");
  return shell.empty() ? "cmd.exe" : shell;
}

int RunProgram(const std::vector<std::string>& argv) {
  if (argv.empty()) return -1;
  std::wstring line;
  for (const std::string& word : argv) {
    if (!line.empty()) line.push_back(L' ');
    AppendQuoted(line, Widen(word.c_str()));
  }
  STARTUPINFOW startup{};
  startup.cb = sizeof(startup);
  PROCESS_INFORMATION process{};
  if (!CreateProcessW(nullptr, line.data(), nullptr, nullptr, TRUE, 0, nullptr, nullptr, &startup, &process)) {
    return -1;
  }
  CloseHandle(process.hThread);
  DWORD status = 0;
  bool done = WaitForSingleObject(process.hProcess, INFINITE) == WAIT_OBJECT_0 &&
              GetExitCodeProcess(process.hProcess, &status);
  CloseHandle(process.hProcess);
  return done ? static_cast<int>(status) : -1;
}

std::string TempDirectory() {
  wchar_t buffer[MAX_PATH + 1];
  DWORD n = GetTempPathW(MAX_PATH + 1, buffer);
  if (n == 0 || n > MAX_PATH) return ".";
  // Callers add "/" and a name.
  if (buffer[n - 1] == L'\\') --n;
  return Narrow(buffer, static_cast<int>(n));
}

bool ProcessTimes(long long& kernel_us, long long& user_us) {
  FILETIME created, ended, kernel, user;
  if (!GetProcessTimes(GetCurrentProcess(), &created, &ended, &kernel, &user)) return false;
  auto micros = [](const FILETIME& t) {
    return static_cast<long long>((static_cast<unsigned long long>(t.dwHighDateTime) << 32 | t.dwLowDateTime) / 10);
  };
  kernel_us = micros(kernel);
  user_us = micros(user);
  return true;
}

bool NativeToUtf8(std::string& line) {
  if (IsAscii(line)) return true;
  std::wstring wide = Widen(line, CP_ACP, MB_ERR_INVALID_CHARS);
  if (wide.empty()) return false;
  line = Narrow(wide.data(), static_cast<int>(wide.size()));
  return true;
}

// A line typed at the console, as UTF-8 whatever the console's code page.
static bool ReadConsoleUtf8(HANDLE in, std::string& line) {
  std::wstring wide;
  wchar_t buffer[512];
  // CTRL+C ends a read with nothing in it; the line goes on being read.
  for (int empty_reads = 0; empty_reads < 100;) {
    DWORD n = 0;
    if (!ReadConsoleW(in, buffer, sizeof(buffer) / sizeof(buffer[0]), &n, nullptr)) break;
    if (n == 0) {
      ++empty_reads;
      continue;
    }
    wide.append(buffer, n);
    if (wide.back() == L'\n') break;
  }
  // CTRL+Z at the start of a line is the end of input, as for the C run-time.
  if (wide.empty() || wide[0] == 0x1A) return false;
  line = Narrow(wide.data(), static_cast<int>(wide.size()));
  return true;
}

bool GetLine(FILE* file, std::string& line) {
  line.clear();
  DWORD mode;
  if (file == stdin && GetConsoleMode(GetStdHandle(STD_INPUT_HANDLE), &mode)) {
    return ReadConsoleUtf8(GetStdHandle(STD_INPUT_HANDLE), line);
  }
  _lock_file(file);
  int c;
  while ((c = _getc_nolock(file)) != EOF) {
    line.push_back(static_cast<char>(c));
    if (c == '\n') break;
  }
  _unlock_file(file);
  return !line.empty();
}

bool ConsoleIsInteractive() { return _isatty(_fileno(stdin)) && _isatty(_fileno(stdout)); }

void ExitNow(const char* message) {
  WriteHandle(STD_ERROR_HANDLE, message, strlen(message));
  _exit(1);
}

unsigned long ProcessId() { return GetCurrentProcessId(); }

void SetEnvironment(const char* name, const char* value) {
  std::wstring wide_name = Widen(name), wide_value = Widen(value);
  _wputenv_s(wide_name.c_str(), wide_value.c_str());
  SetEnvironmentVariableW(wide_name.c_str(), wide_value.c_str());
}

int NullDescriptor() {
  static const int fd = _open("NUL", _O_RDWR | _O_BINARY);
  return fd;
}

bool MakeSocketBlocking(std::uintptr_t socket, int recv_timeout, int send_timeout) {
  SOCKET s = static_cast<SOCKET>(socket);
  u_long non_blocking = 0;
  if (ioctlsocket(s, FIONBIO, &non_blocking) != 0) return false;
  // Winsock takes the time-outs in milliseconds.
  auto millis = [](int timeout) -> DWORD {
    if (timeout > 0) return static_cast<DWORD>(timeout) * 1000;
    if (timeout < 0) return static_cast<DWORD>((-static_cast<long long>(timeout) + 999) / 1000);
    return 0;
  };
  DWORD receive = millis(recv_timeout), send = millis(send_timeout);
  setsockopt(s, SOL_SOCKET, SO_RCVTIMEO, reinterpret_cast<const char*>(&receive), sizeof(receive));
  setsockopt(s, SOL_SOCKET, SO_SNDTIMEO, reinterpret_cast<const char*>(&send), sizeof(send));
  return true;
}

long long SocketSend(std::uintptr_t socket, const char* data, size_t size, int& error) {
  int chunk = size > 0x40000000 ? 0x40000000 : static_cast<int>(size);
  int sent = send(static_cast<SOCKET>(socket), data, chunk, 0);
  if (sent > 0) return sent;
  int problem = sent < 0 ? WSAGetLastError() : 0;
  error = problem == WSAETIMEDOUT ? 0 : problem;
  return 0;
}

long long SocketReceive(std::uintptr_t socket, char* data, size_t size, int& error) {
  int chunk = size > 0x40000000 ? 0x40000000 : static_cast<int>(size);
  int got = recv(static_cast<SOCKET>(socket), data, chunk, 0);
  if (got >= 0) return got;
  int problem = WSAGetLastError();
  error = problem == WSAETIMEDOUT ? 0 : problem;
  return 0;
}

bool IsIpAddress(const std::string& host) {
  unsigned char buffer[16];
  return inet_pton(AF_INET, host.c_str(), buffer) == 1 || inet_pton(AF_INET6, host.c_str(), buffer) == 1;
}

void* OpenLibrary(std::initializer_list<const char*> names) {
  for (const char* name : names) {
    if (HMODULE library = LoadLibraryW(Widen(name).c_str())) return reinterpret_cast<void*>(library);
  }
  return nullptr;
}

void* LibrarySymbol(void* library, const char* name) {
  return reinterpret_cast<void*>(GetProcAddress(static_cast<HMODULE>(library), name));
}

}  // namespace lexctl
