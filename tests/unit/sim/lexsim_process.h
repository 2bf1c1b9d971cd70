#pragma once
/// Runs a lexsim on a free loopback port for one test and stops it with SIGTERM.

#include <gtest/gtest.h>
#include <sys/types.h>

#include <cstdint>
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

struct soap;
class nv__NvsoapException;

/// A client context for calling lexsim through the generated functions, with
/// helpers that allocate optional request fields in that context.
class WireFixture : public ::testing::Test {
 protected:
  WireFixture();
  ~WireFixture() override;
  std::string* S(const std::string& s);
  int64_t* L(int64_t v);
  /// Select keys, or none when empty.
  std::string* Sel(const std::string& keys) { return keys.empty() ? nullptr : S(keys); }
  /// The service's detail of the last fault, or nullptr.
  const nv__NvsoapException* Detail() const;
  /// The error word and the message of the last fault's detail.
  std::string FaultErr() const;
  std::string FaultMsg() const;

  struct soap* soap_;
};
