#include "shell/variables.h"

#include <strings.h>

#include <cstdlib>
#include <cstring>
#include <ctime>
#include <mutex>

#include "shell/dispatch.h"
#include "shell/output.h"
#include "shell/tokenizer.h"

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

namespace {

// Whether "command <args>" read from a script gives back exactly name and
// value: no line break or continuation, nothing substituted, no help
// request, and the tokenizer cuts it into these two arguments.
bool ReadsBack(const std::string& args, const std::string& name, const std::string& value) {
  for (unsigned char c : args) {
    if (c < 0x20 && c != '\t') return false;
  }
  size_t end = args.find_last_not_of(" \t");
  if (end != std::string::npos && args[end] == '\\') return false;
  size_t open = args.find("{{");
  if (open != std::string::npos && args.find("}}", open + 2) != std::string::npos) return false;
  std::string text = args;
  ArgVector tokens;
  TokenizeArguments(text.data(), false, tokens);
  for (const char* token : tokens) {
    if (strcmp(token, "-?") == 0 || strcmp(token, "/?") == 0) return false;
  }
  return tokens.size() == 2 && name == tokens[0] && value == tokens[1];
}

// Double quotes around text, with backslashes doubled where the tokenizer
// would otherwise take them as escaping a quote.
std::string Quote(const std::string& text) {
  std::string quoted = "\"";
  size_t backslashes = 0;
  for (char c : text) {
    if (c == '\\') {
      ++backslashes;
    } else {
      if (c == '"') quoted.append(backslashes + 1, '\\');
      backslashes = 0;
    }
    quoted.push_back(c);
  }
  quoted.append(backslashes, '\\');
  quoted.push_back('"');
  return quoted;
}

// The escaped form: every byte that could mean something to the line
// reader, the tokenizer or substitution becomes \xHH; "" for nothing.
std::string Escape(const std::string& text) {
  if (text.empty()) return "\"\"";
  std::string escaped;
  for (unsigned char c : text) {
    if (c <= 0x20 || c == 0x7f || c == '\\' || c == '"' || c == '{' || c == '}' || c == '?') {
      char hex[5];
      snprintf(hex, sizeof(hex), "\\x%02x", c);
      escaped.append(hex);
    } else {
      escaped.push_back(static_cast<char>(c));
    }
  }
  return escaped;
}

int HexDigit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

std::string Padded(const std::string& name) {
  std::string padded = name;
  if (padded.size() < 12) padded.resize(12, ' ');
  return padded;
}

}  // namespace

std::string DecodeEscaped(const char* text) {
  std::string decoded;
  for (const char* p = text; *p; ++p) {
    int high, low;
    if (p[0] == '\\' && p[1] == 'x' && (high = HexDigit(p[2])) >= 0 && (low = HexDigit(p[3])) >= 0) {
      decoded.push_back(static_cast<char>(high * 16 + low));
      p += 3;
    } else {
      decoded.push_back(*p);
    }
  }
  return decoded;
}

void PrintSetting(ExecThread& thread, const char* command, const char* name,
                  const std::string& value) {
  std::string escaped;
  escaped.reserve(value.size());
  for (char c : value) {
    if (c == '"') escaped.push_back('\\');
    escaped.push_back(c);
  }
  bool quote = escaped.find(' ') != std::string::npos;
  if (thread.saving_options) {
    // The options file must give back every value as it is: the display
    // form where it reads back, else quoted, else escaped.
    std::string display = Padded(name) + " " + (quote ? "\"" + escaped + "\"" : escaped);
    if (!ReadsBack(display, name, value)) {
      std::string quoted_name = ReadsBack(std::string(name) + " x", name, "x") ? name : Quote(name);
      std::string quoted = Padded(quoted_name) + " " + Quote(value);
      if (ReadsBack(quoted, name, value)) {
        ThreadPrint(thread, "%s %s\n", command, quoted.c_str());
      } else {
        ThreadPrint(thread, "%s -escaped %s %s\n", command, Escape(name).c_str(), Escape(value).c_str());
      }
      return;
    }
  }
  if (quote) {
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
  } else if (args.size() == 3 && strcasecmp(args[0], "-escaped") == 0) {
    SetVariable(DecodeEscaped(args[1]), DecodeEscaped(args[2]));
  } else {
    Fail(thread, kMsgInvalidArgs);
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
