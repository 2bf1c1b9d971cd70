#include "sys.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cctype>
#include <cstring>

#ifdef _WIN32
#include <windows.h>
#else
#include <fcntl.h>
#include <pthread.h>
#include <unistd.h>
#endif

namespace lexsim {
namespace {

void (*g_stop)() = nullptr;

void OnStopSignal(int) { g_stop(); }

#ifdef _WIN32
BOOL WINAPI OnConsoleEvent(DWORD) {
  g_stop();
  return TRUE;
}
#endif

}  // namespace

#ifdef _WIN32

bool MatchPattern(const std::string& pattern, const std::string& text) {
  size_t p = 0, t = 0, star = std::string::npos, resume = 0;
  while (t < text.size()) {
    if (p < pattern.size() && pattern[p] == '*') {
      star = p++;
      resume = t;
      continue;
    }
    if (p < pattern.size()) {
      char c = text[t];
      if (pattern[p] == '?') {
        ++p, ++t;
        continue;
      }
      if (pattern[p] == '[') {
        size_t q = p + 1;
        bool negate = q < pattern.size() && (pattern[q] == '!' || pattern[q] == '^');
        if (negate) ++q;
        bool hit = false;
        size_t first = q;
        while (q < pattern.size() && (pattern[q] != ']' || q == first)) {
          if (q + 2 < pattern.size() && pattern[q + 1] == '-' && pattern[q + 2] != ']') {
            hit = hit || (c >= pattern[q] && c <= pattern[q + 2]);
            q += 3;
          } else {
            hit = hit || c == pattern[q++];
          }
        }
        if (q < pattern.size() && hit != negate) {
          p = q + 1, ++t;
          continue;
        }
      } else if (pattern[p] == c) {
        ++p, ++t;
        continue;
      }
    }
    if (star == std::string::npos) return false;
    p = star + 1;
    t = ++resume;
  }
  while (p < pattern.size() && pattern[p] == '*') ++p;
  return p == pattern.size();
}

#else

bool MatchPattern(const std::string& pattern, const std::string& text) {
  return fnmatch(pattern.c_str(), text.c_str(), 0) == 0;
}

#endif

#ifdef _WIN32

void InstallStopHandler(void (*stop)()) {
  g_stop = stop;
  std::signal(SIGTERM, OnStopSignal);
  SetConsoleCtrlHandler(OnConsoleEvent, TRUE);
}

// Console events arrive on a thread of their own.
void BlockStopSignals() {}

void SetSocketTimeouts(SOAP_SOCKET s, int seconds) {
  DWORD ms = static_cast<DWORD>(seconds) * 1000;
  setsockopt(s, SOL_SOCKET, SO_RCVTIMEO, reinterpret_cast<const char*>(&ms), sizeof ms);
  setsockopt(s, SOL_SOCKET, SO_SNDTIMEO, reinterpret_cast<const char*>(&ms), sizeof ms);
}

void CloseSocket(SOAP_SOCKET s) { closesocket(s); }

void ShutdownReceive(SOAP_SOCKET s) { shutdown(s, SD_RECEIVE); }

bool WriteFileAtomically(const std::string& path, const std::string& text) {
  std::string tmp = path + ".tmp";
  FILE* f = std::fopen(tmp.c_str(), "wb");
  if (!f) return false;
  bool ok = std::fwrite(text.data(), 1, text.size(), f) == text.size();
  ok = std::fflush(f) == 0 && ok;
  ok = FlushFileBuffers(reinterpret_cast<HANDLE>(_get_osfhandle(_fileno(f)))) && ok;
  ok = std::fclose(f) == 0 && ok;
  if (!ok || !MoveFileExA(tmp.c_str(), path.c_str(), MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH)) {
    std::remove(tmp.c_str());
    return false;
  }
  return true;
}

#else

void InstallStopHandler(void (*stop)()) {
  g_stop = stop;
  signal(SIGPIPE, SIG_IGN);
  struct sigaction sa {};
  sa.sa_handler = OnStopSignal;
  sigemptyset(&sa.sa_mask);
  sigaction(SIGTERM, &sa, nullptr);
  sigaction(SIGINT, &sa, nullptr);
}

void BlockStopSignals() {
  sigset_t stop;
  sigemptyset(&stop);
  sigaddset(&stop, SIGTERM);
  sigaddset(&stop, SIGINT);
  pthread_sigmask(SIG_BLOCK, &stop, nullptr);
}

void SetSocketTimeouts(SOAP_SOCKET s, int seconds) {
  timeval tv{seconds, 0};
  setsockopt(s, SOL_SOCKET, SO_RCVTIMEO, &tv, sizeof tv);
  setsockopt(s, SOL_SOCKET, SO_SNDTIMEO, &tv, sizeof tv);
}

void CloseSocket(SOAP_SOCKET s) { ::close(s); }

void ShutdownReceive(SOAP_SOCKET s) { ::shutdown(s, SHUT_RD); }

bool WriteFileAtomically(const std::string& path, const std::string& text) {
  std::string tmp = path + ".tmp";
  int fd = open(tmp.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
  if (fd < 0) return false;
  size_t done = 0;
  while (done < text.size()) {
    ssize_t n = write(fd, text.data() + done, text.size() - done);
    if (n <= 0) {
      close(fd);
      std::remove(tmp.c_str());
      return false;
    }
    done += static_cast<size_t>(n);
  }
  bool ok = fsync(fd) == 0;
  ok = close(fd) == 0 && ok;
  if (!ok || std::rename(tmp.c_str(), path.c_str()) != 0) {
    std::remove(tmp.c_str());
    return false;
  }
  return true;
}

#endif

}  // namespace lexsim

#ifdef _WIN32

struct WinIconv {
  UINT from, to;
};

namespace {

constexpr UINT kUtf16Le = 1200, kUtf16Be = 1201;

UINT CodePage(const char* name) {
  std::string n;
  for (const char* c = name; *c; ++c)
    if (*c != '-' && *c != '_') n += static_cast<char>(std::toupper(static_cast<unsigned char>(*c)));
  static const struct {
    const char* name;
    UINT page;
  } kNames[] = {{"UTF8", CP_UTF8},     {"UTF16LE", kUtf16Le}, {"UTF16BE", kUtf16Be},
                {"ASCII", 20127},      {"USASCII", 20127},    {"LATIN1", 28591},
                {"SHIFTJIS", 932},     {"SJIS", 932},         {"GBK", 936},
                {"GB2312", 936},       {"BIG5", 950},         {"EUCKR", 51949},
                {"EUCJP", 20932},      {"KOI8R", 20866},      {"KOI8U", 21866}};
  for (const auto& k : kNames)
    if (n == k.name) return k.page;
  unsigned number = 0;
  if (std::sscanf(n.c_str(), "ISO8859%u", &number) == 1 && number >= 1 && number <= 15)
    return 28590 + number;
  if (std::sscanf(n.c_str(), "WINDOWS%u", &number) == 1 || std::sscanf(n.c_str(), "CP%u", &number) == 1)
    return IsValidCodePage(number) ? number : 0;
  return 0;
}

// Length of the next character of a multi-byte text; 0 when it is cut short.
size_t CharLength(UINT page, const unsigned char* s, size_t left) {
  size_t n = 1;
  if (page == kUtf16Le || page == kUtf16Be) {
    if (left < 2) return 0;
    unsigned unit = page == kUtf16Le ? s[0] | s[1] << 8 : s[0] << 8 | s[1];
    n = unit >= 0xD800 && unit < 0xDC00 ? 4 : 2;
  } else if (page == CP_UTF8) {
    n = s[0] >= 0xF0 ? 4 : s[0] >= 0xE0 ? 3 : s[0] >= 0xC0 ? 2 : 1;
  } else if (IsDBCSLeadByteEx(page, s[0])) {
    n = 2;
  }
  return n <= left ? n : 0;
}

int ToWide(UINT page, const unsigned char* s, size_t n, wchar_t* wide) {
  if (page == kUtf16Le || page == kUtf16Be) {
    for (size_t i = 0; i < n / 2; ++i)
      wide[i] = static_cast<wchar_t>(page == kUtf16Le ? s[2 * i] | s[2 * i + 1] << 8
                                                      : s[2 * i] << 8 | s[2 * i + 1]);
    return static_cast<int>(n / 2);
  }
  return MultiByteToWideChar(page, MB_ERR_INVALID_CHARS, reinterpret_cast<const char*>(s),
                             static_cast<int>(n), wide, 4);
}

int FromWide(UINT page, const wchar_t* wide, int count, char* out) {
  if (page == kUtf16Le || page == kUtf16Be) {
    for (int i = 0; i < count; ++i) {
      out[2 * i + (page == kUtf16Le ? 0 : 1)] = static_cast<char>(wide[i] & 0xFF);
      out[2 * i + (page == kUtf16Le ? 1 : 0)] = static_cast<char>(wide[i] >> 8);
    }
    return 2 * count;
  }
  BOOL lossy = FALSE;
  bool plain = page == CP_UTF8 || page == 54936;
  int n = WideCharToMultiByte(page, plain ? 0 : WC_NO_BEST_FIT_CHARS, wide, count, out, 16,
                              nullptr, plain ? nullptr : &lossy);
  return lossy ? 0 : n;
}

}  // namespace

iconv_t iconv_open(const char* to, const char* from) {
  UINT f = CodePage(from), t = CodePage(to);
  if (!f || !t) {
    errno = EINVAL;
    return reinterpret_cast<iconv_t>(-1);
  }
  return new WinIconv{f, t};
}

size_t iconv(iconv_t cd, char** in, size_t* in_left, char** out, size_t* out_left) {
  if (!in || !*in) return 0;  // no shift states to flush
  while (*in_left > 0) {
    auto* s = reinterpret_cast<const unsigned char*>(*in);
    size_t n = CharLength(cd->from, s, *in_left);
    if (n == 0) {
      errno = EINVAL;
      return static_cast<size_t>(-1);
    }
    wchar_t wide[4];
    char bytes[16];
    int count = ToWide(cd->from, s, n, wide);
    int made = count > 0 ? FromWide(cd->to, wide, count, bytes) : 0;
    if (made <= 0) {
      errno = EILSEQ;
      return static_cast<size_t>(-1);
    }
    if (static_cast<size_t>(made) > *out_left) {
      errno = E2BIG;
      return static_cast<size_t>(-1);
    }
    std::memcpy(*out, bytes, static_cast<size_t>(made));
    *out += made;
    *out_left -= static_cast<size_t>(made);
    *in += n;
    *in_left -= n;
  }
  return 0;
}

int iconv_close(iconv_t cd) {
  delete cd;
  return 0;
}

#endif
