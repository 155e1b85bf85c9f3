// Inputs the fuzzers once crashed on (fuzz/regressions/<target>/), replayed
// through the same readers in the normal build, and the messages those
// inputs now get.
#include <calib/calibration_reader.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "failure.h"
#include "session.h"

namespace {

namespace fs = std::filesystem;

std::string readAll(const fs::path& path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), {}};
}
std::vector<fs::path> regressionInputs(const std::string& target) {
  std::vector<fs::path> out;
  for (const auto& e : fs::directory_iterator(fs::path(LUMO_FUZZ_REGRESSIONS) / target))
    out.push_back(e.path());
  return out;
}

TEST(FuzzRegressions, SessionLinesFailWithTheirLine) {
  const auto inputs = regressionInputs("session_line");
  ASSERT_FALSE(inputs.empty());
  for (const fs::path& input : inputs) {
    SCOPED_TRACE(input.filename().string());
    EXPECT_THAT([&] { lumo::parseFrameLine(readAll(input), "s.jsonl", 3); },
                testing::ThrowsMessage<lumo::Failure>(testing::StartsWith("s.jsonl:3: ")));
  }
}

// Overlapping declared blocks made the reader re-read the same bytes for
// every block, listing over a million issues for a 45 KB file: the list
// stops at its cap, the rest are counted, and the walk itself stops, saying so.
TEST(FuzzRegressions, CalibrationIssueFloodsStopAtTheCap) {
  const auto inputs = regressionInputs("calib_reader");
  ASSERT_FALSE(inputs.empty());
  for (const fs::path& input : inputs) {
    SCOPED_TRACE(input.filename().string());
    const std::string bytes = readAll(input);
    const calib::ReadResult r = calib::readCalibration({bytes.begin(), bytes.end()});
    EXPECT_FALSE(r.ok());
    ASSERT_EQ(r.issues.size(), calib::ReadResult::kMaxIssues + 1);
    EXPECT_THAT(r.issues.back().message, testing::EndsWith("the rest of the file is not examined"));
    EXPECT_GT(r.issueCount(), calib::ReadResult::kStopAfter);
    EXPECT_LT(r.issueCount(), 2 * calib::ReadResult::kStopAfter);
  }
}

}  // namespace
