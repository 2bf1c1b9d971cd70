#pragma once
/// Request log of lexsim (--log FILE): one line per request.

#include <cstdio>
#include <mutex>
#include <string>

namespace lexsim {

class Logger {
 public:
  Logger() = default;
  ~Logger();
  Logger(const Logger&) = delete;
  Logger& operator=(const Logger&) = delete;

  /// Appends to path; false when it cannot be opened.
  bool Open(const std::string& path);
  bool enabled() const { return file_ != nullptr; }
  /// Writes "TIME LINE\n" and flushes, so a killed lexsim leaves a complete log.
  void Write(const std::string& line);

 private:
  std::mutex mu_;
  std::FILE* file_ = nullptr;
};

}  // namespace lexsim
