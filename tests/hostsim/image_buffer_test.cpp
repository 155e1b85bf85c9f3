// Image buffers: allocation per format and padding, rejected geometry, and
// the way from a native handle through GraphicBuffer, AHardwareBuffer and
// the EGL client buffer back to the same pixels.
#include <EGL/eglext.h>
#include <gtest/gtest.h>
#include <hostsim/image_buffer.h>
#include <platform/client_buffer.h>
#include <ui/GraphicBuffer.h>
#include <unistd.h>

#include <cerrno>

namespace {

using hostsim::ImageBuffer;
using hostsim::ImageGeometry;
using hostsim::PixelLayout;

TEST(ImageBuffer, AllocatesEachFormatWithItsPadding) {
  struct Case {
    ImageGeometry g;
    uint32_t format, planes;
    size_t size, chromaOffset, rowBytes;
    uint32_t chromaRows;
  };
  const Case cases[] = {
      // Y 64x16 bytes, then 8 rows of interleaved chroma.
      {{PixelLayout::NV21, 6, 4, 64, 16}, 0x11, 2, 64 * 16 + 64 * 8, 64 * 16, 64, 2},
      {{PixelLayout::NV12, 6, 4, 64, 16}, 0x109, 2, 64 * 16 + 64 * 8, 64 * 16, 64, 2},
      // Unpadded, odd height: the last chroma row covers one luma row.
      {{PixelLayout::NV21, 4, 3, 0, 0}, 0x11, 2, 4 * 3 + 4 * 2, 12, 4, 2},
      // Odd width: the stride grows to hold the last chroma pair.
      {{PixelLayout::NV12, 5, 2, 0, 0}, 0x109, 2, 6 * 2 + 6 * 1, 12, 6, 1},
      {{PixelLayout::RGBA8888, 3, 2, 16, 4}, 0x1, 1, 16 * 4 * 4, 0, 64, 0},
  };
  for (const Case& c : cases) {
    std::string error;
    auto b = ImageBuffer::allocate(c.g, &error);
    ASSERT_NE(b, nullptr) << error;
    EXPECT_EQ(hostsim::halFormatOf(b->geometry().layout), c.format);
    EXPECT_EQ(b->planeCount(), c.planes);
    EXPECT_EQ(b->size(), c.size);
    EXPECT_EQ(b->rowBytes(0), c.rowBytes);
    EXPECT_EQ(b->planeRows(0), c.g.height);
    EXPECT_EQ(b->planeRows(1), c.chromaRows);
    EXPECT_EQ(b->plane(2), nullptr);
    if (c.planes == 2) {
      EXPECT_EQ(b->plane(1) - b->plane(0), static_cast<ptrdiff_t>(c.chromaOffset));
    }
    // Zero-filled and writable to the last byte.
    EXPECT_EQ(b->data()[b->size() - 1], 0);
    b->data()[b->size() - 1] = 0x5A;

    const vyalgo2::ImageParams p = b->imageParams();
    EXPECT_EQ(p.format, c.format);
    EXPECT_EQ(p.stride, b->geometry().stride);
    EXPECT_EQ(p.scanline, b->geometry().scanline);
    EXPECT_EQ(p.numberOfPlanes, c.planes);
    EXPECT_EQ(p.planeAddress[0], reinterpret_cast<uint64_t>(b->data()));
    EXPECT_EQ(p.planeFd[0], b->fd());
    EXPECT_EQ(p.phHandle, b->handle());
    const vyalgo2::VyImageBuffer r = b->imageBuffer();
    EXPECT_EQ(r.planeCount, c.planes);
    EXPECT_EQ(r.stride, b->geometry().stride);
    EXPECT_EQ(r.planeAddress[c.planes - 1], reinterpret_cast<uint64_t>(b->plane(c.planes - 1)));
    ASSERT_EQ(b->handle()->numFds, 1);
    EXPECT_EQ(b->handle()->data[0], b->fd());
  }
}

TEST(ImageBuffer, ImpossibleGeometryIsRejectedWithTheReason) {
  struct Case {
    ImageGeometry g;
    const char* reason;
  };
  const Case cases[] = {
      {{PixelLayout::NV21, 0, 4, 0, 0}, "non-zero"},
      {{PixelLayout::RGBA8888, 4, 0, 0, 0}, "non-zero"},
      {{PixelLayout::NV12, 64, 4, 32, 0}, "stride is below the width"},
      {{PixelLayout::NV21, 5, 4, 5, 0}, "last chroma pair"},
      {{PixelLayout::RGBA8888, 8, 8, 8, 7}, "scanline is below the height"},
      {{PixelLayout::RGBA8888, 0x40000000, 0x40000000, 0, 0}, "too large"},
  };
  for (const Case& c : cases) {
    std::string error;
    EXPECT_EQ(ImageBuffer::allocate(c.g, &error), nullptr) << c.reason;
    EXPECT_NE(error.find(c.reason), std::string::npos) << error;
    EXPECT_EQ(hostsim::validateGeometry(c.g), error);
  }
}

android::sp<android::GraphicBuffer> wrap(const ImageBuffer& b, uint32_t width, uint32_t stride) {
  const vyalgo2::ImageParams p = b.imageParams();
  return new android::GraphicBuffer(p.phHandle, android::GraphicBuffer::WRAP_HANDLE, width,
                                    p.height, static_cast<android::PixelFormat>(p.format), 1, 0x333,
                                    stride);
}

TEST(GraphicBuffer, LeadsBackToTheSamePixels) {
  struct Case {
    ImageGeometry g;
    uint32_t planeCount;
    ptrdiff_t offset[3];  // of Y, Cb, Cr (or the pixels) from the buffer's start
    uint32_t pixelStride[3], rowStride;
  };
  // Chroma follows the padded luma plane: 64 * 16 = 1024.
  const Case cases[] = {
      {{PixelLayout::NV21, 6, 4, 64, 16}, 3, {0, 1025, 1024}, {1, 2, 2}, 64},
      {{PixelLayout::NV12, 6, 4, 64, 16}, 3, {0, 1024, 1025}, {1, 2, 2}, 64},
      {{PixelLayout::RGBA8888, 3, 2, 16, 4}, 1, {0}, {4}, 64},
  };
  for (const Case& c : cases) {
    auto b = ImageBuffer::allocate(c.g);
    ASSERT_NE(b, nullptr);
    android::sp<android::GraphicBuffer> gb = wrap(*b, c.g.width, c.g.stride);
    ASSERT_EQ(gb->initCheck(), 0);
    EXPECT_EQ(gb->getStrongCount(), 1);

    EGLClientBuffer client = eglGetNativeClientBufferANDROID(gb->toAHardwareBuffer());
    AHardwareBuffer* hw = vyplatform::hardwareBufferFromClientBuffer(client);
    AHardwareBuffer_Desc desc;
    AHardwareBuffer_describe(hw, &desc);
    EXPECT_EQ(desc.width, c.g.width);
    EXPECT_EQ(desc.height, c.g.height);
    EXPECT_EQ(desc.stride, c.g.stride);
    EXPECT_EQ(desc.format, hostsim::halFormatOf(c.g.layout));
    EXPECT_EQ(desc.usage, 0x333u);

    AHardwareBuffer_Planes planes;
    ASSERT_EQ(AHardwareBuffer_lockPlanes(hw, 3, -1, nullptr, &planes), 0);
    ASSERT_EQ(planes.planeCount, c.planeCount);
    for (uint32_t i = 0; i < c.planeCount; ++i) {
      EXPECT_EQ(planes.planes[i].data, b->data() + c.offset[i]) << i;
      EXPECT_EQ(planes.planes[i].pixelStride, c.pixelStride[i]) << i;
      EXPECT_EQ(planes.planes[i].rowStride, c.rowStride) << i;
    }
    EXPECT_EQ(AHardwareBuffer_unlock(hw, nullptr), 0);
    void* address = nullptr;
    ASSERT_EQ(AHardwareBuffer_lock(hw, 3, -1, nullptr, &address), 0);
    EXPECT_EQ(address, b->data());
    EXPECT_EQ(AHardwareBuffer_unlock(hw, nullptr), 0);

    AHardwareBuffer_acquire(hw);
    EXPECT_EQ(gb->getStrongCount(), 2);
    AHardwareBuffer_release(hw);
    EXPECT_EQ(gb->getStrongCount(), 1);
  }
}

TEST(GraphicBuffer, UnknownHandlesAndWrongGeometryFailInitCheck) {
  auto b = ImageBuffer::allocate({PixelLayout::NV21, 8, 4, 16, 8});
  ASSERT_NE(b, nullptr);
  native_handle_t* stranger = native_handle_create(0, 2);
  android::sp<android::GraphicBuffer> unknown = new android::GraphicBuffer(
      stranger, android::GraphicBuffer::WRAP_HANDLE, 8, 4, 0x11, 1, 0x333, 16);
  EXPECT_EQ(unknown->initCheck(), -EINVAL);
  AHardwareBuffer_Planes planes;
  EXPECT_EQ(AHardwareBuffer_lockPlanes(unknown->toAHardwareBuffer(), 3, -1, nullptr, &planes),
            -EINVAL);
  EXPECT_EQ(planes.planeCount, 0u);
  unknown.clear();
  native_handle_delete(stranger);

  EXPECT_EQ(wrap(*b, 9, 16)->initCheck(), -EINVAL);  // wider than allocated
  EXPECT_EQ(wrap(*b, 8, 32)->initCheck(), -EINVAL);  // another stride
  EXPECT_EQ(wrap(*b, 8, 16)->initCheck(), 0);
  android::sp<android::GraphicBuffer> nullHandle = new android::GraphicBuffer(
      nullptr, android::GraphicBuffer::WRAP_HANDLE, 8, 4, 0x11, 1, 0x333, 16);
  EXPECT_EQ(nullHandle->initCheck(), -EINVAL);
}

TEST(GraphicBuffer, AClonedHandleFindsTheSameMemory) {
  auto b = ImageBuffer::allocate({PixelLayout::NV12, 8, 4, 16, 8});
  ASSERT_NE(b, nullptr);
  const native_handle_t* original = b->handle();
  native_handle_t* clone = native_handle_create(original->numFds, original->numInts);
  clone->data[0] = dup(original->data[0]);
  for (int i = 0; i < original->numInts; ++i) clone->data[1 + i] = original->data[1 + i];
  EXPECT_EQ(hostsim::findImageBuffer(clone), b.get());
  // Without our marker the same fd is not trusted.
  clone->data[1] ^= 1;
  EXPECT_EQ(hostsim::findImageBuffer(clone), nullptr);
  clone->data[1] ^= 1;
  // Once the buffer is gone its memory is no longer an image, even though
  // the clone's descriptor keeps the memory alive.
  b.reset();
  EXPECT_EQ(hostsim::findImageBuffer(clone), nullptr);
  EXPECT_EQ(native_handle_close(clone), 0);
  EXPECT_EQ(native_handle_delete(clone), 0);
}

}  // namespace
