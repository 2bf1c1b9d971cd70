#include "shell/variables.h"

#include <cstdlib>
#include <cstring>
#include <ctime>
#include <mutex>

#include "shell/dispatch.h"
#include "shell/output.h"

namespace lexctl {
namespace {

std::mutex variables_lock;
std::map<std::string, std::string>& Store() {
  static std::map<std::string, std::string> store;
  return store;
}

// A variable whose value refers to itself would expand forever, and every
// round moves the text behind it: past this many replacements, or this many
// bytes moved, in one text the rest is left as it stands.
constexpr size_t kMaxReplacements = 1000000;
constexpr size_t kMaxBytesMoved = size_t{64} << 20;

bool LookupVariable(std::string_view name, std::string& value) {
  std::lock_guard<std::mutex> hold(variables_lock);
  auto& store = Store();
  // The store is ordered, so an exact name is found before longer names
  // that begin with it; a longer one is used when there is no exact match.
  auto it = store.lower_bound(std::string(name));
  if (it == store.end() || it->first.compare(0, name.size(), name) != 0) return false;
  value = it->second;
  return true;
}

void SpecialValue(ExecThread& thread, std::string_view ref, std::string& value, bool& special) {
  special = true;
  char buf[64];
  if (ref == "{{TID}}") {
    snprintf(buf, sizeof(buf), "%d", thread.id());
  } else if (ref == "{{UNIQ}}") {
    snprintf(buf, sizeof(buf), "%u", ++thread.uniq);
  } else if (ref == "{{RAND}}") {
    snprintf(buf, sizeof(buf), "%u", static_cast<unsigned>(rand()));
  } else if (ref == "{{TNAME}}") {
    value = thread.name;
    return;
  } else if (ref == "{{NOW}}") {
    time_t now = time(nullptr);
    struct tm local;
    localtime_r(&now, &local);
    snprintf(buf, sizeof(buf), "%02d/%02d/%04d %02d:%02d:%02d", local.tm_mday, local.tm_mon + 1,
             local.tm_year + 1900, local.tm_hour, local.tm_min, local.tm_sec);
  } else {
    special = false;
    return;
  }
  value = buf;
}

}  // namespace

bool SubstituteVariables(ExecThread& thread, std::string& text) {
  bool changed = false;
  std::string value;
  size_t moved = 0;
  size_t last_open = std::string::npos;
  for (size_t count = 0; count < kMaxReplacements; ++count) {
    size_t open = text.rfind("{{", last_open);
    if (open == std::string::npos) break;
    size_t close = text.find("}}", open + 2);
    if (close == std::string::npos) break;
    std::string_view ref(text.data() + open, close + 2 - open);
    bool special;
    SpecialValue(thread, ref, value, special);
    if (!special) {
      std::string_view inner = ref.substr(2, ref.size() - 4);
      size_t colon = inner.rfind(':');
      std::string_view name = colon == std::string_view::npos ? inner : inner.substr(0, colon);
      if (!LookupVariable(name, value)) {
        if (colon != std::string_view::npos) {
          value.assign(inner.substr(colon + 1));
        } else {
          value.clear();
        }
      }
    }
    moved += text.size() - open + value.size();
    if (moved > kMaxBytesMoved) break;
    text.replace(open, close + 2 - open, value);
    // Nothing behind the value held "{{", so the next one starts in the
    // value or where it meets that text.
    last_open = open + value.size();
    changed = true;
  }
  return changed;
}

void SetVariable(const std::string& name, const std::string& value) {
  std::lock_guard<std::mutex> hold(variables_lock);
  Store()[name] = value;
}

std::map<std::string, std::string> SnapshotVariables() {
  std::lock_guard<std::mutex> hold(variables_lock);
  return Store();
}

void PrintSetting(ExecThread& thread, const char* command, const char* name,
                  const std::string& value) {
  std::string escaped;
  escaped.reserve(value.size());
  for (char c : value) {
    if (c == '"') escaped.push_back('\\');
    escaped.push_back(c);
  }
  if (escaped.find(' ') != std::string::npos) {
    ThreadPrint(thread, "%s %-12s \"%s\"\n", command, name, escaped.c_str());
  } else {
    ThreadPrint(thread, "%s %-12s %s\n", command, name, escaped.c_str());
  }
}

void CmdSetvar(ExecThread& thread, ArgVector& args) {
  if (CheckHelpRequest(thread, CmdSetvar, args, true)) return;
  if (args.empty()) {
    // Printing substitutes variables, which takes the lock: walk a copy.
    for (const auto& [name, value] : SnapshotVariables()) {
      PrintSetting(thread, "setvar", name.c_str(), value);
    }
  } else if (args.size() == 2) {
    SetVariable(args[0], args[1]);
  } else {
    ThreadPrint(thread, kMsgInvalidArgs);
  }
}

void CmdEcho(ExecThread& thread, ArgVector& args) {
  if (CheckHelpRequest(thread, CmdEcho, args, true)) return;
  std::string line;
  for (const char* arg : args) {
    line.append(arg);
    line.push_back(' ');
  }
  line.push_back('\n');
  ThreadPrint(thread, "%s", line.c_str());
}

}  // namespace lexctl
