// Helpers shared by the fuzz targets and the seed writer: a scratch file for
// readers that take a path, quiet logging so that millions of runs do not
// flood stderr, and the trailing values some targets take from the end of
// their input (the way FuzzedDataProvider consumes integers), so that the
// seed writer can put meaningful values there and the rest of the input
// stays a whole file.
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
#include <vector>

namespace lumofuzz {

// A file private to this process, rewritten with each input. The folder is
// made once and removed at exit; libFuzzer runs one input at a time. Each
// target uses one name: the first call fixes it.
inline const std::string& scratchPath(const char* fileName) {
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
  return *path;
}

inline void writeScratch(const std::string& path, const uint8_t* data, size_t size) {
  FILE* f = std::fopen(path.c_str(), "wb");
  if (f == nullptr) std::abort();
  if (size != 0 && std::fwrite(data, 1, size, f) != size) std::abort();
  std::fclose(f);
}

// The Android log goes nowhere; the messages are still formatted, so their
// format strings are exercised with the fuzzed values.
inline void quietLogs() {
  [[maybe_unused]] static const bool done =
      (hostsim::setAndroidLogFile("-"), hostsim::setOfflineLogFile(""), true);
}

// Trigger calls the calibration-loader target makes after loading.
constexpr int kLoaderTriggers = 4;

// Appends values in the order a target consumes them, each `bytes` wide.
class TailWriter {
public:
  void add(uint64_t value, int bytes) {
    for (int b = bytes - 1; b >= 0; --b) m_consumed.push_back(uint8_t(value >> (8 * b)));
  }
  // The input: `body`, then the values so that the first added is consumed first.
  std::vector<uint8_t> after(std::vector<uint8_t> body) const {
    body.insert(body.end(), m_consumed.rbegin(), m_consumed.rend());
    return body;
  }

private:
  std::vector<uint8_t> m_consumed;
};

}  // namespace lumofuzz
