// Shared fixture of the host simulator tests.
#pragma once

#include <gtest/gtest.h>
#include <hostsim/device_root.h>
#include <hostsim/properties.h>
#include <unistd.h>

#include <filesystem>
#include <string>

namespace hostsim_test {

// A fresh folder, named after the process and the test, as the device root for the test's
// length, and no properties before or after.
class DeviceRootTest : public ::testing::Test {
protected:
  void SetUp() override {
    const auto* info = ::testing::UnitTest::GetInstance()->current_test_info();
    dir = std::filesystem::temp_directory_path() /
          ("hostsim_root_" + std::to_string(::getpid()) + "_" + info->test_suite_name() + "_" +
           info->name());
    std::filesystem::remove_all(dir);
    std::filesystem::create_directories(dir);
    savedRoot = hostsim::deviceRoot();
    hostsim::setDeviceRoot(dir.string());
    hostsim::clearProperties();
  }
  void TearDown() override {
    hostsim::clearProperties();
    hostsim::setDeviceRoot(savedRoot);
    std::filesystem::remove_all(dir);
  }
  std::filesystem::path dir;
  std::string savedRoot;
};

}  // namespace hostsim_test
