#pragma once
/// Runs a lexsim on a free loopback port for one test and stops it with SIGTERM; sends it raw
/// requests, which may be anything.

#include <sys/types.h>

#include <csignal>
#include <string>
#include <vector>

class LexsimProcess {
 public:
  /// Starts lexsim with --port 0 plus args and waits (bounded) for its URL line; throws if
  /// none comes.
  explicit LexsimProcess(std::vector<std::string> args = {});
  ~LexsimProcess() { Stop(); }
  LexsimProcess(const LexsimProcess&) = delete;
  LexsimProcess& operator=(const LexsimProcess&) = delete;

  int port() const { return std::stoi(url_.substr(url_.rfind(':') + 1)); }
  /// SIGTERM (or the signal given) and a bounded wait; the exit status, or -1 if it had to be
  /// killed or did not exit normally.
  int Stop(int signal = SIGTERM);

 private:
  pid_t pid_ = -1;
  std::string url_;
};

struct RawReply {
  bool connected = false;
  bool timed_out = false;  ///< the server neither answered nor closed in time
  std::string text;
};
/// How a raw exchange leaves the connection after sending.
enum class Ending { kRead, kHalfClose, kReset };
/// Sends bytes to lexsim on loopback and reads until it closes (after shutting the sending
/// side, with kHalfClose), or resets the connection at once.
RawReply RawExchange(int port, const std::string& request, Ending ending = Ending::kRead);

/// A SOAP envelope around the body's XML.
std::string Envelope(const std::string& body);
