// Writer, strict reader and JSON description together: export of a written file
// followed by build gives the same bytes, odd shapes included, so whatever the
// reader lost on the way would show as a changed byte.
#include <calib/calibration_reader.h>
#include <calib/description_json.h>
#include <calib/looks.h>
#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>

using namespace calib;
namespace fs = std::filesystem;

TEST(CalibRoundTrip, ExportThenBuildGivesTheSameBytes) {
  CalibrationFile f;
  LookParams warm;
  warm.temperature = 0.5;
  f.luts = {identityLut(), generateLook(warm)};
  f.shadings = {ShadingBlock{0.1f, 0.9f, 2, 1, 0.5f, 0.25f, 1, 0},
                ShadingBlock{std::nanf(""), INFINITY, -0.0f, 1e-7f, 0, 0, 0, 0}};
  f.scenes = {{"common", {{0, 100, {{0, 4000, 0}, {4001, 9000, 1}}}}, uint16_t(120)},
              {"night", {{0, 10, {}}, {11, 500, {{0, 65535, 1}}}}, std::nullopt}};
  f.zooms = {{1.0f, {{0, 65535, {{0, 65535, 0}}}}, std::nullopt},
             {2.5f, {{0, 65535, {{0, 65535, 1}}}}, uint16_t(40)}};
  f.lut3dSize = 33;
  f.triggerControl = "t", f.paramType = "p", f.paramRange = "r";
  f.paramDataOffset = 800;
  f.trailingBytes = {9, 8, 7};
  const std::vector<uint8_t> original = serialize(f);
  const ReadResult r = readCalibration(original);
  // Warnings only: lut3d_size, the empty lux band, NaN and infinite shading, trailing bytes.
  for (const Issue& i : r.issues) EXPECT_EQ(i.severity, Issue::Severity::Warning) << i.message;
  EXPECT_EQ(r.issues.size(), 5u);

  const fs::path dir = fs::temp_directory_path() / "lumo_calib_round_trip";
  fs::remove_all(dir);
  fs::create_directories(dir);
  std::ofstream(dir / "d.json")
      << exportDescription(r.file, dir.string(), (dir / "cubes").string()).dump(2);
  EXPECT_TRUE(fs::exists(dir / "cubes" / "lut_001.cube"));
  EXPECT_EQ(serialize(readDescription((dir / "d.json").string())), original);
  fs::remove_all(dir);
}
