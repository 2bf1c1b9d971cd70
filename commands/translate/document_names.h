// File names of the document commands: what their outputs are called and
// what an input's name says of its type.
#pragma once

#include <string>

namespace lexctl {

/// The output of xml for an input: "a.xml" and "a.xml.bak" give
/// "a.out.xml" (what follows the first ".xml" is dropped), "a.dat" gives
/// "a.dat.out".
std::string XmlOutputName(const std::string& input);

/// The n-th output file of tmulti (from 1): OUTFILE.n.
std::string MultiOutputName(const std::string& outfile, size_t n);

/// The folder that holds the attachments of an output file.
std::string AttachmentFolder(const std::string& outfile);

/// The plain file name an attachment is saved under: the server's name
/// without any folders; empty when nothing usable is left.
std::string AttachmentFileName(const std::string& name);

/// The input type an input file's extension names ("doc.HTML" -> "HTML");
/// empty without an extension.
std::string InputTypeOf(const std::string& path);

}  // namespace lexctl
