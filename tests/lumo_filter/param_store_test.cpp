// Loading calibration files into the store (trees, counts, pools, header),
// rejecting truncated and corrupted files whole. The process-wide store is read once by the plugin
// tests (see the soak).
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <map>
#include <string>
#include <tuple>
#include <vector>

#include "calib_agreement.h"
#include "plugin_test_support.h"

namespace {

using lumotest::calibration;
using lumotest::Lines;

inline bool storeIsEmpty(const ParamUtil& store) {
  return store.aiSceneParams.empty() && store.zoomRatioParams.empty() && store.lutCount == 0 &&
         store.shadingCount == 0 && store.lutData == nullptr && store.shadingData == nullptr &&
         store.aiScenesCount == 0 && store.shadingZoomRatioCount == 0;
}

calib::CalibrationFile sampleFile() {
  calib::CalibrationFile f = calibration({{"night",
                                           {{0, 100, {{2000, 3000, 0}, {4000, 5000, 1}}},
                                            {200, 300, {{2000, 3000, 2}, {4000, 5000, 0}}}},
                                           {}},
                                          {"food", {{0, 1000, {{0, 9000, 3}}}}, {}}},
                                         {{1.0f, lumotest::everywhere(0), {}},
                                          {2.0f, {{0, 500, {{0, 5000, 1}, {5001, 9000, 2}}}}, {}}},
                                         4, 0);
  for (unsigned i = 0; i < 3; i++) f.shadings.push_back({0.5f * i, 1, 2, 3, 4, 5, 6, i + 0.25f});
  f.triggerControl = "lux+cct";
  f.paramType = "lut,shading";
  f.paramRange = "0-65535";
  return f;
}

class ParamStore : public testing::Test {
protected:
  void SetUp() override { lumotest::quietLogs(); }
  lumotest::TempDir dir;
};

// Each file loads to its trees (first key wins), counts (last CCT record read,
// plus one), pools, header and load log, without an error line. The strict
// reader refuses some of them (docs/calibration.md says why); whenever it
// passes one, the store holds exactly what it decoded.
TEST_F(ParamStore, EveryShapeOfWellFormedFileLoadsAsTheStrictReaderSeesIt) {
  struct Row {
    const char* what;
    calib::CalibrationFile file;
    uint32_t luts, shadings;
    bool readerPasses;
    size_t junkAt = 0;  // junk written into a declared gap of 40 bytes
  };
  std::vector<Row> rows;
  rows.push_back({"two scenes, two zooms: food's index 3, 2.0's 2 last", sampleFile(), 4, 3, true});
  calib::CalibrationFile f = sampleFile();
  f.scenes[0].declaredSize = 102 + 40;  // name, two lux bands of two CCT records each
  f.zooms[0].declaredSize = 18 + 3;     // ratio, one lux band of one CCT record
  f.lut3dSize = 33;                     // logged only: blocks stay 14739 bytes
  f.paramDataOffset = 900;
  f.lutDataOffset = 2000;
  f.trailingBytes.assign(100, 0x5A);
  rows.push_back({"declared sizes place blocks; odd LUT size, offsets, trailing bytes", f, 4, 3,
                  true, 900 + 102});
  f = calibration({{"s", {{0, 10, {{0, 1, 0}, {2, 3, 1}, {4, 5, 2}, {6, 7, 5}}}}, {}},
                   {"t", {{0, 10, {{0, 1, 3}}}, {20, 20, {}}}, {}},
                   {"empty", {}, {}}},
                  {{1.0f, {{0, 10, {{0, 1, 4}, {2, 3, 1}}}}, {}}, {2.0f, {}, {}}}, 6, 0);
  f.shadings.resize(5, {1, 2, 3, 4, 5, 6, 7, 8});
  // LUT indices 0, 1, 2, 5, 3 (then a band and a list without records): 4, not 6.
  rows.push_back({"counts from the last record read; zero-count records", f, 4, 2, false});
  f = calibration(
      {{"night", {{0, 10, {{0, 1, 0}}}}, {}}, {"night", {{5, 6, {{0, 1, 0}, {7, 8, 2}}}}, {}}},
      {{1.0f, {{0, 10, {{0, 1, 0}}}}, {}},
       {1.0f, {{1, 2, {{0, 1, 1}}}}, {}},
       {std::nextafter(1.0f, 2.0f), {{3, 4, {{0, 1, 1}}}}, {}}},
      3, 2);
  // The dropped second "night" still sets the LUT count (ASan sees it freed).
  rows.push_back({"duplicate keys keep the first block but still count", f, 3, 2, true});

  for (const Row& row : rows) {
    SCOPED_TRACE(row.what);
    const calib::CalibrationFile& g = row.file;
    std::vector<uint8_t> bytes = calib::serialize(g);
    if (row.junkAt) std::memset(bytes.data() + row.junkAt, 0xAB, 40);
    hostsim::LogCapture capture;
    ParamUtil store(lumotest::writeBytes(dir, "shape.bin", bytes));
    const calib::ReadResult read = calib::readCalibration(bytes);
    EXPECT_EQ(read.ok(), row.readerPasses);
    EXPECT_EQ(row.readerPasses ? lumotest::storeDisagreement(store, read) : "", "");

    EXPECT_EQ(lumotest::treesDisagreement(store, g), "");  // first key wins
    // The loader logs its header at debug level and never an error.
    for (const hostsim::LogRecord& r : capture.records())
      EXPECT_TRUE(r.offline || r.priority == 3) << r.message;
    // The pools; the shading pool starts right behind the LUTs the count admits.
    ASSERT_EQ(std::pair(store.lutCount, store.shadingCount), std::pair(row.luts, row.shadings));
    const uint8_t* lutPool = bytes.data() + store.lutDataOffset;
    EXPECT_EQ(std::memcmp(store.lutData, lutPool, row.luts * LUT_BYTES), 0);
    EXPECT_EQ(std::memcmp(store.shadingData, lutPool + row.luts * LUT_BYTES,
                          row.shadings * SHADING_BYTES),
              0);
  }

  // A missing file leaves an empty store and logs only the tags; so do empty
  // pools declared past the end, which the reader refuses too.
  hostsim::LogCapture capture;
  EXPECT_TRUE(storeIsEmpty(ParamUtil(dir.file("absent.bin"))));
  EXPECT_EQ(lumotest::messages(capture), (Lines{"[LumoFilter] ParamUtil", "[LumoFilter]"}));
  std::vector<uint8_t> bytes =
      calib::serialize(calibration({{"common", {{0, 100, {}}}, {}}}, {}, 0, 0));
  const size_t field = calib_layout::lutDataOffsetField(1), pastTheEnd = bytes.size() + 1;
  bytes[field] = uint8_t(pastTheEnd), bytes[field + 1] = uint8_t(pastTheEnd >> 8);
  EXPECT_FALSE(calib::readCalibration(bytes).ok());
  EXPECT_TRUE(storeIsEmpty(ParamUtil(lumotest::writeBytes(dir, "past.bin", bytes))));
}

// Header 0..781; scene block 782..865 (lux count at 846, lux head at 848, two
// CCT records at 854); zoom block 866..883 (lux count at 870, lux head at 872,
// CCT record at 878); LUT pool at 884; shading pool at 15623; end at 15655.
std::vector<uint8_t> goodFile() {
  calib::CalibrationFile f = calibration({{"s", {{0, 100, {{0, 100, 0}, {200, 300, 0}}}}, {}}},
                                         {{1.0f, {{0, 100, {{0, 100, 0}}}}, {}}}, 1, 0);
  f.shadings.push_back({1, 2, 3, 4, 5, 6, 7, 8});
  return calib::serialize(f);
}

// Loads the bytes, expects an empty store (and the strict reader to refuse
// them) and returns the error lines.
Lines loadErrors(const lumotest::TempDir& dir, const std::vector<uint8_t>& bytes) {
  hostsim::LogCapture capture;
  EXPECT_TRUE(storeIsEmpty(ParamUtil(lumotest::writeBytes(dir, "bad.bin", bytes))));
  EXPECT_FALSE(calib::readCalibration(bytes).ok()) << "the strict reader must refuse it too";
  return lumotest::messages(capture, true);
}

TEST_F(ParamStore, TruncatedOrCorruptedFilesAreRejectedNamingThePart) {
  const std::vector<uint8_t> full = goodFile();
  ASSERT_EQ(full.size(), 15655u);  // the layout the tables assume
  // Exact lines for a few cuts; the corrupted fields below name the other parts.
  const std::map<size_t, std::string> truncated = {
      {0, "aiScenesCount at byte 0 needs 2 bytes"},
      {850, "lux records at byte 848 needs 6 bytes"},
      {865, "CCT records at byte 854 needs 12 bytes"},
      {984, "LUT pool at byte 884 needs 14739 bytes"},
      {15623, "shading pool at byte 15623 needs 32 bytes"},
  };
  std::vector<size_t> lengths = {984, 15621, 15622, 15623, 15624, 15654};
  for (size_t n = 0; n < full.size(); n += n < 900 ? 1 : 211) lengths.push_back(n);
  const std::string rejected = "[LumoFilter] parameter file " + dir.file("bad.bin") + " rejected: ";
  for (size_t n : lengths) {
    SCOPED_TRACE("length " + std::to_string(n));
    const Lines errors = loadErrors(dir, {full.begin(), full.begin() + std::ptrdiff_t(n)});
    ASSERT_EQ(errors.size(), 1u);
    EXPECT_EQ(errors[0].rfind(rejected, 0), 0u) << errors[0];
    if (truncated.count(n)) {
      EXPECT_EQ(errors[0], rejected + truncated.at(n) + ", the file has " + std::to_string(n));
    }
  }

  // Header fields and texts; a count past the file is the truncated path above.
  // {at, 0: a 16-bit field set to 0xFFFF, else: a text of that length without its NUL}
  const std::tuple<size_t, size_t, const char*> corrupted[] = {
      {0, 0, "aiScenesSize and offsets at byte 2 needs 131078 bytes"},
      {2, 0, "zoom-ratio block head at byte 66317 needs 6 bytes"},
      {4, 0, "scene block head at byte 65535 needs 66 bytes"},
      {10, 0, "shadingZoomRatioSize and text fields at byte 12 needs 131838 bytes"},
      {782, 64, "scene name at byte 782 has no NUL in its 64 bytes"},
  };
  for (const auto& [at, textLength, reason] : corrupted) {
    std::vector<uint8_t> bytes = full;
    if (textLength == 0) bytes[at] = bytes[at + 1] = 0xFF;
    std::memset(bytes.data() + at, 'x', textLength);
    EXPECT_EQ(loadErrors(dir, bytes),
              Lines{rejected + reason + (textLength ? "" : ", the file has 15655")})
        << "byte " << at;
  }
}

}  // namespace
