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

  WrappedImage(lumo::PixelFormat layout, uint32_t width, uint32_t height, uint32_t stride,
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
  // The luma sample or RGBA pixel at (x, y), and the chroma pair of block (bx, by).
  uint8_t* at(uint32_t x, uint32_t y, int plane = 0) const {
    const size_t bytes = image->geometry().format == lumo::PixelFormat::RGBA ? 4 : 1;
    return image->plane(plane) + y * image->rowBytes(plane) + (plane ? 2 : bytes) * x;
  }
};

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

// A constant look turns every pixel of RGBA, NV21 and NV12 frames padded to
// 64 x 16 one colour, out of place and then in place (profiled); both video
// formats. Clearing the effects then empties the chain.
TEST(SdkFilter, RegisteredWithTheHostAndRendersPaddedFrames) {
  // The look's colour 200, 100, 50 in full-range BT.601.
  const int luma = int(std::floor(0.299 * 200 + 0.587 * 100 + 0.114 * 50 + 0.5));
  const int cb = int(std::floor(128 - 0.168736 * 200 - 0.331264 * 100 + 0.5 * 50 + 0.5));
  const int cr = int(std::floor(128 + 0.5 * 200 - 0.418688 * 100 - 0.081312 * 50 + 0.5));
  const LutLattice look = testing::makeLattice([](double, double, double) {
    return std::array<double, 3>{200, 100, 50};
  });
  std::mt19937 rng(1);
  for (const auto layout :
       {lumo::PixelFormat::RGBA, lumo::PixelFormat::NV21, lumo::PixelFormat::NV12}) {
    SCOPED_TRACE(int(layout));
    const bool rgba = layout == lumo::PixelFormat::RGBA,
               crFirst = layout == lumo::PixelFormat::NV21;
    auto filter = makeFilter(rgba ? 9 : 10);
    ASSERT_TRUE(filter);
    filter->setFilterScript(kScript);
    ASSERT_TRUE(filter->addLutEffectData(look.data(), 17, rgba ? -1 : 0, 3, 512));
    EXPECT_EQ(filter->getEffectCount(), 2);
    WrappedImage in(layout, 37, 11, 64, 16), out(layout, 37, 11, 64, 16),
        copy(layout, 37, 11, 64, 16);
    for (size_t i = 0; i < in.image->size(); ++i) in.image->data()[i] = uint8_t(rng());
    std::memcpy(copy.image->data(), in.image->data(), in.image->size());
    hostsim::LogCapture capture;
    ASSERT_EQ(filter->processFrame(&in.param, &out.param), 0);
    EXPECT_FALSE(logged(capture, "processFrame: 37x11"));
    filter->setProfiling(true);  // one info line per frame from now on
    ASSERT_EQ(filter->processFrame(&in.param, &in.param), 0);
    EXPECT_TRUE(logged(capture, "processFrame: 37x11, 2 effects"));
    filter->clearEffects();
    EXPECT_EQ(filter->getEffectCount(), 0);
    for (const WrappedImage* image : {&out, &in}) {
      for (const auto& [x, y] : {std::pair{37u, 0u}, {0u, 12u}})  // padding column and row
        EXPECT_EQ(*image->at(x, y), image == &out ? 0 : *copy.at(x, y)) << x << "," << y;
      for (uint32_t y = 0; y < 11; ++y)
        for (uint32_t x = 0; x < 37; ++x) {
          const uint8_t *q = image->at(x, y), *c = rgba ? q : image->at(x / 2, y / 2, 1);
          const std::array<int, 4> want =
              rgba ? std::array{200, 100, 50, int(copy.at(x, y)[3])}
                   : std::array{luma, crFirst ? cr : cb, crFirst ? cb : cr, 0};
          ASSERT_EQ((std::array<int, 4>{q[0], c[rgba], c[1 + rgba], rgba ? q[3] : 0}), want)
              << x << "," << y;
        }
    }
  }
}

// Unusable LUTs are refused, and scripts it cannot use leave fewer effects;
// each says why in a log line. Rendering still works: without effects the
// frame is copied.
TEST(SdkFilter, RefusesWhatItCannotUseWithALogLine) {
  const LutLattice bytes = testing::identityLattice();
  const char* noLut = "the script has no CubeLutEffect";
  const struct Case {
    const char* script;
    const uint8_t* lut;
    int size, index, channels, effects;
    const char* log;
  } cases[] = {
      {kScript, nullptr, 17, -1, 3, 2, "no LUT data"},
      {kScript, bytes.data(), 33, -1, 3, 2, "lattice size 33 unsupported"},
      {kScript, bytes.data(), 17, -1, 4, 2, "4 channels unsupported"},
      {kScript, bytes.data(), 17, 1, 3, 2, "no CubeLutEffect at index 1"},
      {"CvStyleEffect;SmoothValueScale=0.5;", bytes.data(), 17, -1, 3, 1, noLut},
      {"CubeLutEffect;cube_strength=1.0;lut_type=1.0;@Blur;", nullptr, 0, 0, 0, 0,
       "script not understood, no effects: unknown effect \"Blur\""},
      {"CubeLutEffect;@CvStyleEffect;SmoothStartValue=-nan;SmoothEndValue=inf;", nullptr, 0, 0, 0,
       1, "CvStyleEffect disabled: not finite: SmoothStartValue, SmoothEndValue"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.log);
    auto filter = makeFilter();
    hostsim::LogCapture capture;
    filter->setFilterScript(c.script);
    EXPECT_EQ(filter->getEffectCount(), c.effects);
    EXPECT_TRUE(c.size == 0 || !filter->addLutEffectData(c.lut, c.size, c.index, c.channels, 512));
    EXPECT_TRUE(logged(capture, c.log));
    WrappedImage in(lumo::PixelFormat::NV21, 8, 4, 0, 0), out(lumo::PixelFormat::NV21, 8, 4, 0, 0);
    *in.at(5, 3) = 77;
    EXPECT_EQ(filter->processFrame(&in.param, &out.param), 0);
    EXPECT_TRUE(c.effects != 0 || *out.at(5, 3) == 77);  // copied
  }
}

TEST(SdkFilter, BadFramesAreRefused) {
  auto filter = makeFilter();
  WrappedImage nv21(lumo::PixelFormat::NV21, 16, 8, 0, 0),
      small(lumo::PixelFormat::NV21, 8, 8, 0, 0), rgba(lumo::PixelFormat::RGBA, 16, 8, 0, 0);
  FilterFrameParam empty{}, tooBig = nv21.param;
  tooBig.width = 32;
  const std::tuple<FilterFrameParam*, FilterFrameParam*, const char*> cases[] = {
      {nullptr, &nv21.param, "missing input frame"},
      {&nv21.param, nullptr, "missing output frame"},
      {&empty, &nv21.param, "input unusable: no client buffer"},
      {&tooBig, &nv21.param, "input unusable: frame 32x8 exceeds its buffer 16x8"},
      {&nv21.param, &small.param, "input and output sizes differ"},
      {&nv21.param, &rgba.param, "input and output colour families differ"},
  };
  for (const auto& [in, out, log] : cases) {
    hostsim::LogCapture capture;
    EXPECT_EQ(filter->processFrame(in, out), -1) << log;
    EXPECT_TRUE(logged(capture, log)) << log;
  }
}

}  // namespace
}  // namespace lumo::render
