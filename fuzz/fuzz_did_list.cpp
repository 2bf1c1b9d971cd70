// DID lists with LAST references, against a fixed list of created dictionaries.
#include <cstdint>
#include <cstdlib>
#include <string>

#include "client/did_list.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static bool ready = [] {
    lexctl::AddCreatedDid({"QZ-EJ", 0x400, 0x10, 7});
    lexctl::AddCreatedDid({"QZ-EJ", 0x400, 0x10, 1234567890123});
    lexctl::AddCreatedDid({"QZ-TM", 0x800, 0x20, -1});
    return true;
  }();
  (void)ready;
  std::string text(reinterpret_cast<const char*>(data), size);
  std::string resolved = lexctl::ResolveDidList(text);
  // A list that names no LAST must come back as it was.
  if (text.find("last") == std::string::npos && text.find("LAST") == std::string::npos &&
      resolved != text) {
    abort();
  }
  // Otherwise it fits the wire field, words joined by single blanks.
  if (resolved != text &&
      (resolved.size() > 499 || resolved.find("  ") != std::string::npos ||
       resolved.find_first_of(";,\t") != std::string::npos)) {
    abort();
  }
  return 0;
}
