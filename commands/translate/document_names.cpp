#include "commands/translate/document_names.h"

#include "shell/platform.h"

namespace lexctl {

std::string XmlOutputName(const std::string& input) {
  size_t at = input.find(".xml");
  return at == std::string::npos ? input + ".out" : input.substr(0, at) + ".out.xml";
}

std::string MultiOutputName(const std::string& outfile, size_t n) {
  return outfile + "." + std::to_string(n);
}

std::string AttachmentFolder(const std::string& outfile) { return outfile + "_files"; }

std::string AttachmentFileName(const std::string& name) {
  size_t slash = name.find_last_of("/\\");
  std::string plain = slash == std::string::npos ? name : name.substr(slash + 1);
  return plain == "." || plain == ".." ? "" : plain;
}

std::string InputTypeOf(const std::string& path) {
  std::string base = path.substr(FileNameStart(path));
  size_t dot = base.rfind('.');
  return dot == std::string::npos || dot == 0 ? "" : base.substr(dot + 1);
}

}  // namespace lexctl
