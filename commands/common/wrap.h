// Text printed in lines of at most 78 columns, and character positions in
// UTF-8 text.
#pragma once

#include <string>
#include <string_view>

namespace lexctl {

class ExecThread;

/// Prints text in lines of at most 78 columns including the prefix: the
/// first line starts with first_prefix, every further one with next_prefix.
/// A character below code 255 takes one column, any other two; text is cut
/// by count, and at line feeds. An empty text prints the prefix alone.
void PrintWrapped(ExecThread& thread, std::string_view text, std::string_view first_prefix,
                  std::string_view next_prefix);

/// The same lines as one string (for tests and files).
std::string WrapText(std::string_view text, std::string_view first_prefix,
                     std::string_view next_prefix);

/// Number of characters in UTF-8 text (a stray byte counts as one).
size_t CharCount(std::string_view text);

/// The characters [start, start + length) of UTF-8 text, clipped to the text.
std::string_view CharSpan(std::string_view text, long start, long length);

}  // namespace lexctl
