// lexctl3: the console client of the Lexary Server.
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <new>
#include <string>
#include <vector>

#include "app/startup.h"

int main(int argc, char** argv) {
  std::vector<const char*> args(argv + 1, argv + argc);
  return lexctl::Main(args);
}
