// Image files and conversions: round trips through PNG, JPEG and raw dumps,
// geometry checks on raw data, and the full-range BT.601 conversion.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <filesystem>
#include <fstream>

#include "failure.h"
#include "image_files.h"
#include "yuv_convert.h"

namespace fs = std::filesystem;
using namespace lumo;

namespace {

class ImageIoTest : public ::testing::Test {
protected:
  void SetUp() override {
    m_dir = fs::temp_directory_path() /
            ("lumo_image_io_" + std::to_string(::testing::UnitTest::GetInstance()->random_seed()) +
             "_" + ::testing::UnitTest::GetInstance()->current_test_info()->name());
    fs::remove_all(m_dir);
    fs::create_directories(m_dir);
  }
  void TearDown() override { fs::remove_all(m_dir); }
  std::string path(const std::string& name) const { return (m_dir / name).string(); }
  fs::path m_dir;
};

Image gradient(uint32_t w, uint32_t h, uint32_t stride = 0) {
  Image img = makeImage({PixelFormat::Rgba, w, h, stride, 0});
  for (uint32_t y = 0; y < h; ++y)
    for (uint32_t x = 0; x < w; ++x) {
      uint8_t* p = img.row(y) + 4 * x;
      p[0] = uint8_t(x * 255 / std::max(1u, w - 1));
      p[1] = uint8_t(y * 255 / std::max(1u, h - 1));
      p[2] = uint8_t((x + y) * 7);
      p[3] = uint8_t(200 + (x % 50));
    }
  return img;
}

void writeBytes(const std::string& p, size_t n, uint8_t value = 0) {
  std::ofstream(p, std::ios::binary) << std::string(n, char(value));
}

}  // namespace

TEST_F(ImageIoTest, PngKeepsEveryRgbaByteAndDropsStridePadding) {
  const Image in = gradient(37, 21, 40);
  writeImage(path("g.png"), in);
  const Image out = readImage(path("g.png"));
  ASSERT_EQ(out.geometry.width, 37u);
  ASSERT_EQ(out.geometry.height, 21u);
  EXPECT_EQ(out.geometry.stride, 37u);
  for (uint32_t y = 0; y < 21; ++y)
    ASSERT_EQ(0, std::memcmp(out.row(y), in.row(y), 37 * 4)) << "row " << y;
}

TEST_F(ImageIoTest, JpegRoundTripStaysCloseOnSmoothContent) {
  const Image in = gradient(64, 48);
  writeImage(path("g.jpg"), in, 98);
  const Image back = readImage(path("g.jpg"));
  ASSERT_EQ(back.geometry.width, 64u);
  double err = 0;
  for (uint32_t y = 0; y < 48; ++y)
    for (uint32_t x = 0; x < 64; ++x)
      for (int c = 0; c < 3; ++c) err += std::abs(back.row(y)[4 * x + c] - in.row(y)[4 * x + c]);
  EXPECT_LT(err / (64 * 48 * 3), 4.0);
  EXPECT_EQ(back.row(5)[4 * 5 + 3], 255);  // JPEG has no alpha
}

TEST_F(ImageIoTest, RawDumpGeometryComesFromItsName) {
  // 6x4 NV21 with stride 8 and scanline 6: Y 8*6, chroma 8*3 bytes.
  const std::string p = path("dump_[lumofilter]_frame[3]_input_6x4_8_6.nv21");
  std::vector<uint8_t> bytes(8 * 6 + 8 * 3);
  for (size_t i = 0; i < bytes.size(); ++i) bytes[i] = uint8_t(i);
  std::ofstream(p, std::ios::binary).write(reinterpret_cast<char*>(bytes.data()), bytes.size());
  const Image img = readImage(p);
  EXPECT_EQ(img.geometry.format, PixelFormat::Nv21);
  EXPECT_EQ(img.geometry.width, 6u);
  EXPECT_EQ(img.geometry.height, 4u);
  EXPECT_EQ(img.geometry.stride, 8u);
  EXPECT_EQ(img.geometry.scanline, 6u);
  EXPECT_EQ(img.row(1)[0], 8);         // second Y row starts at the stride
  EXPECT_EQ(img.chromaRow(0)[0], 48);  // chroma starts after scanline rows
}

TEST_F(ImageIoTest, RawSizeMustMatchTheGeometry) {
  struct Case {
    std::string name;
    size_t bytes;
    bool ok;
  } cases[] = {
      {"a_6x4_8.nv21", 8 * 4 + 8 * 2, true},    // scanline = height
      {"b_6x3_8_6.nv12", 8 * 6 + 8 * 3, true},  // chroma keeps padding rows
      {"c_6x3_8_6.nv12", 8 * 6 + 8 * 2, true},  // chroma stops at its last used row
      {"d_6x4_8.nv21", 8 * 4 + 8 * 2 + 1, false}, {"e_6x4_8.rgba", 8 * 4 * 4, true},
      {"f_6x4_8.rgba", 6 * 4 * 4, false},
  };
  for (const auto& c : cases) {
    writeBytes(path(c.name), c.bytes);
    if (c.ok) {
      EXPECT_NO_THROW(readImage(path(c.name))) << c.name;
    } else {
      try {
        readImage(path(c.name));
        ADD_FAILURE() << c.name << " was accepted";
      } catch (const Failure& e) {
        EXPECT_NE(std::string(e.what()).find("bytes do not match"), std::string::npos) << e.what();
        EXPECT_NE(std::string(e.what()).find(c.name), std::string::npos) << e.what();
      }
    }
  }
}

TEST_F(ImageIoTest, UnreadableInputsNameTheFile) {
  writeBytes(path("broken.png"), 100, 7);
  writeBytes(path("broken.jpg"), 100, 7);
  writeBytes(path("nosize.nv21"), 96);
  for (const char* name : {"broken.png", "broken.jpg", "nosize.nv21", "missing.png"}) {
    try {
      readImage(path(name));
      ADD_FAILURE() << name << " was accepted";
    } catch (const Failure& e) {
      EXPECT_EQ(std::string(e.what()).rfind(path(name), 0), 0u) << e.what();
    }
  }
}

TEST_F(ImageIoTest, FailedWritesLeaveNothingBehind) {
  Image tooBig = gradient(4, 4);
  EXPECT_THROW(writeImage(path("nodir/x.png"), tooBig), Failure);
  writeImage(path("ok.png"), tooBig);
  size_t files = 0;
  for (const auto& e : fs::directory_iterator(m_dir)) {
    ++files;
    EXPECT_EQ(e.path().filename(), "ok.png");
  }
  EXPECT_EQ(files, 1u);
}

TEST_F(ImageIoTest, RawWriteConvertsToTheFormatItsNameSays) {
  const Image rgba = gradient(6, 4);
  writeImage(path("x_6x4_6.nv12"), rgba);
  EXPECT_EQ(fs::file_size(path("x_6x4_6.nv12")), 6u * 4 + 6 * 2);
  const Image nv12 = readImage(path("x_6x4_6.nv12"));
  const Image nv21 = convertImage(nv12, PixelFormat::Nv21);
  EXPECT_EQ(nv21.chromaRow(1)[2], nv12.chromaRow(1)[3]);
  EXPECT_EQ(nv21.chromaRow(1)[3], nv12.chromaRow(1)[2]);
}

// Full-range BT.601 as JFIF defines it, written out independently.
TEST(YuvConvert, ReferenceFollowsJfifOnKnownColours) {
  struct Case {
    uint8_t r, g, b, y, u, v;
  } cases[] = {
      {0, 0, 0, 0, 128, 128},   {255, 255, 255, 255, 128, 128}, {255, 0, 0, 76, 85, 255},
      {0, 255, 0, 150, 44, 21}, {0, 0, 255, 29, 255, 107},      {128, 128, 128, 128, 128, 128},
  };
  for (const auto& c : cases) {
    Image rgba = makeImage({PixelFormat::Rgba, 2, 2, 0, 0});
    for (uint32_t y = 0; y < 2; ++y)
      for (uint32_t x = 0; x < 2; ++x) {
        rgba.row(y)[4 * x] = c.r;
        rgba.row(y)[4 * x + 1] = c.g;
        rgba.row(y)[4 * x + 2] = c.b;
      }
    Image nv21 = makeImage({PixelFormat::Nv21, 2, 2, 0, 0});
    rgbaToYuvReference(rgba, nv21);
    EXPECT_EQ(nv21.row(1)[1], c.y) << int(c.r) << "," << int(c.g) << "," << int(c.b);
    EXPECT_EQ(nv21.chromaRow(0)[1], c.u);  // NV21 stores V first
    EXPECT_EQ(nv21.chromaRow(0)[0], c.v);
  }
}

TEST(YuvConvert, ChromaIsTheMeanOfTheCoveredPixelsIncludingOddEdges) {
  // 3x1 image: the second chroma sample covers only the third pixel.
  Image rgba = makeImage({PixelFormat::Rgba, 3, 1, 0, 0});
  const uint8_t px[3][3] = {{255, 0, 0}, {0, 0, 255}, {0, 255, 0}};
  for (int x = 0; x < 3; ++x)
    for (int c = 0; c < 3; ++c) rgba.row(0)[4 * x + c] = px[x][c];
  Image nv12 = makeImage({PixelFormat::Nv12, 3, 1, 4, 0});
  rgbaToYuvReference(rgba, nv12);
  // U of red 84.972, of blue 255.5: mean 170.236. V of red 255.5, of blue 107.265: 181.383.
  EXPECT_EQ(nv12.chromaRow(0)[0], 170);
  EXPECT_EQ(nv12.chromaRow(0)[1], 181);
  EXPECT_EQ(nv12.chromaRow(0)[2], 44);  // green alone: U 43.528
  EXPECT_EQ(nv12.chromaRow(0)[3], 21);  // V 21.235
}

TEST(YuvConvert, FastPathAgreesWithTheReferenceWithinTwoCodeValues) {
  for (PixelFormat f : {PixelFormat::Nv21, PixelFormat::Nv12}) {
    Image yuv = makeImage({f, 33, 17, 40, 20});
    uint32_t seed = 12345;
    for (auto& b : yuv.bytes) {
      seed = seed * 1103515245u + 12345u;
      b = uint8_t(seed >> 16);
    }
    Image ref = makeImage({PixelFormat::Rgba, 33, 17, 0, 0});
    Image fast = makeImage({PixelFormat::Rgba, 33, 17, 0, 0});
    yuvToRgbaReference(yuv, ref);
    yuvToRgbaFast(yuv, fast);
    int worst = 0;
    for (size_t i = 0; i < ref.bytes.size(); ++i)
      worst = std::max(worst, std::abs(int(ref.bytes[i]) - int(fast.bytes[i])));
    EXPECT_LE(worst, 2) << formatName(f);
  }
}
