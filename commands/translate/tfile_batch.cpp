#include "commands/translate/tfile_batch.h"

#include <cstdio>
#include <cstdlib>

#include "shell/platform.h"

namespace lexctl::tfile {

std::string DecodeEscapes(std::string_view text) {
  std::string out;
  out.reserve(text.size());
  for (size_t i = 0; i < text.size(); ++i) {
    char c = text[i];
    if (c != '\\' || i + 1 == text.size()) {
      out += c;
      continue;
    }
    c = text[++i];
    out += c == 'r' ? '\r' : c == 'n' ? '\n' : c;
  }
  return out;
}

std::string EncodeEscapes(std::string_view text) {
  std::string out;
  out.reserve(text.size());
  for (char c : text) {
    if (c == '\r') {
      out += "\\r";
    } else if (c == '\n') {
      out += "\\n";
    } else if (c == '\\') {
      out += "\\\\";
    } else {
      out += c;
    }
  }
  return out;
}

bool ParseLineRange(const char* text, unsigned& start, unsigned& stop) {
  unsigned a = 0, b = 0;
  if (!text || sscanf(text, "%u-%u", &a, &b) != 2 || a == 0 || a > b) return false;
  start = a;
  stop = b;
  return true;
}

std::string OutputName(const std::string& input, const std::string& kind, const std::string& suffix,
                       const std::string& outdir) {
  size_t name_start = FileNameStart(input);
  std::string dir = input.substr(0, name_start);
  std::string base = input.substr(name_start);
  // A leading dot names a hidden file, not an extension.
  size_t dot = base.rfind('.');
  if (dot != std::string::npos && dot > 0) base.erase(dot);
  if (!outdir.empty()) dir = FileNameStart(outdir) == outdir.size() ? outdir : outdir + kPathSeparator;
  std::string name = dir + base + "." + kind;
  if (!suffix.empty()) name += "." + suffix;
  return name + ".txt";
}

bool Batcher::ReadLine(Line& line) {
  std::string text;
  if (!std::getline(in_, text)) return false;
  line.number = ++number_;
  bool crlf = !in_.eof() && !text.empty() && text.back() == '\r';
  if (crlf) text.pop_back();
  line.end = in_.eof() ? std::string_view() : crlf ? std::string_view("\r\n") : std::string_view("\n");
  if (line.number == 1 && text.compare(0, 3, "\xEF\xBB\xBF") == 0) text.erase(0, 3);
  line.text = sel_.escape ? DecodeEscapes(text) : std::move(text);
  return true;
}

bool Batcher::Next(Batch& batch) {
  batch = Batch{};
  if (!started_) {
    next_wanted_ = sel_.first;
    started_ = true;
  }
  unsigned most = sel_.blocks ? sel_.blocks : 1;
  while (!done_ && batch.sent < most) {
    Line line;
    if (number_ >= sel_.last || !ReadLine(line)) {
      done_ = true;
      break;
    }
    if (line.number != next_wanted_) continue;
    unsigned long long next = static_cast<unsigned long long>(next_wanted_) + sel_.skip + 1;
    if (next > ~0u) done_ = true;
    next_wanted_ = static_cast<unsigned>(next);
    line.send = !line.text.empty();
    if (line.send) {
      if (!batch.sent) batch.first_sent = line.number;
      batch.last_sent = line.number;
      ++batch.sent;
    }
    batch.lines.push_back(std::move(line));
  }
  return !batch.lines.empty();
}

namespace {

// Byte offsets of the characters of UTF-8 text, and its end.
std::vector<size_t> CharacterOffsets(std::string_view text) {
  std::vector<size_t> at;
  for (size_t i = 0; i < text.size(); ++i) {
    if ((static_cast<unsigned char>(text[i]) & 0xC0) != 0x80) at.push_back(i);
  }
  at.push_back(text.size());
  return at;
}

bool ReadNumber(std::string_view& group, long& value) {
  size_t begin = group.find_first_not_of(' ');
  if (begin == std::string_view::npos) return false;
  group.remove_prefix(begin);
  std::string digits(group.substr(0, group.find(' ')));
  char* end = nullptr;
  value = strtol(digits.c_str(), &end, 10);
  if (digits.empty() || *end) return false;
  group.remove_prefix(digits.size());
  return true;
}

}  // namespace

bool AppendDictionaryRows(std::string& out, unsigned line, std::string_view text,
                          std::string_view dicinfo, long keep_did, bool escape) {
  std::vector<size_t> at = CharacterOffsets(text);
  size_t characters = at.size() - 1;
  while (!dicinfo.empty()) {
    size_t semicolon = dicinfo.find(';');
    std::string_view group = dicinfo.substr(0, semicolon);
    dicinfo.remove_prefix(semicolon == std::string_view::npos ? dicinfo.size() : semicolon + 1);
    if (group.find_first_not_of(' ') == std::string_view::npos) continue;
    long start, length, did;
    if (!ReadNumber(group, start) || !ReadNumber(group, length) || !ReadNumber(group, did) ||
        group.find_first_not_of(' ') != std::string_view::npos || start < 0 || length < 0 ||
        static_cast<size_t>(start) + static_cast<size_t>(length) > characters) {
      return false;
    }
    if (keep_did >= 0 && did != keep_did) continue;
    std::string_view word = text.substr(at[start], at[start + length] - at[start]);
    char head[48];
    snprintf(head, sizeof head, "%6u %6ld %6ld ", line, start, did);
    out += head;
    out += escape ? EncodeEscapes(word) : std::string(word);
    out += '\n';
  }
  return true;
}

}  // namespace lexctl::tfile
