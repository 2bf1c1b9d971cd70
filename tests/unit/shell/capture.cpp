#include "capture.h"

#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

namespace lexctl::testing {

Capture::Capture(ExecThread& thread) : thread_(thread), file_(tmpfile()) {
  thread_.redirect = file_;
}

Capture::~Capture() {
  thread_.redirect = nullptr;
  fclose(file_);
}

std::string Capture::Take() {
  fflush(file_);
  rewind(file_);
  std::string text;
  char buffer[4096];
  size_t n;
  while ((n = fread(buffer, 1, sizeof(buffer), file_)) > 0) text.append(buffer, n);
  rewind(file_);
  if (ftruncate(fileno(file_), 0) != 0) abort();
  return text;
}

TempDir::TempDir() {
  char pattern[] = "/tmp/lexctl3-unit-XXXXXX";
  path_ = mkdtemp(pattern);
  old_cwd_ = std::filesystem::current_path();
  std::filesystem::current_path(path_);
}

TempDir::~TempDir() {
  std::filesystem::current_path(old_cwd_);
  std::filesystem::remove_all(path_);
}

std::string TempDir::Write(const std::string& name, const std::string& content) const {
  std::string full = path_ + "/" + name;
  std::ofstream(full, std::ios::binary) << content;
  return full;
}

std::string ReadFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::stringstream text;
  text << in.rdbuf();
  return text.str();
}

}  // namespace lexctl::testing
