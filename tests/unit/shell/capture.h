// Test helpers: a thread whose output is captured, and temporary folders.
#pragma once

#include <stdlib.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <random>
#include <sstream>
#include <string>

#include "shell/exec_thread.h"

namespace lexctl::testing {

/// Sends everything a thread prints into memory for the life of the object.
class Capture {
 public:
  explicit Capture(ExecThread& thread) : thread_(thread), file_(tmpfile()) { thread_.redirect = file_; }
  ~Capture() {
    thread_.redirect = nullptr;
    fclose(file_);
  }
  /// Everything printed so far; clears it.
  std::string Take() {
    fflush(file_);
    rewind(file_);
    std::string text;
    char buffer[4096];
    for (size_t n; (n = fread(buffer, 1, sizeof(buffer), file_)) > 0;) text.append(buffer, n);
    rewind(file_);
    if (ftruncate(fileno(file_), 0) != 0) abort();
    return text;
  }

 private:
  ExecThread& thread_;
  FILE* file_;
};

/// A fresh folder, removed with its contents at the end; the process works
/// inside it meanwhile.
class TempDir {
 public:
  TempDir() : old_cwd_(std::filesystem::current_path()) {
#ifdef _WIN32
    // MinGW has no mkdtemp.
    for (unsigned n = std::random_device{}();; ++n) {
      std::filesystem::path p = std::filesystem::temp_directory_path() / ("lexctl3-unit-" + std::to_string(n));
      if (std::filesystem::create_directory(p)) {
        path_ = p.string();
        break;
      }
    }
#else
    char pattern[] = "/tmp/lexctl3-unit-XXXXXX";
    path_ = mkdtemp(pattern);
#endif
    std::filesystem::current_path(path_);
  }
  ~TempDir() {
    std::filesystem::current_path(old_cwd_);
    std::filesystem::remove_all(path_);
  }
  /// Writes a file inside the folder and returns its path.
  std::string Write(const std::string& name, const std::string& content) const {
    std::ofstream(path_ + "/" + name, std::ios::binary) << content;
    return path_ + "/" + name;
  }

 private:
  std::string path_;
  std::filesystem::path old_cwd_;
};

inline std::string ReadFile(const std::string& path) {
  std::stringstream text;
  text << std::ifstream(path, std::ios::binary).rdbuf();
  return text.str();
}

}  // namespace lexctl::testing
