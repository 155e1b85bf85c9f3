// What a check found in a calibration or LUT file: how bad, where and what.
// The strict reader, lint, the LUT doctor and the report's coverage notes all
// speak it, and one formatter writes it as a line or as JSON.
#pragma once

#include <cstddef>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>

namespace calib {

struct Finding {
  enum class Severity { Error, Warning };
  Severity severity = Severity::Warning;
  // The byte offset in the file, for what the reader finds in the bytes.
  std::optional<size_t> offset;
  std::string record;  // where: "header", "scene block 1 \"night\"", "scene night"; may be empty
  std::string message;
  std::string rule;  // the check that found it: "single-cct", "blue-fastest"; may be empty
};

// "FILE: offset N (record): error: message" for a finding with an offset,
// else "FILE: record: warning: message (rule)" without the parts that are
// empty. Names are written as they are: escape the line for a terminal.
std::string findingLine(const std::string& file, const Finding& finding);

// {"severity", "offset", "record", "message"} for a finding with an offset
// (errors and warnings mix there); else "record" and the rule under
// `ruleKey`, each when set, and "message". Texts escaped as by escapeBytes.
nlohmann::json findingJson(const Finding& finding, const char* ruleKey = "rule");

// Printable ASCII and valid UTF-8 stay; control bytes and invalid UTF-8
// become \xNN. Line breaks are kept only when `keepNewlines`.
std::string escapeBytes(const std::string& text, bool keepNewlines = false);

// Length of the valid UTF-8 sequence starting at `i` (0 when invalid).
size_t utf8Length(const std::string& s, size_t i);

}  // namespace calib
