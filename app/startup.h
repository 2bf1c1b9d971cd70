// Process start-up: the command line, the temporary command file, and the
// interpreter run.
#pragma once

#include <vector>

namespace lexctl {

/// Runs the program with its arguments (without the program name) and
/// returns the process exit status.
int Main(const std::vector<const char*>& args);

}  // namespace lexctl
