// Runs the built `lumo` in a scratch folder and collects its exit status,
// stdout and stderr, for the black-box tests.
#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

namespace lumo_test {

struct Outcome {
  int status = -1;
  std::string out, err;
};

inline std::string readText(const std::filesystem::path& p) {
  std::ifstream in(p, std::ios::binary);
  std::stringstream s;
  s << in.rdbuf();
  return s.str();
}

inline size_t countOf(const std::string& text, const std::string& needle) {
  size_t n = 0;
  for (size_t at = text.find(needle); at != std::string::npos; at = text.find(needle, at + 1)) ++n;
  return n;
}

class ToolTest : public ::testing::Test {
protected:
  void SetUp() override {
    const auto* info = ::testing::UnitTest::GetInstance()->current_test_info();
    dir = std::filesystem::temp_directory_path() /
          (std::string("lumo_cli_") + info->test_suite_name() + "_" + info->name());
    std::filesystem::remove_all(dir);
    std::filesystem::create_directories(dir);
  }
  void TearDown() override {
    if (!HasFailure()) std::filesystem::remove_all(dir);
  }

  // `args` is appended to the tool's path as shell words.
  Outcome lumo(const std::string& args) const {
    const std::string cmd = "cd '" + dir.string() + "' && LUMO_DEVICE_ROOT= '" LUMO_TOOL "' " +
                            args + " >stdout.txt 2>stderr.txt";
    Outcome o;
    const int raw = std::system(cmd.c_str());
    o.status = WIFEXITED(raw) ? WEXITSTATUS(raw) : -1;
    o.out = readText(dir / "stdout.txt");
    o.err = readText(dir / "stderr.txt");
    std::filesystem::remove(dir / "stdout.txt");
    std::filesystem::remove(dir / "stderr.txt");
    return o;
  }
  void write(const std::string& name, const std::string& text) const {
    std::ofstream(dir / name, std::ios::binary) << text;
  }
  // Files of a folder (names), recursively, without the given ones.
  std::vector<std::string> files(const std::string& sub) const {
    std::vector<std::string> out;
    if (!std::filesystem::exists(dir / sub)) return out;
    for (const auto& e : std::filesystem::recursive_directory_iterator(dir / sub))
      if (e.is_regular_file())
        out.push_back(std::filesystem::relative(e.path(), dir / sub).string());
    std::sort(out.begin(), out.end());
    return out;
  }

  std::filesystem::path dir;
};

}  // namespace lumo_test
