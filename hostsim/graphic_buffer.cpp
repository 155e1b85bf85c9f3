// GraphicBuffer, AHardwareBuffer and the EGL client buffer on Linux. As on
// Android, an AHardwareBuffer is the GraphicBuffer itself seen through the
// NDK type, and (off the phone) the EGL client buffer is the AHardwareBuffer.
#include <EGL/eglext.h>
#include <hostsim/image_buffer.h>
#include <platform/client_buffer.h>
#include <ui/GraphicBuffer.h>

#include <cerrno>

namespace android {

// Only buffers this process allocated can be wrapped; the requested
// geometry must be the one the buffer was allocated with.
GraphicBuffer::GraphicBuffer(const native_handle_t* inHandle, HandleWrapMethod method,
                             uint32_t inWidth, uint32_t inHeight, PixelFormat inFormat,
                             uint32_t inLayerCount, uint64_t inUsage, uint32_t inStride)
    : m_handle(inHandle),
      m_method(method),
      m_width(inWidth),
      m_height(inHeight),
      m_format(inFormat),
      m_layerCount(inLayerCount),
      m_usage(inUsage),
      m_stride(inStride),
      m_initCheck(0) {
  const hostsim::ImageBuffer* buffer = hostsim::findImageBuffer(inHandle);
  if (buffer == nullptr) {
    m_initCheck = -EINVAL;
    return;
  }
  const lumo::Geometry& g = buffer->geometry();
  if (m_method != WRAP_HANDLE || m_layerCount != 1 ||
      static_cast<uint32_t>(m_format) != hostsim::halFormatOf(g.format) || m_width != g.width ||
      m_height != g.height || m_stride != g.stride) {
    m_initCheck = -EINVAL;
  }
}

GraphicBuffer::~GraphicBuffer() = default;

AHardwareBuffer* GraphicBuffer::toAHardwareBuffer() {
  return reinterpret_cast<AHardwareBuffer*>(this);
}

const AHardwareBuffer* GraphicBuffer::toAHardwareBuffer() const {
  return reinterpret_cast<const AHardwareBuffer*>(this);
}

}  // namespace android

namespace {

const android::GraphicBuffer* graphicBufferOf(const AHardwareBuffer* buffer) {
  return reinterpret_cast<const android::GraphicBuffer*>(buffer);
}

// The pixels behind a usable hardware buffer, or null.
const hostsim::ImageBuffer* pixelsOf(const AHardwareBuffer* buffer) {
  if (buffer == nullptr) return nullptr;
  const android::GraphicBuffer* gb = graphicBufferOf(buffer);
  if (gb->initCheck() != 0) return nullptr;
  return hostsim::findImageBuffer(gb->getNativeBuffer());
}

}  // namespace

extern "C" void AHardwareBuffer_acquire(AHardwareBuffer* buffer) {
  if (buffer != nullptr) graphicBufferOf(buffer)->incStrong(buffer);
}

extern "C" void AHardwareBuffer_release(AHardwareBuffer* buffer) {
  if (buffer != nullptr) graphicBufferOf(buffer)->decStrong(buffer);
}

extern "C" void AHardwareBuffer_describe(const AHardwareBuffer* buffer,
                                         AHardwareBuffer_Desc* outDesc) {
  if (outDesc == nullptr) return;
  *outDesc = AHardwareBuffer_Desc{};
  if (buffer == nullptr) return;
  const android::GraphicBuffer* gb = graphicBufferOf(buffer);
  outDesc->width = gb->getWidth();
  outDesc->height = gb->getHeight();
  outDesc->layers = 1;
  outDesc->format = static_cast<uint32_t>(gb->getPixelFormat());
  outDesc->usage = gb->getUsage();
  outDesc->stride = gb->getStride();
}

// Memory is always coherent here, so fences have nothing to wait for and the
// whole buffer is returned whatever rectangle is asked for.
extern "C" int AHardwareBuffer_lockPlanes(AHardwareBuffer* buffer, uint64_t, int32_t, const ARect*,
                                          AHardwareBuffer_Planes* outPlanes) {
  if (outPlanes == nullptr) return -EINVAL;
  *outPlanes = AHardwareBuffer_Planes{};
  const hostsim::ImageBuffer* image = pixelsOf(buffer);
  if (image == nullptr) return -EINVAL;
  const lumo::Geometry& g = image->geometry();
  if (g.format == lumo::PixelFormat::RGBA) {
    outPlanes->planeCount = 1;
    outPlanes->planes[0] = {image->plane(0), 4, static_cast<uint32_t>(image->rowBytes(0))};
    return 0;
  }
  uint8_t* chroma = image->plane(1);
  const uint32_t rowStride = static_cast<uint32_t>(image->rowBytes(0));
  // NV21 interleaves V before U, NV12 U before V.
  const bool vFirst = g.format == lumo::PixelFormat::NV21;
  outPlanes->planeCount = 3;
  outPlanes->planes[0] = {image->plane(0), 1, rowStride};
  outPlanes->planes[1] = {chroma + (vFirst ? 1 : 0), 2, rowStride};
  outPlanes->planes[2] = {chroma + (vFirst ? 0 : 1), 2, rowStride};
  return 0;
}

extern "C" int AHardwareBuffer_lock(AHardwareBuffer* buffer, uint64_t, int32_t, const ARect*,
                                    void** outVirtualAddress) {
  if (outVirtualAddress == nullptr) return -EINVAL;
  *outVirtualAddress = nullptr;
  const hostsim::ImageBuffer* image = pixelsOf(buffer);
  if (image == nullptr) return -EINVAL;
  *outVirtualAddress = image->data();
  return 0;
}

extern "C" int AHardwareBuffer_unlock(AHardwareBuffer* buffer, int32_t* fence) {
  if (fence != nullptr) *fence = -1;
  return pixelsOf(buffer) == nullptr ? -EINVAL : 0;
}

extern "C" EGLClientBuffer eglGetNativeClientBufferANDROID(const AHardwareBuffer* buffer) {
  return const_cast<AHardwareBuffer*>(buffer);
}

namespace vyplatform {

AHardwareBuffer* hardwareBufferFromClientBuffer(EGLClientBuffer buffer) {
  return static_cast<AHardwareBuffer*>(buffer);
}

}  // namespace vyplatform
