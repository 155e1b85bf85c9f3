// Host utilities: the plane-aware copy between differently padded buffers
// and the raw image dump under the device root.
#include <gtest/gtest.h>
#include <hostsim/device_root.h>
#include <hostsim/image_buffer.h>
#include <hostsim/log_sink.h>
#include <sys/stat.h>
#include <vyalgo2/PluginUtils.h>
#include <vyalgo2/PluginWraper.h>

#include <filesystem>
#include <fstream>
#include <iterator>

#include "temp_folder.h"

namespace {

using hostsim::ImageBuffer;
using hostsim::ImageGeometry;
using hostsim::PixelLayout;

uint32_t bytesPerPixel(PixelLayout l) { return l == PixelLayout::RGBA8888 ? 4 : 1; }

// Every byte of the buffer gets a value that depends on where it is, so
// a sample copied to the wrong place shows.
void fillPattern(const ImageBuffer& b, uint8_t seed) {
  for (size_t i = 0; i < b.size(); ++i) b.data()[i] = static_cast<uint8_t>(i * 7 + seed);
}

// Pixel (x, y) of a plane, computed from the geometry alone.
uint8_t lumaAt(const ImageBuffer& b, uint32_t x, uint32_t y) {
  const ImageGeometry& g = b.geometry();
  return b.data()[size_t{y} * g.stride * bytesPerPixel(g.layout) + x];
}
uint8_t chromaAt(const ImageBuffer& b, uint32_t x, uint32_t y) {
  const ImageGeometry& g = b.geometry();
  return b.data()[size_t{g.stride} * g.scanline + size_t{y} * g.stride + x];
}

TEST(VyCopyBuffer, CopiesPicturesBetweenDifferentPaddings) {
  struct Case {
    ImageGeometry src, dst;
  };
  const Case cases[] = {
      {{PixelLayout::NV21, 10, 6, 16, 8}, {PixelLayout::NV21, 10, 6, 64, 12}},
      {{PixelLayout::NV12, 10, 6, 64, 12}, {PixelLayout::NV12, 10, 6, 0, 0}},
      {{PixelLayout::NV12, 7, 5, 8, 6}, {PixelLayout::NV12, 7, 5, 32, 10}},
      {{PixelLayout::RGBA8888, 5, 3, 8, 4}, {PixelLayout::RGBA8888, 5, 3, 5, 3}},
  };
  for (const Case& c : cases) {
    auto src = ImageBuffer::allocate(c.src);
    auto dst = ImageBuffer::allocate(c.dst);
    ASSERT_TRUE(src && dst);
    fillPattern(*src, 1);
    fillPattern(*dst, 99);
    const std::vector<uint8_t> before(dst->data(), dst->data() + dst->size());
    vyalgo2::VyImageBuffer s = src->imageBuffer(), d = dst->imageBuffer();
    ASSERT_EQ(vyalgo2::PluginUtils::vyCopyBuffer(&d, &s), 0);

    const ImageGeometry& dg = dst->geometry();
    const uint32_t w = c.src.width, h = c.src.height;
    const uint32_t bpp = bytesPerPixel(c.src.layout);
    // Picture bytes are copied; padding keeps its old contents.
    for (uint32_t y = 0; y < dg.scanline; ++y)
      for (uint32_t x = 0; x < dg.stride * bpp; ++x) {
        const bool picture = y < h && x < w * bpp;
        const uint8_t want = picture ? lumaAt(*src, x, y) : before[size_t{y} * dg.stride * bpp + x];
        ASSERT_EQ(lumaAt(*dst, x, y), want) << x << "," << y;
      }
    if (c.src.layout == PixelLayout::RGBA8888) continue;
    const uint32_t chromaRows = (h + 1) / 2, chromaBytes = (w + 1) / 2 * 2;
    for (uint32_t y = 0; y < (dg.scanline + 1) / 2; ++y)
      for (uint32_t x = 0; x < dg.stride; ++x) {
        const bool picture = y < chromaRows && x < chromaBytes;
        const uint8_t want = picture ? chromaAt(*src, x, y)
                                     : before[size_t{dg.stride} * dg.scanline + y * dg.stride + x];
        ASSERT_EQ(chromaAt(*dst, x, y), want) << "chroma " << x << "," << y;
      }
  }
}

TEST(VyCopyBuffer, FindsChromaBehindTheScanlineWithoutASecondAddress) {
  auto src = ImageBuffer::allocate({PixelLayout::NV21, 4, 4, 8, 8});
  auto dst = ImageBuffer::allocate({PixelLayout::NV21, 4, 4, 4, 4});
  fillPattern(*src, 3);
  vyalgo2::VyImageBuffer s = src->imageBuffer(), d = dst->imageBuffer();
  s.planeCount = 1;
  s.planeAddress[1] = 0;
  ASSERT_EQ(vyalgo2::PluginUtils::vyCopyBuffer(&d, &s), 0);
  EXPECT_EQ(chromaAt(*dst, 3, 1), chromaAt(*src, 3, 1));
}

TEST(VyCopyBuffer, RefusesMismatchesAndMissingPlanes) {
  auto a = ImageBuffer::allocate({PixelLayout::NV21, 8, 4, 0, 0});
  auto b = ImageBuffer::allocate({PixelLayout::NV12, 8, 4, 0, 0});
  auto c = ImageBuffer::allocate({PixelLayout::NV21, 8, 6, 0, 0});
  vyalgo2::VyImageBuffer ra = a->imageBuffer(), rb = b->imageBuffer(), rc = c->imageBuffer();
  hostsim::LogCapture capture;
  EXPECT_EQ(vyalgo2::PluginUtils::vyCopyBuffer(&ra, &rb), -1);
  EXPECT_EQ(vyalgo2::PluginUtils::vyCopyBuffer(&ra, &rc), -1);
  EXPECT_EQ(vyalgo2::PluginUtils::vyCopyBuffer(&ra, nullptr), -1);
  vyalgo2::VyImageBuffer empty = ra;
  empty.planeAddress[0] = 0;
  EXPECT_EQ(vyalgo2::PluginUtils::vyCopyBuffer(&ra, &empty), -1);
  vyalgo2::VyImageBuffer odd = ra;
  odd.format = 0x23;
  vyalgo2::VyImageBuffer odd2 = odd;
  EXPECT_EQ(vyalgo2::PluginUtils::vyCopyBuffer(&odd2, &odd), -1);
  EXPECT_EQ(capture.androidMessages().size(), 4u);
}

class DumpFolder : public ::testing::Test {
protected:
  void SetUp() override {
    root = hostsim_test::freshTestFolder("hostsim_dump_");
    std::filesystem::create_directories(root / "data/vendor/camera");
    previous = hostsim::deviceRoot();
    hostsim::setDeviceRoot(root.string());
  }
  void TearDown() override {
    hostsim::setDeviceRoot(previous);
    std::filesystem::remove_all(root);
  }
  std::string read(const std::string& name) {
    std::ifstream in(root / "data/vendor/camera" / name, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), {});
  }
  std::filesystem::path root;
  std::string previous;
};

TEST_F(DumpFolder, WritesEachPlaneAtItsStrideWithoutRowPaddingBelow) {
  struct Case {
    ImageGeometry g;
    const char* extension;
  };
  const Case cases[] = {
      {{PixelLayout::NV21, 6, 3, 8, 6}, ".nv21"},
      {{PixelLayout::NV12, 6, 4, 8, 4}, ".nv12"},
      {{PixelLayout::RGBA8888, 2, 3, 3, 5}, ".rgba"},
  };
  for (const Case& c : cases) {
    auto b = ImageBuffer::allocate(c.g);
    fillPattern(*b, 5);
    vyalgo2::VyImageBuffer r = b->imageBuffer();
    ASSERT_EQ(vyalgo2::PluginUtils::dumpToFile(&r, "IMG_[x]_input_6x3_8"), 0);
    const std::string got = read(std::string("IMG_[x]_input_6x3_8") + c.extension);
    // Expected: `height` rows of the luma (or RGBA) plane, then the chroma
    // rows, each a full stride long.
    const ImageGeometry& g = b->geometry();
    const size_t pitch = size_t{g.stride} * bytesPerPixel(g.layout);
    std::string want(reinterpret_cast<const char*>(b->data()), pitch * g.height);
    if (c.g.layout != PixelLayout::RGBA8888)
      want.append(reinterpret_cast<const char*>(b->data() + pitch * g.scanline),
                  pitch * ((g.height + 1) / 2));
    EXPECT_EQ(got.size(), want.size()) << c.extension;
    EXPECT_TRUE(got == want) << c.extension;
  }
}

TEST_F(DumpFolder, MissingFolderIsAnErrorOnTheLog) {
  std::filesystem::remove_all(root / "data/vendor/camera");
  auto b = ImageBuffer::allocate({PixelLayout::NV21, 4, 4, 0, 0});
  vyalgo2::VyImageBuffer r = b->imageBuffer();
  hostsim::LogCapture capture;
  EXPECT_EQ(vyalgo2::PluginUtils::dumpToFile(&r, "frame"), -1);
  const auto records = capture.records();
  ASSERT_EQ(records.size(), 1u);
  EXPECT_EQ(records[0].priority, 6);
  EXPECT_NE(records[0].message.find((root / "data/vendor/camera").string()), std::string::npos)
      << records[0].message;
  EXPECT_NE(records[0].message.find("does not exist"), std::string::npos);
  EXPECT_EQ(vyalgo2::PluginUtils::dumpToFile(nullptr, "frame"), -1);
}

}  // namespace
