// The process-wide store: loaded from the device path on first use, and never
// again. Its own binary, so that no other test touches the singleton first.
#include <gtest/gtest.h>
#include <hostsim/device_root.h>

#include <filesystem>
#include <string>

#include "paramTrigger.h"
#include "param_fixtures.h"

namespace {

TEST(ParamSingleton, LoadsTheDeviceFileOnceAndTheTriggerBorrowsIt) {
  lumotest::quietLogs();
  lumotest::TempDir root;
  const std::string folder = root.path + "/odm/etc/camera";
  std::filesystem::create_directories(folder);
  calib::CalibrationFile f;
  f.scenes.push_back({"common", {lumotest::luxBand(0, 65535, {{0, 65535, 1}})}, std::nullopt});
  f.zooms.push_back({1.0f, {lumotest::luxBand(0, 65535, {{0, 65535, 0}})}, std::nullopt});
  f.luts = {lumotest::patternLut(0), lumotest::patternLut(1)};
  f.shadings.push_back({1, 2, 3, 4, 5, 6, 7, 8});
  std::string error;
  ASSERT_TRUE(calib::writeFile(f, folder + "/lumo_filter_param.bin", &error)) << error;
  hostsim::setDeviceRoot(root.path);

  hostsim::LogCapture capture;
  ParamUtil& first = ParamUtil::getInstance();
  EXPECT_EQ(first.lutCount, 2u);
  EXPECT_EQ(first.aiSceneParams.count("common"), 1u);
  EXPECT_EQ(lumotest::messages(capture).at(0), "[LumoFilter] ParamUtil");

  // Gone from the disk, still in the store; the second call neither logs nor reads.
  std::filesystem::remove_all(root.path + "/odm");
  capture.clear();
  ParamUtil& second = ParamUtil::getInstance();
  EXPECT_EQ(&second, &first);
  EXPECT_EQ(second.lutCount, 2u);
  EXPECT_TRUE(capture.records().empty());

  ParamTrigger trigger;
  trigger.initialize(param_trigger_init_info{false, "OfflineSnapshot"});
  param_lut_t lut{};
  param_shading_float_t shading{};
  bool changed = false;
  ASSERT_TRUE(trigger.trigger({10, 10, 1.0f, "common"}, &lut, &shading, changed));
  EXPECT_TRUE(changed);
  EXPECT_EQ(lut.data[5], lumotest::patternByte(1, 5));
  EXPECT_EQ(shading.data[7], 8.0f);
}

}  // namespace
