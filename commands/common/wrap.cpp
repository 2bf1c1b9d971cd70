#include "commands/common/wrap.h"

#include "shell/output.h"

namespace lexctl {
namespace {

constexpr size_t kLineColumns = 78;

// Length in bytes of the UTF-8 character at text[at], and its code.
size_t NextChar(std::string_view text, size_t at, unsigned& code) {
  unsigned char lead = static_cast<unsigned char>(text[at]);
  size_t size = lead < 0x80 ? 1 : lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : lead >= 0xC0 ? 2 : 1;
  if (at + size > text.size()) size = 1;
  for (size_t i = 1; i < size; ++i) {
    if ((static_cast<unsigned char>(text[at + i]) & 0xC0) != 0x80) size = 1;
  }
  if (size == 1) {
    code = lead;
    return 1;
  }
  code = lead & (0xFF >> (size + 1));
  for (size_t i = 1; i < size; ++i) code = code << 6 | (text[at + i] & 0x3F);
  return size;
}

size_t Columns(std::string_view text) {
  size_t columns = 0;
  unsigned code;
  for (size_t at = 0; at < text.size(); at += NextChar(text, at, code)) {
    NextChar(text, at, code);
    columns += code < 255 ? 1 : 2;
  }
  return columns;
}

}  // namespace

std::string WrapText(std::string_view text, std::string_view first_prefix,
                     std::string_view next_prefix) {
  std::string out(first_prefix);
  size_t limit = kLineColumns - std::min(Columns(first_prefix), kLineColumns - 2);
  size_t used = 0;
  size_t next_limit = kLineColumns - std::min(Columns(next_prefix), kLineColumns - 2);
  for (size_t at = 0; at < text.size();) {
    unsigned code;
    size_t size = NextChar(text, at, code);
    // Cut by count alone: a line feed in the text is one more character.
    if (used >= limit) {
      out += '\n';
      out += next_prefix;
      limit = next_limit;
      used = 0;
    }
    out.append(text, at, size);
    used += code < 255 ? 1 : 2;
    at += size;
  }
  out += '\n';
  return out;
}

void PrintWrapped(ExecThread& thread, std::string_view text, std::string_view first_prefix,
                  std::string_view next_prefix) {
  std::string lines = WrapText(text, first_prefix, next_prefix);
  ThreadPrint(thread, "%s", lines.c_str());
}

size_t CharCount(std::string_view text) {
  size_t count = 0;
  unsigned code;
  for (size_t at = 0; at < text.size(); at += NextChar(text, at, code)) ++count;
  return count;
}

std::string_view CharSpan(std::string_view text, long start, long length) {
  if (start < 0 || length <= 0) return {};
  size_t at = 0;
  unsigned code;
  for (long i = 0; i < start && at < text.size(); ++i) at += NextChar(text, at, code);
  size_t end = at;
  for (long i = 0; i < length && end < text.size(); ++i) end += NextChar(text, end, code);
  return text.substr(at, end - at);
}

}  // namespace lexctl
