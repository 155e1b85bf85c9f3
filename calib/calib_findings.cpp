// Capped, escaped calibration findings.
#include "calib_findings.h"

#include <cstdio>
#include <cstring>
#include <fstream>
#include <nlohmann/json.hpp>

namespace lumo {

std::string foreignFileKind(const std::string& path) {
  std::string head(4096, '\0');
  std::ifstream in(path, std::ios::binary);
  in.read(head.data(), std::streamsize(head.size()));
  head.resize(size_t(in.gcount()));
  const struct {
    const char* magic;
    size_t size;
    const char* kind;
  } signatures[] = {
      {"\xFF\xD8\xFF", 3, "a JPEG picture"},
      {"\x89PNG\r\n\x1a\n", 8, "a PNG picture"},
      {"GIF8", 4, "a GIF picture"},
      {"%PDF", 4, "a PDF document"},
      {"PK\x03\x04", 4, "a ZIP archive"},
      {"\x7f"
       "ELF",
       4, "a program or library"},
      {"\xFF\xFE", 2, "UTF-16 text"},
      {"\xFE\xFF", 2, "UTF-16 text"},
  };
  for (const auto& s : signatures)
    if (head.size() >= s.size && std::memcmp(head.data(), s.magic, s.size) == 0) return s.kind;
  // Binary records hold zero bytes and small numbers; text holds neither.
  if (head.empty()) return {};
  for (size_t i = 0; i < head.size();) {
    const unsigned char c = static_cast<unsigned char>(head[i]);
    if ((c >= 0x20 && c < 0x7F) || c == '\t' || c == '\n' || c == '\r') {
      ++i;
    } else if (const size_t n = c >= 0x80 ? calib::utf8Length(head, i) : 0) {
      i += n;
    } else if (c >= 0x80 && i + 4 > head.size()) {
      break;  // a character cut by the end of what was read
    } else {
      return {};
    }
  }
  return head.find_first_not_of(" \t\r\n") != std::string::npos &&
                 head[head.find_first_not_of(" \t\r\n")] == '{'
             ? "JSON text (a description: build it with `lumo calib build`)"
             : "text";
}

std::string counted(size_t n, const std::string& noun) {
  return std::to_string(n) + " " + noun + (n == 1 ? "" : "s");
}

size_t errorCount(const std::vector<calib::Issue>& issues) {
  size_t n = 0;
  for (const calib::Issue& i : issues) n += i.severity == calib::Issue::Severity::Error;
  return n;
}

size_t errorCount(const calib::ReadResult& read) {
  return errorCount(read.issues) + read.unlistedErrors;
}

std::vector<std::string> findingLines(const std::string& file, const calib::ReadResult& read) {
  const std::vector<calib::Issue>& issues = read.issues;
  std::vector<std::string> lines;
  for (size_t k = 0; k < issues.size() && k < kFindingsShown; ++k)
    lines.push_back(escapeBytes(calib::findingLine(file, issues[k])));
  if (read.issueCount() > kFindingsShown) {
    const size_t rest = read.issueCount() - kFindingsShown;
    const size_t restErrors =
        errorCount(read) - errorCount({issues.begin(), issues.begin() + long(kFindingsShown)});
    lines.push_back(escapeBytes(file) + ": ... and " + std::to_string(rest) + " more findings (" +
                    std::to_string(restErrors) + " errors)");
  }
  return lines;
}

nlohmann::json findingsJson(const calib::ReadResult& read) {
  const std::vector<calib::Issue>& issues = read.issues;
  nlohmann::json list = nlohmann::json::array();
  for (size_t k = 0; k < issues.size() && k < kFindingsShown; ++k)
    list.push_back(calib::findingJson(issues[k]));
  const size_t errors = errorCount(read);
  return {{"issues", list},
          {"issue_count", read.issueCount()},
          {"errors", errors},
          {"warnings", read.issueCount() - errors}};
}

}  // namespace lumo
