// Host utilities: the plane-aware copy between differently padded buffers
// and the raw image dump under the device root.
#include <gtest/gtest.h>
#include <hostsim/device_root.h>
#include <hostsim/image_buffer.h>
#include <hostsim/log_sink.h>
#include <sys/stat.h>
#include <vyalgo2/PluginUtils.h>
#include <vyalgo2/PluginWraper.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "temp_folder.h"

namespace {

using hostsim::ImageBuffer;
using hostsim::ImageGeometry;
using hostsim::PixelLayout;

// Every byte of the buffer gets a value that depends on where it is, so
// a sample copied to the wrong place shows.
void fillPattern(const ImageBuffer& b, uint8_t seed) {
  for (size_t i = 0; i < b.size(); ++i) b.data()[i] = static_cast<uint8_t>(i * 7 + seed);
}

// Where a plane lies in a buffer, from the geometry alone.
struct PlaneSpan {
  size_t offset, pitch, rows, pictureBytes;
};

std::vector<PlaneSpan> planeSpans(const ImageGeometry& g) {
  if (g.layout == PixelLayout::RGBA8888) return {{0, size_t{g.stride} * 4, g.height, g.width * 4u}};
  // Interleaved chroma: half the rows, and whole pairs of samples.
  return {{0, g.stride, g.height, g.width},
          {size_t{g.stride} * g.scanline, g.stride, (g.height + 1) / 2u, (g.width + 1) / 2 * 2u}};
}

uint8_t chromaAt(const ImageBuffer& b, uint32_t x, uint32_t y) {
  const PlaneSpan chroma = planeSpans(b.geometry())[1];
  return b.data()[chroma.offset + y * chroma.pitch + x];
}

TEST(VyCopyBuffer, CopiesPicturesBetweenDifferentPaddings) {
  const std::pair<ImageGeometry, ImageGeometry> cases[] = {
      {{PixelLayout::NV21, 10, 6, 16, 8}, {PixelLayout::NV21, 10, 6, 64, 12}},
      {{PixelLayout::NV12, 10, 6, 64, 12}, {PixelLayout::NV12, 10, 6, 0, 0}},
      {{PixelLayout::NV12, 7, 5, 8, 6}, {PixelLayout::NV12, 7, 5, 32, 10}},
      {{PixelLayout::RGBA8888, 5, 3, 8, 4}, {PixelLayout::RGBA8888, 5, 3, 5, 3}},
  };
  for (const auto& [srcGeometry, dstGeometry] : cases) {
    auto src = ImageBuffer::allocate(srcGeometry);
    auto dst = ImageBuffer::allocate(dstGeometry);
    ASSERT_TRUE(src && dst);
    fillPattern(*src, 1);
    fillPattern(*dst, 99);
    // Picture bytes are copied row by row; padding keeps its old contents.
    std::vector<uint8_t> want(dst->data(), dst->data() + dst->size());
    const auto from = planeSpans(src->geometry()), to = planeSpans(dst->geometry());
    for (size_t plane = 0; plane < from.size(); ++plane)
      for (size_t y = 0; y < from[plane].rows; ++y)
        std::copy_n(src->data() + from[plane].offset + y * from[plane].pitch,
                    from[plane].pictureBytes,
                    want.begin() + to[plane].offset + y * to[plane].pitch);
    vyalgo2::VyImageBuffer s = src->imageBuffer(), d = dst->imageBuffer();
    ASSERT_EQ(vyalgo2::PluginUtils::vyCopyBuffer(&d, &s), 0);
    EXPECT_TRUE(std::equal(want.begin(), want.end(), dst->data())) << srcGeometry.width;
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
    std::string want;
    for (const PlaneSpan& plane : planeSpans(b->geometry()))
      want.append(reinterpret_cast<const char*>(b->data() + plane.offset),
                  plane.pitch * plane.rows);
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
