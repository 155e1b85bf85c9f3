// Capped, escaped calibration findings.
#include "calib_findings.h"

#include <nlohmann/json.hpp>

namespace lumo {

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
