// The effect-script parser: what it understands, what it disables with a
// warning and what it refuses as a whole.
#include "effect_script.h"

#include <gtest/gtest.h>

#include <cmath>

namespace lumo::render {
namespace {

const char* kPluginScript =
    "CubeLutEffect;cube_strength=1.0;lut_type=1.0;@CvStyleEffect;Width=4000;Height=3000;"
    "SmoothStartValue=0.100000;SmoothEndValue=0.900000;SmoothCoordScale=1.000000;"
    "SmoothValueScale=0.250000;LightDarkPreserveK=1.500000;LightDarkPreserveB=-0.200000;"
    "LightDarkPreserveV=0.000000;LightDarkPreserveT=12.000000;";

TEST(EffectScript, ReadsThePluginsScript) {
  const ScriptResult r = parseEffectScript(kPluginScript);
  ASSERT_TRUE(r.ok) << r.error;
  EXPECT_TRUE(r.warnings.empty());
  ASSERT_EQ(r.chain.order, (std::vector<EffectKind>{EffectKind::Lut, EffectKind::Style}));
  EXPECT_EQ(r.chain.luts[0].strength, 1.0);
  EXPECT_FALSE(r.chain.luts[0].hasLattice);
  const StyleEffect& s = r.chain.styles[0];
  const double got[] = {s.width,      s.height,    s.smoothStart, s.smoothEnd, s.coordScale,
                        s.valueScale, s.preserveK, s.preserveB,   s.preserveV, s.preserveT};
  const double want[] = {4000, 3000, 0.1, 0.9, 1.0, 0.25, 1.5, -0.2, 0.0, 12.0};
  for (int i = 0; i < 10; ++i) EXPECT_EQ(got[i], want[i]) << "field " << i;
}

// Accepted scripts give their effects and warnings; refused ones leave no
// effects and say why.
TEST(EffectScript, AcceptedAndRefusedShapes) {
  const std::tuple<const char*, size_t, size_t, const char*> cases[] = {
      // script, effects, warnings, error
      {"", 0, 0, ""},
      {"CubeLutEffect;;cube_strength = 0.5 ;;", 1, 0, ""},
      {"CvStyleEffect;", 1, 0, ""},
      {"CubeLutEffect;cube_strength=2;", 1, 1, ""},    // clamped
      {"CubeLutEffect;cube_strength=nan;", 1, 1, ""},  // kept, but changes nothing
      {"CubeLutEffect;colour=3;", 1, 1, ""},           // unknown key
      {"CubeLutEffect;@CvStyleEffect;SmoothStartValue=-inf;SmoothEndValue=nan;", 1, 1, ""},
      {"CvStyleEffect;SmoothStartValue=1e999;", 0, 1, ""},  // out of range reads as infinity
      {"Sepia;", 0, 0, "unknown effect \"Sepia\""},
      {"CubeLutEffect;@", 0, 0, "effect without a name"},
      {"CubeLutEffect;cube_strength", 0, 0, "CubeLutEffect: \"cube_strength\" is not key=value"},
      {"CubeLutEffect;cube_strength=abc", 0, 0,
       "CubeLutEffect: cube_strength is not a number: \"abc\""},
      {"CubeLutEffect;=1", 0, 0, "CubeLutEffect: empty key"},
      {"CubeLutEffect;lut_type=2.0;", 0, 0,
       "CubeLutEffect: unsupported lut_type 2.000000 (only 1, an uploaded 17-point lattice)"},
      {"@@@@@@@@@@@@@@@@@", 0, 0, "more than 16 effects"},
  };
  for (const auto& [script, effects, warnings, error] : cases) {
    const ScriptResult r = parseEffectScript(script);
    EXPECT_EQ(r.ok, *error == '\0') << script;
    EXPECT_EQ(r.error, error) << script;
    EXPECT_EQ(r.chain.size(), effects) << script;
    EXPECT_EQ(r.warnings.size(), warnings) << script;
  }
  EXPECT_EQ(parseEffectScript("CubeLutEffect;cube_strength=2;").chain.luts[0].strength, 1.0);
  EXPECT_EQ(parseEffectScript("CubeLutEffect;cube_strength=-nan;").chain.luts[0].strength, 0.0);
  std::string sixteen = "CvStyleEffect";  // the most effects a script may hold
  for (int i = 1; i < 16; ++i) sixteen += "@CvStyleEffect";
  EXPECT_EQ(parseEffectScript(sixteen).chain.size(), 16u);
}

TEST(EffectScript, ANumberIsTheWholeText) {
  const std::pair<const char*, double> accepted[] = {
      {"0.100000", 0.1}, {"12", 12},        {"-3.5", -3.5},      {"+2", 2},    {" 7 ", 7},
      {"1e3", 1000},     {"inf", INFINITY}, {"-inf", -INFINITY}, {"nan", NAN}, {"-nan", NAN}};
  for (const auto& [text, value] : accepted) {
    double v = -99;
    EXPECT_TRUE(parseNumber(text, v)) << text;
    EXPECT_TRUE(v == value || (std::isnan(v) && std::isnan(value))) << text << ": " << v;
  }
  for (const char* text : {"", "1,5", "0x10", "1 2", "--1"}) {
    double v = 0;
    EXPECT_FALSE(parseNumber(text, v)) << text;
  }
}

}  // namespace
}  // namespace lumo::render
