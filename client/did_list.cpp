#include "client/did_list.h"

#include <strings.h>

#include <cctype>
#include <cstdlib>
#include <mutex>

#include "shell/variables.h"

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

void AddCreatedDid(const CreatedDid& record) {
  std::lock_guard<std::mutex> hold(list_lock);
  created.push_back(record);
  // Under the list's lock, so that LAST names the newest record even when
  // threads create dictionaries at once.
  SetVariable("LAST", std::to_string(record.did));
}

std::vector<CreatedDid> CreatedDids() {
  std::lock_guard<std::mutex> hold(list_lock);
  return created;
}

bool FindCreatedDid(int64_t did, CreatedDid& record) {
  std::lock_guard<std::mutex> hold(list_lock);
  for (auto it = created.rbegin(); it != created.rend(); ++it) {
    if (it->did == did) {
      record = *it;
      return true;
    }
  }
  return false;
}

int64_t ResolveDid(const char* text) {
  if (!text) return 0;
  if (isdigit(static_cast<unsigned char>(text[0]))) return strtoll(text, nullptr, 10);
  if (strncasecmp(text, "LAST", 4) != 0) return 0;
  long long back = 0;
  if (text[4] == '-') {
    back = atoll(text + 5);
    if (back <= 0) return 0;
  }
  std::lock_guard<std::mutex> hold(list_lock);
  if (back >= static_cast<long long>(created.size())) return 0;
  return created[created.size() - 1 - back].did;
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
