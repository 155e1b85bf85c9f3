// A scratch folder per test, pictures whose headers lie about their size,
// and (for the black-box tests) a runner of the built `lumo` that collects
// its exit status, stdout and stderr.
#pragma once

#include <gtest/gtest.h>
#include <unistd.h>
#include <zlib.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <vector>

#include "image_files.h"

namespace lumo_test {

namespace fs = std::filesystem;

inline std::string readText(const fs::path& p) {
  std::stringstream s;
  s << std::ifstream(p, std::ios::binary).rdbuf();
  return s.str();
}

inline size_t countOf(const std::string& text, const std::string& needle) {
  size_t n = 0;
  for (size_t at = text.find(needle); at != std::string::npos; at = text.find(needle, at + 1)) ++n;
  return n;
}

// The folder is kept when the test fails, for a look at what was written.
class ScratchTest : public ::testing::Test {
protected:
  void SetUp() override {
    const auto* info = ::testing::UnitTest::GetInstance()->current_test_info();
    dir = fs::temp_directory_path() /
          ("lumo_" + std::to_string(getpid()) + "_" + info->test_suite_name() + "_" + info->name());
    fs::remove_all(dir);
    fs::create_directories(dir);
  }
  void TearDown() override {
    if (!HasFailure()) fs::remove_all(dir);
  }
  std::string path(const std::string& name) const { return (dir / name).string(); }
  void write(const std::string& name, const std::string& bytes) const {
    std::ofstream(dir / name, std::ios::binary) << bytes;
  }
  // Regular files under `sub`, recursively, relative to it and sorted.
  std::vector<std::string> files(const std::string& sub) const {
    std::vector<std::string> out;
    if (fs::exists(dir / sub))
      for (const auto& e : fs::recursive_directory_iterator(dir / sub))
        if (e.is_regular_file()) out.push_back(fs::relative(e.path(), dir / sub).string());
    std::sort(out.begin(), out.end());
    return out;
  }

  fs::path dir;
};

// Small PNG and JPEG files whose headers declare another size than their
// data holds: what a damaged or hostile picture looks like to a decoder.
inline void putBigEndian(std::string& bytes, size_t at, uint32_t value, int size) {
  for (int i = 0; i < size; ++i) bytes[at + size_t(i)] = char(value >> (8 * (size - 1 - i)));
}

// A 16x16 picture written as `path` (.png or .jpg), its header then patched
// to say width x height; the data stays that of 16x16 pixels.
inline std::string declaringSize(const std::string& path, uint32_t width, uint32_t height) {
  lumo::writeImage(path, lumo::makeImage({lumo::PixelFormat::RGBA, 16, 16, 0, 0}));
  std::string bytes = readText(path);
  if (lumo::fileKindOf(path) == lumo::FileKind::Png) {
    // IHDR: length at 8, type at 12, width at 16, height at 20, CRC of type and data at 29.
    putBigEndian(bytes, 16, width, 4);
    putBigEndian(bytes, 20, height, 4);
    putBigEndian(bytes, 29, uint32_t(crc32(0, reinterpret_cast<const Bytef*>(&bytes[12]), 17)), 4);
  } else {
    // Baseline SOF0: marker, length, precision, then height and width.
    const size_t sof = bytes.find("\xFF\xC0");
    putBigEndian(bytes, sof + 5, height, 2);
    putBigEndian(bytes, sof + 7, width, 2);
  }
  std::ofstream(path, std::ios::binary | std::ios::trunc) << bytes;
  return path;
}

// A calibration description with the "common" scene only: `ccts` are its CCT
// bands over lux LUXSTART..65535, one zoom ratio with a flat shading "s".
inline std::string description(
    const std::string& looks,
    const std::string& ccts = R"([{"start": 0, "end": 65535, "lut": "a"}])", int luxStart = 0) {
  return R"({"looks": )" + looks + R"(, "shadings": {"s": [0, 0, 0, 0, 0, 0, 0, 0]},
    "scenes": [{"name": "common", "lux": [{"start": )" +
         std::to_string(luxStart) + R"(, "end": 65535, "cct": )" + ccts + R"(}]}],
    "zooms": [{"ratio": 1, "lux": [{"start": 0, "end": 65535,
      "cct": [{"start": 0, "end": 65535, "shading": "s"}]}]}]})";
}

#ifdef PROBE_PLUGIN
inline const std::string kProbe = std::string(" --plugin '") + PROBE_PLUGIN + "'";
#endif

#ifdef LUMO_TOOL
#ifndef LUMO_TOOL_EMULATOR
#define LUMO_TOOL_EMULATOR ""
#endif
struct Outcome {
  int status = -1;
  std::string out, err;
};

class ToolTest : public ScratchTest {
protected:
  // The shell command that runs the tool in `dir` with `args` appended as
  // shell words, its output going to stdout.txt and stderr.txt there.
  std::string command(const std::string& args) const {
    return "cd '" + dir.string() +
           "' && LUMO_DEVICE_ROOT= exec " LUMO_TOOL_EMULATOR "'" LUMO_TOOL "' " + args +
           " >stdout.txt 2>stderr.txt";
  }
  Outcome lumo(const std::string& args) const {
    const int raw = std::system(command(args).c_str());
    Outcome o{WIFEXITED(raw) ? WEXITSTATUS(raw) : -1, readText(dir / "stdout.txt"),
              readText(dir / "stderr.txt")};
    fs::remove(dir / "stdout.txt");
    fs::remove(dir / "stderr.txt");
    return o;
  }
  // One command of a table: its exit status and texts its stdout or stderr holds.
  struct Run {
    std::string args;
    int status;
    std::vector<std::string> said = {};
  };
  // Runs each command in order; a failed one leaves no `-o` file behind, and
  // no command names its staging folder or puts an escape (or a byte no UTF-8
  // text holds) on the terminal.
  void expectRuns(const std::vector<Run>& runs) const {
    for (const Run& r : runs) {
      SCOPED_TRACE(r.args);
      const Outcome o = lumo(r.args);
      EXPECT_EQ(o.status, r.status) << o.out << o.err;
      for (const std::string& text : r.said)
        EXPECT_NE((o.out + o.err).find(text), std::string::npos) << text << "\n" << o.out << o.err;
      EXPECT_EQ((o.out + o.err).find_first_of("\x1b\xff"), std::string::npos);
      EXPECT_EQ((o.out + o.err).find(".lumo-staging"), std::string::npos);
      if (const auto at = r.args.find(" -o "); r.status != 0 && at != std::string::npos) {
        EXPECT_FALSE(fs::exists(dir / r.args.substr(at + 4, r.args.find(' ', at + 4) - at - 4)));
      }
    }
  }
  // Replays `session` (written as s.jsonl) into out/, the log into log.txt.
  Outcome replay(const std::string& session, const std::string& options) const {
    write("s.jsonl", session);
    return lumo("replay s.jsonl --out out --logcat log.txt" + options);
  }
  // The frames of a --json report; none when stdout is not JSON.
  static nlohmann::json frames(const Outcome& o) {
    const auto j = nlohmann::json::parse(o.out, nullptr, false);
    return j.is_discarded() ? nlohmann::json::array() : j["frames"];
  }
  // Messages of the log lines with this tag (logcat pads short tags before ": ").
  std::vector<std::string> logLines(const std::string& log, const std::string& tag) const {
    std::vector<std::string> out;
    std::istringstream in(readText(dir / log));
    for (std::string line; std::getline(in, line);)
      if (const auto at = line.find(" " + tag); at != std::string::npos)
        out.push_back(line.substr(line.find(": ", at) + 2));
    return out;
  }
};
#endif

}  // namespace lumo_test
