// Picture LUTs: every layout written from a known look is detected from the
// picture alone and reads back as that look; a forced layout wins; pictures
// no layout fits are refused with their size.
#include <calib/image_lut.h>
#include <calib/looks.h>
#include <calib/lut_source.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>

#include "image_files.h"
#include "lut_doctor.h"
#include "tool_runner.h"

using namespace lumo;

namespace {

const calib::LookParams kWarm{.temperature = 0.5, .contrast = 0.3, .saturation = 1.2};

// The look written as a picture in `layout`.
Image pictureOf(const calib::ImageLayout& layout, int width, int height) {
  Image image = makeImage({PixelFormat::RGBA, uint32_t(width), uint32_t(height), 0, 0});
  const int n = layout.edge;
  for (int b = 0; b < n; ++b)
    for (int g = 0; g < n; ++g)
      for (int r = 0; r < n; ++r) {
        int x, y;
        if (layout.kind == calib::ImageLayout::Kind::Hald) {
          const int i = r + n * (g + n * b);
          x = i % width, y = i / width;
        } else {
          x = (b % layout.columns) * n + r;
          y = (b / layout.columns) * n + (layout.greenUp ? n - 1 - g : g);
        }
        const auto c = calib::applyLook(kWarm, {r / (n - 1.0), g / (n - 1.0), b / (n - 1.0)});
        uint8_t* px = image.row(uint32_t(y)) + 4 * x;
        for (int k = 0; k < 3; ++k) px[k] = uint8_t(std::lround(c[k] * 255));
      }
  return image;
}

int maxDifference(const calib::LutBlock& a, const calib::LutBlock& b) {
  int worst = 0;
  for (size_t i = 0; i < a.size(); ++i) worst = std::max(worst, std::abs(a[i] - b[i]));
  return worst;
}

}  // namespace

class PictureLut : public lumo_test::ScratchTest {};

TEST_F(PictureLut, EveryLayoutIsDetectedAndReadsBackAsTheLook) {
  using K = calib::ImageLayout::Kind;
  const struct {
    calib::ImageLayout layout;
    int width, height;
    std::string name;
  } cases[] = {
      {{K::Hald, 16, 0, false}, 64, 64, "hald level 4"},
      {{K::Tiles, 16, 4, false}, 64, 64, "tiles 4x4"},
      {{K::Tiles, 16, 16, false}, 256, 16, "strip 16x1"},
      {{K::Tiles, 16, 1, false}, 16, 256, "strip 1x16"},
      {{K::Tiles, 32, 32, true}, 1024, 32, "strip 32x1, green upwards"},
  };
  const std::string p = path("layout.png");
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    writeImage(p, pictureOf(c.layout, c.width, c.height));
    const calib::LutImport got = calib::importLut(p);
    EXPECT_EQ(got.info.format, "image");
    EXPECT_EQ(got.info.dialect, c.name);
    EXPECT_EQ(got.info.size3d, c.layout.edge);
    // A 16-point lattice misses the curve between its points by a few code values.
    EXPECT_LE(maxDifference(got.lut, calib::generateLook(kWarm)), 5);
    EXPECT_LT(got.error.mean, 1.0);
  }
}

TEST_F(PictureLut, AForcedLayoutWinsAndUnfitPicturesAreRefused) {
  // 64x64 is both a Hald level 4 and 4x4 tiles of 16; forcing Hald reads the
  // tiles picture as Hald, which scrambles the look.
  const std::string p = path("forced.jpg");
  writeImage(p, pictureOf({calib::ImageLayout::Kind::Tiles, 16, 4, false}, 64, 64), 98);
  EXPECT_EQ(calib::importLut(p).info.dialect, "tiles 4x4");
  const calib::LutImport forced = calib::importLut(p, "hald");
  EXPECT_EQ(forced.info.dialect, "hald level 4");
  EXPECT_GT(maxDifference(forced.lut, calib::generateLook(kWarm)), 40);
  // layout, width, height, start of the message; the largest picture only
  // declares its size (decoding it would need 1 GB: decided from the size alone).
  const std::tuple<std::string, uint32_t, uint32_t, std::string> refused[] = {
      {"", 50, 40, "50x40 pixels fit no LUT layout"},
      {"strip", 64, 64, "64x64 pixels fit no strip layout"},
      {"diagonal", 64, 64, "layout \"diagonal\": expected auto, hald, tiles, tiles-up or strip"},
      {"", 16384, 16384, "16384x16384 pixels fit no LUT layout"},
  };
  const std::string q = path("refused.png");
  for (const auto& [layout, width, height, message] : refused) {
    if (width > 4096)
      lumo_test::declaringSize(q, width, height);
    else
      writeImage(q, makeImage({PixelFormat::RGBA, width, height, 0, 0}));
    EXPECT_THAT([&] { calib::importLut(q, layout); }, testing::ThrowsMessage<std::runtime_error>(
                                                          testing::StartsWith(q + ": " + message)));
  }
}

TEST_F(PictureLut, ALayoutTheRoundTripCannotConfirmIsFlagged) {
  // A flat grey picture reads the same in every layout its size allows.
  Image grey = makeImage({PixelFormat::RGBA, 64, 64, 0, 0});
  for (size_t i = 0; i < grey.bytes.size(); ++i) grey.bytes[i] = (i % 4 == 3) ? 255 : 120;
  const std::string p = path("grey.png");
  writeImage(p, grey);
  std::vector<std::string> codes;
  for (const auto& problem : diagnoseLut(p).problems) codes.push_back(problem.rule);
  EXPECT_EQ(codes, (std::vector<std::string>{"layout-ambiguous", "near-constant"}));
  // Forcing Hald leaves a single candidate: nothing to doubt.
  EXPECT_TRUE(calib::importLut(p, "hald").info.layoutDoubt.empty());
}
