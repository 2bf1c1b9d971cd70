#include "shell/option_scanner.h"

#include <strings.h>

#include <cstring>

namespace lexctl {

bool OptionScanner::Next() {
  while (next_ < args_.size()) {
    const char* word = args_[next_++];
    bool slash = word[0] == '/' && word[1] && word[1] != '-';
    if ((word[0] != '-' && !slash) || !word[1]) {
      positional_.push_back(word);
      continue;
    }
    text_ = word;
    argument_ = nullptr;
    error_ = kOptOk;
    id_ = -1;
    const char* body = word + 1;  // past "-" or "/"
    const char* equals = strchr(body, '=');
    size_t len = equals ? static_cast<size_t>(equals - body) : strlen(body);
    const OptionDef* found = nullptr;
    for (const OptionDef* row = table_; row->id != -1; ++row) {
      const char* name = row->name[0] == '-' ? row->name + 1 : row->name;
      if (strlen(name) == len && strncasecmp(name, body, len) == 0) {
        found = row;
        break;
      }
    }
    if (!found) {
      error_ = kOptUnknown;
      return true;
    }
    id_ = found->id;
    if (found->kind == kOptNoArgument) {
      if (equals) error_ = kOptUnexpectedArgument;
    } else if (equals) {
      argument_ = equals + 1;
    } else if (found->kind == kOptRequired) {
      if (next_ < args_.size()) {
        argument_ = args_[next_++];
      } else {
        error_ = kOptMissingArgument;
      }
    }
    return true;
  }
  return false;
}

}  // namespace lexctl
