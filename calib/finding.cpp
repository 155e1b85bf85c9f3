// One finding, as a line or as JSON, and names made safe to show.
#include <calib/finding.h>

#include <cstdio>
#include <nlohmann/json.hpp>

namespace calib {

size_t utf8Length(const std::string& s, size_t i) {
  const auto byte = [&](size_t k) { return static_cast<unsigned char>(s[k]); };
  const unsigned char c = byte(i);
  size_t n = 0;
  if (c >= 0xC2 && c <= 0xDF)
    n = 2;
  else if (c >= 0xE0 && c <= 0xEF)
    n = 3;
  else if (c >= 0xF0 && c <= 0xF4)
    n = 4;
  if (n == 0 || i + n > s.size()) return 0;
  for (size_t k = 1; k < n; ++k)
    if ((byte(i + k) & 0xC0) != 0x80) return 0;
  // Overlong three- and four-byte forms, surrogates and code points past U+10FFFF.
  if ((c == 0xE0 && byte(i + 1) < 0xA0) || (c == 0xED && byte(i + 1) >= 0xA0) ||
      (c == 0xF0 && byte(i + 1) < 0x90) || (c == 0xF4 && byte(i + 1) >= 0x90))
    return 0;
  return n;
}

std::string escapeBytes(const std::string& text, bool keepNewlines) {
  std::string out;
  out.reserve(text.size());
  for (size_t i = 0; i < text.size();) {
    const unsigned char c = static_cast<unsigned char>(text[i]);
    if ((c >= 0x20 && c < 0x7F) || (keepNewlines && c == '\n')) {
      out += char(c);
      ++i;
    } else if (const size_t n = c >= 0x80 ? utf8Length(text, i) : 0) {
      out.append(text, i, n);
      i += n;
    } else {
      char hex[8];
      std::snprintf(hex, sizeof(hex), "\\x%02x", c);
      out += hex;
      ++i;
    }
  }
  return out;
}

std::string findingLine(const std::string& file, const Finding& f) {
  std::string line = file + ": ";
  if (f.offset)
    line += "offset " + std::to_string(*f.offset) + " (" + f.record + "): ";
  else if (!f.record.empty())
    line += f.record + ": ";
  line += f.severity == Finding::Severity::Error ? "error: " : "warning: ";
  line += f.message;
  if (!f.rule.empty()) line += " (" + f.rule + ")";
  return line;
}

nlohmann::json findingJson(const Finding& f, const char* ruleKey) {
  nlohmann::json j = {{"message", escapeBytes(f.message)}};
  if (f.offset) {
    j["severity"] = f.severity == Finding::Severity::Error ? "error" : "warning";
    j["offset"] = *f.offset;
  }
  if (f.offset || !f.record.empty()) j["record"] = escapeBytes(f.record);
  if (!f.rule.empty()) j[ruleKey] = f.rule;
  return j;
}

}  // namespace calib
