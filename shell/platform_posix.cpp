#include <arpa/inet.h>
#include <dirent.h>
#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <glob.h>
#include <signal.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <clocale>
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <exception>
#include <string>

#include "shell/platform.h"
#include "shell/utf8.h"

namespace lexctl {
namespace {

void OnInterrupt(int) {
  static const char msg[] = "CTRL-C interrupt ignored.\n";
  ssize_t ignored = write(STDERR_FILENO, msg, sizeof(msg) - 1);
  (void)ignored;
}

void OnTerminate() { ExitNow("Unexpected run-time error: the program cannot go on.\n"); }

// A buffer for getline(3), freed with its thread.
struct GetlineBuffer {
  char* data = nullptr;
  size_t capacity = 0;
  GetlineBuffer() = default;
  GetlineBuffer(const GetlineBuffer&) = delete;
  GetlineBuffer& operator=(const GetlineBuffer&) = delete;
  ~GetlineBuffer() { free(data); }
};

}  // namespace

void PreferLargePages(void* data, size_t size) {
  if (size < (size_t{4} << 20)) return;
  // Only whole 2 MB extents can be huge pages; the ends keep small ones.
  constexpr uintptr_t kHuge = uintptr_t{2} << 20;
  uintptr_t from = (reinterpret_cast<uintptr_t>(data) + kHuge - 1) & ~(kHuge - 1);
  uintptr_t to = (reinterpret_cast<uintptr_t>(data) + size) & ~(kHuge - 1);
  if (to > from) madvise(reinterpret_cast<void*>(from), to - from, MADV_HUGEPAGE);
}

void PlatformInit() {
  std::set_terminate(OnTerminate);
  struct sigaction action;
  memset(&action, 0, sizeof(action));
  action.sa_handler = OnInterrupt;
  sigemptyset(&action.sa_mask);
  action.sa_flags = SA_RESTART;
  sigaction(SIGINT, &action, nullptr);
  // A peer that drops a connection must not end the process.
  signal(SIGPIPE, SIG_IGN);
  setlocale(LC_ALL, "");
}

void WriteConsoleText(std::string_view text) {
  fwrite(text.data(), 1, text.size(), stdout);
  fflush(stdout);
}

FILE* OpenFile(const char* path, const char* mode) { return fopen(path, mode); }

namespace {

// A regular file read through a block kept here: a loop seeks back to its
// procedure on every turn, and stdio would ask the kernel each time.
struct ScriptCookie {
  int fd;
  off64_t pos = 0;
  std::string block{};      // the file's bytes from block_start, as last read
  off64_t block_start = 0;
};

ssize_t ScriptRead(void* cookie, char* buffer, size_t size) {
  auto* script = static_cast<ScriptCookie*>(cookie);
  off64_t block_end = script->block_start + static_cast<off64_t>(script->block.size());
  if (script->pos < script->block_start || script->pos >= block_end) {
    // Past the block (a file that grows is read again there) or before it.
    script->block.resize(size_t{64} << 10);
    ssize_t n = pread(script->fd, script->block.data(), script->block.size(), script->pos);
    script->block.resize(n > 0 ? static_cast<size_t>(n) : 0);
    script->block_start = script->pos;
    if (n <= 0) return n;
  }
  size_t offset = static_cast<size_t>(script->pos - script->block_start);
  size_t n = std::min(size, script->block.size() - offset);
  memcpy(buffer, script->block.data() + offset, n);
  script->pos += static_cast<off64_t>(n);
  return static_cast<ssize_t>(n);
}

int ScriptSeek(void* cookie, off64_t* offset, int whence) {
  auto* script = static_cast<ScriptCookie*>(cookie);
  off64_t base = whence == SEEK_SET ? 0 : whence == SEEK_CUR ? script->pos : -1;
  if (whence == SEEK_END) {
    struct stat info;
    if (fstat(script->fd, &info) != 0) return -1;
    base = info.st_size;
  }
  if (base < 0 || base + *offset < 0) return -1;
  *offset = script->pos = base + *offset;
  return 0;
}

int ScriptClose(void* cookie) {
  auto* script = static_cast<ScriptCookie*>(cookie);
  int status = close(script->fd);
  delete script;
  return status;
}

}  // namespace

FILE* OpenScriptFile(const char* path) {
  int fd = open(path, O_RDONLY | O_CLOEXEC);
  if (fd < 0) return nullptr;
  struct stat info;
  bool known = fstat(fd, &info) == 0;
  // A folder opens on POSIX but not on Windows, where it is no script either.
  if (known && S_ISDIR(info.st_mode)) {
    close(fd);
    errno = EISDIR;
    return nullptr;
  }
  if (!known || !S_ISREG(info.st_mode)) {
    FILE* file = fdopen(fd, "rb");  // a pipe or device reads as it comes
    if (!file) close(fd);
    return file;
  }
  auto* script = new ScriptCookie{fd};
  FILE* file = fopencookie(script, "rb", {ScriptRead, nullptr, ScriptSeek, ScriptClose});
  if (!file) ScriptClose(script);
  return file;
}
int RemoveFile(const char* path) { return remove(path); }
int RenameFile(const char* from, const char* to) { return rename(from, to); }

FILE* CreatePrivateFile(const char* path) {
  int fd = open(path, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
  if (fd < 0) return nullptr;
  // An existing file keeps its old mode through O_CREAT; tighten it.
  fchmod(fd, 0600);
  FILE* file = fdopen(fd, "wb");
  if (!file) close(fd);
  return file;
}

bool PreparePrivateFile(const char* path) {
  int fd = open(path, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
  if (fd < 0) return false;
  struct stat st;
  bool ok = fstat(fd, &st) == 0 && ((st.st_mode & 077) == 0 || fchmod(fd, st.st_mode & 0700) == 0);
  close(fd);
  return ok;
}

bool IsDirectory(const char* path) {
  struct stat st;
  return stat(path, &st) == 0 && S_ISDIR(st.st_mode);
}

bool FileExists(const char* path) {
  struct stat st;
  return stat(path, &st) == 0;
}

bool MakeDirectory(const char* path) {
  return mkdir(path, 0777) == 0 || (errno == EEXIST && IsDirectory(path));
}

long long OpenFileSize(FILE* file) {
  struct stat st;
  if (fstat(fileno(file), &st) != 0 || S_ISDIR(st.st_mode)) return -1;
  return S_ISREG(st.st_mode) ? static_cast<long long>(st.st_size) : 0;
}

int FileReadError(const char* path) {
  int fd = open(path, O_RDONLY | O_CLOEXEC);
  if (fd < 0) return errno;
  struct stat info;
  int problem = fstat(fd, &info) != 0 ? errno : S_ISDIR(info.st_mode) ? EISDIR : 0;
  close(fd);
  return problem;
}

int FolderReadError(const char* path) {
  DIR* dir = opendir(path);
  if (!dir) return errno;
  closedir(dir);
  return 0;
}

std::string NativePath(std::string path) { return path; }

size_t FileNameStart(std::string_view path) {
  size_t slash = path.rfind('/');
  return slash == std::string_view::npos ? 0 : slash + 1;
}

std::vector<std::string> MatchPaths(const char* pattern, bool mark_folders) {
  std::vector<std::string> paths;
  glob_t found{};
  if (glob(pattern, mark_folders ? GLOB_MARK : 0, nullptr, &found) == 0) {
    for (size_t i = 0; i < found.gl_pathc; ++i) paths.emplace_back(found.gl_pathv[i]);
  }
  globfree(&found);
  return paths;
}

bool GetCurrentDir(std::string& dir) {
  char buffer[4096];
  if (!getcwd(buffer, sizeof(buffer))) return false;
  dir = buffer;
  return true;
}

ChdirResult ChangeDir(const char* path) {
  if (chdir(path) == 0) return ChdirResult::kOk;
  if (errno == ENOENT || errno == ENOTDIR) return ChdirResult::kNoSuchDir;
  return ChdirResult::kFailed;
}

void RunShellCommand(const std::string& command_line) {
  int status = system(command_line.c_str());
  (void)status;
}

std::string DefaultShell() {
  const char* shell = getenv("SHELL");
  return shell && *shell ? shell : "/bin/sh";
}

int RunProgram(const std::vector<std::string>& argv) {
  if (argv.empty()) return -1;
  std::vector<char*> words;
  for (const std::string& word : argv) words.push_back(const_cast<char*>(word.c_str()));
  words.push_back(nullptr);
  pid_t pid;
  if (posix_spawnp(&pid, words[0], nullptr, nullptr, words.data(), environ) != 0) return -1;
  int status;
  while (waitpid(pid, &status, 0) < 0) {
    if (errno != EINTR) return -1;
  }
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

std::string TempDirectory() {
  const char* dir = getenv("TMPDIR");
  return dir && *dir ? dir : "/tmp";
}

bool ProcessTimes(long long& kernel_us, long long& user_us) {
  struct rusage usage;
  if (getrusage(RUSAGE_SELF, &usage) != 0) return false;
  kernel_us = static_cast<long long>(usage.ru_stime.tv_sec) * 1000000 + usage.ru_stime.tv_usec;
  user_us = static_cast<long long>(usage.ru_utime.tv_sec) * 1000000 + usage.ru_utime.tv_usec;
  return true;
}

bool NativeToUtf8(std::string& line) {
  if (IsAscii(line)) return true;
  std::mbstate_t state{};
  const char* in = line.data();
  const char* end = in + line.size();
  std::string out;
  out.reserve(line.size() * 2);
  while (in < end) {
    wchar_t wc;
    size_t n = mbrtowc(&wc, in, end - in, &state);
    if (n == static_cast<size_t>(-1) || n == static_cast<size_t>(-2)) return false;
    if (n == 0) n = 1;  // an embedded NUL
    AppendUtf8(out, static_cast<char32_t>(wc));
    in += n;
  }
  line.swap(out);
  return true;
}

bool GetLine(FILE* file, std::string& line) {
  thread_local GetlineBuffer buffer;
  ssize_t n = getline(&buffer.data, &buffer.capacity, file);
  if (n < 0) return false;
  line.assign(buffer.data, n);
  return true;
}

bool ConsoleIsInteractive() { return isatty(STDIN_FILENO) && isatty(STDOUT_FILENO); }

void ExitNow(const char* message) {
  ssize_t ignored = write(STDERR_FILENO, message, strlen(message));
  (void)ignored;
  _exit(1);
}

unsigned long ProcessId() { return static_cast<unsigned long>(getpid()); }

void SetEnvironment(const char* name, const char* value) { setenv(name, value, 1); }

int NullDescriptor() {
  static const int fd = open("/dev/null", O_RDWR | O_CLOEXEC);
  return fd;
}

bool MakeSocketBlocking(std::uintptr_t socket, int recv_timeout, int send_timeout) {
  int fd = static_cast<int>(socket);
  int flags = fcntl(fd, F_GETFL);
  if (flags < 0 || fcntl(fd, F_SETFL, flags & ~O_NONBLOCK) < 0) return false;
  auto interval = [](int timeout) {
    struct timeval tv = {0, 0};
    if (timeout > 0) tv.tv_sec = timeout;
    if (timeout < 0) tv = {-timeout / 1000000, -timeout % 1000000};
    return tv;
  };
  struct timeval receive = interval(recv_timeout), send = interval(send_timeout);
  setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &receive, sizeof(receive));
  setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &send, sizeof(send));
  return true;
}

long long SocketSend(std::uintptr_t socket, const char* data, size_t size, int& error) {
  for (;;) {
    ssize_t sent = send(static_cast<int>(socket), data, size, MSG_NOSIGNAL);
    if (sent > 0) return sent;
    if (sent < 0 && errno == EINTR) continue;
    // EAGAIN on a blocking socket is its time-out.
    error = sent < 0 && errno != EAGAIN && errno != EWOULDBLOCK ? errno : 0;
    return 0;
  }
}

long long SocketReceive(std::uintptr_t socket, char* data, size_t size, int& error) {
  for (;;) {
    ssize_t got = recv(static_cast<int>(socket), data, size, 0);
    if (got >= 0) return got;
    if (errno == EINTR) continue;
    error = errno == EAGAIN || errno == EWOULDBLOCK ? 0 : errno;
    return 0;
  }
}

bool IsIpAddress(const std::string& host) {
  unsigned char buffer[16];
  return inet_pton(AF_INET, host.c_str(), buffer) == 1 || inet_pton(AF_INET6, host.c_str(), buffer) == 1;
}

void* OpenLibrary(std::initializer_list<const char*> names) {
  for (const char* name : names) {
    if (void* library = dlopen(name, RTLD_NOW | RTLD_LOCAL)) return library;
  }
  return nullptr;
}

void* LibrarySymbol(void* library, const char* name) { return dlsym(library, name); }

}  // namespace lexctl
