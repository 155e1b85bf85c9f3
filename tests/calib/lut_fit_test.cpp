// Look fitting: generated scenes pushed through known looks (LUTs rendered
// by the renderer's reference arithmetic), fitted, and checked on scenes the
// fit never saw; then the inputs the fit must refuse or flag.
#include <calib/colour_difference.h>
#include <calib/looks.h>
#include <calib/lut_fit.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <functional>
#include <nlohmann/json.hpp>

#include "calib_bytes.h"
#include "color_math.h"
#include "image_files.h"
#include "test_scenes.h"

using namespace calib;
namespace fs = std::filesystem;

namespace {

constexpr int kWidth = 320, kHeight = 240;

RgbImage scene(const std::string& name, int width = kWidth, int height = kHeight) {
  const lumo::Image rgba = lumo::generateScene(name, uint32_t(width), uint32_t(height));
  RgbImage out{width, height, std::vector<uint8_t>(size_t(width) * height * 3)};
  for (int y = 0; y < height; ++y)
    for (int x = 0; x < width; ++x)
      for (int c = 0; c < 3; ++c)
        out.rgb[(size_t(y) * width + x) * 3 + c] = rgba.row(uint32_t(y))[4 * x + c];
  return out;
}

// Every colour of the cube on a jittered grid: the chart that covers the lattice.
RgbImage cubeChart() {
  RgbImage out{256, 256, std::vector<uint8_t>(256 * 256 * 3)};
  uint32_t h = 12345;
  for (uint8_t& v : out.rgb) {
    h = h * 1664525u + 1013904223u;
    v = uint8_t(h >> 24);
  }
  return out;
}

using Look = std::function<RgbImage(const RgbImage&)>;

// A LUT block through the renderer's own tetrahedral look-up and rounding.
Look rendered(const LutBlock& lut) {
  return [lut](const RgbImage& in) {
    RgbImage out = in;
    for (size_t i = 0; i < in.rgb.size(); i += 3) {
      const auto c = lumo::render::lookupTetrahedral<double>(
          lut.data(), {double(in.rgb[i]), double(in.rgb[i + 1]), double(in.rgb[i + 2])});
      out.rgb[i] = lumo::render::toByte(c.r);
      out.rgb[i + 1] = lumo::render::toByte(c.g);
      out.rgb[i + 2] = lumo::render::toByte(c.b);
    }
    return out;
  };
}

// CIEDE2000 of the fitted LUT against the look on a picture the fit never saw.
ErrorStats heldOutError(const LutFit& fit, const RgbImage& before, const RgbImage& after) {
  std::vector<double> e;
  for (size_t i = 0; i < before.rgb.size(); i += 3) {
    const auto got = applyFit(fit, &before.rgb[i]);
    uint8_t out[3];
    for (int c = 0; c < 3; ++c) out[c] = lumo::render::toByte(got[c]);
    e.push_back(ciede2000(srgb8ToLab(out[0], out[1], out[2]),
                          srgb8ToLab(after.rgb[i], after.rgb[i + 1], after.rgb[i + 2])));
  }
  std::sort(e.begin(), e.end());
  ErrorStats s;
  for (const double v : e) s.mean += v / double(e.size());
  s.p99 = e[size_t(0.99 * double(e.size() - 1))];
  return s;
}

}  // namespace

TEST(LutFit, ReproducesAKnownLookOnScenesItNeverSaw) {
  const Look known =
      rendered(generateLook({.temperature = 0.4, .contrast = 0.3, .saturation = 1.2}));
  std::vector<FitPair> pairs;
  for (const RgbImage& before : {cubeChart(), scene("chart"), scene("sunset"), scene("plants")})
    pairs.push_back({"training", before, known(before)});
  const LutFit fit = fitLut(pairs, {17, kChooseSmooth, 2});
  EXPECT_GT(fit.coverage(), 0.99);  // the charts fill every cell
  for (const char* unseen : {"food", "portrait", "night"}) {
    SCOPED_TRACE(unseen);
    const RgbImage before = scene(unseen);
    const ErrorStats e = heldOutError(fit, before, known(before));
    EXPECT_LE(e.mean, 0.5);
    EXPECT_LE(e.p99, 2);
  }
}

TEST(LutFit, InputsItRefusesOrFlags) {
  const RgbImage chart = scene("chart");
  const std::string error = calib_test::thrownBy([&] {
    fitLut({{"a / b", chart, scene("chart", 160, 120)}});
  });
  EXPECT_NE(error.find("a / b: sizes differ: before 320 x 240, after 160 x 120"), std::string::npos)
      << error;
  // A single colour is flagged, and the pixels the fit saw come out as the after picture.
  RgbImage flat{kWidth, kHeight, std::vector<uint8_t>(size_t(kWidth) * kHeight * 3)};
  for (size_t i = 0; i < flat.rgb.size(); i += 3) flat.rgb[i] = 200, flat.rgb[i + 1] = 90;
  RgbImage flatAfter = flat;
  for (size_t i = 0; i < flat.rgb.size(); i += 3) flatAfter.rgb[i + 2] = 40;
  const LutFit fit = fitLut({{"a / b", flat, flatAfter}});
  EXPECT_NE(
      (fitLines(fit).back() + fitJson(fit).dump()).find("only 1 of 4096 lattice cells (0.0%)"),
      std::string::npos);
  EXPECT_LT(fit.training.max, 1.0);
  // The identity's lattice is the identity, not just close on the pictures.
  const LutFit id = fitLut({{"a / b", chart, chart}});
  EXPECT_NE((fitLines(id).back() + fitJson(id).dump()).find("the fit is the identity"),
            std::string::npos);
  const uint8_t corners[][3] = {{0, 0, 0}, {255, 255, 255}, {255, 0, 0}, {0, 255, 128}};
  for (const auto& rgb : corners)
    for (int c = 0; c < 3; ++c) EXPECT_NEAR(applyFit(id, rgb)[c], rgb[c], 0.5);
}

TEST(LutFit, SixteenBitPngIsRefusedByName) {
  // Signature and IHDR of a 16-bit RGB picture: refused before decoding.
  const fs::path p =
      fs::temp_directory_path() / ("lumo_fit_16bit_" + std::to_string(getpid()) + ".png");
  const unsigned char head[] = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1a, '\n', 0, 0,
                                0,    13,  'I', 'H', 'D',  'R',  0,    0,    0, 8,
                                0,    0,   0,   8,   16,   2,    0,    0,    0};
  std::ofstream(p, std::ios::binary).write(reinterpret_cast<const char*>(head), sizeof(head));
  EXPECT_EQ(calib_test::thrownBy([&] { loadFitPair(p.string(), p.string()); }),
            p.string() +
                ": 16-bit PNG: the fit works on 8-bit pictures, as the camera renders "
                "them; save both pictures with 8 bits per channel");
  fs::remove(p);
}
