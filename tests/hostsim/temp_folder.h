// A fresh folder under the system temporary directory for one test, removed
// when the test ends.
#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <string>

namespace hostsim_test {

inline std::filesystem::path freshTestFolder(const std::string& prefix) {
  const auto* info = ::testing::UnitTest::GetInstance()->current_test_info();
  auto path =
      std::filesystem::temp_directory_path() /
      (prefix + std::to_string(::getpid()) + "_" + info->test_suite_name() + "_" + info->name());
  std::filesystem::remove_all(path);
  std::filesystem::create_directories(path);
  return path;
}

}  // namespace hostsim_test
