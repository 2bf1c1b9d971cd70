#include "translate_markup.h"

#include <algorithm>
#include <cstring>
#include <set>
#include <string_view>

#include "text_segment.h"
#include "text_utf8.h"

namespace lexsim::tr {

namespace {

bool HasLetter(const std::string& s) {
  for (char32_t c : text::Decode(s))
    if (text::IsLetter(c)) return true;
  return false;
}

std::string Lower(std::string s) {
  for (char& c : s) c = static_cast<char>(tolower(static_cast<unsigned char>(c)));
  return s;
}

bool StartsNoCase(const std::string& s, size_t at, const char* lit) {
  size_t n = strlen(lit);
  if (at + n > s.size()) return false;
  for (size_t k = 0; k < n; ++k)
    if (tolower(static_cast<unsigned char>(s[at + k])) != lit[k]) return false;
  return true;
}

// Decodes character references; an unknown named one stays as written.
std::string DecodeEntities(std::string_view s) {
  std::string out;
  out.reserve(s.size());
  for (size_t i = 0; i < s.size(); ++i) {
    if (s[i] != '&') {
      // Runs without a reference are copied whole: an attribute may be a data URI of gigabytes.
      size_t amp = s.find('&', i);
      if (amp == std::string_view::npos) amp = s.size();
      out.append(s, i, amp - i);
      i = amp - 1;
      continue;
    }
    size_t semi = s.find(';', i);
    if (semi == std::string::npos || semi - i > 10) {
      out.push_back('&');
      continue;
    }
    std::string name(s.substr(i + 1, semi - i - 1));
    std::string rep;
    if (name == "amp") rep = "&";
    else if (name == "lt") rep = "<";
    else if (name == "gt") rep = ">";
    else if (name == "quot") rep = "\"";
    else if (name == "apos") rep = "'";
    else if (name == "nbsp") rep = "\xC2\xA0";
    else if (name.size() > 1 && name[0] == '#') {
      char32_t c = 0;
      try {
        c = static_cast<char32_t>(name[1] == 'x' || name[1] == 'X' ? std::stoul(name.substr(2), nullptr, 16)
                                                                  : std::stoul(name.substr(1)));
      } catch (const std::exception&) {
        c = 0;
      }
      if (c > 0 && c <= 0x10FFFF) rep = text::Encode(c);
    }
    if (rep.empty()) {
      out.push_back('&');
      continue;
    }
    out += rep;
    i = semi;
  }
  return out;
}

std::string Escape(const std::string& s, bool attr) {
  std::string out;
  for (char c : s) {
    if (c == '&') out += "&amp;";
    else if (c == '<') out += "&lt;";
    else if (c == '>') out += "&gt;";
    else if (attr && c == '"') out += "&quot;";
    else out.push_back(c);
  }
  return out;
}

// Keeps the white space around a text node and translates what lies between.
std::string TranslateNode(const Translator& tr, const std::string& decoded,
                          std::vector<UnknownOut>* unknown, std::string* lead, std::string* trail) {
  size_t a = decoded.find_first_not_of(" \t\r\n");
  size_t b = decoded.find_last_not_of(" \t\r\n");
  *lead = decoded.substr(0, a);
  *trail = decoded.substr(b + 1);
  return tr.TranslateText(decoded.substr(a, b - a + 1), unknown);
}

struct Attr {
  std::string name;  // lower-cased
  size_t vstart = 0, vend = 0;  // value span in the tag text; vstart == vend: no value
  std::string value;            // decoded
};

// The attributes of a start tag "<name ...>".
std::vector<Attr> ParseAttrs(std::string_view tag, size_t from) {
  std::vector<Attr> out;
  size_t i = from;
  while (i < tag.size()) {
    while (i < tag.size() && (isspace(static_cast<unsigned char>(tag[i])) || tag[i] == '/')) ++i;
    if (i >= tag.size() || tag[i] == '>') break;
    size_t n = i;
    while (i < tag.size() && !isspace(static_cast<unsigned char>(tag[i])) && tag[i] != '=' &&
           tag[i] != '>' && tag[i] != '/')
      ++i;
    Attr a;
    a.name = Lower(std::string(tag.substr(n, i - n)));
    while (i < tag.size() && isspace(static_cast<unsigned char>(tag[i]))) ++i;
    if (i < tag.size() && tag[i] == '=') {
      ++i;
      while (i < tag.size() && isspace(static_cast<unsigned char>(tag[i]))) ++i;
      if (i < tag.size() && (tag[i] == '"' || tag[i] == '\'')) {
        char q = tag[i++];
        size_t e = tag.find(q, i);
        if (e == std::string::npos) e = tag.size();
        a.vstart = i;
        a.vend = e;
        i = std::min(e + 1, tag.size());
      } else {
        a.vstart = i;
        while (i < tag.size() && !isspace(static_cast<unsigned char>(tag[i])) && tag[i] != '>') ++i;
        a.vend = i;
      }
      a.value = DecodeEntities(tag.substr(a.vstart, a.vend - a.vstart));
    }
    if (!a.name.empty()) out.push_back(std::move(a));
  }
  return out;
}

struct UrlAttr {
  const char* tag;
  const char* attr;
  uint32_t bit;
};
const UrlAttr kUrlAttrs[] = {
    {"a", "href", 0x1},          {"applet", "codebase", 0x2}, {"area", "href", 0x4},
    {"base", "href", 0x8},       {"blockquote", "cite", 0x10}, {"del", "cite", 0x20},
    {"form", "action", 0x40},    {"frame", "src", 0x80},      {"head", "profile", 0x100},
    {"iframe", "src", 0x200},    {"img", "src", 0x400},       {"img", "usemap", 0x800},
    {"input", "src", 0x1000},    {"input", "usemap", 0x2000}, {"ins", "cite", 0x4000},
    {"link", "href", 0x8000},    {"object", "classid", 0x10000}, {"object", "codebase", 0x20000},
    {"object", "data", 0x40000}, {"object", "usemap", 0x80000}, {"q", "cite", 0x100000},
    {"script", "src", 0x200000}, {"embed", "src", 0x800000},  {"applet", "code", 0x1000000},
    {"body", "background", 0x2000000},
};

bool IsBinaryLink(const std::string& url) {
  std::string_view path(url.data(), std::min(url.find_first_of("?#"), url.size()));
  std::string tail = Lower(std::string(path.substr(path.size() - std::min<size_t>(path.size(), 6))));
  for (const char* ext : {".pdf", ".zip", ".exe", ".doc", ".docx", ".xls", ".xlsx", ".ppt",
                          ".gz", ".tar", ".png", ".jpg", ".gif"})
    if (path.size() > strlen(ext) && tail.compare(tail.size() - strlen(ext), strlen(ext), ext) == 0)
      return true;
  return false;
}

std::string Absolute(const std::string& base, const std::string& url) {
  if (base.empty() || url.empty() || url[0] == '#') return url;
  size_t colon = url.find(':');
  size_t slash = url.find('/');
  if (colon != std::string::npos && (slash == std::string::npos || colon < slash)) return url;
  size_t scheme = base.find("://");
  if (scheme == std::string::npos) return url;
  if (url.compare(0, 2, "//") == 0) return base.substr(0, scheme + 1) + url;
  size_t host_end = base.find('/', scheme + 3);
  std::string origin = host_end == std::string::npos ? base : base.substr(0, host_end);
  if (url[0] == '/') return origin + url;
  std::string dir = host_end == std::string::npos ? origin + "/" : base.substr(0, base.rfind('/') + 1);
  return dir + url;
}

std::string PercentEncode(const std::string& s) {
  static const char* hex = "0123456789ABCDEF";
  std::string out;
  for (unsigned char c : s) {
    if (isalnum(c) || c == '-' || c == '_' || c == '.' || c == '~') {
      out.push_back(static_cast<char>(c));
    } else {
      out.push_back('%');
      out.push_back(hex[c >> 4]);
      out.push_back(hex[c & 15]);
    }
  }
  return out;
}

// Rewrites, absolutises, retargets and translates the attributes of one start tag, and
// appends it to out: a tag may hold a data URI of gigabytes, copied once.
void AppendTag(const Translator& tr, std::string_view tag, const std::string& name,
               const HtmlOptions& opt, std::vector<UnknownOut>* unknown, std::string& out) {
  size_t name_end = 1 + name.size();
  std::vector<Attr> attrs = ParseAttrs(tag, name_end);
  std::vector<std::pair<Attr, std::string>> edits;  // attribute, new escaped value
  bool has_target = false;
  std::string input_type;
  for (const Attr& a : attrs)
    if (a.name == "type") input_type = Lower(a.value);
  for (const Attr& a : attrs) {
    if (a.vstart == a.vend && a.value.empty()) continue;
    if (a.name == "target" && name == "a" && !opt.target.empty()) {
      has_target = true;
      edits.push_back({a, Escape(opt.target, true)});
      continue;
    }
    uint32_t bit = 0;
    for (const UrlAttr& u : kUrlAttrs)
      if (name == u.tag && a.name == u.attr) bit = u.bit;
    if (name == "meta" && a.name == "content") {
      std::string lowered = Lower(a.value);
      size_t cs = lowered.find("charset=");
      if (cs != std::string::npos) {
        edits.push_back({a, Escape(a.value.substr(0, cs) + "charset=UTF-8", true)});
        continue;
      }
      size_t u = lowered.find("url=");
      if (u != std::string::npos) {
        std::string url = Absolute(opt.base_url, a.value.substr(u + 4));
        for (const auto& [tags, tmpl] : opt.rewrites)
          if (tags & 0x8000000) {
            url = tmpl.find("{url}") == std::string::npos
                      ? tmpl + PercentEncode(url)
                      : tmpl.substr(0, tmpl.find("{url}")) + PercentEncode(url) +
                            tmpl.substr(tmpl.find("{url}") + 5);
            break;
          }
        edits.push_back({a, Escape(a.value.substr(0, u + 4) + url, true)});
      }
      continue;
    }
    if (name == "meta" && a.name == "charset") {
      edits.push_back({a, "UTF-8"});
      continue;
    }
    if (bit) {
      if (bit == 0x1 && IsBinaryLink(a.value)) bit = 0x4000000;
      const std::string* rewrite = nullptr;
      for (const auto& [tags, tmpl] : opt.rewrites)
        if (tags & bit) {
          rewrite = &tmpl;
          break;
        }
      if (opt.base_url.empty() && !rewrite) continue;  // the value stays as written
      std::string url = Absolute(opt.base_url, a.value);
      if (rewrite) {
        size_t p = rewrite->find("{url}");
        url = p == std::string::npos ? *rewrite + PercentEncode(url)
                                     : rewrite->substr(0, p) + PercentEncode(url) + rewrite->substr(p + 5);
      }
      if (url != a.value) edits.push_back({a, Escape(url, true)});
      continue;
    }
    bool button = name == "input" && (input_type == "button" || input_type == "submit" ||
                                      input_type == "reset");
    bool text_attr = a.name == "alt" || a.name == "title" || a.name == "placeholder" ||
                     (a.name == "value" && button && !opt.nobuttons);
    if (text_attr && HasLetter(a.value))
      edits.push_back({a, Escape(tr.TranslateText(a.value, unknown), true)});
    if (name == "html" && a.name == "lang") edits.push_back({a, tr.engine().to});
  }
  size_t start = out.size();
  size_t pos = 0;
  for (const auto& [a, v] : edits) {
    out.append(tag, pos, a.vstart - pos);
    out += v;
    pos = a.vend;
  }
  out.append(tag, pos);
  if (name == "a" && !opt.target.empty() && !has_target) {
    size_t close = out.rfind('>');
    if (close == std::string::npos || close <= start) close = out.size();  // an unclosed tag at the end
    size_t at = out[close - 1] == '/' ? close - 1 : close;
    out.insert(at, " target=\"" + Escape(opt.target, true) + "\"");
  }
}

// Sentence by sentence, each wrapped in the inserted element with its original as title.
std::string WrapSentences(const Translator& tr, const std::string& src, const HtmlOptions& opt,
                          std::vector<UnknownOut>* unknown) {
  std::u32string t = text::Decode(src);
  std::string out;
  for (const text::Segment& seg : text::SplitSentences(t, false)) {
    std::string piece = text::Encode(t.substr(seg.start, seg.length));
    if (seg.kind == text::Segment::kSpace) {
      out += piece;
      continue;
    }
    std::string txn = Escape(tr.TranslateText(piece, unknown), false);
    out += "<" + opt.tag + (opt.txnonly ? "" : " title=\"" + Escape(piece, true) + "\"") + ">" +
           txn + "</" + opt.tag + ">";
  }
  return out;
}

}  // namespace

bool KnownHtmlStyle(const std::string& style) {
  return style == "simple" || style == "full" || style == "sentence" || style == "block" ||
         style == "text";
}

std::string HtmlMetaCharset(const std::string& bytes) {
  std::string head = Lower(bytes.substr(0, 2048));
  size_t p = head.find("charset=");
  while (p != std::string::npos) {
    size_t meta = head.rfind("<meta", p);
    size_t close = head.rfind('>', p);
    if (meta != std::string::npos && (close == std::string::npos || close < meta)) {
      size_t s = p + 8;
      while (s < head.size() && (head[s] == '"' || head[s] == '\'')) ++s;
      size_t e = s;
      while (e < head.size() && (isalnum(static_cast<unsigned char>(head[e])) || head[e] == '-' ||
                                 head[e] == '_' || head[e] == ':' || head[e] == '.'))
        ++e;
      if (e > s) return bytes.substr(s, e - s);
    }
    p = head.find("charset=", p + 8);
  }
  return "";
}

std::string TranslateHtml(const Translator& tr, const std::string& s, const HtmlOptions& opt,
                          std::vector<UnknownOut>* unknown) {
  std::string out;
  out.reserve(s.size());
  std::string plain;  // the text style's output
  std::vector<std::string> open;  // raw-text contexts that take no inserted elements
  bool saw_html = false, in_head = false;
  size_t i = 0;
  while (i < s.size()) {
    if (s[i] == '<') {
      if (s.compare(i, 4, "<!--") == 0) {
        size_t e = s.find("-->", i + 4);
        e = e == std::string::npos ? s.size() : e + 3;
        out += s.substr(i, e - i);
        i = e;
        continue;
      }
      if (i + 1 < s.size() && (s[i + 1] == '!' || s[i + 1] == '?')) {
        size_t e = s.find('>', i);
        e = e == std::string::npos ? s.size() : e + 1;
        out += s.substr(i, e - i);
        i = e;
        continue;
      }
      bool end_tag = i + 1 < s.size() && s[i + 1] == '/';
      size_t n = i + (end_tag ? 2 : 1);
      size_t ne = n;
      while (ne < s.size() && (isalnum(static_cast<unsigned char>(s[ne])) || s[ne] == '-' || s[ne] == ':')) ++ne;
      if (ne == n) {  // a lone '<' is text
        out += "&lt;";
        ++i;
        continue;
      }
      std::string name = Lower(s.substr(n, ne - n));
      size_t e = ne;
      char q = 0;
      while (e < s.size() && (q || s[e] != '>')) {
        if (q && s[e] == q) q = 0;
        else if (!q && (s[e] == '"' || s[e] == '\'')) q = s[e];
        ++e;
      }
      e = e == s.size() ? e : e + 1;
      std::string_view tag = std::string_view(s).substr(i, e - i);
      i = e;
      if (end_tag) {
        out += tag;
        if (!open.empty() && open.back() == name) open.pop_back();
        if (name == "head") in_head = false;
        continue;
      }
      if (name == "html") saw_html = true;
      if (name == "head") in_head = true;
      AppendTag(tr, tag, name, opt, unknown, out);
      if (name == "script" || name == "style") {
        // Raw text up to the matching end tag is never translated.
        size_t close = i;
        while (close < s.size() && !(s[close] == '<' && StartsNoCase(s, close, ("</" + name).c_str()))) ++close;
        out += s.substr(i, close - i);
        i = close;
      } else if (name == "title" || name == "textarea" || name == "option") {
        open.push_back(name);
      }
      continue;
    }
    size_t e = s.find('<', i);
    if (e == std::string::npos) e = s.size();
    std::string raw = s.substr(i, e - i);
    i = e;
    std::string decoded = DecodeEntities(raw);
    if (!HasLetter(decoded)) {
      out += raw;
      continue;
    }
    std::string lead, trail;
    std::string txn = TranslateNode(tr, decoded, unknown, &lead, &trail);
    std::string original = decoded.substr(lead.size(), decoded.size() - lead.size() - trail.size());
    if (!in_head || !open.empty()) {
      if (!plain.empty()) plain += "\n";
      plain += txn;
    }
    bool wrap = !opt.tag.empty() && open.empty() && !in_head;
    if (opt.style == "simple" || !wrap) {
      out += Escape(lead, false) + Escape(txn, false) + Escape(trail, false);
    } else if (opt.style == "full") {
      out += Escape(lead, false) + "<" + opt.tag +
             (opt.txnonly ? "" : " title=\"" + Escape(original, true) + "\"") + ">" +
             Escape(txn, false) + "</" + opt.tag + ">" + Escape(trail, false);
    } else if (opt.style == "sentence") {
      out += Escape(lead, false) + WrapSentences(tr, original, opt, nullptr) + Escape(trail, false);
    } else {  // block: the original stays, its translation follows it
      out += Escape(lead, false) + (opt.txnonly ? "" : Escape(original, false) + " ") + "<" +
             opt.tag + " class=\"translation\">" + Escape(txn, false) + "</" + opt.tag + ">" +
             Escape(trail, false);
    }
  }
  if (opt.style == "text") return plain;
  if (!opt.fragment && !saw_html)
    out = "<html><head><meta charset=\"UTF-8\"></head><body>" + out + "</body></html>";
  return out;
}

// ---- XML ------------------------------------------------------------------------------

namespace {

class XmlScanner {
 public:
  struct Text {
    size_t start, end;
    bool cdata;
    std::string element;
  };
  struct AttrVal {
    size_t start, end;
    std::string element, name;
  };

  XmlScanner(const std::string& s, std::string type) : s_(s), type_(std::move(type)) {}

  bool Scan() {
    if (s_.compare(0, 3, "\xEF\xBB\xBF") == 0) i_ = 3;
    if (!Misc(true)) return false;
    if (i_ >= s_.size()) return Fail("No root element");
    if (s_[i_] != '<') return Fail("Text before the root element");
    if (!Element()) return false;
    if (!Misc(false)) return false;
    if (i_ < s_.size()) return Fail("Content after the root element");
    return true;
  }

  const std::vector<Text>& texts() const { return texts_; }
  const std::vector<AttrVal>& attrs() const { return attrs_; }
  const std::vector<std::pair<std::string, std::string>>& all_attrs() const { return named_; }
  const XmlError& error() const { return error_; }

 private:
  bool Fail(const std::string& msg) {
    error_.type = type_;
    error_.level = "fatal";
    error_.message = msg;
    error_.line = 1;
    error_.column = 1;
    for (size_t k = 0; k < std::min(i_, s_.size()); ++k) {
      if (s_[k] == '\n') {
        ++error_.line;
        error_.column = 1;
      } else if ((static_cast<unsigned char>(s_[k]) & 0xC0) != 0x80) {
        ++error_.column;
      }
    }
    return false;
  }

  void Blanks() {
    while (i_ < s_.size() && isspace(static_cast<unsigned char>(s_[i_]))) ++i_;
  }

  static bool NameStart(unsigned char c) { return isalpha(c) || c == '_' || c == ':' || c >= 0x80; }
  static bool NameChar(unsigned char c) {
    return NameStart(c) || isdigit(c) || c == '-' || c == '.';
  }
  bool Name(std::string* out) {
    if (i_ >= s_.size() || !NameStart(static_cast<unsigned char>(s_[i_]))) return Fail("Name expected");
    size_t b = i_;
    while (i_ < s_.size() && NameChar(static_cast<unsigned char>(s_[i_]))) ++i_;
    *out = s_.substr(b, i_ - b);
    return true;
  }

  bool Skip(const char* end, const char* what) {
    size_t e = s_.find(end, i_);
    if (e == std::string::npos) return Fail(std::string("Unterminated ") + what);
    i_ = e + strlen(end);
    return true;
  }

  // Comments, processing instructions and (in the prolog) a document type declaration.
  bool Misc(bool prolog) {
    while (true) {
      Blanks();
      if (s_.compare(i_, 4, "<!--") == 0) {
        if (!Skip("-->", "comment")) return false;
      } else if (s_.compare(i_, 2, "<?") == 0) {
        if (!Skip("?>", "processing instruction")) return false;
      } else if (prolog && s_.compare(i_, 9, "<!DOCTYPE") == 0) {
        doctype_ = true;
        int depth = 0;
        for (; i_ < s_.size(); ++i_) {
          if (s_[i_] == '[') ++depth;
          if (s_[i_] == ']') --depth;
          if (s_[i_] == '>' && depth == 0) break;
        }
        if (i_ >= s_.size()) return Fail("Unterminated document type declaration");
        ++i_;
      } else {
        return true;
      }
    }
  }

  bool References(size_t b, size_t e) {
    for (size_t k = b; k < e; ++k) {
      if (s_[k] == '<') {
        i_ = k;
        return Fail("'<' in attribute value");
      }
      if (s_[k] != '&') continue;
      size_t semi = s_.find(';', k);
      if (semi == std::string::npos || semi > e) {
        i_ = k;
        return Fail("Unterminated entity reference");
      }
      std::string name = s_.substr(k + 1, semi - k - 1);
      bool ok = name == "amp" || name == "lt" || name == "gt" || name == "quot" || name == "apos" ||
                (name.size() > 1 && name[0] == '#') || (doctype_ && !name.empty());
      if (!ok) {
        i_ = k;
        return Fail("Undefined entity '" + name + "'");
      }
      k = semi;
    }
    return true;
  }

  bool Element() {
    ++i_;  // '<'
    std::string name;
    if (!Name(&name)) return false;
    std::set<std::string> seen;
    while (true) {
      size_t before = i_;
      Blanks();
      if (i_ >= s_.size()) return Fail("Unterminated start tag <" + name + ">");
      if (s_[i_] == '/' || s_[i_] == '>') break;
      if (i_ == before) return Fail("Blank expected between attributes");
      std::string an;
      if (!Name(&an)) return false;
      if (!seen.insert(an).second) return Fail("Duplicate attribute '" + an + "'");
      Blanks();
      if (i_ >= s_.size() || s_[i_] != '=') return Fail("'=' expected after attribute '" + an + "'");
      ++i_;
      Blanks();
      if (i_ >= s_.size() || (s_[i_] != '"' && s_[i_] != '\'')) return Fail("Quoted value expected");
      char q = s_[i_++];
      size_t e = s_.find(q, i_);
      if (e == std::string::npos) return Fail("Unterminated attribute value");
      if (!References(i_, e)) return false;
      attrs_.push_back({i_, e, name, an});
      named_.emplace_back(an, s_.substr(i_, e - i_));
      i_ = e + 1;
    }
    if (s_[i_] == '/') {
      if (s_.compare(i_, 2, "/>") != 0) return Fail("'>' expected");
      i_ += 2;
      return true;
    }
    ++i_;
    while (true) {
      size_t b = i_;
      while (i_ < s_.size() && s_[i_] != '<') ++i_;
      if (i_ > b) {
        if (!References(b, i_)) return false;
        if (s_.compare(b, i_ - b, "]]>") == 0) return Fail("']]>' in text");
        texts_.push_back({b, i_, false, name});
      }
      if (i_ >= s_.size()) return Fail("Missing end tag </" + name + ">");
      if (s_.compare(i_, 4, "<!--") == 0) {
        if (!Skip("-->", "comment")) return false;
      } else if (s_.compare(i_, 9, "<![CDATA[") == 0) {
        size_t e = s_.find("]]>", i_ + 9);
        if (e == std::string::npos) return Fail("Unterminated CDATA section");
        texts_.push_back({i_ + 9, e, true, name});
        i_ = e + 3;
      } else if (s_.compare(i_, 2, "<?") == 0) {
        if (!Skip("?>", "processing instruction")) return false;
      } else if (s_.compare(i_, 2, "</") == 0) {
        size_t at = i_;
        i_ += 2;
        std::string end;
        if (!Name(&end)) return false;
        if (end != name) return i_ = at, Fail("End tag </" + end + "> does not match <" + name + ">");
        Blanks();
        if (i_ >= s_.size() || s_[i_] != '>') return Fail("'>' expected");
        ++i_;
        return true;
      } else {
        if (!Element()) return false;
      }
    }
  }

  const std::string& s_;
  std::string type_;
  size_t i_ = 0;
  bool doctype_ = false;
  std::vector<Text> texts_;
  std::vector<AttrVal> attrs_;
  std::vector<std::pair<std::string, std::string>> named_;
  XmlError error_;
};

// Last step of an XPath pattern: "a/b[1]/text()" -> "b", "//@alt" -> "@alt".
std::string LastStep(std::string p) {
  while (!p.empty() && isspace(static_cast<unsigned char>(p.back()))) p.pop_back();
  size_t lead = p.find_first_not_of(" \t\r\n");
  p = lead == std::string::npos ? "" : p.substr(lead);
  std::string out;
  int depth = 0;
  for (char c : p) {  // predicates go
    if (c == '[') ++depth;
    else if (c == ']') --depth;
    else if (depth == 0) out.push_back(c);
  }
  if (out.size() > 7 && out.compare(out.size() - 7, 7, "/text()") == 0) out.resize(out.size() - 7);
  size_t slash = out.rfind('/');
  if (slash != std::string::npos) out = out.substr(slash + 1);
  size_t colon = out.find("::");
  if (colon != std::string::npos) out = out.substr(colon + 2);
  return out;
}

}  // namespace

bool TranslateXml(const Translator& tr, const std::string& xml, const std::string& xslt,
                  std::string* out, std::vector<XmlError>* errors,
                  std::vector<UnknownOut>* unknown) {
  bool all = true;
  std::set<std::string> elements, attributes;
  if (!xslt.empty()) {
    XmlScanner x(xslt, "XSLT");
    if (!x.Scan()) {
      errors->push_back(x.error());
      return false;
    }
    for (const auto& [name, value] : x.all_attrs()) {
      if (name != "match" && name != "select") continue;
      size_t b = 0;
      while (b <= value.size()) {
        size_t e = value.find('|', b);
        if (e == std::string::npos) e = value.size();
        std::string step = LastStep(value.substr(b, e - b));
        b = e + 1;
        if (step.empty() || step == "." || step == "/") continue;  // the root selects nothing
        all = false;
        if (step == "*" || step == "node()" || step == "text()") {
          elements.insert("*");
        } else if (step[0] == '@') {
          attributes.insert(step.substr(1));
        } else {
          elements.insert(step);
        }
      }
    }
    if (elements.count("*")) all = true;
  }
  XmlScanner scan(xml, "XML");
  if (!scan.Scan()) {
    errors->push_back(scan.error());
    return false;
  }
  struct Edit {
    size_t start, end;
    std::string text;
  };
  std::vector<Edit> edits;
  for (const auto& t : scan.texts()) {
    if (!all && !elements.count(t.element)) continue;
    std::string raw = xml.substr(t.start, t.end - t.start);
    std::string decoded = t.cdata ? raw : DecodeEntities(raw);
    if (!HasLetter(decoded)) continue;
    std::string lead, trail;
    std::string txn = TranslateNode(tr, decoded, unknown, &lead, &trail);
    std::string rep = lead + txn + trail;
    edits.push_back({t.start, t.end, t.cdata ? rep : Escape(rep, false)});
  }
  for (const auto& a : scan.attrs()) {
    if (!attributes.count(a.name)) continue;
    std::string decoded = DecodeEntities(xml.substr(a.start, a.end - a.start));
    if (!HasLetter(decoded)) continue;
    edits.push_back({a.start, a.end, Escape(tr.TranslateText(decoded, unknown), true)});
  }
  std::sort(edits.begin(), edits.end(), [](const Edit& x, const Edit& y) { return x.start < y.start; });
  out->clear();
  size_t pos = 0;
  for (const Edit& e : edits) {
    *out += xml.substr(pos, e.start - pos) + e.text;
    pos = e.end;
  }
  *out += xml.substr(pos);
  return true;
}

}  // namespace lexsim::tr
