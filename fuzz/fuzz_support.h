// Helpers shared by the fuzz targets and the seed writer: a scratch file for
// readers that take a path, quiet logging so that millions of runs do not
// flood stderr, and how many frames the loader target takes from the end of
// its input (so the seed writer can put meaningful values there).
#pragma once

#include <hostsim/log_sink.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <system_error>

namespace lumofuzz {

// Writes the input to a file private to this process and returns its path.
// The folder is made once and removed at exit; libFuzzer runs one input at a
// time. Each target uses one name: the first call fixes it.
inline const std::string& writeScratch(const char* fileName, const uint8_t* data, size_t size) {
  static const std::string* folder = [] {
    std::string pattern = "/tmp/lumo_fuzz_XXXXXX";
    if (mkdtemp(pattern.data()) == nullptr) std::abort();
    auto* kept = new std::string(pattern);
    std::atexit([] {
      std::error_code ignored;
      std::filesystem::remove_all(*folder, ignored);
    });
    return kept;
  }();
  static const std::string* path = new std::string(*folder + "/" + fileName);
  FILE* f = std::fopen(path->c_str(), "wb");
  if (f == nullptr) std::abort();
  if (size != 0 && std::fwrite(data, 1, size, f) != size) std::abort();
  std::fclose(f);
  return *path;
}

// The Android log goes nowhere; the messages are still formatted, so their
// format strings are exercised with the fuzzed values.
inline void quietLogs() {
  [[maybe_unused]] static const bool done =
      (hostsim::setAndroidLogFile("-"), hostsim::setOfflineLogFile(""), true);
}

// Trigger calls the calibration-loader target makes after loading.
constexpr int kLoaderTriggers = 4;

}  // namespace lumofuzz
