#include "commands/translate/input.h"

#include <cstdio>

#include "client/frame.h"
#include "commands/common/files.h"
#include "shell/output.h"
#include "shell/platform.h"
#include "soapH.h"

namespace lexctl {
namespace {

constexpr size_t kMaxLangPrefix = 7;

struct Span {
  bool seen = false;
  bool closed = false;
  int type = 0;  // phrases only; untyped phrases are 0
  size_t start = 0;
  size_t length = 0;
};

bool IsContinuation(char c) { return (static_cast<unsigned char>(c) & 0xC0) == 0x80; }

// "/TYPE/" right after an opening phrase marker: its length, 0 when absent.
size_t PhraseType(std::string_view text, size_t at, int& type) {
  if (at >= text.size() || text[at] != '/') return 0;
  size_t end = at + 1;
  if (end < text.size() && (text[end] == '-' || text[end] == '+')) ++end;
  size_t digits = end;
  while (end < text.size() && text[end] >= '0' && text[end] <= '9') ++end;
  if (end == digits || end >= text.size() || text[end] != '/') return 0;
  type = atoi(std::string(text.substr(at + 1, end - at - 1)).c_str());
  return end + 1 - at;
}

std::string* NewString(struct soap* soap, const std::string& text) {
  std::string* s = soap_new_std__string(soap);
  *s = text;
  return s;
}

std::string* Optional(struct soap* soap, const std::string& text) {
  return text.empty() ? nullptr : NewString(soap, text);
}

}  // namespace

bool ParseSourceBlock(ExecThread* thread, std::string_view argument, ParsedBlock& block) {
  block = ParsedBlock();
  size_t equals = argument.find('=');
  size_t prefix_chars = 0;  // the limit counts characters, not bytes
  for (size_t i = 0; equals != std::string_view::npos && i < equals; ++i) {
    if (!IsContinuation(argument[i])) ++prefix_chars;
  }
  if (equals != std::string_view::npos && prefix_chars <= kMaxLangPrefix) {
    block.lang = std::string(argument.substr(0, equals));
    argument.remove_prefix(equals + 1);
  }
  Span tracks[10], phrases[10];
  std::string text;
  text.reserve(argument.size());
  size_t chars = 0;  // characters of text so far
  for (size_t i = 0; i < argument.size();) {
    bool track = argument.compare(i, 2, "@@") == 0;
    if (!track && argument.compare(i, 2, "##") != 0) {
      if (!IsContinuation(argument[i])) ++chars;
      text += argument[i++];
      continue;
    }
    char id = i + 2 < argument.size() ? argument[i + 2] : '\0';
    if (id < '0' || id > '9') {
      if (thread) {
        Fail(*thread, "ERROR: Data marker (%s) is missing ID\n\n", track ? "@@" : "##");
      }
      block.text = std::string(argument);
      return false;
    }
    Span& span = (track ? tracks : phrases)[id - '0'];
    i += 3;
    if (!span.seen) {
      span.seen = true;
      span.start = chars;
      if (!track) i += PhraseType(argument, i, span.type);
    } else if (!span.closed) {
      span.closed = true;
      span.length = chars - span.start;
    }
    // A third marker of the same ID is dropped: a span has one start and one end.
  }
  char buffer[64];
  for (int id = 0; id < 10; ++id) {
    for (Span* span : {&tracks[id], &phrases[id]}) {
      if (!span->seen) continue;
      // An unclosed span runs to the end of the text.
      if (!span->closed) span->length = chars - span->start;
    }
    if (tracks[id].seen) {
      snprintf(buffer, sizeof buffer, "%d %d;", static_cast<int>(tracks[id].start),
               static_cast<int>(tracks[id].length));
      block.track += buffer;
    }
    if (phrases[id].seen) {
      snprintf(buffer, sizeof buffer, "%d %d %d;", phrases[id].type,
               static_cast<int>(phrases[id].start), static_cast<int>(phrases[id].length));
      block.phrase += buffer;
    }
  }
  block.text = std::move(text);
  return true;
}

bool ParseSourceBlock(ExecThread* thread, struct soap* soap, std::string_view argument,
                      nv__SourceBlock& block) {
  ParsedBlock parsed;
  bool ok = ParseSourceBlock(thread, argument, parsed);
  block.lang = parsed.lang ? NewString(soap, *parsed.lang) : nullptr;
  block.text = NewString(soap, parsed.text);
  block.phrase = Optional(soap, parsed.phrase);
  block.track = Optional(soap, parsed.track);
  return ok;
}

bool ParseSourceBlock(ExecThread* thread, struct soap* soap, std::string_view argument,
                      nv__PatternText& pattern) {
  ParsedBlock parsed;
  bool ok = ParseSourceBlock(thread, argument, parsed);
  pattern.text = NewString(soap, parsed.text);
  pattern.phrase = Optional(soap, parsed.phrase);
  return ok;
}

std::vector<std::string> SplitSetword(std::string_view setword) {
  if (!setword.empty() && setword.back() == ';') setword.remove_suffix(1);
  std::vector<std::string> items;
  size_t from = 0;
  for (;;) {
    size_t semi = setword.find(';', from);
    items.emplace_back(setword.substr(from, semi - from));
    if (semi == std::string_view::npos) break;
    from = semi + 1;
  }
  return items;
}

bool TextInput::TakeOption(const OptionScanner& option) {
  std::string value = option.argument() ? option.argument() : "";
  switch (option.id()) {
    case kOptPattern: patterns_.push_back(value); break;
    case kOptSetword: setwords_.push_back(value); break;
    case kOptFile:
      input_file_ = value;
      named_output_ = true;
      break;
    case kOptIndata:
      input_file_ = value;
      named_output_ = false;
      break;
    case kOptOutdata: outdata_ = value; break;
    default: return false;
  }
  output_file_ = named_output_ ? input_file_ + ".out" : outdata_;
  return true;
}

nv__SourceBlockArray* TextInput::Assemble(RequestFrame& frame, const char* mixture_message) {
  ExecThread& thread = frame.thread();
  struct soap* soap = frame.soap();
  const ArgVector& words = frame.positional();
  bool file = !input_file_.empty();
  if (!file && words.empty()) {
    Fail(thread, "No text blocks supplied. See help.\n");
    return nullptr;
  }
  if (file && !words.empty()) {
    Fail(thread, "%s", mixture_message);
    return nullptr;
  }
  nv__SourceBlockArray* blocks = soap_new_nv__SourceBlockArray(soap);
  if (file) {
    std::string data;
    if (!ReadFileData(thread, input_file_, data)) return nullptr;
    nv__SourceBlock block;
    block.text = NewString(soap, std::string(SkipUtf8Signature(data)));
    blocks->item.push_back(block);
  } else {
    blocks->item.resize(words.size());
    for (size_t i = 0; i < words.size(); ++i) {
      ParseSourceBlock(&thread, soap, words[i], blocks->item[i]);
    }
  }
  for (size_t i = 0; i < blocks->item.size(); ++i) {
    nv__SourceBlock& block = blocks->item[i];
    if (i < patterns_.size()) {
      block.pattern = soap_new_nv__PatternText(soap);
      ParseSourceBlock(&thread, soap, patterns_[i], *block.pattern);
    }
    if (i < setwords_.size()) {
      block.setword = soap_new_nv__StringArray(soap);
      block.setword->item = SplitSetword(setwords_[i]);
    }
  }
  return blocks;
}

void TextInput::PrintHeader(RequestFrame& frame, bool engine_line) const {
  ExecThread& thread = frame.thread();
  frame.PrintSelectKeys();
  if (engine_line) frame.PrintEngine();
  if (!input_file_.empty()) ThreadPrint(thread, "Input File:   %s\n", input_file_.c_str());
  if (has_output()) ThreadPrint(thread, "Output File:  %s\n", output_file_.c_str());
  ThreadPrint(thread, "\n");
}

bool TextInput::OpenOutput(ExecThread& thread) {
  if (!has_output()) return true;
  bool existed = FileExists(output_file_.c_str());
  // Appending opens without truncating what may still be the input.
  FILE* file = IsDirectory(output_file_.c_str()) ? nullptr : OpenFile(output_file_.c_str(), "ab");
  if (!file) {
    Fail(thread, "Unable to open file: %s\n", output_file_.c_str());
    return false;
  }
  fclose(file);
  created_ = !existed;
  return true;
}

bool TextInput::WriteOutput(ExecThread& thread, const std::string* text) {
  written_ = true;
  bool ok = WriteSignedFile(thread, output_file_, text ? *text : std::string());
  if (ok && !text) Fail(thread, "Failed to generate text block.\n");
  return ok && text;
}

TextInput::~TextInput() {
  if (created_ && !written_) RemoveFile(output_file_.c_str());
}

}  // namespace lexctl
