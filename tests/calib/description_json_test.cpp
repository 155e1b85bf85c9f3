// The JSON description: block numbering by last use, the array form, and
// messages naming the field.
#include <calib/description_json.h>
#include <calib/looks.h>
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <stdexcept>

using namespace calib;
using nlohmann::json;

namespace {

json band(int start, int end, json ref, const char* key = "lut") {
  return {{"start", start}, {"end", end}, {key, ref}};
}

std::string errorOf(const json& j) {
  try {
    parseDescription(j, "d.json", ".");
  } catch (const std::invalid_argument& e) {
    return e.what();
  }
  return "(accepted)";
}

json twoScenes() {
  return {{"looks",
           {{"warm", {{"generate", {{"temperature", 0.5}}}}},
            {"cool", {{"generate", {{"temperature", -0.5}}}}},
            {"unused", {{"generate", json::object()}}}}},
          {"shadings", {{"flat", {0, 0, 0, 0, 0, 0, 0, 0}}}},
          {"scenes",
           {{{"name", "common"},
             {"lux",
              {{{"start", 0},
                {"end", 100},
                {"cct", {band(0, 5000, "warm"), band(5001, 9000, "cool")}}}}}},
            {{"name", "night"},
             {"lux", {{{"start", 0}, {"end", 100}, {"cct", {band(0, 9000, "warm")}}}}}}}},
          {"zooms",
           {{{"ratio", 1.0},
             {"lux",
              {{{"start", 0}, {"end", 65535}, {"cct", {band(0, 65535, "flat", "shading")}}}}}}}}};
}

}  // namespace

TEST(DescriptionJson, NamedBlocksAreNumberedByLastUse) {
  const CalibrationFile f = parseDescription(twoScenes(), "d.json", ".");
  // "warm" is used last (by night), so it gets the highest index; "unused" is dropped.
  ASSERT_EQ(f.luts.size(), 2u);
  EXPECT_EQ(f.scenes[0].luxBands[0].ccts[0].index, 1);
  EXPECT_EQ(f.scenes[0].luxBands[0].ccts[1].index, 0);
  EXPECT_EQ(f.scenes[1].luxBands[0].ccts[0].index, 1);
  LookParams warm;
  warm.temperature = 0.5;
  EXPECT_EQ(f.luts[1], generateLook(warm));
  EXPECT_EQ(f.shadings.size(), 1u);
  EXPECT_EQ(f.zooms[0].ratio, 1.0f);
}

TEST(DescriptionJson, ArrayFormKeepsIndicesAsWritten) {
  json j = {{"looks", {{{"generate", json::object()}}, {{"generate", {{"saturation", 0}}}}}},
            {"scenes",
             {{{"name", "food"},
               {"declared_size", 200},
               {"lux", {{{"start", 0}, {"end", 9}, {"cct", {band(0, 1, 0), band(2, 3, 5)}}}}}}}},
            {"param_data_offset", 800},
            {"trailing_bytes", {1, 2}},
            {"lut3d_size", 33}};
  const CalibrationFile f = parseDescription(j, "d.json", ".");
  EXPECT_EQ(f.luts.size(), 2u);
  EXPECT_EQ(f.scenes[0].luxBands[0].ccts[1].index, 5);
  EXPECT_EQ(f.scenes[0].declaredSize, 200);
  EXPECT_EQ(f.paramDataOffset, 800);
  EXPECT_EQ(f.trailingBytes, (std::vector<uint8_t>{1, 2}));
  EXPECT_EQ(f.lut3dSize, 33);
}

TEST(DescriptionJson, ShadingFloatsAcceptEverySpelling) {
  json j = twoScenes();
  j["shadings"]["flat"] = {"0x3f800000", "inf", "-inf", 0.25, 0, 0, 0, "nan"};
  const CalibrationFile f = parseDescription(j, "d.json", ".");
  EXPECT_EQ(f.shadings[0][0], 1.0f);
  EXPECT_TRUE(std::isinf(f.shadings[0][1]));
  EXPECT_TRUE(std::isnan(f.shadings[0][7]));
}

TEST(DescriptionJson, ErrorsNameTheField) {
  struct Case {
    const char* what;
    void (*change)(json&);
    const char* expected;
  } cases[] = {
      {"unknown look", [](json& j) { j["scenes"][1]["lux"][0]["cct"][0]["lut"] = "wram"; },
       "d.json: field \"scenes[1].lux[0].cct[0].lut\": no entry \"wram\" in \"looks\""},
      {"unknown key", [](json& j) { j["scenes"][0]["colour"] = 1; },
       "d.json: field \"scenes[0].colour\": unknown field (known: name, lux, declared_size)"},
      {"bad look control", [](json& j) { j["looks"]["warm"]["generate"]["warmth"] = 1; },
       "d.json: field \"looks.warm.generate.warmth\": unknown look control (known: exposure, "
       "temperature, tint, contrast, saturation, shadows, highlights, fade, gamma)"},
      {"band limit out of range", [](json& j) { j["scenes"][0]["lux"][0]["end"] = 70000; },
       "d.json: field \"scenes[0].lux[0].end\": expected an integer in 0..65535, got 70000"},
      {"short shading",
       [](json& j) {
         j["shadings"]["flat"] = {1, 2};
       },
       "d.json: field \"shadings.flat\": expected an array of 8 floats (SmoothStartValue, "
       "SmoothEndValue, SmoothCoordScale, SmoothValueScale, LightDarkPreserveK, "
       "LightDarkPreserveB, LightDarkPreserveV, LightDarkPreserveT)"},
      {"long scene name", [](json& j) { j["scenes"][0]["name"] = std::string(64, 'x'); },
       "d.json: field \"scenes[0].name\": at most 63 bytes fit, got 64"},
      {"missing cube",
       [](json& j) {
         j["looks"]["cool"] = {{"cube", "/nonexistent/x.cube"}};
       },
       "d.json: field \"looks.cool.cube\": /nonexistent/x.cube: cannot open .cube file"},
      {"index into named looks", [](json& j) { j["scenes"][0]["lux"][0]["cct"][0]["lut"] = 0; },
       "d.json: field \"scenes[0].lux[0].cct[0].lut\": \"looks\" are named: refer to them by name"},
  };
  for (const auto& c : cases) {
    json j = twoScenes();
    c.change(j);
    EXPECT_EQ(errorOf(j), c.expected) << c.what;
  }
}
