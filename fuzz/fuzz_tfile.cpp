// tfile's input side: the backslash escape decoder (and its encoder, which
// must undo), line batches under a selection, and the dictionary rows of a
// block. Byte 0 and 1 set the selection; the rest is the input file, and
// its first line doubles as a dicinfo list for the second.
#include <cstdint>
#include <cstdlib>
#include <sstream>
#include <string>

#include "commands/translate/tfile_batch.h"

using namespace lexctl::tfile;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 2) return 0;
  std::string text(reinterpret_cast<const char*>(data) + 2, size - 2);
  if (DecodeEscapes(EncodeEscapes(text)) != text) abort();
  DecodeEscapes(text);

  Selection selection;
  selection.first = 1 + data[0] % 8;
  selection.skip = data[0] / 8 % 4;
  selection.blocks = 1 + data[1] % 16;
  selection.escape = data[1] & 0x80;
  std::istringstream in(text);
  Batcher batcher(in, selection);
  Batch batch;
  unsigned batches = 0;
  while (batcher.Next(batch) && ++batches < 10000) {
    if (batch.sent > selection.blocks) abort();
  }

  size_t split = text.find('\n');
  std::string dicinfo = text.substr(0, split);
  std::string block = split == std::string::npos ? "" : text.substr(split + 1);
  std::string rows;
  AppendDictionaryRows(rows, 1, block, dicinfo, data[0] & 1 ? -1 : 7, selection.escape);
  unsigned start, stop;
  ParseLineRange(dicinfo.c_str(), start, stop);
  return 0;
}
