// Text arguments taken apart into language prefix, text and the spans of
// their track ("@@N") and phrase ("##N/TYPE/") markers.
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "commands/translate/input.h"

namespace {

size_t Characters(const std::string& text) {
  size_t n = 0;
  for (unsigned char c : text) n += (c & 0xC0) != 0x80;
  return n;
}

// Every "[TYPE ]START LENGTH;" entry lies inside the text.
void CheckSpans(const std::string& list, int fields, size_t chars) {
  size_t at = 0;
  while (at < list.size()) {
    size_t end = list.find(';', at);
    if (end == std::string::npos) abort();
    long values[3] = {0, 0, 0};
    const char* p = list.c_str() + at;
    for (int i = 0; i < fields; ++i) {
      char* next = nullptr;
      values[i] = strtol(p, &next, 10);
      if (next == p) abort();
      p = next;
    }
    if (p != list.c_str() + end) abort();
    long start = values[fields - 2], length = values[fields - 1];
    if (start < 0 || length < 0 || static_cast<size_t>(start + length) > chars) abort();
    at = end + 1;
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::string_view argument(reinterpret_cast<const char*>(data), size);
  lexctl::ParsedBlock block;
  bool ok = lexctl::ParseSourceBlock(nullptr, argument, block);
  if (block.lang) {
    // At most seven characters; a character may take several bytes.
    if (Characters(*block.lang) > 7 || block.lang->find('=') != std::string::npos) abort();
    argument.remove_prefix(block.lang->size() + 1);
  }
  if (!ok) {
    // A refused block keeps its whole text and no spans.
    if (block.text != argument || !block.track.empty() || !block.phrase.empty()) abort();
    return 0;
  }
  if (block.text.size() > argument.size()) abort();
  size_t chars = Characters(block.text);
  CheckSpans(block.track, 2, chars);
  CheckSpans(block.phrase, 3, chars);
  return 0;
}
