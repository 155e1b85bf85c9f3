// The loader against truncated and corrupted files: every one is rejected
// whole, with one error line naming what did not fit, and leaves the store
// empty so that frames pass through.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "paramTrigger.h"
#include "param_fixtures.h"

namespace {

// One scene (two CCT bands), one zoom ratio, one LUT, one shading block.
// Layout: header 782 bytes; scene block 782..865 (name, lux count at 846,
// lux head at 848, CCT records at 854); zoom block 866..883 (ratio, lux
// count at 870, lux head at 872, CCT record at 878); LUT pool at 884;
// shading pool at 15623; end at 15655.
std::vector<uint8_t> goodFile() {
  calib::CalibrationFile f;
  f.scenes.push_back(
      {"s", {lumotest::luxBand(0, 100, {{0, 100, 0}, {200, 300, 0}})}, std::nullopt});
  f.zooms.push_back({1.0f, {lumotest::luxBand(0, 100, {{0, 100, 0}})}, std::nullopt});
  f.luts.push_back(lumotest::patternLut(1));
  f.shadings.push_back({1, 2, 3, 4, 5, 6, 7, 8});
  return calib::serialize(f);
}

class StoreBounds : public testing::Test {
protected:
  void SetUp() override { lumotest::quietLogs(); }

  // Loads the bytes and returns the store's single error line.
  std::string loadRejected(const std::vector<uint8_t>& bytes, const std::string& label) {
    const std::string path = lumotest::writeBytes(dir, "bad.bin", bytes);
    hostsim::LogCapture capture;
    ParamUtil store(path);
    EXPECT_TRUE(lumotest::storeIsEmpty(store)) << label;
    const std::vector<std::string> errors = lumotest::errorMessages(capture);
    EXPECT_EQ(errors.size(), 1u) << label;
    const std::string prefix = "[LumoFilter] parameter file " + path + " rejected: ";
    if (errors.size() != 1 || errors[0].compare(0, prefix.size(), prefix) != 0) {
      ADD_FAILURE() << label << ": " << (errors.empty() ? "no error line" : errors[0]);
      return "";
    }
    return errors[0].substr(prefix.size());
  }

  lumotest::TempDir dir;
};

TEST_F(StoreBounds, EveryTruncationOfTheGoodFileIsRejected) {
  const std::vector<uint8_t> full = goodFile();
  ASSERT_EQ(full.size(), 15655u);  // the layout the tables assume
  {
    ParamUtil store(lumotest::writeBytes(dir, "good.bin", full));
    EXPECT_EQ(store.lutDataOffset, 884);
    EXPECT_EQ(store.lutCount, 1u);
    EXPECT_EQ(store.shadingCount, 1u);
  }
  std::vector<size_t> lengths;
  for (size_t n = 0; n <= 900; n++) lengths.push_back(n);
  for (size_t n = 901; n < full.size(); n += 211) lengths.push_back(n);
  for (size_t n : {15621, 15622, 15623, 15624, 15654}) lengths.push_back(n);
  for (size_t n : lengths) {
    const std::vector<uint8_t> cut(full.begin(), full.begin() + static_cast<std::ptrdiff_t>(n));
    loadRejected(cut, "length " + std::to_string(n));
  }
}

TEST_F(StoreBounds, TruncationMessagesNameThePartThatDidNotFit) {
  const std::vector<uint8_t> full = goodFile();
  struct Row {
    size_t length;
    const char* reason;
  };
  const Row rows[] = {
      {0, "aiScenesCount at byte 0 needs 2 bytes, the file has 0"},
      {1, "aiScenesCount at byte 0 needs 2 bytes, the file has 1"},
      {10, "aiScenesSize and offsets at byte 2 needs 10 bytes, the file has 10"},
      {500, "shadingZoomRatioSize and text fields at byte 12 needs 770 bytes, the file has 500"},
      {847, "scene block head at byte 782 needs 66 bytes, the file has 847"},
      {850, "lux records at byte 848 needs 6 bytes, the file has 850"},
      {865, "CCT records at byte 854 needs 12 bytes, the file has 865"},
      {870, "zoom-ratio block head at byte 866 needs 6 bytes, the file has 870"},
      {984, "LUT pool at byte 884 needs 14739 bytes, the file has 984"},
      {15623, "shading pool at byte 15623 needs 32 bytes, the file has 15623"},
  };
  for (const Row& row : rows) {
    const std::vector<uint8_t> cut(full.begin(),
                                   full.begin() + static_cast<std::ptrdiff_t>(row.length));
    EXPECT_EQ(loadRejected(cut, std::to_string(row.length)), row.reason);
  }
}

void putU16(std::vector<uint8_t>& bytes, size_t at, uint16_t v) {
  bytes[at] = static_cast<uint8_t>(v & 0xFF);
  bytes[at + 1] = static_cast<uint8_t>(v >> 8);
}

TEST_F(StoreBounds, EachCorruptedFieldIsRejected) {
  struct Row {
    const char* field;
    size_t at;
    size_t textLength;  // 0: a 16-bit field set to 0xFFFF; else a text filled without its NUL
    const char* reason;
  };
  const char* const kHas = ", the file has 15655";
  const Row rows[] = {
      {"aiScenesCount", 0, 0, "aiScenesSize and offsets at byte 2 needs 131078 bytes"},
      {"aiScenesSize[0]", 2, 0, "zoom-ratio block head at byte 66317 needs 6 bytes"},
      {"paramDataOffset", 4, 0, "scene block head at byte 65535 needs 66 bytes"},
      {"lutDataOffset", 6, 0, "LUT pool at byte 65535 needs 14739 bytes"},
      {"shadingZoomRatioCount", 10, 0,
       "shadingZoomRatioSize and text fields at byte 12 needs 131838 bytes"},
      {"scene lux count", 846, 0, "lux records at byte 848 needs 393210 bytes"},
      {"scene CCT count", 852, 0, "CCT records at byte 854 needs 393210 bytes"},
      {"last scene CCT index", 864, 0, "LUT pool at byte 884 needs 965935104 bytes"},
      {"zoom lux count", 870, 0, "lux records at byte 872 needs 393210 bytes"},
      {"zoom CCT count", 876, 0, "CCT records at byte 878 needs 393210 bytes"},
      {"zoom CCT index", 882, 0, "shading pool at byte 15623 needs 2097152 bytes"},
      {"scene name", 782, 64, "scene name at byte 782 has no NUL in its 64 bytes"},
      {"trigger_control", 14, 256, "trigger_control at byte 14 has no NUL in its 256 bytes"},
      {"param_type", 270, 256, "param_type at byte 270 has no NUL in its 256 bytes"},
      {"param_range", 526, 256, "param_range at byte 526 has no NUL in its 256 bytes"},
  };
  for (const Row& row : rows) {
    std::vector<uint8_t> bytes = goodFile();
    if (row.textLength == 0) putU16(bytes, row.at, 0xFFFF);
    if (row.textLength != 0) std::memset(bytes.data() + row.at, 'x', row.textLength);
    const std::string reason = row.reason + std::string(row.textLength ? "" : kHas);
    EXPECT_EQ(loadRejected(bytes, row.field), reason) << row.field;
  }
}

TEST_F(StoreBounds, ARejectedFileLeavesEveryFrameWithoutParameters) {
  std::vector<uint8_t> bytes = goodFile();
  putU16(bytes, 864, 0xFFFF);
  ParamUtil store(lumotest::writeBytes(dir, "bad.bin", bytes));
  ParamTrigger trigger;
  trigger.initialize(param_trigger_init_info{false, "RealTimePreview"}, store);
  param_trigger_t input;
  input.lux = 50;
  input.cct = 50;
  input.zoom_ratio = 1.0f;
  input.aiscene = "s";
  param_lut_t lut{};
  param_shading_float_t shading{};
  bool changed = false;
  EXPECT_FALSE(trigger.trigger(input, &lut, &shading, changed));
  EXPECT_FALSE(changed);
}

}  // namespace
