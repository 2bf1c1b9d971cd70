#include "log.h"

#include <ctime>

namespace lexsim {

Logger::~Logger() {
  if (file_) std::fclose(file_);
}

bool Logger::Open(const std::string& path) {
  file_ = std::fopen(path.c_str(), "a");
  return file_ != nullptr;
}

void Logger::Write(const std::string& line) {
  if (!file_) return;
  std::time_t now = std::time(nullptr);
  std::tm tm{};
  gmtime_r(&now, &tm);
  char stamp[32];
  std::strftime(stamp, sizeof stamp, "%Y-%m-%dT%H:%M:%SZ", &tm);
  std::lock_guard<std::mutex> lock(mu_);
  std::fprintf(file_, "%s %s\n", stamp, line.c_str());
  std::fflush(file_);
}

}  // namespace lexsim
