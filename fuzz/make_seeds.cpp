// Writes the seed corpus of every fuzz target from valid inputs made by the
// project's own writers: calibration files from the calibration writer,
// .cube files from its exporter, effect scripts from the plugin's script
// builder, session lines and metadata entries in the layouts the host and
// the tool write. Usage: make_seeds OUT_DIR (one folder per target).
#include <calib/calibration_file.h>
#include <calib/cube_lut.h>
#include <calib/looks.h>
#include <lumo/contract.h>

#include <cmath>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <limits>
#include <string>
#include <vector>

#include "fuzz_tail.h"
#include "lumoEffectScript.h"

namespace fs = std::filesystem;

namespace {

fs::path g_out;

void writeSeed(const std::string& target, const std::string& name, const std::string& bytes) {
  fs::create_directories(g_out / target);
  std::ofstream(g_out / target / name, std::ios::binary) << bytes;
}

calib::LutBlock patternLut(size_t block) {
  calib::LutBlock out(calib::kLutBlockBytes);
  for (size_t p = 0; p < out.size(); ++p) out[p] = uint8_t(p * 7 + block * 37 + p / 289);
  return out;
}

// Small files of the shapes the camera ships: several scenes, nested lux and
// CCT bands, two zoom ratios, and a few of the odd shapes the format allows.
std::vector<calib::CalibrationFile> calibrationFiles() {
  const calib::ShadingBlock shading = {0.1f, 0.9f, 2.0f, 1.0f, 0.5f, 0.25f, 1.0f, 0.0f};
  calib::CalibrationFile plain;
  plain.scenes = {{lumo::kCommonScene, {{0, 60000, {{0, 60000, 0}}}}, std::nullopt}};
  plain.zooms = {{1.0f, {{0, 60000, {{0, 60000, 0}}}}, std::nullopt}};
  plain.luts = {patternLut(0)};
  plain.shadings = {shading};
  calib::CalibrationFile banded = plain, shifted = plain;
  banded.scenes = {{lumo::kCommonScene,
                    {{0, 300, {{0, 4000, 0}, {4001, 60000, 1}}}, {301, 60000, {{0, 60000, 2}}}},
                    std::nullopt},
                   {lumo::kNightScene, {{0, 100, {{0, 3000, 1}, {3001, 9000, 2}}}}, uint16_t(200)},
                   {lumo::kPlantsScene, {}, std::nullopt}};
  banded.zooms.push_back({2.0f, {{0, 500, {{0, 5000, 1}}}}, std::nullopt});
  banded.luts = {patternLut(0), patternLut(1), patternLut(2)};
  banded.shadings = {shading, {1.5f, 0.0f, 0.0f, 0.75f, 0.0f, 0.0f, 0.0f, 0.0f}};
  banded.triggerControl = "lux,cct";
  banded.paramType = "lut,shading";
  banded.paramRange = "0-60000";
  shifted.paramDataOffset = 1000;
  shifted.lutDataOffset = 1200;
  shifted.trailingBytes = {1, 2, 3};
  return {plain, banded, shifted, {}};
}

void calibrationSeeds() {
  const auto files = calibrationFiles();
  // Frames the loader target triggers: inside and between bands, at the
  // extremes, and with odd zoom ratios.
  const struct {
    uint8_t scene;
    uint16_t lux, cct;
    float zoom;
  } frames[lumofuzz::kLoaderTriggers] = {
      {0, 200, 5000, 1.0f}, {2, 50, 3000, 2.0f}, {0, 65535, 65535, std::nanf("")}, {5, 0, 0, 1.5f}};
  lumofuzz::TailWriter tail;
  for (const auto& f : frames) {
    uint32_t zoomBits = 0;
    std::memcpy(&zoomBits, &f.zoom, sizeof(zoomBits));
    for (auto [value, bytes] :
         {std::pair<uint64_t, int>{f.scene, 1}, {f.lux, 2}, {f.cct, 2}, {zoomBits, 4}})
      tail.add(value, bytes);
  }
  for (size_t i = 0; i < files.size(); ++i) {
    const std::vector<uint8_t> bytes = calib::serialize(files[i]), loader = tail.after(bytes);
    for (const char* target : {"calib_reader", "calib_agreement"})
      writeSeed(target, "file" + std::to_string(i), std::string(bytes.begin(), bytes.end()));
    writeSeed("calib_loader", "file" + std::to_string(i),
              std::string(loader.begin(), loader.end()));
  }
}

void cubeSeeds() {
  const std::string identity = calib::cubeText(calib::identityLut(), "identity");
  writeSeed("cube", "identity.cube", identity);
  writeSeed("cube", "pattern.cube", calib::cubeText(patternLut(1), "pattern"));
  // The dialects users bring: CRLF, comments and tabs, a domain, a 2-point lattice, 1D.
  std::string crlf;
  for (char c : identity) crlf += c == '\n' ? std::string("\r\n") : std::string(1, c);
  writeSeed("cube", "crlf.cube", crlf);
  writeSeed("cube", "small.cube",
            "# two points\nTITLE \"small\"\nDOMAIN_MIN 0 0 0\nDOMAIN_MAX 1 1 1\n"
            "LUT_3D_SIZE 2\n0 0 0\n1\t0 0\n0 1 0\n1 1 0\n0 0 1\n1 0 1\n0 1 1\n1 1 1\n");
  writeSeed("cube", "ramp1d.cube", "LUT_1D_SIZE 3\n0 0 0\n0.6 0.5 0.4\n1 1 1\n");
}

void effectScriptSeeds() {
  const float nan = std::numeric_limits<float>::quiet_NaN();
  const float inf = std::numeric_limits<float>::infinity();
  const param_shading_float_t shadings[] = {{{0.1f, 0.9f, 2.0f, 1.0f, 0.5f, 0.25f, 1.0f, 0.0f}},
                                            {{0, 0, 0, 0, 0, 0, 0, 0}},
                                            {{nan, -inf, inf, -0.0f, 1e30f, -1e-30f, 3, 7}}};
  int n = 0;
  for (const auto& s : shadings)
    writeSeed("effect_script", "script" + std::to_string(n++),
              lumo::buildEffectScript(4000, 3000, s));
  writeSeed("effect_script", "lut_only", std::string(lumo::kLutEffectText));
}

// Session lines as `lumo generate` and users write them: the named
// conditions, raw tags of every type, explicit geometry and files.
void sessionSeeds() {
  const std::string lines[] = {
      R"({"instance": "preview"})",
      R"({"instance": "snapshot", "frame": 7, "width": 64, "height": 48, "stride": 80,)"
      R"( "scanline": 50, "format": "nv12", "meta": {"stylization": 2, "cct": 5000,)"
      R"( "lux": "0x43ce7333", "scene": "sunrise_sunset", "faces": 2, "zoom": 2,)"
      R"( "image_name": "IMG_1"}})",
      R"({"instance": "preview", "input": "in_4x2_6_4.nv21", "output": "o_4x2_6_4.nv21",)"
      R"( "meta": {"stylization": 1, "tags": {")" +
          std::string(lumo::kTagAwbFrameControl) +
          R"(": {"type": "u8", "values": [1, 2, 3]},)"
          R"( "0x1002F": {"type": "f32", "values": ["inf", 1.5, "nan"]},)"
          R"( "android.control.zoomRatio": {"type": "f64", "values": ["0x3ff0000000000000"]},)"
          R"( "7": {"type": "i64", "values": [-1]},)"
          R"( "vendor.name": {"type": "string", "values": "x"},)"
          R"( "vendor.count": {"type": "i32", "values": [-5, 9]},)"
          R"( "vendor.u": {"type": "u32", "values": [4294967295]}}}})",
      R"({"instance": "preview", "input": "generated:gradient"})"};
  int n = 0;
  for (const std::string& line : lines)
    writeSeed("session_line", "line" + std::to_string(n++), line);
}

void dumpNameSeeds() {
  const char* names[] = {"IMG_0001_[lumofilter]_OfflineSnapshot_frame[7]_input_4000x3000_4032.nv21",
                         "out_1920x1080_1920_1088.nv12",
                         "cap_width_640_height_480_stride_704_scanline_512.yuv",
                         "cap_nv12_width_64_height_48_stride_64.raw",
                         "frame_RGBA_32x16.bin",
                         "photo.jpg"};
  int n = 0;
  for (const char* name : names) writeSeed("dump_name", "name" + std::to_string(n++), name);
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
  int n = 0;
  for (const auto& frame : frames) {
    lumofuzz::TailWriter tail;
    std::vector<uint8_t> body;
    tail.add(frame.size(), 1);
    for (const Entry& e : frame) {
      tail.add(e.selector, 1);
      tail.add(e.type, 1);
      tail.add(e.count, 1);
      body.insert(body.end(), e.payload.begin(), e.payload.end());
    }
    tail.add(1, 1);  // the image carries this metadata
    body = tail.after(body);
    writeSeed("metadata", "frame" + std::to_string(n++), std::string(body.begin(), body.end()));
  }
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: %s OUT_DIR\n", argv[0]);
    return 2;
  }
  g_out = argv[1];
  calibrationSeeds();
  cubeSeeds();
  effectScriptSeeds();
  sessionSeeds();
  dumpNameSeeds();
  metadataSeeds();
  return 0;
}
