// UTF-8 encoding, shared by the client and lexsim.
#pragma once

#include <string>

namespace lexctl {

/// Appends the UTF-8 bytes of one code point.
void AppendUtf8(std::string& out, char32_t c);
/// True when every byte is ASCII: the same in every encoding the program reads.
bool IsAscii(const std::string& text);

}  // namespace lexctl
