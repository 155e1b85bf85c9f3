// Reporting what the calibration reader found, safely for any file: at most
// a fixed number of findings and a count of the rest (a damaged header can
// produce millions), and every byte of a name that is not printable UTF-8
// shown as \xNN, so terminals and JSON parsers get valid text.
#pragma once

#include <calib/calibration_reader.h>
#include <calib/finding.h>

#include <cstddef>
#include <nlohmann/json_fwd.hpp>
#include <string>
#include <vector>

namespace lumo {

constexpr size_t kFindingsShown = 50;

using calib::escapeBytes;

// "FILE: offset N (record): severity: message" lines for the first
// kFindingsShown issues, then "FILE: ... and N more findings" when there are more.
std::vector<std::string> findingLines(const std::string& file, const calib::ReadResult& read);

// {"issues": [...first kFindingsShown...], "issue_count": N, "errors": E, "warnings": W}
nlohmann::json findingsJson(const calib::ReadResult& read);

// What a file that is clearly not a calibration file is, from its first
// bytes ("a JPEG picture", "text", ...); empty when it may be one. Calibration
// files carry no signature of their own, so only other kinds are recognised.
std::string foreignFileKind(const std::string& path);

// "1 change", "3 changes".
std::string counted(size_t n, const std::string& noun);

size_t errorCount(const std::vector<calib::Issue>& issues);
// Every error the reader found, listed or only counted.
size_t errorCount(const calib::ReadResult& read);

}  // namespace lumo
