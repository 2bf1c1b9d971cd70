// What loading libcurl costs a process: run with an argument it loads the
// library the way the windows layer does, without one it only starts.
#include <dlfcn.h>

int main(int argc, char**) {
  if (argc < 2) return 0;
  return dlopen("libcurl.so.4", RTLD_NOW | RTLD_LOCAL) ? 0 : 1;
}
