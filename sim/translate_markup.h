#pragma once
/// HTML and XML translation: markup is kept byte for byte, text nodes are translated.

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "translate_core.h"

namespace lexsim::tr {

struct HtmlOptions {
  std::string style = "simple";  ///< simple, full, sentence, block or text
  std::string tag = "span";      ///< element wrapped around inserted translations; "" none
  bool txnonly = false;          ///< no original text in inserted elements
  bool nobuttons = false;
  bool fragment = false;  ///< add no html, head or body elements
  std::string base_url;
  std::string target;  ///< target frame for links
  std::vector<std::pair<uint32_t, std::string>> rewrites;  ///< tag bits, URL template
};

/// True for the styles TranslateHtml knows.
bool KnownHtmlStyle(const std::string& style);

/// Translates an HTML document held as UTF-8.
std::string TranslateHtml(const Translator& tr, const std::string& html, const HtmlOptions& opt,
                          std::vector<UnknownOut>* unknown);

/// The charset a <meta> element of the document's start declares, or "".
std::string HtmlMetaCharset(const std::string& bytes);

struct XmlError {
  std::string type;   ///< "XML" or "XSLT"
  std::string level;  ///< "fatal"
  int line = 0, column = 0;
  std::string message;
};

/// Translates the text of an XML document (UTF-8). The transform, when not empty, selects
/// what is translated by the element and attribute names its templates match and select;
/// "*", "node()" and "text()" select all text. Returns false with *errors filled when the
/// document or the transform is not well-formed.
bool TranslateXml(const Translator& tr, const std::string& xml, const std::string& xslt,
                  std::string* out, std::vector<XmlError>* errors,
                  std::vector<UnknownOut>* unknown);

}  // namespace lexsim::tr
