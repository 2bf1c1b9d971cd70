#include "shell/tokenizer.h"

namespace lexctl {

void ConvertEscapes(char* token) {
  char* out = token;
  for (const char* in = token; *in; ++in) {
    if (*in == '\\' && in[1]) {
      char c = in[1];
      if (c == 'n' || c == 'r' || c == 't') {
        *out++ = c == 'n' ? '\n' : c == 'r' ? '\r' : '\t';
        ++in;
        continue;
      }
      *out++ = *in++;
    }
    *out++ = *in;
  }
  *out = '\0';
}

void TokenizeArguments(char* text, bool convert_escapes, ArgVector& args) {
  args.clear();
  char* in = text;
  while (true) {
    while (*in == ' ' || *in == '\t') ++in;
    if (!*in) return;
    char* start = in;
    char* out = in;
    bool quoted = false;
    while (*in && (quoted || (*in != ' ' && *in != '\t'))) {
      if (*in == '"') {
        quoted = !quoted;
        ++in;
      } else if (*in == '\\') {
        char* run = in;
        while (*in == '\\') ++in;
        size_t count = in - run;
        if (*in != '"') {
          while (count--) *out++ = '\\';
        } else {
          for (size_t i = 0; i < count / 2; ++i) *out++ = '\\';
          if (count % 2) {
            *out++ = '"';
            ++in;
          }
        }
      } else {
        *out++ = *in++;
      }
    }
    bool more = *in != '\0';
    *out = '\0';
    if (convert_escapes) ConvertEscapes(start);
    args.push_back(start);
    if (!more) return;
    ++in;
  }
}

}  // namespace lexctl
