#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <clocale>
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <exception>

#include "shell/platform.h"

namespace lexctl {
namespace {

void OnInterrupt(int) {
  static const char msg[] = "CTRL-C interrupt ignored.\n";
  ssize_t ignored = write(STDERR_FILENO, msg, sizeof(msg) - 1);
  (void)ignored;
}

void OnTerminate() {
  static const char msg[] = "Unexpected run-time error: the program cannot go on.\n";
  ssize_t ignored = write(STDERR_FILENO, msg, sizeof(msg) - 1);
  (void)ignored;
  _exit(1);
}

void AppendUtf8(std::string& out, uint32_t c) {
  if (c < 0x80) {
    out.push_back(static_cast<char>(c));
  } else if (c < 0x800) {
    out.push_back(static_cast<char>(0xC0 | (c >> 6)));
    out.push_back(static_cast<char>(0x80 | (c & 0x3F)));
  } else if (c < 0x10000) {
    out.push_back(static_cast<char>(0xE0 | (c >> 12)));
    out.push_back(static_cast<char>(0x80 | ((c >> 6) & 0x3F)));
    out.push_back(static_cast<char>(0x80 | (c & 0x3F)));
  } else {
    out.push_back(static_cast<char>(0xF0 | (c >> 18)));
    out.push_back(static_cast<char>(0x80 | ((c >> 12) & 0x3F)));
    out.push_back(static_cast<char>(0x80 | ((c >> 6) & 0x3F)));
    out.push_back(static_cast<char>(0x80 | (c & 0x3F)));
  }
}

}  // namespace

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

FILE* OpenFile(const char* path, const char* mode) { return fopen(path, mode); }

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
  bool ascii = true;
  for (unsigned char c : line) {
    if (c >= 0x80) {
      ascii = false;
      break;
    }
  }
  if (ascii) return true;
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
    AppendUtf8(out, static_cast<uint32_t>(wc));
    in += n;
  }
  line.swap(out);
  return true;
}

unsigned long ProcessId() { return static_cast<unsigned long>(getpid()); }

void* OpenLibrary(std::initializer_list<const char*> names) {
  for (const char* name : names) {
    if (void* library = dlopen(name, RTLD_NOW | RTLD_LOCAL)) return library;
  }
  return nullptr;
}

void* LibrarySymbol(void* library, const char* name) { return dlsym(library, name); }

}  // namespace lexctl
