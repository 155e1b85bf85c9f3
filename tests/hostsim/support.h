// Shared helpers of the host simulator tests.
#pragma once

#include <gtest/gtest.h>
#include <hostsim/device_root.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

namespace hostsim_test {

// A fresh folder under the system temporary directory, named after the test.
inline std::filesystem::path freshTestFolder(const std::string& prefix) {
  const auto* info = ::testing::UnitTest::GetInstance()->current_test_info();
  auto path =
      std::filesystem::temp_directory_path() /
      (prefix + std::to_string(::getpid()) + "_" + info->test_suite_name() + "_" + info->name());
  std::filesystem::remove_all(path);
  std::filesystem::create_directories(path);
  return path;
}

inline std::vector<std::string> linesOf(const std::filesystem::path& path) {
  std::ifstream in(path);
  std::vector<std::string> out;
  for (std::string line; std::getline(in, line);) out.push_back(line);
  return out;
}

// A fresh folder as the device root for the test's length.
class DeviceRootTest : public ::testing::Test {
protected:
  void SetUp() override {
    dir = freshTestFolder("hostsim_root_");
    savedRoot = hostsim::deviceRoot();
    hostsim::setDeviceRoot(dir.string());
  }
  void TearDown() override {
    hostsim::setDeviceRoot(savedRoot);
    std::filesystem::remove_all(dir);
  }
  std::filesystem::path dir;
  std::string savedRoot;
};

}  // namespace hostsim_test
