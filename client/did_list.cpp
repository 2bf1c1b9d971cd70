#include "client/did_list.h"

#include <strings.h>

#include <cctype>
#include <cstdlib>
#include <mutex>

namespace lexctl {
namespace {

std::mutex list_lock;
std::vector<CreatedDid> created;

// The resolved text keeps to what the fixed-size buffer of the wire field held.
constexpr size_t kMaxResolved = 499;

std::string ResolveWord(const std::string& word, const std::vector<CreatedDid>& list) {
  if (isdigit(static_cast<unsigned char>(word[0]))) {
    long long value = atoll(word.c_str());
    return value > 0 ? std::to_string(value) : word;
  }
  if (word.size() >= 4 && strncasecmp(word.c_str(), "LAST", 4) == 0) {
    long long back = 0;
    if (word.size() > 4 && word[4] == '-') {
      if (word.size() == 5 || !isdigit(static_cast<unsigned char>(word[5]))) return word;
      back = atoll(word.c_str() + 5);
      if (back <= 0) return word;
    }
    if (back < static_cast<long long>(list.size())) {
      int64_t did = list[list.size() - 1 - back].did;
      if (did > 0) return std::to_string(did);
    }
  }
  return word;
}

}  // namespace

void AddCreatedDid(const std::string& text, int64_t did) {
  std::lock_guard<std::mutex> hold(list_lock);
  created.push_back({text, did});
}

std::vector<CreatedDid> CreatedDids() {
  std::lock_guard<std::mutex> hold(list_lock);
  return created;
}

std::string ResolveDidList(const std::string& text) {
  if (text.find("last") == std::string::npos && text.find("LAST") == std::string::npos) return text;
  std::vector<CreatedDid> list = CreatedDids();
  std::string out;
  size_t pos = 0;
  while (pos < text.size()) {
    size_t start = text.find_first_not_of(" ;,\t", pos);
    if (start == std::string::npos) break;
    size_t end = text.find_first_of(" ;,\t", start);
    if (end == std::string::npos) end = text.size();
    std::string word = ResolveWord(text.substr(start, end - start), list);
    if (!out.empty()) out.push_back(' ');
    out.append(word);
    pos = end;
  }
  if (out.size() > kMaxResolved) out.resize(kMaxResolved);
  return out;
}

}  // namespace lexctl
