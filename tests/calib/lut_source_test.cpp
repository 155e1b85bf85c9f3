// LUT sources of every format and size: files baked by OpenColorIO's own
// writers read back onto the 17-point lattice, dialect and header facts,
// domains, lattice-order detection, what the doctor flags, and reader
// faults made by breaking a good file one field at a time.
#include <OpenColorIO/OpenColorIO.h>
#include <calib/looks.h>
#include <calib/lut_source.h>
#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <fstream>
#include <functional>
#include <sstream>

#include "calib_bytes.h"

using namespace calib;
namespace fs = std::filesystem;
namespace OCIO = OCIO_NAMESPACE;

namespace {

fs::path writeFile(const std::string& name, const std::string& text) {
  const fs::path p = fs::temp_directory_path() / ("lumo_lut_test_" + name);
  std::ofstream(p, std::ios::binary) << text;
  return p;
}

// A curved, channel-mixing transform that OpenColorIO evaluates exactly.
OCIO::CDLTransformRcPtr curvedLook() {
  OCIO::CDLTransformRcPtr cdl = OCIO::CDLTransform::Create();
  // Kept inside 0..1: clipping puts kinks between lattice points that no
  // lattice holds, which would hide what is being measured here.
  const double slope[3] = {0.9, 0.95, 0.8}, offset[3] = {0.05, 0.02, 0.1};
  const double power[3] = {1.4, 0.8, 1.1};
  cdl->setSlope(slope);
  cdl->setOffset(offset);
  cdl->setPower(power);
  cdl->setSat(0.7);  // mixes channels, so no writer can reduce it to 1D tables
  return cdl;
}

OCIO::ConstConfigRcPtr lookConfig() {
  OCIO::ConfigRcPtr config = OCIO::Config::CreateRaw()->createEditableCopy();
  // The raw config's own space holds data, which colour conversions pass through.
  OCIO::ColorSpaceRcPtr source = OCIO::ColorSpace::Create();
  source->setName("source");
  config->addColorSpace(source);
  OCIO::ColorSpaceRcPtr look = OCIO::ColorSpace::Create();
  look->setName("look");
  look->setTransform(curvedLook(), OCIO::COLORSPACE_DIR_FROM_REFERENCE);
  config->addColorSpace(look);
  OCIO::ColorSpaceRcPtr shaper = OCIO::ColorSpace::Create();
  shaper->setName("shaper");
  OCIO::ExponentTransformRcPtr gamma = OCIO::ExponentTransform::Create();
  const double g[4] = {2.2, 2.2, 2.2, 1};
  gamma->setValue(g);
  gamma->setDirection(OCIO::TRANSFORM_DIR_INVERSE);
  shaper->setTransform(gamma, OCIO::COLORSPACE_DIR_FROM_REFERENCE);
  config->addColorSpace(shaper);
  return config;
}

// The look at our lattice points, as exactly as OpenColorIO computes it.
LutBlock exactBlock() {
  std::vector<float> p;
  for (int b = 0; b < 17; ++b)
    for (int g = 0; g < 17; ++g)
      for (int r = 0; r < 17; ++r)
        for (int c : {r, g, b}) p.push_back(float(c) / 16);
  auto cpu = lookConfig()->getProcessor("source", "look")->getDefaultCPUProcessor();
  OCIO::PackedImageDesc image(p.data(), long(p.size() / 3), 1, 3);
  cpu->apply(image);
  LutBlock out;
  for (float v : p) out.push_back(uint8_t(std::lround(std::fmin(std::fmax(v, 0.f), 1.f) * 255)));
  return out;
}

std::string bake(const char* format, int size, bool shaper) {
  OCIO::BakerRcPtr baker = OCIO::Baker::Create();
  baker->setConfig(lookConfig());
  baker->setFormat(format);
  baker->setInputSpace("source");
  baker->setTargetSpace("look");
  if (shaper) {
    baker->setShaperSpace("shaper");
    baker->setShaperSize(256);
  }
  baker->setCubeSize(size);
  std::ostringstream out;
  baker->bake(out);
  return out.str();
}

int maxDifference(const LutBlock& a, const LutBlock& b) {
  int worst = 0;
  for (size_t i = 0; i < a.size() && i < b.size(); ++i)
    worst = std::max(worst, std::abs(a[i] - b[i]));
  return worst;
}

// A .cube text of `edge` points from f(r, g, b), rows written in the given order.
std::string cubeOf(int edge, const std::function<std::array<double, 3>(double, double, double)>& f,
                   bool blueFastest = false, const std::string& header = "") {
  std::string text = header + "LUT_3D_SIZE " + std::to_string(edge) + "\n";
  char row[96];
  for (int s = 0; s < edge; ++s)
    for (int m = 0; m < edge; ++m)
      for (int q = 0; q < edge; ++q) {
        const int r = blueFastest ? s : q, b = blueFastest ? q : s;
        const auto v = f(r / double(edge - 1), m / double(edge - 1), b / double(edge - 1));
        std::snprintf(row, sizeof(row), "%.6f %.6f %.6f\n", v[0], v[1], v[2]);
        text += row;
      }
  return text;
}

std::array<double, 3> identity(double r, double g, double b) { return {r, g, b}; }
std::array<double, 3> warm(double r, double g, double b) {
  return applyLook(LookParams{.temperature = 0.6, .contrast = 0.3}, {r, g, b});
}

}  // namespace

// Lattices of 17 points hold our points; larger ones contain them, so the
// curved look survives to the code value.
TEST(LutSource, FilesBakedByOpenColorIOReadBack) {
  const std::pair<const char*, const char*> formats[] = {{"iridas_cube", ".cube"},
                                                         {"resolve_cube", ".cube"},
                                                         {"flame", ".3dl"},
                                                         {"cinespace", ".csp"},
                                                         {"Academy/ASC Common LUT Format", ".clf"},
                                                         {"Color Transform Format", ".ctf"}};
  const LutBlock exact = exactBlock();
  for (const auto& [format, extension] : formats) {
    for (int size : {17, 33}) {
      SCOPED_TRACE(std::string(format) + " " + std::to_string(size));
      // OpenColorIO's Resolve writer leaves the lattice out without a shaper;
      // a Resolve file keeps its title and its shaper, which is baked in.
      const bool resolve = std::string(format) == "resolve_cube";
      const fs::path p =
          writeFile("baked_" + std::to_string(size) + extension,
                    (resolve ? "TITLE \"graded look\"\n" : "") + bake(format, size, resolve));
      const LutImport got = importLut(p.string());
      EXPECT_EQ(got.info.format + " " + std::to_string(got.info.size3d),
                format + (" " + std::to_string(size)));
      if (resolve) {
        EXPECT_EQ(got.info.dialect + ", " + got.info.title, "Resolve, graded look");
        EXPECT_GT(got.info.size1d, 0);
      }
      EXPECT_LE(maxDifference(got.lut, exact), resolve ? 3 : 1);
      // The block against the file itself over the dense grid: never exact, as it holds bytes.
      EXPECT_GT(got.error.mean, 0.0);
      EXPECT_LT(got.error.max, 6.0);
      EXPECT_FALSE(looksBlueFastest(got.info.lattice, size));
      fs::remove(p);
    }
  }
}

// Lattice order, domains and suspect values are flagged. A lattice over 0..2
// that doubles its input is the identity only when its domain is honoured.
TEST(LutSource, LatticeOrderAndSuspectValuesAreFlagged) {
  const auto constant = [](double, double, double) { return std::array<double, 3>{0.4, 0.4, 0.4}; };
  const auto loud = [](double r, double g, double b) {
    return std::array<double, 3>{1.4 * r - 0.1, g, b};
  };
  const auto nearId = [](double r, double g, double b) {
    return std::array<double, 3>{0.998 * r + 0.001, g, b};
  };
  const auto twice = [](double r, double g, double b) {
    return std::array<double, 3>{2 * r, 2 * g, 2 * b};
  };
  // Identity when the domain is honoured; the file's values reach 2.
  const std::vector<std::string> kDomain = {"domain", "out-of-range", "near-identity"};
  const struct {
    const char* name;
    std::string text;
    std::vector<std::string> codes;
  } cases[] = {
      {"plain", cubeOf(17, warm, false, "TITLE an unquoted title\n"), {}},
      {"transposed_look", cubeOf(33, warm, true), {"blue-fastest"}},
      {"identity", cubeOf(33, identity), {"near-identity"}},
      {"near_identity", cubeOf(9, nearId), {"near-identity"}},
      {"constant", cubeOf(5, constant), {"near-constant"}},
      {"out_of_range", cubeOf(9, loud), {"out-of-range"}},
      {"domain", cubeOf(9, twice, false, "DOMAIN_MIN 0 0 0\nDOMAIN_MAX 2 2 2\n"), kDomain},
      {"input_range", cubeOf(9, twice, false, "LUT_3D_INPUT_RANGE 0 2\n"), kDomain},
      {"nan", "LUT_3D_SIZE 2\nnan 1 1\n0 1 1\n1 0 1\n0 0 1\n1 1 0\n0 1 0\n1 0 0\n0 0 0\n", {"nan"}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    const fs::path p = writeFile(std::string("order_") + c.name + ".cube", c.text);
    std::vector<std::string> codes;
    for (const Finding& problem : lutProblems(importLut(p.string()))) codes.push_back(problem.rule);
    EXPECT_EQ(codes, c.codes);
    fs::remove(p);
  }
}

TEST(LutSource, EachBrokenFieldNamesTheFileAndWhatWasWrong) {
  const auto broken = [](const std::string& from, const std::string& to) {
    std::string text = cubeOf(2, identity, false, "TITLE \"good\"\n");
    return text.replace(text.rfind(from), from.size(), to);
  };
  const struct {
    const char* name;
    std::string text;
    // After "FILE: cannot read .EXT file: " (but for a kind no reader takes); NAME is the
    // file's name. OpenColorIO's own complaints pass through as they are.
    std::string expected;
  } cases[] = {
      {"size_any_case.cube", broken("LUT_3D_SIZE 2", "Lut_3D_Size 888"),
       "line 2: Lut_3D_Size: expected an integer 2 to 129, got \"888\""},
      {"shaper_huge.cube", broken("LUT_3D_SIZE 2", "LUT_1D_SIZE 1e9\nLUT_3D_SIZE 2"),
       "line 2: LUT_1D_SIZE: expected an integer 2 to 65536, got \"1e9\""},
      {"utf16.cube", broken("TITLE", "\xFF\xFETITLE"),
       "the file is UTF-16 (it starts with a byte-order mark); save it as UTF-8"},
      {"utf16_unmarked.cube", broken("TITLE", std::string("T\0I\0T\0L\0E\0", 10)),
       "the file is UTF-16 (every other byte is zero); save it as UTF-8"},
      {"short_table.cube", broken("1.000000 1.000000 1.000000\n", ""),
       "Error parsing Iridas .cube file (NAME).  Incorrect number of 3D LUT entries. Found 7, "
       "expected 8."},
      {"domain_short.cube", broken("TITLE \"good\"", "DOMAIN_MIN 0 0"),
       "line 1: DOMAIN_MIN: expected three numbers, got \"DOMAIN_MIN 0 0\""},
      {"row_first.cube", broken("TITLE \"good\"", "99999999999 0 0"),
       "line 1: a table row before LUT_3D_SIZE or LUT_1D_SIZE"},
      {"domain_empty.cube", broken("TITLE \"good\"", "DOMAIN_MIN 0 0 1\nDOMAIN_MAX 1 1 1"),
       "DOMAIN_MAX must exceed DOMAIN_MIN in every channel (channel B: 1.000000 .. 1.000000)"},
      {"look.xyz", "1 2 3\n",
       "not a LUT format this tool reads (extension \".xyz\"; see docs/calibration.md)"},
      // A lattice past the largest is refused before any entry is read.
      {"huge.spi3d", "SPILUT 1.0\n3 3\n130 130 130\n0 0 0 0 0 0\n",
       "LUT 3D: Grid size '130' must not be greater than '129'."},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    const fs::path p = writeFile(c.name, c.text);
    const std::string ext = p.extension().string();
    std::string expected = (ext == ".xyz" ? "" : "cannot read " + ext + " file: ") + c.expected;
    if (const size_t n = expected.find("NAME"); n != std::string::npos)
      expected.replace(n, 4, p.filename().string());
    EXPECT_EQ(calib_test::thrownBy([&] { importLut(p.string()); }), p.string() + ": " + expected);
    fs::remove(p);
  }
}

TEST(LutSource, TransformsWithoutALatticeAreEvaluatedExactly) {
  const fs::path p = writeFile("mix_red.clf", R"(<?xml version="1.0" encoding="UTF-8"?>
<ProcessList id="mix" compCLFversion="3">
  <Matrix inBitDepth="32f" outBitDepth="32f">
    <Array dim="3 3">0.5 0.5 0 0 1 0 0 0 1</Array>
  </Matrix>
</ProcessList>
)");
  const LutImport got = importLut(p.string());
  EXPECT_EQ(got.info.size3d, 0);
  EXPECT_TRUE(got.info.lattice.empty());
  EXPECT_EQ(describeImport(got).find("no 3D lattice; transform evaluated at the 17-point lattice"),
            std::string("Academy/ASC Common LUT Format: ").size());
  for (int r = 0; r < 17; ++r) {
    const size_t at = 3 * size_t(r);  // green = blue = 0
    EXPECT_EQ(got.lut[at], uint8_t(std::lround(127.5 * r / 16)));
  }
  // A linear transform is held exactly by the lattice: only 8-bit rounding remains, which
  // a cell's corners taken in the wrong order (negative weights) would amplify.
  EXPECT_LE(got.error.max, 0.5 + 1e-6);
  fs::remove(p);
}
