// The few operating-system services lexsim needs beyond gSOAP's own socket layer,
// so that the simulator builds for POSIX and Windows alike.
#pragma once

#include <ctime>
#include <string>

#include "stdsoap2.h"

#ifdef _WIN32
#include <winsock2.h>
#include <ws2tcpip.h>
// Windows has no iconv: code-page conversions through UTF-16 stand in for it,
// with iconv's contract (EILSEQ, EINVAL, E2BIG; the pointers advance past what
// was converted).
typedef struct WinIconv* iconv_t;
iconv_t iconv_open(const char* to, const char* from);
size_t iconv(iconv_t cd, char** in, size_t* in_left, char** out, size_t* out_left);
int iconv_close(iconv_t cd);
inline std::time_t timegm(std::tm* tm) { return _mkgmtime(tm); }
#else
#include <fnmatch.h>
#include <iconv.h>
#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#endif

namespace lexsim {

/// Calls stop() on SIGTERM, SIGINT (a console's CTRL+C or close on Windows); a
/// peer closing a connection mid-reply is not fatal.
void InstallStopHandler(void (*stop)());
/// Leaves stop requests to the other threads.
void BlockStopSignals();
/// Receive and send time-outs on the socket itself.
void SetSocketTimeouts(SOAP_SOCKET s, int seconds);
void CloseSocket(SOAP_SOCKET s);
/// Ends pending and future receives; sending still works.
void ShutdownReceive(SOAP_SOCKET s);
/// Shell-style match of *, ? and [...] with no special case for "/" or ".".
bool MatchPattern(const std::string& pattern, const std::string& text);
/// Replaces path with text; the old file stays whole until the new one is on disk.
bool WriteFileAtomically(const std::string& path, const std::string& text);

}  // namespace lexsim
