#pragma once
/// Runs a lexsim on a free loopback port for one test and stops it with SIGTERM.

#include <sys/types.h>

#include <string>
#include <vector>

class LexsimProcess {
 public:
  /// Starts lexsim with --port 0 plus args and waits (bounded) for its URL line.
  explicit LexsimProcess(std::vector<std::string> args = {});
  ~LexsimProcess();
  LexsimProcess(const LexsimProcess&) = delete;
  LexsimProcess& operator=(const LexsimProcess&) = delete;

  const std::string& url() const { return url_; }
  /// The URL with another path, for requests the server must refuse.
  std::string UrlWithPath(const std::string& path) const;
  int port() const;
  /// Sends SIGTERM and waits (bounded); returns the exit status, or -1 if it had to be
  /// killed or did not exit normally.
  int Stop();

 private:
  pid_t pid_ = -1;
  std::string url_;
};
