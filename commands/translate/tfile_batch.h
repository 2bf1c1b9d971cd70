// The pure parts of tfile: which lines of a file go out in which request,
// the escape form of a line, output file names and dictionary rows.
#pragma once

#include <istream>
#include <string>
#include <string_view>
#include <vector>

namespace lexctl::tfile {

/// Decodes backslash escapes: \r, \n and \\; any other escaped character
/// stands for itself, a lone trailing backslash stays.
std::string DecodeEscapes(std::string_view text);
/// Writes CR, LF and backslash as \r, \n and \\.
std::string EncodeEscapes(std::string_view text);

/// Reads "START-STOP" as "%u-%u" does, lines counted from 1; false unless
/// both numbers are there and 1 <= START <= STOP.
bool ParseLineRange(const char* text, unsigned& start, unsigned& stop);

/// The name of one output file of INPUT: kind is "txn", "org" or "dic".
/// "dir/notes.txt" gives "dir/notes.txn.txt", with suffix FOO
/// "dir/notes.txn.FOO.txt"; a non-empty outdir replaces the folder.
std::string OutputName(const std::string& input, const std::string& kind, const std::string& suffix,
                       const std::string& outdir);

/// Which lines a run sends and how many per request.
struct Selection {
  unsigned first = 1;           ///< first line (from 1)
  unsigned last = ~0u;          ///< last line, inclusive
  unsigned skip = 0;            ///< lines passed over after each line read
  unsigned blocks = 100;        ///< most blocks per request
  bool escape = false;          ///< decode backslash escapes
};

/// One selected line of the input.
struct Line {
  unsigned number = 0;
  std::string text;  ///< decoded, without its line end
  std::string end;   ///< "\n", "\r\n" or "" (last line of a file)
  bool send = true;  ///< empty lines are kept in place but not sent
};

/// The lines of one request, in file order; at most Selection::blocks of
/// them are sent, empty lines in between ride along.
struct Batch {
  std::vector<Line> lines;
  unsigned sent = 0;  ///< lines with send set
  unsigned first_sent = 0, last_sent = 0;
};

/// Reads the input line by line and hands out batches. A UTF-8 signature
/// at the start of the input is dropped.
class Batcher {
 public:
  Batcher(std::istream& in, const Selection& selection) : in_(in), sel_(selection) {}
  /// False when nothing is left; an empty-only tail comes as a batch with
  /// nothing to send.
  bool Next(Batch& batch);

 private:
  bool ReadLine(Line& line);

  std::istream& in_;
  Selection sel_;
  unsigned number_ = 0;
  unsigned next_wanted_ = 0;  // set from sel_.first on the first call
  bool started_ = false;
  bool done_ = false;
};

/// One row of the dictionary file per source word of a block: dicinfo is
/// the "START LENGTH DID;" list of an engine part, spans counting
/// characters of text. keep_did < 0 keeps every row. False when a group is
/// not three numbers or lies outside text; the rows before it are kept.
bool AppendDictionaryRows(std::string& out, unsigned line, std::string_view text,
                          std::string_view dicinfo, long keep_did, bool escape);

/// The header line of the dictionary file.
inline constexpr char kDictionaryHeader[] = "LINE  START    DID WORD\n";

}  // namespace lexctl::tfile
