// Page frame and the checks the report holds itself to.
#include "html.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdio>
#include <cstring>

namespace lumo::report {

std::string escapeHtml(std::string_view text) {
  std::string out;
  out.reserve(text.size());
  for (const char c : text) {
    switch (c) {
      case '&':
        out += "&amp;";
        break;
      case '<':
        out += "&lt;";
        break;
      case '>':
        out += "&gt;";
        break;
      case '"':
        out += "&quot;";
        break;
      case '\'':
        out += "&#39;";
        break;
      default:
        out += c;
    }
  }
  return out;
}

std::string base64(const uint8_t* bytes, size_t size) {
  static const char kAlphabet[] =
      "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string out;
  out.reserve((size + 2) / 3 * 4);
  for (size_t i = 0; i < size; i += 3) {
    const uint32_t n = uint32_t(bytes[i]) << 16 | (i + 1 < size ? uint32_t(bytes[i + 1]) << 8 : 0) |
                       (i + 2 < size ? uint32_t(bytes[i + 2]) : 0);
    out += kAlphabet[n >> 18 & 63];
    out += kAlphabet[n >> 12 & 63];
    out += i + 1 < size ? kAlphabet[n >> 6 & 63] : '=';
    out += i + 2 < size ? kAlphabet[n & 63] : '=';
  }
  return out;
}

std::string dataUri(std::string_view mime, const std::vector<uint8_t>& bytes) {
  return "data:" + std::string(mime) + ";base64," + base64(bytes.data(), bytes.size());
}

std::string fixed(double value, int decimals) {
  if (!std::isfinite(value)) return std::isnan(value) ? "NaN" : (value > 0 ? "inf" : "-inf");
  char text[64];
  std::snprintf(text, sizeof(text), "%.*f", decimals, value);
  return text;
}

namespace {

// The only script of the page: the before/after slider moves the clip of the
// "after" picture and the line drawn where the two meet. Frames are chosen
// by in-page links (:target), tabs and hover are plain CSS.
constexpr const char* kScript = R"(
document.addEventListener('input', function (e) {
  var s = e.target;
  if (!s.classList || !s.classList.contains('wipe')) return;
  var after = s.parentNode.querySelector('.after');
  after.style.clipPath = 'inset(0 0 0 ' + s.value + '%)';
  s.parentNode.querySelector('.divider').style.left = s.value + '%';
});
)";

constexpr const char* kStyle = R"(
body{font:14px/1.4 system-ui,sans-serif;margin:0;color:#222;background:#fafafa}
header{background:#263238;color:#fff;padding:10px 16px}
header h1{font-size:18px;margin:0}
nav{position:sticky;top:0;background:#eceff1;padding:6px 16px;border-bottom:1px solid #cfd8dc;z-index:2}
nav a{margin-right:14px;color:#1565c0;text-decoration:none}
main{padding:8px 16px}
section.report{margin:18px 0;padding:8px 12px;background:#fff;border:1px solid #e0e0e0}
h2{font-size:17px;margin:4px 0 8px}h3{font-size:15px;margin:14px 0 6px}
table{border-collapse:collapse;margin:4px 0}
td,th{border:1px solid #ddd;padding:2px 6px;text-align:left;vertical-align:top}
th{background:#f5f5f5}
.cell{display:inline-block;margin:2px;padding:2px;border:1px solid #ccc;text-align:center;font-size:11px}
.swatch{width:120px;height:80px;background-size:100% 100%;image-rendering:pixelated}
.warn{color:#b71c1c}.ok{color:#2e7d32}.note{color:#555;font-size:12px}
.frame{display:none;border-top:2px solid #90a4ae;margin-top:8px;padding-top:6px}
.frame:target{display:block}
.compare{position:relative;display:inline-block;line-height:0}
.compare img{max-width:640px}
.compare .after{position:absolute;left:0;top:0;clip-path:inset(0 0 0 50%)}
.compare .pictures{position:relative}
.compare .divider{position:absolute;top:0;bottom:0;left:50%;width:2px;margin-left:-1px;background:#fff;box-shadow:0 0 2px #000;pointer-events:none}
input.wipe{display:block;width:100%;margin:4px 0}
.legend .key{display:inline-block;margin-right:14px;white-space:nowrap}
.legend .square{display:inline-block;width:10px;height:10px;border:1px solid #999}
.cell .look{font-weight:bold}
table.shading{font-size:11px}
pre{background:#f5f5f5;padding:4px;white-space:pre-wrap;word-break:break-all;font-size:12px}
svg text{font:10px sans-serif}
svg rect.hit:hover{fill:#000;fill-opacity:.15}
.strip img{width:180px;margin-right:4px;image-rendering:auto}
)";

}  // namespace

std::string page(const std::string& title, const std::vector<Section>& sections,
                 const std::string& styles) {
  std::string html = "<!DOCTYPE html>\n<html lang=\"en\"><head><meta charset=\"utf-8\">";
  html += "<title>" + escapeHtml(title) + "</title><style>" + kStyle + styles + "</style></head>";
  html += "<body><header><h1>" + escapeHtml(title) + "</h1></header><nav>";
  for (const Section& s : sections)
    html += "<a href=\"#" + escapeHtml(s.id) + "\">" + escapeHtml(s.title) + "</a>";
  html += "</nav><main>";
  for (const Section& s : sections) {
    html += "<section class=\"report\" id=\"" + escapeHtml(s.id) + "\" data-section=\"" +
            escapeHtml(s.id) + "\"><h2>" + escapeHtml(s.title) + "</h2>" + s.body + "</section>";
  }
  html += "</main><script>" + std::string(kScript) + "</script></body></html>\n";
  return html;
}

namespace {

// Plain scanning, no std::regex: its recursive matcher overflows the stack
// on the long data URIs a page carries.
std::string lower(std::string_view text) {
  std::string out(text);
  for (char& c : out) c = char(std::tolower(static_cast<unsigned char>(c)));
  return out;
}

bool urlEnd(char c) {
  return c == '"' || c == '\'' || c == ')' || c == '<' || c == '>' ||
         std::isspace(static_cast<unsigned char>(c));
}

// The value that starts at `at` (after an optional quote).
std::string valueAt(const std::string& text, size_t at) {
  while (at < text.size() && (text[at] == '"' || text[at] == '\'' || text[at] == ' ')) ++at;
  size_t end = at;
  while (end < text.size() && !urlEnd(text[end])) ++end;
  return text.substr(at, end - at);
}

}  // namespace

std::vector<std::string> externalReferences(const std::string& html) {
  std::vector<std::string> found;
  const std::string text = lower(html);
  for (const char* scheme : {"http://", "https://"})
    for (size_t at = text.find(scheme); at != std::string::npos; at = text.find(scheme, at + 1))
      found.push_back(valueAt(html, at));
  for (const char* attr : {"src=", "href=", "action=", "srcset=", "url("}) {
    const size_t n = std::strlen(attr);
    for (size_t at = text.find(attr); at != std::string::npos; at = text.find(attr, at + n)) {
      // An attribute name stands alone: "xlink:href=" counts, "data-href=" does not.
      if (attr[n - 1] == '=' && at > 0 &&
          (std::isalnum(static_cast<unsigned char>(text[at - 1])) || text[at - 1] == '-'))
        continue;
      const std::string value = valueAt(html, at + n);
      if (lower(value).starts_with("data:") || value.starts_with("#")) continue;
      found.push_back(value.empty() ? std::string(attr) : value);
    }
  }
  return found;
}

std::vector<std::string> unbalancedTags(const std::string& html) {
  static const std::string kVoid = " area base br col embed hr img input link meta source wbr ";
  std::vector<std::string> open, problems;
  const std::string text = lower(html);
  for (size_t at = text.find('<'); at != std::string::npos; at = text.find('<', at + 1)) {
    const bool closing = at + 1 < text.size() && text[at + 1] == '/';
    size_t nameEnd = at + 1 + (closing ? 1 : 0);
    const size_t nameBegin = nameEnd;
    if (nameBegin >= text.size() || !std::isalpha(static_cast<unsigned char>(text[nameBegin])))
      continue;  // "<!DOCTYPE", "a < b" in text
    while (nameEnd < text.size() &&
           (std::isalnum(static_cast<unsigned char>(text[nameEnd])) || text[nameEnd] == '-'))
      ++nameEnd;
    const std::string name = text.substr(nameBegin, nameEnd - nameBegin);
    const size_t close = text.find('>', nameEnd);
    if (close == std::string::npos) {
      problems.push_back("<" + name + " never ends");
      break;
    }
    const bool selfClosing = text[close - 1] == '/';
    if (!closing && (name == "script" || name == "style")) {
      // Their bodies are text.
      const size_t end = text.find("</" + name, close);
      if (end == std::string::npos) {
        problems.push_back("<" + name + "> never closed");
        break;
      }
      at = text.find('>', end);
      if (at == std::string::npos) break;
      continue;
    }
    at = close;
    if (kVoid.find(" " + name + " ") != std::string::npos || selfClosing) continue;
    if (!closing) {
      open.push_back(name);
      continue;
    }
    const auto match = std::find(open.rbegin(), open.rend(), name);
    if (match == open.rend()) {
      problems.push_back("</" + name + "> closes nothing open");
      continue;
    }
    // Elements above the one closed were left open.
    for (auto left = open.rbegin(); left != match; ++left)
      problems.push_back("<" + *left + "> never closed");
    open.erase(std::prev(match.base()), open.end());
  }
  for (const std::string& name : open) problems.push_back("<" + name + "> never closed");
  return problems;
}

}  // namespace lumo::report
