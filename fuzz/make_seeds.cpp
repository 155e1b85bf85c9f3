// Writes the seed corpus of every fuzz target from valid inputs made by the
// project's own writers: calibration files from the calibration writer,
// effect scripts from the plugin's script builder, and a .cube file, session
// lines and metadata entries in the layouts users, the host and the tool write. Usage: make_seeds
// OUT_DIR (one folder per target).
#include <calib/calibration_file.h>
#include <calib/looks.h>
#include <lumo/contract.h>

#include <cmath>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "fuzz_support.h"
#include "lumoEffectScript.h"

namespace fs = std::filesystem;

namespace {

fs::path g_out;

// Seeds of `target` named `stem`0, `stem`1, ... in the order given.
void writeSeeds(const std::string& target, const std::string& stem,
                const std::vector<std::string>& seeds) {
  fs::create_directories(g_out / target);
  for (size_t i = 0; i < seeds.size(); ++i)
    std::ofstream(g_out / target / (stem + std::to_string(i)), std::ios::binary) << seeds[i];
}

std::string text(const std::vector<uint8_t>& bytes) { return {bytes.begin(), bytes.end()}; }

// (value, width) pairs in the order a target consumes them.
using Tail = std::vector<std::pair<uint64_t, int>>;

// `body`, then the tail's values laid out so that FuzzedDataProvider, which
// takes integers from the end of its input, reads them in the tail's order.
std::string withTail(std::vector<uint8_t> body, const Tail& tail) {
  std::vector<uint8_t> consumed;
  for (const auto& [value, bytes] : tail)
    for (int b = bytes - 1; b >= 0; --b) consumed.push_back(uint8_t(value >> (8 * b)));
  body.insert(body.end(), consumed.rbegin(), consumed.rend());
  return text(body);
}

// A small file of the shape the camera ships (several scenes, nested lux and
// CCT bands, two zoom ratios, moved pools) and the empty file. The loader's
// seeds carry a few frames after the file: inside and between bands, at the
// extremes, and with odd zoom ratios.
void calibrationSeeds() {
  const calib::LutBlock dark(calib::kLutBlockBytes, 0x10), grey(calib::kLutBlockBytes, 0x80);
  calib::CalibrationFile banded;
  banded.scenes = {{lumo::kCommonScene,
                    {{0, 300, {{0, 4000, 0}, {4001, 60000, 1}}}, {301, 60000, {{0, 60000, 2}}}},
                    std::nullopt},
                   {lumo::kNightScene, {{0, 100, {{0, 3000, 1}, {3001, 9000, 2}}}}, uint16_t(200)},
                   {lumo::kPlantsScene, {}, std::nullopt}};
  banded.zooms = {{1.0f, {{0, 60000, {{0, 60000, 0}}}}, std::nullopt},
                  {2.0f, {{0, 500, {{0, 5000, 1}}}}, std::nullopt}};
  banded.luts = {calib::identityLut(), dark, grey};
  banded.shadings = {{0.1f, 0.9f, 2.0f, 1.0f, 0.5f, 0.25f, 1.0f, 0.0f},
                     {1.5f, 0.0f, 0.0f, 0.75f, 0.0f, 0.0f, 0.0f, 0.0f}};
  banded.triggerControl = "lux,cct";
  banded.paramType = "lut,shading";
  banded.paramRange = "0-60000";
  banded.paramDataOffset = 1000;
  banded.lutDataOffset = 1600;
  banded.trailingBytes = {1, 2, 3};

  const struct {
    uint8_t scene;
    uint16_t lux, cct;
    float zoom;
  } frames[lumofuzz::kLoaderTriggers] = {
      {0, 200, 5000, 1.0f}, {2, 50, 3000, 2.0f}, {0, 65535, 65535, std::nanf("")}, {5, 0, 0, 1.5f}};
  Tail tail;
  for (const auto& f : frames) {
    uint32_t zoomBits = 0;
    std::memcpy(&zoomBits, &f.zoom, sizeof(zoomBits));
    tail.insert(tail.end(), {{f.scene, 1}, {f.lux, 2}, {f.cct, 2}, {zoomBits, 4}});
  }
  std::vector<std::string> files, loader;
  for (const calib::CalibrationFile& f : {banded, calib::CalibrationFile{}}) {
    files.push_back(text(calib::serialize(f)));
    loader.push_back(withTail(calib::serialize(f), tail));
  }
  writeSeeds("calib_reader", "file", files);
  writeSeeds("calib_agreement", "file", files);
  writeSeeds("calib_loader", "file", loader);
}

// Metadata entries in the target's encoding (selector, type, count from the
// end; payloads from the front), laid out as the host writes them.
void metadataSeeds() {
  struct Entry {
    uint8_t selector, type, count;  // selector: index into the target's tag list
    std::vector<uint8_t> payload;
  };
  auto record = [](size_t bytes, size_t offset, auto word) {
    std::vector<uint8_t> out(bytes);
    std::memcpy(out.data() + offset, &word, sizeof(word));
    return out;
  };
  const uint8_t awb = lumo::kAwbRecordBytes, aec = lumo::kAecRecordBytes;
  const std::vector<std::vector<Entry>> frames = {
      {{0, 0, awb, record(awb, lumo::kAwbCctOffset, uint32_t{5000})},
       {1, 0, aec, record(aec, lumo::kAecLuxOffset, 412.9f)},
       {2, 1, 1, record(4, 0, uint32_t{4})},
       {6, 2, 1, record(4, 0, 2.0f)},
       {7, 1, 8, std::vector<uint8_t>(32, 1)},
       {3, 0, 6, {'I', 'M', 'G', '_', '1', 0}}},
      {{0, 0, 3, {1, 2, 3}}, {3, 0, 2, {'A', 'B'}}, {6, 4, 1, std::vector<uint8_t>(8, 0x3f)}}};
  std::vector<std::string> seeds;
  for (const auto& frame : frames) {
    Tail tail = {{frame.size(), 1}};
    std::vector<uint8_t> body;
    for (const Entry& e : frame) {
      tail.insert(tail.end(), {{e.selector, 1}, {e.type, 1}, {e.count, 1}});
      body.insert(body.end(), e.payload.begin(), e.payload.end());
    }
    tail.push_back({1, 1});  // the image carries this metadata
    seeds.push_back(withTail(body, tail));
  }
  writeSeeds("metadata", "frame", seeds);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: %s OUT_DIR\n", argv[0]);
    return 2;
  }
  g_out = argv[1];
  calibrationSeeds();
  metadataSeeds();
  // One valid input each for the text targets: their dictionaries hold the
  // keywords, and the fuzzers grow the rest from there.
  writeSeeds("cube", "cube",
             {"# two points\nTITLE \"small\"\nDOMAIN_MIN 0 0 0\nDOMAIN_MAX 1 1 1\n"
              "LUT_3D_SIZE 2\n0 0 0\n1\t0 0\n0 1 0\n1 1 0\n0 0 1\n1 0 1\n0 1 1\n1 1 1\r\n"});
  const param_shading_float_t odd = {{NAN, -INFINITY, INFINITY, -0.0f, 1e30f, -1e-30f, 3, 7}};
  writeSeeds("effect_script", "script", {lumo::buildEffectScript(4000, 3000, odd)});
  writeSeeds("session_line", "line",
             {R"({"instance": "preview", "input": "in_4x2_6_4.nv21", "output": "o_4x2_6_4.nv21",)"
              R"( "meta": {"stylization": 1, "scene": "night", "tags": {")" +
              std::string(lumo::kTagAwbFrameControl) +
              R"(": {"type": "u8", "values": [1, 2, 3]},)"
              R"( "0x1002F": {"type": "f32", "values": ["inf", 1.5, "nan"]}}}})"});
  writeSeeds("dump_name", "name",
             {"IMG_0001_[lumofilter]_OfflineSnapshot_frame[7]_input_4000x3000_4032.nv21"});
  return 0;
}
