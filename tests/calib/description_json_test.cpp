// The JSON description: block numbering by last use, messages naming the
// field, and the round trip of a written file through export (the array form)
// and build.
#include <calib/calibration_reader.h>
#include <calib/description_json.h>
#include <calib/looks.h>
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <stdexcept>

#include "calib_bytes.h"

using namespace calib;
using nlohmann::json;
namespace fs = std::filesystem;

namespace {

json twoScenes() {
  return json::parse(R"({
    "looks": {"warm": {"generate": {"temperature": 0.5}}, "cool": {"generate": {"temperature": -0.5}},
              "unused": {"generate": {}}},
    "shadings": {"flat": ["0x3f800000", "inf", "-inf", 0.25, 0, 0, 0, "nan"]},
    "scenes": [
      {"name": "common", "lux": [{"start": 0, "end": 100, "cct": [
        {"start": 0, "end": 5000, "lut": "warm"}, {"start": 5001, "end": 9000, "lut": "cool"}]}]},
      {"name": "night", "lux": [{"start": 0, "end": 100, "cct": [
        {"start": 0, "end": 9000, "lut": "warm"}]}]}],
    "zooms": [{"ratio": 1.0, "lux": [{"start": 0, "end": 65535, "cct": [
      {"start": 0, "end": 65535, "shading": "flat"}]}]}]})");
}

}  // namespace

TEST(DescriptionJson, NamedBlocksAreNumberedByLastUseAndFloatsTakeEverySpelling) {
  const CalibrationFile f = parseDescription(twoScenes(), "d.json", ".");
  // "warm" is used last (by night), so it gets the highest index; "unused" is dropped.
  ASSERT_EQ(f.luts.size(), 2u);
  EXPECT_EQ(
      std::make_tuple(f.scenes[0].luxBands[0].ccts[0].index, f.scenes[0].luxBands[0].ccts[1].index,
                      f.scenes[1].luxBands[0].ccts[0].index, f.zooms[0].ratio),
      std::make_tuple(1, 0, 1, 1.0f));
  LookParams warm;
  warm.temperature = 0.5;
  EXPECT_EQ(f.luts[1], generateLook(warm));
  ASSERT_EQ(f.shadings.size(), 1u);
  EXPECT_EQ(std::make_tuple(f.shadings[0][0], f.shadings[0][1], f.shadings[0][2], f.shadings[0][3]),
            std::make_tuple(1.0f, INFINITY, -INFINITY, 0.25f));
  EXPECT_TRUE(std::isnan(f.shadings[0][7]));
}

TEST(DescriptionJson, ErrorsNameTheField) {
  // Where the good description is changed, to what, and how the message starts.
  const char* cases[][3] = {
      {"/scenes/1/lux/0/cct/0/lut", R"("wram")",
       "d.json: field \"scenes[1].lux[0].cct[0].lut\": no entry \"wram\" in \"looks\""},
      {"/scenes/0/colour", "1",
       "d.json: field \"scenes[0].colour\": unknown field (known: name, lux, declared_size)"},
      {"/looks/warm/generate/warmth", "1",
       "d.json: field \"looks.warm.generate.warmth\": unknown look control (known: exposure,"},
      {"/scenes/0/lux/0/end", "65536",
       "d.json: field \"scenes[0].lux[0].end\": expected an integer in 0..65535, got 65536"},
      {"/shadings/flat", "[1, 2]",
       "d.json: field \"shadings.flat\": expected an array of 8 floats (SmoothStartValue,"},
      {"/scenes/0/name", R"("xxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxx")",
       "d.json: field \"scenes[0].name\": at most 63 bytes fit, got 64"},
      {"/looks/cool", R"({"cube": "/nonexistent/x.cube"})",
       "d.json: field \"looks.cool.cube\": /nonexistent/x.cube: cannot open .cube file"},
      {"/scenes/0/lux/0/cct/0/lut", "0",
       "d.json: field \"scenes[0].lux[0].cct[0].lut\": \"looks\" are named: refer to them by name"},
  };
  for (const auto& [where, value, expected] : cases) {
    json j = twoScenes();
    j[json::json_pointer(where)] = json::parse(value);
    EXPECT_EQ(calib_test::thrownBy<std::invalid_argument>([&] {
                parseDescription(j, "d.json", ".");
              }).substr(0, std::strlen(expected)),
              expected);
  }
}

// Whatever the reader or the description lost on the way would show as a changed byte.
TEST(CalibRoundTrip, ExportThenBuildGivesTheSameBytesOddShapesIncluded) {
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
