// Test helpers: a thread whose output is captured, and temporary files.
#pragma once

#include <cstdio>
#include <memory>
#include <string>

#include "shell/exec_thread.h"

namespace lexctl::testing {

/// Sends everything a thread prints into memory for the life of the object.
class Capture {
 public:
  explicit Capture(ExecThread& thread);
  ~Capture();
  /// Everything printed so far; clears it.
  std::string Take();

 private:
  ExecThread& thread_;
  FILE* file_;
};

/// A fresh folder, removed with its contents at the end; the process works
/// inside it meanwhile.
class TempDir {
 public:
  TempDir();
  ~TempDir();
  const std::string& path() const { return path_; }
  /// Writes a file inside the folder and returns its path.
  std::string Write(const std::string& name, const std::string& content) const;

 private:
  std::string path_;
  std::string old_cwd_;
};

std::string ReadFile(const std::string& path);

}  // namespace lexctl::testing
