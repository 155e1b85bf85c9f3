// The filter SDK object as the plugin meets it: made by createFilter, fed
// scripts and LUTs, rendering host-simulator buffers (padded strides and
// scanlines, in place or not), refusing what it cannot use with a log line.
#include <EGL/eglext.h>
#include <gtest/gtest.h>
#include <hostsim/filter_factory.h>
#include <hostsim/image_buffer.h>
#include <hostsim/log_sink.h>
#include <system/graphics.h>
#include <ui/GraphicBuffer.h>
#include <videoprocess/ProcessorCreator.h>

#include <array>
#include <cmath>
#include <memory>
#include <random>

#include "effect_chain.h"
#include "render_test_support.h"

namespace lumo::render {
namespace {

using videoprocess::FilterFrameParam;
using videoprocess::VideoFilter;

// A simulator buffer wrapped the way the plugin wraps it for the GPU.
struct WrappedImage {
  std::unique_ptr<hostsim::ImageBuffer> image;
  android::sp<android::GraphicBuffer> graphic;
  FilterFrameParam param{};

  WrappedImage(hostsim::PixelLayout layout, uint32_t width, uint32_t height, uint32_t stride,
               uint32_t scanline) {
    std::string error;
    image = hostsim::ImageBuffer::allocate({layout, width, height, stride, scanline}, &error);
    EXPECT_TRUE(image) << error;
    graphic = new android::GraphicBuffer(image->handle(), android::GraphicBuffer::WRAP_HANDLE,
                                         width, height, int32_t(hostsim::halFormatOf(layout)), 1,
                                         0x333, image->geometry().stride);
    param.clientBuffer = eglGetNativeClientBufferANDROID(graphic->toAHardwareBuffer());
    param.stride = param.stride2 = image->geometry().stride;
    param.width = width;
    param.height = height;
  }
  uint8_t* luma(uint32_t x, uint32_t y) const {
    return image->plane(0) + y * image->rowBytes(0) + x;
  }
  uint8_t* rgba(uint32_t x, uint32_t y) const {
    return image->plane(0) + y * image->rowBytes(0) + 4 * size_t(x);
  }
  uint8_t* chroma(uint32_t bx, uint32_t by) const {
    return image->plane(1) + by * image->rowBytes(1) + 2 * size_t(bx);
  }
};

LutLattice lattice(bool swapRedGreen) {
  return testing::makeLattice([&](double r, double g, double b) {
    return swapRedGreen ? std::array<double, 3>{g, r, b} : std::array<double, 3>{r, g, b};
  });
}

const char* kScript =
    "CubeLutEffect;cube_strength=1.0;lut_type=1.0;@CvStyleEffect;Width=50;Height=10;"
    "SmoothStartValue=0.000000;SmoothEndValue=0.000000;SmoothCoordScale=0.000000;"
    "SmoothValueScale=0.000000;LightDarkPreserveK=0.000000;LightDarkPreserveB=0.000000;"
    "LightDarkPreserveV=0.000000;LightDarkPreserveT=0.000000;";

std::unique_ptr<VideoFilter> makeFilter(int format = 10) {
  return std::unique_ptr<VideoFilter>(
      videoprocess::ProcessorCreator::createFilter(videoprocess::VideoFormat(format), false));
}

bool logged(const hostsim::LogCapture& capture, const std::string& text) {
  for (const hostsim::LogRecord& r : capture.records())
    if (r.tag == "VideoProcess" && r.message.find(text) != std::string::npos) return true;
  return false;
}

TEST(SdkFilter, RegisteredWithTheHostAndRendersBothVideoFormats) {
  ASSERT_TRUE(hostsim::hasSdkFilterFactory());
  std::mt19937 rng(1);
  for (int format : {9, 10}) {
    auto filter = makeFilter(format);
    ASSERT_TRUE(filter);
    filter->clearEffects();
    filter->setFilterScript(kScript);
    const auto swap = lattice(true);
    ASSERT_TRUE(filter->addLutEffectData(swap.data(), 17, -1, 3, 512));
    EXPECT_EQ(filter->getEffectCount(), 2);
    // 50 x 10 RGBA in rows of 64 pixels and 16 rows.
    WrappedImage in(hostsim::PixelLayout::RGBA8888, 50, 10, 64, 16);
    WrappedImage out(hostsim::PixelLayout::RGBA8888, 50, 10, 64, 16);
    for (size_t i = 0; i < in.image->size(); ++i) in.image->data()[i] = uint8_t(rng());
    ASSERT_EQ(filter->processFrame(&in.param, &out.param), 0);
    for (uint32_t y = 0; y < 10; ++y)
      for (uint32_t x = 0; x < 50; ++x) {
        const uint8_t* p = in.rgba(x, y);
        const uint8_t* q = out.rgba(x, y);
        ASSERT_EQ((std::array<int, 4>{q[0], q[1], q[2], q[3]}),
                  (std::array<int, 4>{p[1], p[0], p[2], p[3]}))
            << "format " << format << " at " << x << "," << y;
      }
    // Padding rows and columns stay as they were (zero).
    EXPECT_EQ(out.rgba(50, 0)[0], 0);
    EXPECT_EQ(out.rgba(0, 12)[0], 0);
  }
}

TEST(SdkFilter, YuvInPlaceAndOutOfPlaceWithPaddedPlanes) {
  for (hostsim::PixelLayout layout : {hostsim::PixelLayout::NV21, hostsim::PixelLayout::NV12}) {
    auto filter = makeFilter();
    filter->setFilterScript(kScript);
    WrappedImage in(layout, 37, 11, 64, 16);
    // In place, a constant look turns every pixel one colour.
    const LutLattice constant = testing::makeLattice([](double, double, double) {
      return std::array<double, 3>{200, 100, 50};
    });
    ASSERT_TRUE(filter->addLutEffectData(constant.data(), 17, 0, 3, 512));
    const int y = int(std::floor(0.299 * 200 + 0.587 * 100 + 0.114 * 50 + 0.5));
    const int cb = int(std::floor(128 - 0.168736 * 200 - 0.331264 * 100 + 0.5 * 50 + 0.5));
    const int cr = int(std::floor(128 + 0.5 * 200 - 0.418688 * 100 - 0.081312 * 50 + 0.5));
    const bool crFirst = layout == hostsim::PixelLayout::NV21;
    WrappedImage out(layout, 37, 11, 64, 16);
    ASSERT_EQ(filter->processFrame(&in.param, &out.param), 0);
    ASSERT_EQ(filter->processFrame(&in.param, &in.param), 0);
    for (const WrappedImage* image : {&out, &in}) {
      EXPECT_EQ(*image->luma(36, 10), y);
      EXPECT_EQ(*image->luma(0, 0), y);
      EXPECT_EQ(image->chroma(18, 5)[crFirst ? 0 : 1], cr);
      EXPECT_EQ(image->chroma(3, 2)[crFirst ? 1 : 0], cb);
      EXPECT_EQ(*image->luma(37, 0), 0) << "padding column";
    }
  }
}

TEST(SdkFilter, RefusesUnusableLutsWithALogLine) {
  const auto bytes = lattice(false);
  struct Case {
    const char* script;
    const uint8_t* lut;
    int size, index, channels;
    const char* log;
  } cases[] = {
      {kScript, nullptr, 17, -1, 3, "no LUT data"},
      {kScript, bytes.data(), 33, -1, 3, "lattice size 33 unsupported"},
      {kScript, bytes.data(), 17, -1, 4, "4 channels unsupported"},
      {kScript, bytes.data(), 17, 1, 3, "no CubeLutEffect at index 1"},
      {"CvStyleEffect;SmoothValueScale=0.5;", bytes.data(), 17, -1, 3,
       "the script has no CubeLutEffect"},
      {"Garbage;", bytes.data(), 17, -1, 3, "the script has no CubeLutEffect"},
  };
  for (const Case& c : cases) {
    auto filter = makeFilter();
    filter->setFilterScript(c.script);
    hostsim::LogCapture capture;
    EXPECT_FALSE(filter->addLutEffectData(c.lut, c.size, c.index, c.channels, 512)) << c.log;
    EXPECT_TRUE(logged(capture, c.log)) << c.log;
  }
}

TEST(SdkFilter, ScriptsItCannotUseLeaveNoEffectsAndSayWhy) {
  struct Case {
    const char* script;
    int effects;
    const char* log;
  } cases[] = {
      {"CubeLutEffect;cube_strength=1.0;lut_type=1.0;@Blur;", 0,
       "script not understood, no effects: unknown effect \"Blur\""},
      {"CubeLutEffect;cube_strength=abc;", 0, "cube_strength is not a number"},
      {"CubeLutEffect;@CvStyleEffect;SmoothStartValue=-nan;SmoothEndValue=inf;", 1,
       "CvStyleEffect disabled: not finite: SmoothStartValue, SmoothEndValue"},
  };
  for (const Case& c : cases) {
    auto filter = makeFilter();
    hostsim::LogCapture capture;
    filter->setFilterScript(c.script);
    EXPECT_EQ(filter->getEffectCount(), c.effects) << c.script;
    EXPECT_TRUE(logged(capture, c.log)) << c.script;
    // Rendering still works: without effects the frame is copied.
    WrappedImage in(hostsim::PixelLayout::NV21, 8, 4, 0, 0),
        out(hostsim::PixelLayout::NV21, 8, 4, 0, 0);
    *in.luma(5, 3) = 77;
    EXPECT_EQ(filter->processFrame(&in.param, &out.param), 0);
    if (c.effects == 0) {
      EXPECT_EQ(*out.luma(5, 3), 77);
    }
  }
}

TEST(SdkFilter, ClearEffectsDropsTheChainAndBadFramesAreRefused) {
  auto filter = makeFilter();
  filter->setFilterScript(kScript);
  filter->clearEffects();
  EXPECT_EQ(filter->getEffectCount(), 0);
  const auto bytes = lattice(false);
  EXPECT_FALSE(filter->addLutEffectData(bytes.data(), 17, -1, 3, 512));

  WrappedImage nv21(hostsim::PixelLayout::NV21, 16, 8, 0, 0),
      small(hostsim::PixelLayout::NV21, 8, 8, 0, 0);
  WrappedImage rgba(hostsim::PixelLayout::RGBA8888, 16, 8, 0, 0);
  FilterFrameParam empty{};
  FilterFrameParam tooBig = nv21.param;
  tooBig.width = 32;
  struct Case {
    FilterFrameParam* in;
    FilterFrameParam* out;
    const char* log;
  } cases[] = {
      {nullptr, &nv21.param, "missing input frame"},
      {&nv21.param, nullptr, "missing output frame"},
      {&empty, &nv21.param, "input unusable: no client buffer"},
      {&tooBig, &nv21.param, "input unusable: frame 32x8 exceeds its buffer 16x8"},
      {&nv21.param, &small.param, "input and output sizes differ"},
      {&nv21.param, &rgba.param, "input and output colour families differ"},
  };
  for (const Case& c : cases) {
    hostsim::LogCapture capture;
    EXPECT_EQ(filter->processFrame(c.in, c.out), -1) << c.log;
    EXPECT_TRUE(logged(capture, c.log)) << c.log;
  }
}

TEST(SdkFilter, ProfilingLogsEachFrame) {
  auto filter = makeFilter();
  filter->setFilterScript(kScript);
  const auto bytes = lattice(false);
  ASSERT_TRUE(filter->addLutEffectData(bytes.data(), 17, -1, 3, 512));
  WrappedImage image(hostsim::PixelLayout::NV12, 20, 6, 0, 0);
  hostsim::LogCapture capture;
  EXPECT_EQ(filter->processFrame(&image.param, &image.param), 0);
  EXPECT_FALSE(logged(capture, "processFrame: 20x6"));
  filter->setProfiling(true);
  EXPECT_EQ(filter->processFrame(&image.param, &image.param), 0);
  EXPECT_TRUE(logged(capture, "processFrame: 20x6, 2 effects"));
}

}  // namespace
}  // namespace lumo::render
