// Image buffers: allocation per format and padding, rejected geometry, the
// way from a native handle back to the same pixels, padded copies and dumps.
#include <EGL/eglext.h>
#include <gtest/gtest.h>
#include <hostsim/image_buffer.h>
#include <hostsim/log_sink.h>
#include <platform/client_buffer.h>
#include <sys/mman.h>
#include <ui/GraphicBuffer.h>
#include <unistd.h>
#include <vyalgo2/PluginUtils.h>
#include <vyalgo2/PluginWraper.h>

#include <cerrno>
#include <fstream>
#include <iterator>

#include "support.h"

namespace {

using hostsim::ImageBuffer;
using lumo::Geometry;
using lumo::PixelFormat;
using vyalgo2::PluginUtils;

android::sp<android::GraphicBuffer> wrap(const native_handle_t* handle, uint32_t width,
                                         uint32_t height, uint32_t stride, int32_t format = 0x11) {
  return new android::GraphicBuffer(handle, android::GraphicBuffer::WRAP_HANDLE, width, height,
                                    format, 1, 0x333, stride);
}

TEST(ImageBuffer, AllocatesEachFormatAndLeadsBackToTheSamePixels) {
  struct Case {
    Geometry g;
    uint32_t format, planes;
    size_t size, chromaOffset, rowBytes;
    uint32_t chromaRows;
  } cases[] = {// Y 64x16 bytes, then 8 rows of interleaved chroma.
               {{PixelFormat::NV21, 6, 4, 64, 16}, 0x11, 2, 64 * 16 + 64 * 8, 64 * 16, 64, 2},
               // Odd width: the stride grows to hold the last chroma pair.
               {{PixelFormat::NV12, 5, 2, 0, 0}, 0x109, 2, 6 * 2 + 6 * 1, 12, 6, 1},
               {{PixelFormat::RGBA, 3, 2, 16, 4}, 0x1, 1, 16 * 4 * 4, 0, 64, 0}};
  for (const Case& c : cases) {
    std::string error;
    auto b = ImageBuffer::allocate(c.g, &error);
    ASSERT_NE(b, nullptr) << error;
    EXPECT_EQ(std::make_tuple(hostsim::halFormatOf(c.g.format), b->planeCount(), b->size(),
                              b->rowBytes(0), b->planeRows(0), b->planeRows(1), b->plane(2),
                              c.planes == 2 ? b->plane(1) - b->plane(0) : 0),
              std::make_tuple(c.format, c.planes, c.size, c.rowBytes, c.g.height, c.chromaRows,
                              nullptr, ptrdiff_t(c.chromaOffset)));
    // Zero-filled and writable to the last byte.
    EXPECT_EQ(b->data()[b->size() - 1], 0);
    b->data()[b->size() - 1] = 0x5A;
    const vyalgo2::ImageParams p = b->imageParams();
    // Through GraphicBuffer, AHardwareBuffer and the EGL client buffer back to the same pixels
    // (the renderer's SDK tests read the planes this way, Cr first in NV21).
    const uint32_t stride = b->geometry().stride;
    android::sp<android::GraphicBuffer> gb =
        wrap(p.phHandle, c.g.width, p.height, stride, p.format);
    ASSERT_EQ(gb->initCheck(), 0);
    AHardwareBuffer* hw = vyplatform::hardwareBufferFromClientBuffer(
        eglGetNativeClientBufferANDROID(gb->toAHardwareBuffer()));
    void* address = nullptr;
    EXPECT_TRUE(AHardwareBuffer_unlock(hw, nullptr) == 0 &&
                AHardwareBuffer_lock(hw, 3, -1, nullptr, &address) == 0 &&
                AHardwareBuffer_unlock(hw, nullptr) == 0);
    EXPECT_EQ(address, b->data());
    AHardwareBuffer_acquire(hw);  // its references are the GraphicBuffer's
    EXPECT_EQ(gb->getStrongCount(), 2);
    AHardwareBuffer_release(hw);
  }
}

TEST(ImageBuffer, ImpossibleGeometryIsRejectedWithTheReason) {
  const std::pair<Geometry, const char*> cases[] = {
      {{PixelFormat::RGBA, 4, 0, 0, 0}, "must be positive"},
      {{PixelFormat::NV12, 64, 4, 32, 0}, "stride 32 is below the width"},
      {{PixelFormat::NV21, 5, 4, 5, 0}, "stride must be even"},
      {{PixelFormat::RGBA, 8, 8, 8, 7}, "scanline 7 is below the height"},
      {{PixelFormat::RGBA, 0x40000000, 0x40000000, 0, 0}, "too large"}};
  for (const auto& [g, reason] : cases) {
    std::string error;
    EXPECT_EQ(ImageBuffer::allocate(g, &error), nullptr) << reason;
    EXPECT_NE(error.find(reason), std::string::npos) << error;
  }
}

TEST(GraphicBuffer, OnlyOurHandlesWithTheirGeometryAreTrustedClonesIncluded) {
  auto b = ImageBuffer::allocate({PixelFormat::NV21, 8, 4, 16, 8});
  ASSERT_NE(b, nullptr);
  const native_handle_t* h = b->handle();
  EXPECT_EQ(std::make_tuple(wrap(h, 9, 4, 16)->initCheck(), wrap(h, 8, 4, 32)->initCheck(),
                            wrap(nullptr, 8, 4, 16)->initCheck(), wrap(h, 8, 4, 16)->initCheck()),
            std::make_tuple(-EINVAL, -EINVAL, -EINVAL, 0));  // wider, another stride, none, right
  AHardwareBuffer_Planes planes;
  EXPECT_EQ(
      AHardwareBuffer_lockPlanes(wrap(h, 9, 4, 16)->toAHardwareBuffer(), 3, -1, nullptr, &planes),
      -EINVAL);
  EXPECT_EQ(planes.planeCount, 0u);
  // A clone with a dup'ed fd finds the same memory, but only with our marker intact.
  native_handle_t* clone = native_handle_create(h->numFds, h->numInts);
  clone->data[0] = dup(h->data[0]);
  for (int i = 0; i < h->numInts; ++i) clone->data[1 + i] = h->data[1 + i];
  EXPECT_EQ(hostsim::findImageBuffer(clone), b.get());
  clone->data[1] ^= 1;
  EXPECT_EQ(hostsim::findImageBuffer(clone), nullptr);
  clone->data[1] ^= 1;
  // Once the buffer is gone its memory is no longer an image, though the clone keeps it alive.
  b.reset();
  EXPECT_EQ(hostsim::findImageBuffer(clone), nullptr);
  EXPECT_EQ(native_handle_close(clone) + native_handle_delete(clone), 0);
}

TEST(ImageBuffer, BorrowedMemoryIsUsedInPlaceAndOutlivesTheBuffer) {
  const Geometry g{PixelFormat::NV12, 6, 4, 8, 4};
  const size_t bytes = lumo::bufferBytes(g);
  const int fd = memfd_create("lent", MFD_CLOEXEC);
  ASSERT_EQ(ftruncate(fd, 4096), 0);
  auto* lent =
      static_cast<uint8_t*>(mmap(nullptr, 4096, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0));
  ASSERT_NE(lent, MAP_FAILED);
  lent[bytes - 1] = 7;
  std::string error;
  EXPECT_EQ(ImageBuffer::borrow(g, lent, bytes - 1, fd, &error), nullptr);
  EXPECT_NE(error.find("smaller"), std::string::npos) << error;
  {
    auto b = ImageBuffer::borrow(g, lent, bytes, fd, &error);
    ASSERT_NE(b, nullptr) << error;
    EXPECT_EQ(std::make_tuple(b->data(), b->plane(1), b->size(), b->data()[bytes - 1],
                              hostsim::findImageBuffer(b->handle())),
              std::make_tuple(lent, lent + 32, bytes, uint8_t{7}, b.get()));
    EXPECT_NE(b->handle()->data[0], fd);  // a handle of its own
  }
  lent[0] = 1;  // still mapped: the buffer did not unmap what it borrowed
  EXPECT_EQ(munmap(lent, 4096) + close(fd), 0);
}

// Every byte gets a value that depends on where it is, so a misplaced sample shows.
void fillPattern(const ImageBuffer& b, uint8_t seed) {
  for (size_t i = 0; i < b.size(); ++i) b.data()[i] = static_cast<uint8_t>(i * 7 + seed);
}

// Where each plane lies in a buffer, from the geometry alone.
struct PlaneSpan {
  size_t offset, pitch, rows, pictureBytes;
};
std::vector<PlaneSpan> planeSpans(const Geometry& g) {
  if (g.format == PixelFormat::RGBA) return {{0, size_t{g.stride} * 4, g.height, g.width * 4u}};
  // Interleaved chroma: half the rows, and whole pairs of samples.
  return {{0, g.stride, g.height, g.width},
          {size_t{g.stride} * g.scanline, g.stride, (g.height + 1) / 2u, (g.width + 1) / 2 * 2u}};
}

class Pictures : public hostsim_test::DeviceRootTest {};

// Copies between paddings, and dumps that write each plane at its stride
// without the rows of padding below.
TEST_F(Pictures, CopiedBetweenPaddingsAndDumpedAtTheirStrideMismatchesRefused) {
  std::filesystem::create_directories(dir / "data/vendor/camera");
  const std::pair<Geometry, Geometry> cases[] = {
      {{PixelFormat::NV21, 10, 6, 16, 8}, {PixelFormat::NV21, 10, 6, 64, 12}},
      {{PixelFormat::NV12, 7, 5, 8, 6}, {PixelFormat::NV12, 7, 5, 32, 10}},
      {{PixelFormat::RGBA, 5, 3, 8, 4}, {PixelFormat::RGBA, 5, 3, 5, 3}},
      // Without a second address the chroma is found behind the scanline.
      {{PixelFormat::NV21, 4, 4, 8, 8}, {PixelFormat::NV21, 4, 4, 4, 4}}};
  for (const auto& [srcGeometry, dstGeometry] : cases) {
    auto src = ImageBuffer::allocate(srcGeometry), dst = ImageBuffer::allocate(dstGeometry);
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
    if (srcGeometry.width == 4) s.planeCount = 1, s.planeAddress[1] = 0;
    ASSERT_EQ(PluginUtils::vyCopyBuffer(&d, &s), 0);
    EXPECT_TRUE(std::equal(want.begin(), want.end(), dst->data())) << srcGeometry.width;
    ASSERT_EQ(PluginUtils::dumpToFile(&d, "IMG_[x]_copy"), 0);
    const char* extension = d.format == 0x1 ? ".rgba" : d.format == 0x11 ? ".nv21" : ".nv12";
    std::ifstream in(dir / "data/vendor/camera" / (std::string("IMG_[x]_copy") + extension),
                     std::ios::binary);
    std::string dumped;
    for (const PlaneSpan& plane : to)
      dumped.append(reinterpret_cast<const char*>(dst->data() + plane.offset),
                    plane.pitch * plane.rows);
    EXPECT_TRUE(std::string(std::istreambuf_iterator<char>(in), {}) == dumped) << extension;
  }
  EXPECT_EQ(PluginUtils::dumpToFile(nullptr, "frame"), -1);
  // Refused: another format, another size, no source, no first plane, an unknown format.
  auto a = ImageBuffer::allocate({PixelFormat::NV21, 8, 4, 0, 0});
  vyalgo2::VyImageBuffer ra = a->imageBuffer(), nv12 = ra, taller = ra, empty = ra, odd = ra;
  nv12.format = 0x109, taller.height = 6, empty.planeAddress[0] = 0, odd.format = 0x23;
  EXPECT_EQ(PluginUtils::dumpToFile(&ra, "missing/IMG"), -1);  // a folder that is not there
  vyalgo2::VyImageBuffer odd2 = odd;
  hostsim::LogCapture capture;
  const std::pair<vyalgo2::VyImageBuffer*, vyalgo2::VyImageBuffer*> refused[] = {
      {&ra, &nv12}, {&ra, &taller}, {&ra, nullptr}, {&ra, &empty}, {&odd2, &odd}};
  for (auto [dst, src] : refused) EXPECT_EQ(PluginUtils::vyCopyBuffer(dst, src), -1);
  EXPECT_EQ(capture.androidMessages().size(), 4u);  // all but the missing source are logged
}

}  // namespace
