// Strict reader of calibration files: decodes every header field, block,
// band and pool, and reports each way the file breaks the format with the
// byte offset, the record it belongs to and what was expected there.
#pragma once

#include <calib/calibration_file.h>
#include <calib/finding.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace calib {

// What the reader finds: always with the byte offset; the record is
// "header", "scene block 1 \"night\", lux band 0, cct band 2", ...
using Issue = Finding;

// Where things were found; offsets are absolute.
struct Layout {
  size_t fileSize = 0;
  size_t headerEnd = 0;
  uint16_t paramDataOffset = 0;
  uint16_t lutDataOffset = 0;
  std::vector<size_t> sceneOffsets;
  std::vector<size_t> zoomOffsets;
  size_t lutCount = 0;  // blocks the loader takes from the pool
  size_t shadingCount = 0;
};

struct ReadResult {
  // A damaged count field can make every record after it wrong: past this
  // many, issues are only counted, so a flipped bit cannot cost gigabytes.
  static constexpr size_t kMaxIssues = 1000;
  // ...and past this many the reader stops walking the file (one last
  // error says so): a file of a few kilobytes can otherwise declare
  // millions of overlapping records.
  static constexpr size_t kStopAfter = 10000;
  CalibrationFile file;  // whatever could be decoded
  Layout layout;
  std::vector<Issue> issues;  // the first kMaxIssues, and the stop when there was one
  size_t unlistedErrors = 0, unlistedWarnings = 0;  // found after those, counted only
  size_t issueCount() const { return issues.size() + unlistedErrors + unlistedWarnings; }
  bool ok() const;  // no errors (warnings allowed)
};

// Calibration files are kilobytes to a few megabytes; a larger one is not
// read at all, as reading it would cost its size in memory and time.
constexpr uint64_t kMaxCalibrationBytes = uint64_t(64) << 20;
// "64 MiB", for messages.
std::string calibrationSizeLimit();

ReadResult readCalibration(const std::vector<uint8_t>& bytes);
// An unreadable file, or one that is not a regular file of at most
// kMaxCalibrationBytes, gives one error at offset 0.
ReadResult readCalibrationFile(const std::string& path);

// Bands of a list ascend without overlap: a band that starts at or below the
// end of the one before it is never reached over that stretch.
constexpr bool followsInOrder(unsigned previousEnd, unsigned start) { return start > previousEnd; }

// The six scene names the camera reports.
const std::vector<std::string>& knownSceneNames();

}  // namespace calib
